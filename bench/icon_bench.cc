// Thumbnailing the largest icons the decoders accept (4096 pixels square, under the
// 512 KiB input limit), against a 64-pixel PNG that needs no shrinking as the yardstick.
#include <benchmark/benchmark.h>

// jpeglib.h uses FILE and size_t without declaring them.
// clang-format off
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include <webp/encode.h>

#include <cstdlib>
#include <string>
#include <vector>

#include "core/favicons/icon_image.h"

namespace {

using velto::RgbaImage;
namespace IconImage = velto::IconImage;

// A smooth gradient with alpha: compresses under the input limit in every format, and
// has detail enough that no decoder can skip work.
RgbaImage gradient(uint32_t side) {
  RgbaImage image{side, side, std::vector<uint8_t>(size_t{side} * side * 4)};
  for (uint32_t y = 0; y < side; ++y) {
    for (uint32_t x = 0; x < side; ++x) {
      uint8_t* p = &image.pixels[(size_t{y} * side + x) * 4];
      p[0] = static_cast<uint8_t>(x / 16);
      p[1] = static_cast<uint8_t>(y / 16);
      p[2] = static_cast<uint8_t>((x + y) / 32);
      p[3] = 255;
    }
  }
  return image;
}

std::string jpeg(const RgbaImage& image) {
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
  jpeg_set_quality(&encoder, 80, TRUE);
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

std::string webp(const RgbaImage& image) {
  uint8_t* data = nullptr;
  const size_t size = WebPEncodeLosslessRGBA(image.pixels.data(), static_cast<int>(image.width),
                                             static_cast<int>(image.height),
                                             static_cast<int>(image.width * 4), &data);
  std::string out(reinterpret_cast<const char*>(data), size);
  WebPFree(data);
  return out;
}

void thumbnail(benchmark::State& state, const std::string& bytes) {
  if (bytes.size() >= IconImage::kMaxInputBytes) {
    state.SkipWithError("input over the limit");
    return;
  }
  for (auto _ : state) benchmark::DoNotOptimize(IconImage::thumbnail(bytes));
  state.counters["input_bytes"] = static_cast<double>(bytes.size());
}

const RgbaImage kLarge = gradient(4096);

void BM_ThumbnailSmallPng(benchmark::State& state) {
  thumbnail(state, *IconImage::encodePng(gradient(64)));
}
void BM_ThumbnailPng(benchmark::State& state) { thumbnail(state, *IconImage::encodePng(kLarge)); }
void BM_ThumbnailJpeg(benchmark::State& state) { thumbnail(state, jpeg(kLarge)); }
void BM_ThumbnailWebp(benchmark::State& state) { thumbnail(state, webp(kLarge)); }

BENCHMARK(BM_ThumbnailSmallPng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ThumbnailPng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ThumbnailJpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ThumbnailWebp)->Unit(benchmark::kMillisecond);

}  // namespace
