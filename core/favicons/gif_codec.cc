#include <gif_lib.h>

#include <cstring>
#include <memory>

#include "core/favicons/icon_image.h"

namespace velto::IconImage {

namespace {

struct ReadCursor {
  std::string_view bytes;
  size_t offset = 0;
};

int readFromCursor(GifFileType* gif, GifByteType* out, int count) {
  auto* cursor = static_cast<ReadCursor*>(gif->UserData);
  const size_t n =
      std::min(static_cast<size_t>(std::max(count, 0)), cursor->bytes.size() - cursor->offset);
  std::memcpy(out, cursor->bytes.data() + cursor->offset, n);
  cursor->offset += n;
  return static_cast<int>(n);
}

struct CloseGif {
  void operator()(GifFileType* gif) const { DGifCloseFile(gif, nullptr); }
};

// Reads the extension blocks up to the first image, keeping the transparent colour
// index of a graphic control block (-1 for none).
bool skipExtension(GifFileType* gif, int& transparent) {
  int code = 0;
  GifByteType* block = nullptr;
  if (DGifGetExtension(gif, &code, &block) != GIF_OK) return false;
  if (code == GRAPHICS_EXT_FUNC_CODE && block != nullptr) {
    GraphicsControlBlock control;
    if (DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
      transparent = control.TransparentColor;
    }
  }
  while (block != nullptr) {
    if (DGifGetExtensionNext(gif, &block) != GIF_OK) return false;
  }
  return true;
}

}  // namespace

std::optional<RgbaImage> decodeGif(std::string_view bytes) {
  ReadCursor cursor{bytes};
  int error = 0;
  const std::unique_ptr<GifFileType, CloseGif> gif(DGifOpen(&cursor, readFromCursor, &error));
  if (!gif) return std::nullopt;
  int transparent = -1;
  while (true) {
    GifRecordType record = UNDEFINED_RECORD_TYPE;
    if (DGifGetRecordType(gif.get(), &record) != GIF_OK) return std::nullopt;
    if (record == EXTENSION_RECORD_TYPE) {
      if (!skipExtension(gif.get(), transparent)) return std::nullopt;
    } else if (record == IMAGE_DESC_RECORD_TYPE) {
      break;
    } else {
      return std::nullopt;  // ended without an image
    }
  }
  if (DGifGetImageDesc(gif.get()) != GIF_OK) return std::nullopt;
  // The first frame, drawn where it stands on the canvas the file declares (the frame
  // alone when the canvas is smaller than it or has no size). Both are checked before
  // anything of their size is allocated.
  const GifImageDesc& frame = gif->Image;
  if (!withinSides(frame.Width, frame.Height) || frame.Left < 0 || frame.Top < 0) {
    return std::nullopt;
  }
  const bool fitsCanvas =
      frame.Left + frame.Width <= gif->SWidth && frame.Top + frame.Height <= gif->SHeight;
  const int width = fitsCanvas ? gif->SWidth : frame.Width;
  const int height = fitsCanvas ? gif->SHeight : frame.Height;
  if (!withinSides(width, height)) return std::nullopt;
  const ColorMapObject* colors = frame.ColorMap ? frame.ColorMap : gif->SColorMap;
  if (colors == nullptr || colors->Colors == nullptr) return std::nullopt;
  const int left = fitsCanvas ? frame.Left : 0;
  const int top = fitsCanvas ? frame.Top : 0;

  RgbaImage image{static_cast<uint32_t>(width), static_cast<uint32_t>(height),
                  std::vector<uint8_t>(size_t(width) * height * 4, 0)};
  std::vector<GifPixelType> line(static_cast<size_t>(frame.Width));
  // Interlaced frames send every eighth row from 0, then from 4, every fourth from 2,
  // every second from 1.
  constexpr int kStarts[] = {0, 4, 2, 1}, kSteps[] = {8, 8, 4, 2};
  const int passes = frame.Interlace ? 4 : 1;
  for (int pass = 0; pass < passes; ++pass) {
    const int step = frame.Interlace ? kSteps[pass] : 1;
    for (int y = frame.Interlace ? kStarts[pass] : 0; y < frame.Height; y += step) {
      if (DGifGetLine(gif.get(), line.data(), frame.Width) != GIF_OK) return std::nullopt;
      uint8_t* out = &image.pixels[(size_t(top + y) * width + left) * 4];
      for (const GifPixelType index : line) {
        if (index < colors->ColorCount && index != transparent) {
          const GifColorType& c = colors->Colors[index];
          out[0] = c.Red;
          out[1] = c.Green;
          out[2] = c.Blue;
          out[3] = 0xff;
        }
        out += 4;
      }
    }
  }
  return image;
}

}  // namespace velto::IconImage
