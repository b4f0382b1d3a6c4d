// The BMP file decoder from raw bytes.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/decoded_image_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace velto;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  checkDecodedImage(IconImage::decodeBmp(bytes));
  return 0;
}
