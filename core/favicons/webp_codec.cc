#include <webp/decode.h>

#include "core/favicons/icon_image.h"

namespace velto::IconImage {

std::optional<RgbaImage> decodeWebp(std::string_view bytes, uint32_t minSide) {
  const auto* data = reinterpret_cast<const uint8_t*>(bytes.data());
  WebPDecoderConfig config;
  if (!WebPInitDecoderConfig(&config) ||
      WebPGetFeatures(data, bytes.size(), &config.input) != VP8_STATUS_OK) {
    return std::nullopt;
  }
  // An animation needs the demuxer and compositing; its first frame is not decoded here.
  const WebPBitstreamFeatures& features = config.input;
  if (features.has_animation || features.width < 1 || features.height < 1 ||
      static_cast<uint32_t>(features.width) > kMaxSide ||
      static_cast<uint32_t>(features.height) > kMaxSide) {
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
