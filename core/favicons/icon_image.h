#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace velto {

// A decoded picture: straight (not premultiplied) RGBA, 8 bits per channel, rows top to
// bottom, pixels.size() == width * height * 4.
struct RgbaImage {
  uint32_t width = 0;
  uint32_t height = 0;
  std::vector<uint8_t> pixels;

  bool operator==(const RgbaImage&) const = default;
};

// Reading site icons (PNG, and the ICO container with PNG or BMP frames) and making the
// small PNG thumbnails that are cached. Every reader takes untrusted bytes and is total:
// anything it does not understand, or that is broken, is absent. Decoded images never
// have a side outside 1...kMaxSide, which bounds what any input can make us allocate.
namespace IconImage {

inline constexpr uint32_t kMaxSide = 4096;
inline constexpr size_t kMaxFrames = 16;          // ICO directory entries looked at
inline constexpr size_t kMaxInputBytes = 524288;  // thumbnail refuses this size and more
inline constexpr uint32_t kThumbnailSide = 64;

// A PNG of any colour type, bit depth or interlacing, as RGBA.
std::optional<RgbaImage> decodePng(std::string_view bytes);

// One RGBA image as a PNG (8 bits per channel, with alpha). Absent for an empty image.
std::optional<std::string> encodePng(const RgbaImage& image);

// One image of an ICO file, its size as its own header (not the directory) states it.
struct IcoFrame {
  enum class Kind { png, bmp };
  Kind kind = Kind::bmp;
  uint32_t width = 0;
  uint32_t height = 0;
  std::string_view bytes;  // views into the file
};

// The frames of the first kMaxFrames directory entries of an ICO file, in directory
// order, leaving out entries whose data lies outside the file or whose header cannot be
// read. Absent when `bytes` is not an ICO file.
std::optional<std::vector<IcoFrame>> icoFrames(std::string_view bytes);

// A BMP frame of an ICO file: a BITMAPINFOHEADER (or a later version of it) with double
// height, uncompressed, 1, 4, 8, 24 or 32 bits per pixel, its colour table, the pixels,
// then the AND mask, which gives transparency (32-bit frames carry their own alpha unless
// it is zero throughout).
std::optional<RgbaImage> decodeBmpFrame(std::string_view bytes);

// A PNG, or the widest frame (first on ties) among the ICO frames with both sides within
// 1...kMaxSide. Absent when there is none or the chosen frame is broken.
std::optional<RgbaImage> decodeIcon(std::string_view bytes);

// `image` area-averaged (premultiplied, so transparent pixels lend no colour) down to at
// most `maxSide` pixels on its longer side, keeping its aspect ratio; an image that
// already fits is returned as it is. Precondition: maxSide >= 1.
RgbaImage downscaled(const RgbaImage& image, uint32_t maxSide);

// The cached form of a downloaded icon: decodeIcon, downscaled to kThumbnailSide, as PNG.
// Absent for input of kMaxInputBytes or more and whenever decodeIcon is.
std::optional<std::string> thumbnail(std::string_view data);

}  // namespace IconImage

}  // namespace velto
