// SPDX-License-Identifier: MIT
#pragma once

#include <QSize>
#include <QString>
#include <cstdint>
#include <optional>
#include <span>

// The preview maker on one input, written as a file and read through ImageResizer as any photo
// is. The picture's size comes from the caller, read with the format's own library, and every
// preview made must have the size that the width rule gives it; a picture beyond the decoding
// limits must get none.
namespace PreviewCheck {

using SizeReader = std::optional<QSize> (*)(const QString &path, std::span<const std::uint8_t>);

void run(std::span<const std::uint8_t> bytes, SizeReader sourceSize);

// The picture's size as each format's own library (or, for PNG, the header) tells it.
std::optional<QSize> jpegSize(const QString &path, std::span<const std::uint8_t> bytes);
std::optional<QSize> pngSize(const QString &path, std::span<const std::uint8_t> bytes);
std::optional<QSize> rawSize(const QString &path, std::span<const std::uint8_t> bytes);
std::optional<QSize> tiffSize(const QString &path, std::span<const std::uint8_t> bytes);
std::optional<QSize> qtSize(const QString &path, std::span<const std::uint8_t> bytes);

} // namespace PreviewCheck
