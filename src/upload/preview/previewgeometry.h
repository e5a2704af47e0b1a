// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <optional>

// The size of a preview, decided by the size of the full decoded image alone: the width is held
// to ImageResizer::maximumWidth, the height follows by the same factor and has no limit of its
// own, and nothing is ever enlarged.
class PreviewGeometry {
public:
    // No value for an image without pixels, which has no preview.
    static std::optional<QSize> targetSize(QSize fullSize);
};
