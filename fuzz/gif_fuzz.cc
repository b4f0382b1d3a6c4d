// The GIF decoder from raw bytes: whatever it accepts has sides within the
// limits and exactly its pixels, and makes a thumbnail.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/favicons/icon_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace velto;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  const auto image = IconImage::decodeGif(bytes);
  if (!image) return 0;
  if (image->width < 1 || image->width > IconImage::kMaxSide || image->height < 1 ||
      image->height > IconImage::kMaxSide ||
      image->pixels.size() != size_t{image->width} * image->height * 4) {
    __builtin_trap();
  }
  if (!IconImage::encodePng(IconImage::downscaled(*image, IconImage::kThumbnailSide))) {
    __builtin_trap();
  }
  return 0;
}
