#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
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

// Reading site icons (PNG, GIF, JPEG, WebP, BMP, and the ICO container with PNG or BMP
// frames) and making the small PNG thumbnails that are cached. Every reader takes
// untrusted bytes and is total: anything it does not understand, or that is broken, is
// absent. Sides are checked as the file declares them before anything of their size is
// allocated, and decoded images never have a side outside 1...kMaxSide, which bounds
// what any input can make us allocate.
namespace IconImage {

inline constexpr uint32_t kMaxSide = 4096;
inline constexpr size_t kMaxFrames = 16;          // ICO directory entries looked at
inline constexpr size_t kMaxInputBytes = 524288;  // thumbnail refuses this size and more
inline constexpr uint32_t kThumbnailSide = 64;

// True when both sides, as a file declares them, are within 1...kMaxSide: the test every
// reader makes before it allocates anything of that size.
constexpr bool withinSides(int64_t width, int64_t height) {
  return width >= 1 && width <= kMaxSide && height >= 1 && height <= kMaxSide;
}

// A PNG of any colour type, bit depth or interlacing, as RGBA. One larger than `minSide`
// and not interlaced comes out already downscaled to fittedSides(minSide), its rows
// averaged as they are decoded, so it never exists at full size.
std::optional<RgbaImage> decodePng(std::string_view bytes, uint32_t minSide = kMaxSide);

// The first frame of a GIF, drawn where it stands on the canvas the file declares
// (transparent elsewhere); its transparent colour index becomes alpha 0.
std::optional<RgbaImage> decodeGif(std::string_view bytes);

// A JPEG (greyscale, YCbCr, RGB or CMYK, baseline or progressive), decoded at the
// smallest of the scales 1/8, 1/4, 1/2 and 1 whose longer side is still at least
// `minSide`, so a large photo never exists at full size. At most 64 scans are read.
std::optional<RgbaImage> decodeJpeg(std::string_view bytes, uint32_t minSide = kMaxSide);

// A WebP (lossy or lossless, with or without alpha), scaled while it is decoded to
// fittedSides(minSide) when it is larger; of an animation, the first frame on its
// canvas, at full size.
std::optional<RgbaImage> decodeWebp(std::string_view bytes, uint32_t minSide = kMaxSide);

// A BMP file: a BITMAPINFOHEADER (or a later version of it), uncompressed, 1, 4, 8, 24
// or 32 bits per pixel, rows bottom-up or top-down. 32-bit pixels keep their alpha
// unless it is zero throughout (then the image is opaque).
std::optional<RgbaImage> decodeBmp(std::string_view bytes);

// The sides of a width x height image shrunk to at most `maxSide` on its longer side,
// keeping its aspect ratio (the shorter side at least 1); unchanged when it fits.
std::pair<uint32_t, uint32_t> fittedSides(uint32_t width, uint32_t height, uint32_t maxSide);

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

// An image of any of the formats above, told by its signature: a PNG, GIF, JPEG, WebP or
// BMP file, or the widest frame (first on ties) among the ICO frames with both sides
// within 1...kMaxSide. Absent when there is none or the chosen frame is broken. PNG,
// JPEG and WebP files may come out smaller, down to `minSide` on the longer side (see
// their readers).
std::optional<RgbaImage> decodeIcon(std::string_view bytes, uint32_t minSide = kMaxSide);

// `image` area-averaged (premultiplied, so transparent pixels lend no colour) down to at
// most `maxSide` pixels on its longer side, keeping its aspect ratio; an image that
// already fits is returned as it is. Precondition: maxSide >= 1.
RgbaImage downscaled(const RgbaImage& image, uint32_t maxSide);

// downscaled one source row at a time, so that a large image never has to exist whole:
// give it the rows top to bottom (width * 4 bytes each; rows beyond `height` are
// ignored, missing ones count as transparent), then take the result. It holds
// fittedSides(maxSide).first * height pixels of floats meanwhile.
class RowDownscaler {
 public:
  RowDownscaler(uint32_t width, uint32_t height, uint32_t maxSide);
  void addRow(const uint8_t* rgba);
  RgbaImage finish();

 private:
  uint32_t width_, height_, outWidth_ = 0, outHeight_ = 0, rows_ = 0;
  std::vector<float> narrowed_;  // each source row narrowed to the output width
};

// The cached form of a downloaded icon: decodeIcon (reduced while decoding where the
// format allows), downscaled to kThumbnailSide, as PNG.
// Absent for input of kMaxInputBytes or more and whenever decodeIcon is.
std::optional<std::string> thumbnail(std::string_view data);

}  // namespace IconImage

}  // namespace velto
