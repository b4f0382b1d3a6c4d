// ICO containers and their BMP frames, then the whole thumbnail path, from raw bytes.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "core/favicons/icon_image.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace velto;
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  if (const auto frames = IconImage::icoFrames(bytes)) {
    for (const IconImage::IcoFrame& frame : *frames) {
      if (frame.kind != IconImage::IcoFrame::Kind::bmp) continue;
      const auto image = IconImage::decodeBmpFrame(frame.bytes);
      if (image && (image->width != frame.width || image->height != frame.height ||
                    image->pixels.size() != size_t{image->width} * image->height * 4)) {
        __builtin_trap();
      }
    }
  }
  if (const auto thumbnail = IconImage::thumbnail(bytes)) {
    const auto image = IconImage::decodePng(*thumbnail);
    if (!image || image->width > IconImage::kThumbnailSide || image->height > IconImage::kThumbnailSide) {
      __builtin_trap();
    }
  }
  return 0;
}
