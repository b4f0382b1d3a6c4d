// The JPEG decoder from raw bytes, at full size and reduced.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/decoded_image_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace velto;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  checkDecodedImage(
      IconImage::decodeJpeg(bytes, size % 2 ? IconImage::kThumbnailSide : IconImage::kMaxSide));
  return 0;
}
