#include <algorithm>
#include <array>
#include <cmath>

#include "core/favicons/icon_image.h"

namespace velto::IconImage {

namespace {

// Squeezes one line of `from` premultiplied RGBA samples into `to` (to <= from): each
// output averages the inputs its box covers, a partly covered input weighted by the
// fraction of it that lies inside the box.
template <class Read, class Write>
void averageAlong(uint32_t from, uint32_t to, Read read, Write write) {
  const double scale = static_cast<double>(from) / to;
  for (uint32_t out = 0; out < to; ++out) {
    const double begin = out * scale;
    const double end = std::min<double>(from, (out + 1) * scale);
    float sum[4] = {0, 0, 0, 0};
    for (auto in = static_cast<uint32_t>(begin); in < from && in < end; ++in) {
      const auto weight =
          static_cast<float>(std::min<double>(end, in + 1) - std::max<double>(begin, in));
      const std::array<float, 4> sample = read(in);
      for (int c = 0; c < 4; ++c) sum[c] += sample[c] * weight;
    }
    for (float& value : sum) value /= static_cast<float>(end - begin);
    write(out, sum);
  }
}

uint8_t rounded(float value) {
  return static_cast<uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

}  // namespace

std::pair<uint32_t, uint32_t> fittedSides(uint32_t width, uint32_t height, uint32_t maxSide) {
  const uint32_t longer = std::max(width, height);
  if (longer <= maxSide) return {width, height};
  const auto shorter = [&](uint32_t side) {
    return std::max<uint32_t>(
        1, static_cast<uint32_t>(std::lround(static_cast<double>(side) * maxSide / longer)));
  };
  return {width >= height ? maxSide : shorter(width), height > width ? maxSide : shorter(height)};
}

RowDownscaler::RowDownscaler(uint32_t width, uint32_t height, uint32_t maxSide)
    : width_(width), height_(height) {
  const auto sides = fittedSides(width, height, maxSide);
  outWidth_ = sides.first;
  outHeight_ = sides.second;
  narrowed_.resize(size_t{outWidth_} * height * 4);
}

void RowDownscaler::addRow(const uint8_t* rgba) {
  if (rows_ == height_) return;
  // Premultiplied, so that a transparent pixel contributes no colour.
  float* row = &narrowed_[size_t{rows_++} * outWidth_ * 4];
  averageAlong(
      width_, outWidth_,
      [&](uint32_t x) {
        const uint8_t* pixel = &rgba[size_t{x} * 4];
        const float alpha = pixel[3];
        return std::array<float, 4>{pixel[0] * alpha / 255.0f, pixel[1] * alpha / 255.0f,
                                    pixel[2] * alpha / 255.0f, alpha};
      },
      [&](uint32_t x, const float* value) { std::copy(value, value + 4, &row[size_t{x} * 4]); });
}

RgbaImage RowDownscaler::finish() {
  RgbaImage result{outWidth_, outHeight_, std::vector<uint8_t>(size_t{outWidth_} * outHeight_ * 4)};
  for (uint32_t x = 0; x < outWidth_; ++x) {
    averageAlong(
        height_, outHeight_,
        [&](uint32_t y) {
          const float* value = &narrowed_[(size_t{y} * outWidth_ + x) * 4];
          return std::array<float, 4>{value[0], value[1], value[2], value[3]};
        },
        [&](uint32_t y, const float* value) {
          uint8_t* out = &result.pixels[(size_t{y} * outWidth_ + x) * 4];
          const float alpha = value[3];
          for (int c = 0; c < 3; ++c) out[c] = alpha > 0 ? rounded(value[c] * 255.0f / alpha) : 0;
          out[3] = rounded(alpha);
        });
  }
  return result;
}

RgbaImage downscaled(const RgbaImage& image, uint32_t maxSide) {
  if (fittedSides(image.width, image.height, maxSide) == std::pair(image.width, image.height)) {
    return image;
  }
  RowDownscaler rows(image.width, image.height, maxSide);
  for (uint32_t y = 0; y < image.height; ++y) {
    rows.addRow(&image.pixels[size_t{y} * image.width * 4]);
  }
  return rows.finish();
}

std::optional<std::string> thumbnail(std::string_view data) {
  if (data.size() >= kMaxInputBytes) return std::nullopt;
  const auto image = decodeIcon(data, kThumbnailSide);
  if (!image) return std::nullopt;
  return encodePng(downscaled(*image, kThumbnailSide));
}

}  // namespace velto::IconImage
