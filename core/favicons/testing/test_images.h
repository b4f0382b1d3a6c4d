#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "core/favicons/icon_image.h"

// Images in the formats the icon decoders read, made with the formats' own encoders, for
// the decoders' tests and benchmarks.
namespace velto::testing {

using Pixel = std::array<uint8_t, 4>;  // red, green, blue, alpha

// width x height pixels of one colour.
RgbaImage solid(uint32_t width, uint32_t height, Pixel color);

// A JPEG of `image` (its alpha ignored) through libjpeg, baseline or progressive.
std::string jpeg(const RgbaImage& image, int quality = 95, bool progressive = false);

// A WebP still of `image` through libwebp, lossless or lossy.
std::string webp(const RgbaImage& image, bool lossless = true);

}  // namespace velto::testing
