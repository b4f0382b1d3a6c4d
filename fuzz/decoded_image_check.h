#pragma once

// What every icon decoder's fuzz target checks of what the decoder accepted: sides within
// the limits, exactly its pixels, and a thumbnail that encodes.

#include <cstddef>
#include <optional>

#include "core/favicons/icon_image.h"

namespace velto {

inline void checkDecodedImage(const std::optional<RgbaImage>& image) {
  if (!image) return;
  if (image->width < 1 || image->width > IconImage::kMaxSide || image->height < 1 ||
      image->height > IconImage::kMaxSide ||
      image->pixels.size() != size_t{image->width} * image->height * 4) {
    __builtin_trap();
  }
  if (!IconImage::encodePng(IconImage::downscaled(*image, IconImage::kThumbnailSide))) {
    __builtin_trap();
  }
}

}  // namespace velto
