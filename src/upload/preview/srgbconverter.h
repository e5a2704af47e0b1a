// SPDX-License-Identifier: MIT
#pragma once

#include "matrixshapertables.h"
#include "photometadata.h"

#include <cstdint>
#include <memory>
#include <optional>

// Brings a photo's colours to sRGB with Little CMS, on the scaled preview only: the preview is
// then right in every viewer, those that ignore profiles too. Made only for photos that need
// it: sRGB and untagged photos, profiles that are not RGB, and profiles Little CMS cannot read
// get none, and keep their values as they are. Matrix-shaper profiles take the fast tables;
// profiles with lookup tables take a Little CMS transform.
class SrgbConverter {
public:
    // No value when the photo's values are sRGB already or its colours cannot be known.
    static std::optional<SrgbConverter> forPhoto(const PhotoMetadata &metadata);

    // Packed 8-bit RGB, in place.
    void convert(std::uint8_t *rgb, std::size_t pixels) const;

private:
    struct Transform;
    explicit SrgbConverter(std::shared_ptr<Transform> transform);
    explicit SrgbConverter(MatrixShaperTables tables);

    std::optional<MatrixShaperTables> m_tables;
    std::shared_ptr<Transform> m_transform;
};
