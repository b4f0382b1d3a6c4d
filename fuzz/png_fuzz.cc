// The PNG decoder from raw bytes; whatever it accepts must survive our own encoder.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/favicons/icon_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace velto;
  const auto image = IconImage::decodePng(std::string_view(reinterpret_cast<const char*>(data), size));
  if (!image) return 0;
  if (image->width < 1 || image->width > IconImage::kMaxSide || image->height < 1 ||
      image->height > IconImage::kMaxSide ||
      image->pixels.size() != size_t{image->width} * image->height * 4) {
    __builtin_trap();
  }
  const auto encoded = IconImage::encodePng(*image);
  if (!encoded || IconImage::decodePng(*encoded) != image) __builtin_trap();
  (void)IconImage::downscaled(*image, IconImage::kThumbnailSide);
  return 0;
}
