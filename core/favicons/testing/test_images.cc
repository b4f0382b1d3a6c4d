#include "core/favicons/testing/test_images.h"

// jpeglib.h uses FILE and size_t without declaring them.
// clang-format off
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include <webp/encode.h>

#include <algorithm>
#include <cstdlib>

namespace velto::testing {

RgbaImage solid(uint32_t width, uint32_t height, Pixel color) {
  RgbaImage image{width, height, std::vector<uint8_t>(size_t{width} * height * 4)};
  for (size_t at = 0; at < image.pixels.size(); at += 4) {
    std::copy(color.begin(), color.end(), image.pixels.begin() + static_cast<ptrdiff_t>(at));
  }
  return image;
}

std::string jpeg(const RgbaImage& image, int quality, bool progressive) {
  jpeg_compress_struct encoder;
  jpeg_error_mgr errors;
  encoder.err = jpeg_std_error(&errors);
  jpeg_create_compress(&encoder);
  unsigned char* buffer = nullptr;
  unsigned long size = 0;
  jpeg_mem_dest(&encoder, &buffer, &size);
  encoder.image_width = image.width;
  encoder.image_height = image.height;
  encoder.input_components = 4;
  encoder.in_color_space = JCS_EXT_RGBA;
  jpeg_set_defaults(&encoder);
  jpeg_set_quality(&encoder, quality, TRUE);
  if (progressive) jpeg_simple_progression(&encoder);
  jpeg_start_compress(&encoder, TRUE);
  while (encoder.next_scanline < image.height) {
    JSAMPROW row =
        const_cast<uint8_t*>(&image.pixels[size_t{encoder.next_scanline} * image.width * 4]);
    jpeg_write_scanlines(&encoder, &row, 1);
  }
  jpeg_finish_compress(&encoder);
  jpeg_destroy_compress(&encoder);
  std::string out(reinterpret_cast<const char*>(buffer), size);
  std::free(buffer);
  return out;
}

std::string webp(const RgbaImage& image, bool lossless) {
  uint8_t* data = nullptr;
  const auto width = static_cast<int>(image.width), height = static_cast<int>(image.height);
  const size_t size =
      lossless ? WebPEncodeLosslessRGBA(image.pixels.data(), width, height, width * 4, &data)
               : WebPEncodeRGBA(image.pixels.data(), width, height, width * 4, 90, &data);
  std::string out(reinterpret_cast<const char*>(data), size);
  WebPFree(data);
  return out;
}

}  // namespace velto::testing
