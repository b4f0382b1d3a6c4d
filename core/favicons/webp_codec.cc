#include <webp/decode.h>
#include <webp/demux.h>

#include <algorithm>
#include <memory>

#include "core/favicons/icon_image.h"

namespace velto::IconImage {

namespace {

struct DeleteDemuxer {
  void operator()(WebPDemuxer* demuxer) const { WebPDemuxDelete(demuxer); }
};

// The first frame of an animation, drawn where it stands on the (transparent) canvas.
// Nothing is blended or disposed before the first frame, so it is the frame alone.
std::optional<RgbaImage> firstFrame(std::string_view bytes) {
  const WebPData data{reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size()};
  const std::unique_ptr<WebPDemuxer, DeleteDemuxer> demuxer(WebPDemux(&data));
  if (!demuxer) return std::nullopt;
  const uint32_t width = WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_WIDTH);
  const uint32_t height = WebPDemuxGetI(demuxer.get(), WEBP_FF_CANVAS_HEIGHT);
  WebPIterator frame;
  if (!withinSides(width, height) || !WebPDemuxGetFrame(demuxer.get(), 1, &frame)) {
    return std::nullopt;
  }
  const auto left = static_cast<uint32_t>(frame.x_offset);
  const auto top = static_cast<uint32_t>(frame.y_offset);
  const std::string_view fragment(reinterpret_cast<const char*>(frame.fragment.bytes),
                                  frame.fragment.size);
  WebPDemuxReleaseIterator(&frame);
  auto pixels = decodeWebp(fragment, kMaxSide);
  if (!pixels || pixels->width > width || left > width - pixels->width || pixels->height > height ||
      top > height - pixels->height) {
    return std::nullopt;
  }
  RgbaImage canvas{width, height, std::vector<uint8_t>(size_t{width} * height * 4, 0)};
  for (uint32_t y = 0; y < pixels->height; ++y) {
    std::copy_n(&pixels->pixels[size_t{y} * pixels->width * 4], size_t{pixels->width} * 4,
                &canvas.pixels[(size_t{top + y} * width + left) * 4]);
  }
  return canvas;
}

}  // namespace

std::optional<RgbaImage> decodeWebp(std::string_view bytes, uint32_t minSide) {
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config) ||
      WebPGetFeatures(data, bytes.size(), &config.input) != VP8_STATUS_OK) {
    return std::nullopt;
  }
  const WebPBitstreamFeatures& features = config.input;
  if (features.has_animation) return firstFrame(bytes);
  if (!withinSides(features.width, features.height)) {
    return std::nullopt;
  }
  RgbaImage image{
      static_cast<uint32_t>(features.width), static_cast<uint32_t>(features.height), {}};
  // libwebp scales row by row as it decodes: a large image never exists at full size.
  const auto sides = fittedSides(image.width, image.height, minSide);
  if (sides != std::pair(image.width, image.height)) {
    config.options.use_scaling = 1;
    config.options.scaled_width = static_cast<int>(sides.first);
    config.options.scaled_height = static_cast<int>(sides.second);
    image.width = sides.first;
    image.height = sides.second;
  }
  image.pixels.assign(size_t{image.width} * image.height * 4, 0);
  config.output.colorspace = MODE_RGBA;  // straight alpha
  config.output.is_external_memory = 1;
  config.output.u.RGBA.rgba = image.pixels.data();
  config.output.u.RGBA.stride = static_cast<int>(image.width * 4);
  config.output.u.RGBA.size = image.pixels.size();
  const VP8StatusCode status = WebPDecode(data, bytes.size(), &config);
  WebPFreeDecBuffer(&config.output);
  if (status != VP8_STATUS_OK) return std::nullopt;
  return image;
}

}  // namespace velto::IconImage
