#include <algorithm>
#include <cstdint>

#include "core/favicons/icon_image.h"

namespace velto::IconImage {

namespace {

constexpr std::string_view kPngSignature("\x89PNG\r\n\x1a\n", 8);
constexpr size_t kBitmapInfoHeaderSize = 40;
constexpr size_t kBitmapFileHeaderSize = 14;

uint32_t u16At(std::string_view bytes, size_t at) {
  return static_cast<uint8_t>(bytes[at]) | static_cast<uint8_t>(bytes[at + 1]) << 8;
}

uint32_t u32At(std::string_view bytes, size_t at) {
  return u16At(bytes, at) | u16At(bytes, at + 2) << 16;
}

uint32_t bigEndianU32At(std::string_view bytes, size_t at) {
  return static_cast<uint32_t>(static_cast<uint8_t>(bytes[at])) << 24 |
         static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 1])) << 16 |
         static_cast<uint32_t>(static_cast<uint8_t>(bytes[at + 2])) << 8 |
         static_cast<uint8_t>(bytes[at + 3]);
}

// The sides a PNG states in its IHDR chunk, which must come first.
std::optional<IcoFrame> pngFrame(std::string_view bytes) {
  if (bytes.size() < 24 || !bytes.starts_with(kPngSignature) || bytes.substr(12, 4) != "IHDR") {
    return std::nullopt;
  }
  return IcoFrame{IcoFrame::Kind::png, bigEndianU32At(bytes, 16), bigEndianU32At(bytes, 20), bytes};
}

// The layout of a BMP frame, every offset checked against the frame's bytes.
struct BmpLayout {
  uint32_t width = 0;
  uint32_t height = 0;  // of the image, half the stated height (the rest is the mask)
  uint32_t bitsPerPixel = 0;
  size_t paletteAt = 0;
  uint32_t paletteSize = 0;
  size_t pixelsAt = 0;
  size_t pixelStride = 0;
  size_t maskAt = 0;
  size_t maskStride = 0;
  bool hasMask = false;
  bool topDown = false;
};

// An ICO frame is a BMP without the file header, its stated height doubled for the AND
// mask that follows the pixels; a BMP file has the file header (which says where the
// pixels start), its own height (negative for rows top to bottom) and no mask.
enum class BmpForm { icoFrame, file };

std::optional<BmpLayout> bmpLayout(std::string_view bytes, BmpForm form) {
  const size_t at = form == BmpForm::file ? kBitmapFileHeaderSize : 0;
  if (bytes.size() < at + kBitmapInfoHeaderSize) return std::nullopt;
  if (form == BmpForm::file && !bytes.starts_with("BM")) return std::nullopt;
  const uint32_t headerSize = u32At(bytes, at);
  const auto width = static_cast<int32_t>(u32At(bytes, at + 4));
  const auto statedHeight = static_cast<int32_t>(u32At(bytes, at + 8));
  BmpLayout layout;
  layout.bitsPerPixel = u16At(bytes, at + 14);
  uint32_t compression = u32At(bytes, at + 16);
  const uint32_t colorsUsed = u32At(bytes, at + 32);
  // 32-bit files with alpha usually state their channel masks (BI_BITFIELDS); those with
  // the usual blue, green, red, alpha byte order read as uncompressed ones.
  constexpr uint32_t kBitFields = 3;
  if (form == BmpForm::file && compression == kBitFields && layout.bitsPerPixel == 32 &&
      bytes.size() >= at + kBitmapInfoHeaderSize + 12 && u32At(bytes, at + 40) == 0x00ff0000 &&
      u32At(bytes, at + 44) == 0x0000ff00 && u32At(bytes, at + 48) == 0x000000ff) {
    compression = 0;
  }
  if (headerSize < kBitmapInfoHeaderSize || headerSize > bytes.size() - at || compression != 0 ||
      width < 1 || statedHeight == 0 || statedHeight == INT32_MIN) {
    return std::nullopt;
  }
  layout.width = static_cast<uint32_t>(width);
  if (form == BmpForm::icoFrame) {
    if (statedHeight < 2) return std::nullopt;
    layout.height = static_cast<uint32_t>(statedHeight) / 2;
  } else {
    layout.topDown = statedHeight < 0;
    layout.height = static_cast<uint32_t>(statedHeight < 0 ? -statedHeight : statedHeight);
  }
  switch (layout.bitsPerPixel) {
    case 1:
    case 4:
    case 8:
      layout.paletteSize = colorsUsed == 0 ? 1u << layout.bitsPerPixel : colorsUsed;
      if (layout.paletteSize > 1u << layout.bitsPerPixel) return std::nullopt;
      break;
    case 24:
    case 32:
      // The pixels follow an optional colour table here too (a hint for palette displays).
      layout.paletteSize = colorsUsed;
      break;
    default:
      return std::nullopt;
  }
  if (!withinSides(layout.width, layout.height)) return layout;  // sized, never decoded
  layout.paletteAt = at + headerSize;
  layout.pixelStride = (size_t{layout.width} * layout.bitsPerPixel + 31) / 32 * 4;
  const size_t paletteEnd = layout.paletteAt + size_t{layout.paletteSize} * 4;
  if (form == BmpForm::file) {
    layout.pixelsAt = u32At(bytes, 10);
    if (paletteEnd > bytes.size() || layout.pixelsAt > bytes.size() ||
        layout.pixelStride * layout.height > bytes.size() - layout.pixelsAt) {
      return std::nullopt;
    }
    return layout;
  }
  layout.pixelsAt = paletteEnd;
  layout.maskAt = layout.pixelsAt + layout.pixelStride * layout.height;
  layout.maskStride = (size_t{layout.width} + 31) / 32 * 4;
  if (layout.maskAt > bytes.size()) return std::nullopt;
  layout.hasMask = layout.maskStride * layout.height <= bytes.size() - layout.maskAt;
  // Only 32-bit frames, which carry alpha, may do without the mask.
  if (!layout.hasMask && layout.bitsPerPixel != 32) return std::nullopt;
  return layout;
}

}  // namespace

std::optional<std::vector<IcoFrame>> icoFrames(std::string_view bytes) {
  if (bytes.size() < 6 || u16At(bytes, 0) != 0 || u16At(bytes, 2) != 1) return std::nullopt;
  const size_t count = std::min<size_t>(u16At(bytes, 4), kMaxFrames);
  std::vector<IcoFrame> frames;
  for (size_t index = 0; index < count; ++index) {
    const size_t entry = 6 + index * 16;
    if (entry + 16 > bytes.size()) break;
    const size_t size = u32At(bytes, entry + 8);
    const size_t offset = u32At(bytes, entry + 12);
    if (offset > bytes.size() || size > bytes.size() - offset) continue;
    const std::string_view data = bytes.substr(offset, size);
    if (auto frame = pngFrame(data)) {
      frames.push_back(*frame);
    } else if (const auto layout = bmpLayout(data, BmpForm::icoFrame)) {
      frames.push_back({IcoFrame::Kind::bmp, layout->width, layout->height, data});
    }
  }
  return frames;
}

namespace {

std::optional<RgbaImage> decodeBmpPixels(std::string_view bytes, BmpForm form) {
  const auto layout = bmpLayout(bytes, form);
  if (!layout || !withinSides(layout->width, layout->height)) return std::nullopt;
  const BmpLayout& l = *layout;
  const auto byteAt = [&](size_t at) { return static_cast<uint8_t>(bytes[at]); };

  RgbaImage image{l.width, l.height, std::vector<uint8_t>(size_t{l.width} * l.height * 4)};
  bool anyAlpha = false;
  for (uint32_t y = 0; y < l.height; ++y) {
    const size_t row = l.topDown ? y : l.height - 1 - y;  // bottom-up unless stated otherwise
    const size_t rowAt = l.pixelsAt + row * l.pixelStride;
    uint8_t* out = image.pixels.data() + size_t{y} * l.width * 4;
    for (uint32_t x = 0; x < l.width; ++x, out += 4) {
      size_t color;  // where this pixel's blue, green, red (and alpha) bytes are
      if (l.bitsPerPixel >= 24) {
        color = rowAt + size_t{x} * (l.bitsPerPixel / 8);
      } else {
        const size_t bit = size_t{x} * l.bitsPerPixel;
        const uint32_t index = (byteAt(rowAt + bit / 8) >> (8 - l.bitsPerPixel - bit % 8)) &
                               ((1u << l.bitsPerPixel) - 1);
        if (index >= l.paletteSize) return std::nullopt;
        color = l.paletteAt + size_t{index} * 4;
      }
      out[0] = byteAt(color + 2);
      out[1] = byteAt(color + 1);
      out[2] = byteAt(color);
      out[3] = l.bitsPerPixel == 32 ? byteAt(color + 3) : 0;
      anyAlpha = anyAlpha || out[3] != 0;
    }
  }
  // A frame without alpha of its own (a 32-bit one with zero alpha throughout was written
  // for readers that only know the mask) takes its transparency from the mask.
  if (anyAlpha) return image;
  for (uint32_t y = 0; y < l.height; ++y) {
    const size_t rowAt = l.maskAt + (l.height - 1 - y) * l.maskStride;
    for (uint32_t x = 0; x < l.width; ++x) {
      const bool transparent = l.hasMask && (byteAt(rowAt + x / 8) >> (7 - x % 8)) & 1;
      image.pixels[(size_t{y} * l.width + x) * 4 + 3] = transparent ? 0 : 0xff;
    }
  }
  return image;
}

}  // namespace

std::optional<RgbaImage> decodeBmpFrame(std::string_view bytes) {
  return decodeBmpPixels(bytes, BmpForm::icoFrame);
}

std::optional<RgbaImage> decodeBmp(std::string_view bytes) {
  return decodeBmpPixels(bytes, BmpForm::file);
}

std::optional<RgbaImage> decodeIcon(std::string_view bytes, uint32_t minSide) {
  // Formats are told by their signatures, as the platform's decoder does, not by the
  // type a server claims.
  if (bytes.starts_with(kPngSignature)) return decodePng(bytes, minSide);
  if (bytes.starts_with("GIF87a") || bytes.starts_with("GIF89a")) return decodeGif(bytes);
  if (bytes.starts_with("\xff\xd8\xff")) return decodeJpeg(bytes, minSide);
  if (bytes.size() >= 12 && bytes.starts_with("RIFF") && bytes.substr(8, 4) == "WEBP") {
    return decodeWebp(bytes, minSide);
  }
  if (bytes.starts_with("BM")) return decodeBmp(bytes);
  const auto frames = icoFrames(bytes);
  if (!frames) return std::nullopt;
  const IcoFrame* widest = nullptr;
  for (const IcoFrame& frame : *frames) {
    if (withinSides(frame.width, frame.height) && (!widest || frame.width > widest->width)) {
      widest = &frame;
    }
  }
  if (!widest) return std::nullopt;
  auto image = widest->kind == IcoFrame::Kind::png ? decodePng(widest->bytes)
                                                   : decodeBmpFrame(widest->bytes);
  // The header promised these sides; a frame that decodes to others is broken.
  if (image && (image->width != widest->width || image->height != widest->height))
    return std::nullopt;
  return image;
}

}  // namespace velto::IconImage
