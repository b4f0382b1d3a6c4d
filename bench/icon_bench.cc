// Thumbnailing the largest icons the decoders accept (4096 pixels square, under the
// 512 KiB input limit), against a 64-pixel PNG that needs no shrinking as the yardstick.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "core/favicons/icon_image.h"
#include "core/favicons/testing/test_images.h"

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
void BM_ThumbnailJpeg(benchmark::State& state) {
  thumbnail(state, velto::testing::jpeg(kLarge, 80));
}
void BM_ThumbnailWebp(benchmark::State& state) { thumbnail(state, velto::testing::webp(kLarge)); }

BENCHMARK(BM_ThumbnailSmallPng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ThumbnailPng)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ThumbnailJpeg)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ThumbnailWebp)->Unit(benchmark::kMillisecond);

}  // namespace
