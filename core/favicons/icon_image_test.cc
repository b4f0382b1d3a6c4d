#include "core/favicons/icon_image.h"

#include <gif_lib.h>
#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>
#include <webp/encode.h>
#include <webp/mux.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "core/favicons/testing/test_images.h"

namespace velto {
namespace {

using testing::jpeg;
using testing::Pixel;
using testing::solid;
using testing::webp;
using Pick = std::optional<std::pair<uint32_t, uint8_t>>;  // width and first red value

std::string png(const RgbaImage& image) { return *IconImage::encodePng(image); }

std::string patched(std::string bytes, size_t at, uint32_t value, int size) {
  for (int i = 0; i < size; ++i) bytes[at + i] = static_cast<char>(value >> (8 * i));
  return bytes;
}

// A well-formed BMP frame of ICO files: every pixel takes the colour `blue` (palette entry
// 0 or the pixel value itself), none masked.
std::string bmpFrame(uint32_t width, uint32_t height, uint32_t bits, uint8_t blue = 0) {
  const size_t palette = bits <= 8 ? 4u << bits : 0;
  const size_t pixels = (width * bits + 31) / 32 * 4 * height;
  std::string out(40 + palette + pixels + (width + 31) / 32 * 4 * height, '\0');
  out = patched(patched(patched(patched(out, 0, 40, 4), 4, width, 4), 8, height * 2, 4), 12, 1, 2);
  out = patched(out, 14, bits, 2);
  for (size_t at = 40; at < 40 + (palette ? 4 : pixels); at += palette ? 4 : bits / 8)
    out[at] = static_cast<char>(blue);
  return out;
}

// An ICO file whose directory states no sides: readers must take them from the frames.
std::string ico(const std::vector<std::string>& frames, size_t stated = SIZE_MAX) {
  std::string out = patched(std::string(6 + 16 * frames.size(), '\0'), 2, 1, 2);
  out = patched(out, 4, static_cast<uint32_t>(std::min(stated, frames.size())), 2);
  for (size_t i = 0; i < frames.size(); ++i) {
    out = patched(patched(out, 6 + 16 * i + 8, static_cast<uint32_t>(frames[i].size()), 4),
                  6 + 16 * i + 12, static_cast<uint32_t>(out.size()), 4);
    out += frames[i];
  }
  return out;
}

// A GIF through giflib's own encoder: one frame of `indices` (0 red, 1 blue) at
// (left, top) on a canvas of canvasWidth x canvasHeight.
struct GifSpec {
  int canvasWidth, canvasHeight, width, height;
  std::vector<GifPixelType> indices;
  int left = 0, top = 0;
  int transparent = NO_TRANSPARENT_COLOR;
  bool interlace = false;
};
const GifColorType kGifPalette[] = {{200, 0, 0}, {0, 0, 200}};
int appendGif(GifFileType* gif, const GifByteType* data, int count) {
  static_cast<std::string*>(gif->UserData)->append(reinterpret_cast<const char*>(data), count);
  return count;
}
std::string gif(const GifSpec& spec) {
  std::string out;
  int error = 0;
  GifFileType* file = EGifOpen(&out, appendGif, &error);
  ColorMapObject* map = GifMakeMapObject(2, kGifPalette);
  EGifSetGifVersion(file, true);
  EGifPutScreenDesc(file, spec.canvasWidth, spec.canvasHeight, 8, 0, map);
  GraphicsControlBlock control{};
  control.TransparentColor = spec.transparent;
  GifByteType extension[4];
  EGifPutExtension(file, GRAPHICS_EXT_FUNC_CODE,
                   static_cast<int>(EGifGCBToExtension(&control, extension)), extension);
  EGifPutImageDesc(file, spec.left, spec.top, spec.width, spec.height, spec.interlace, nullptr);
  // Interlaced frames are written in their pass order.
  std::vector<int> rows;
  if (spec.interlace) {
    for (const auto& [start, step] : {std::pair{0, 8}, {4, 8}, {2, 4}, {1, 2}}) {
      for (int y = start; y < spec.height; y += step) rows.push_back(y);
    }
  } else {
    for (int y = 0; y < spec.height; ++y) rows.push_back(y);
  }
  for (const int y : rows) {
    std::vector<GifPixelType> line(spec.indices.begin() + y * spec.width,
                                   spec.indices.begin() + (y + 1) * spec.width);
    EGifPutLine(file, line.data(), spec.width);
  }
  EGifCloseFile(file, &error);
  GifFreeMapObject(map);
  return out;
}

// An animated WebP of the given frames, one after the other, 100 ms each.
std::string animatedWebp(const std::vector<RgbaImage>& frames) {
  WebPAnimEncoderOptions options;
  WebPAnimEncoderOptionsInit(&options);
  WebPAnimEncoder* encoder = WebPAnimEncoderNew(static_cast<int>(frames[0].width),
                                                static_cast<int>(frames[0].height), &options);
  WebPConfig config;
  WebPConfigInit(&config);
  config.lossless = 1;
  int at = 0;
  for (const RgbaImage& image : frames) {
    WebPPicture picture;
    WebPPictureInit(&picture);
    picture.use_argb = 1;
    picture.width = static_cast<int>(image.width);
    picture.height = static_cast<int>(image.height);
    WebPPictureImportRGBA(&picture, image.pixels.data(), static_cast<int>(image.width * 4));
    WebPAnimEncoderAdd(encoder, &picture, at, &config);
    WebPPictureFree(&picture);
    at += 100;
  }
  WebPAnimEncoderAdd(encoder, nullptr, at, nullptr);
  WebPData data;
  WebPDataInit(&data);
  WebPAnimEncoderAssemble(encoder, &data);
  std::string out(reinterpret_cast<const char*>(data.bytes), data.size);
  WebPDataClear(&data);
  WebPAnimEncoderDelete(encoder);
  return out;
}

// A BMP file: 24 bits per pixel, one colour, rows bottom-up (or top-down).
std::string bmp(int32_t width, int32_t height, Pixel color, uint32_t bits = 24) {
  const size_t stride = (size_t(width) * bits + 31) / 32 * 4;
  std::string out(54 + stride * size_t(std::abs(height)), '\0');
  out[0] = 'B';
  out[1] = 'M';
  out =
      patched(patched(patched(out, 2, static_cast<uint32_t>(out.size()), 4), 10, 54, 4), 14, 40, 4);
  out = patched(patched(patched(out, 18, static_cast<uint32_t>(width), 4), 22,
                        static_cast<uint32_t>(height), 4),
                26, 1, 2);
  out = patched(out, 28, bits, 2);
  for (int32_t y = 0; y < std::abs(height); ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const size_t at = 54 + y * stride + x * bits / 8;
      out[at] = static_cast<char>(color[2]);
      out[at + 1] = static_cast<char>(color[1]);
      out[at + 2] = static_cast<char>(color[0]);
      if (bits == 32) out[at + 3] = static_cast<char>(color[3]);
    }
  }
  return out;
}

// True when every pixel is within `tolerance` of `color` (lossy formats).
bool near(const RgbaImage& image, Pixel color, int tolerance = 6) {
  for (size_t at = 0; at < image.pixels.size(); ++at) {
    if (std::abs(image.pixels[at] - color[at % 4]) > tolerance) return false;
  }
  return !image.pixels.empty();
}

// libpng's simplified writer, for colour types our own encoder never produces.
std::string pngOfFormat(uint32_t width, uint32_t format, const void* pixels,
                        const void* colormap = nullptr) {
  png_image image{.version = PNG_IMAGE_VERSION, .width = width, .height = 1, .format = format};
  image.colormap_entries = 2;
  std::string out(1024, '\0');
  png_alloc_size_t size = out.size();
  EXPECT_TRUE(png_image_write_to_memory(&image, out.data(), &size, 0, pixels, 0, colormap));
  return out.substr(0, size);
}

TEST(IconImageTest, PngOfEveryKindDecodesToRgbaAndBrokenOnesToNothing) {
  RgbaImage image = solid(3, 2, {10, 20, 30, 255});
  image.pixels[4 * 4 + 3] = 0;
  EXPECT_EQ(IconImage::decodePng(png(image)), image);
  const uint8_t gray[] = {0, 255, 77, 9};
  EXPECT_EQ(IconImage::decodePng(pngOfFormat(4, PNG_FORMAT_GRAY, gray)),
            (RgbaImage{4, 1, {0, 0, 0, 255, 255, 255, 255, 255, 77, 77, 77, 255, 9, 9, 9, 255}}));
  const uint8_t palette[] = {255, 0, 0, 255, 0, 0, 255, 0};  // opaque red, transparent blue
  const uint8_t indices[] = {1, 0};
  EXPECT_EQ(IconImage::decodePng(pngOfFormat(2, PNG_FORMAT_RGBA_COLORMAP, indices, palette)),
            (RgbaImage{2, 1, {0, 0, 255, 0, 255, 0, 0, 255}}));

  // Adam7-interlaced 3x3 RGBA whose pixel (x, y) is (100x, 100y, 7, 255 - x).
  const std::string interlaced(
      "\x89PNG\r\n\x1a\n\x00\x00\x00\x0dIHDR\x00\x00\x00\x03\x00\x00\x00\x03\x08\x06\x00\x00\x01"
      "\x21\x2f\x85\x29\x00\x00\x00\x28IDAT\x78\x9c\x0d\xc6\xb1\x0d\x00\x30\x0c\xc3\x30\x6d\x7a"
      "\xd4\xc7\xfa\xa9\x34\xcd\x42\x10\x70\x29\x0e\xd4\x6d\x2f\xc1\x47\x7a\x10\x37\xf1\x35\xce"
      "\x07\x36\x08\x10\x36\xe5\xd2\x62\x99\x00\x00\x00\x00IEND\xae\x42\x60\x82",
      97);
  RgbaImage expected{3, 3, {}};
  for (uint8_t i = 0; i < 9; ++i) {
    expected.pixels.insert(expected.pixels.end(), {uint8_t(100 * (i % 3)), uint8_t(100 * (i / 3)),
                                                   7, uint8_t(255 - i % 3)});
  }
  EXPECT_EQ(IconImage::decodePng(interlaced), expected);

  const std::string good = png(solid(4, 4, {1, 2, 3, 4}));
  std::string corrupt = good;
  corrupt[40] = static_cast<char>(corrupt[40] ^ 0x55);  // inside IDAT: checksum fails
  for (const std::string& bad :
       {good.substr(0, 0), good.substr(0, 8), good.substr(0, 20), good.substr(0, 33),
        good.substr(0, good.size() - 13), corrupt, std::string("GIF89a"),
        png(solid(IconImage::kMaxSide + 1, 1, {0, 0, 0, 255}))}) {
    EXPECT_FALSE(IconImage::decodePng(bad)) << bad.size();
  }
  EXPECT_TRUE(IconImage::decodePng(png(solid(IconImage::kMaxSide, 1, {0, 0, 0, 255}))));
}

TEST(IconImageTest, BmpFramesTakeTheirLayoutFromTheHeaderAndRefuseHostileOnes) {
  // 24 and 32-bit frames may carry a colour table before their pixels.
  std::string withTable =
      patched(bmpFrame(1, 1, 24, 7), 32, 1, 4).insert(40, "\x09\x09\x09\x00", 4);
  EXPECT_EQ(IconImage::decodeBmpFrame(withTable), solid(1, 1, {0, 0, 7, 255}));
  // A 32-bit frame may leave out the mask, as its alpha says everything.
  EXPECT_TRUE(IconImage::decodeBmpFrame(bmpFrame(2, 2, 32).substr(0, 40 + 16)));

  const std::string good = bmpFrame(2, 2, 8);
  for (const std::string& bad :
       {good.substr(0, 39), good.substr(0, good.size() - 1), patched(good, 0, 1000, 4),
        patched(good, 0, 12, 4), patched(good, 4, 0, 4), patched(good, 4, 0x80000000, 4),
        patched(good, 8, 0, 4), patched(good, 14, 16, 2), patched(good, 16, 1, 4),
        patched(good, 32, 257, 4), patched(good, 8, 2 * 5000, 4),
        patched(patched(bmpFrame(1, 1, 1), 32, 1, 4), 44, 0x80, 1)}) {  // index beyond the palette
    EXPECT_FALSE(IconImage::decodeBmpFrame(bad)) << ::testing::PrintToString(bad.substr(0, 40));
  }
}

TEST(IconImageTest, IcoPicksTheWidestUsableFrame) {
  const auto frame = [](uint32_t side, uint8_t shade) {
    return png(solid(side, side, {shade, 0, 0, 255}));
  };
  const auto widest = [](const std::string& file) -> Pick {
    const auto image = IconImage::decodeIcon(file);
    if (!image) return std::nullopt;
    return std::pair{image->width, image->pixels[0]};
  };
  std::vector<std::string> seventeen(16, frame(8, 1));
  seventeen.push_back(frame(64, 2));
  std::string broken = ico({frame(16, 1), frame(32, 2)});
  broken[6 + 16 + 12] = static_cast<char>(0xf0);  // second entry's offset beyond the file
  const std::string tall = png(solid(4097, 1, {0, 0, 0, 255}));
  const std::vector<std::pair<std::string, Pick>> cases = {
      {ico({frame(16, 1), frame(48, 2), frame(32, 3)}), Pick{{48, 2}}},
      {ico({frame(32, 1), frame(32, 2)}), Pick{{32, 1}}},  // first on ties
      {ico({frame(16, 1), bmpFrame(24, 24, 24)}), Pick{{24, 0}}},
      {ico(seventeen), Pick{{8, 1}}},  // only 16 entries are looked at
      {ico({frame(16, 1), tall}), Pick{{16, 1}}},
      {broken, Pick{{16, 1}}},
  };
  for (const auto& [file, pick] : cases) EXPECT_EQ(widest(file), pick);

  std::string chosenBroken = ico({frame(16, 1), frame(32, 2)});
  chosenBroken[chosenBroken.size() - 20] ^= 0x33;  // the widest frame's data is damaged
  const std::string valid = ico({frame(16, 1)});
  for (const std::string& bad :
       {chosenBroken, std::string(), valid.substr(0, 5), valid.substr(0, 21),
        ico({frame(16, 1)}, 0), patched(valid, 2, 2, 2), "BM" + valid}) {
    EXPECT_EQ(widest(bad), Pick{});
  }
}

TEST(IconImageTest, DownscalingAveragesAreasAndKeepsAspect) {
  struct Case {
    uint32_t width, height, outWidth, outHeight;
  };
  for (const Case& c : {Case{128, 64, 64, 32}, Case{64, 200, 20, 64}, Case{1, 100, 1, 64},
                        Case{300, 1, 64, 1}, Case{16, 16, 16, 16}}) {
    const RgbaImage out = IconImage::downscaled(solid(c.width, c.height, {9, 9, 9, 9}), 64);
    EXPECT_EQ(out, solid(c.outWidth, c.outHeight, {9, 9, 9, 9})) << c.width << "x" << c.height;
  }
  // Three pixels into two: each output box covers one and a half inputs.
  const RgbaImage stripe{3, 1, {0, 0, 0, 255, 255, 255, 255, 255, 0, 0, 0, 255}};
  EXPECT_EQ(IconImage::downscaled(stripe, 2).pixels,
            (std::vector<uint8_t>{85, 85, 85, 255, 85, 85, 85, 255}));
  // A transparent pixel lends its alpha but none of its colour.
  const RgbaImage half{2, 1, {255, 0, 0, 0, 0, 0, 255, 255}};
  EXPECT_EQ(IconImage::downscaled(half, 1).pixels, (std::vector<uint8_t>{0, 0, 255, 128}));
}

// Large PNGs are averaged row by row as they decode, with the same result as a whole
// decode followed by downscaling.
TEST(IconImageTest, LargePngsAreDownscaledWhileTheyDecode) {
  RgbaImage gradient{300, 130, {}};
  for (uint32_t y = 0; y < gradient.height; ++y) {
    for (uint32_t x = 0; x < gradient.width; ++x) {
      gradient.pixels.insert(gradient.pixels.end(),
                             {static_cast<uint8_t>(x), static_cast<uint8_t>(y),
                              static_cast<uint8_t>(x ^ y), static_cast<uint8_t>(x + y)});
    }
  }
  const auto streamed = IconImage::decodePng(png(gradient), 64);
  ASSERT_TRUE(streamed);
  EXPECT_EQ(*streamed, IconImage::downscaled(gradient, 64));
  EXPECT_EQ(IconImage::decodePng(png(gradient)), gradient);
  EXPECT_EQ(IconImage::decodePng(png(solid(40, 20, {1, 2, 3, 4})), 64),
            solid(40, 20, {1, 2, 3, 4}));
}

TEST(IconImageTest, ThumbnailRefusesHalfAMebibyteAndOtherFormats) {
  std::string padded = png(solid(100, 50, {1, 2, 3, 255}));
  padded.resize(IconImage::kMaxInputBytes - 1, '\0');
  const auto thumb = IconImage::thumbnail(padded);
  ASSERT_TRUE(thumb);
  EXPECT_EQ(IconImage::decodePng(*thumb), solid(64, 32, {1, 2, 3, 255}));
  padded.push_back('\0');
  EXPECT_FALSE(IconImage::thumbnail(padded));
  EXPECT_FALSE(IconImage::thumbnail("<svg xmlns='http://www.w3.org/2000/svg'/>"));
}

TEST(IconImageTest, GifFirstFrameOnItsCanvasWithTransparency) {
  // 3 x 2 at (1, 1) on a 4 x 3 canvas; index 1 is transparent.
  const std::string small = gif({4, 3, 3, 2, {0, 1, 0, 1, 0, 0}, 1, 1, 1});
  const auto image = IconImage::decodeIcon(small);
  ASSERT_TRUE(image);
  RgbaImage expected = solid(4, 3, {0, 0, 0, 0});
  for (const auto& [x, y] : {std::pair{1, 1}, {3, 1}, {2, 2}, {3, 2}}) {
    std::copy_n(Pixel{200, 0, 0, 255}.begin(), 4, &expected.pixels[(y * 4 + x) * 4]);
  }
  EXPECT_EQ(*image, expected);

  // Interlaced rows land where they belong.
  std::vector<GifPixelType> stripes(2 * 11);
  for (size_t i = 0; i < stripes.size(); ++i) stripes[i] = (i / 2) % 2;
  const auto striped =
      IconImage::decodeGif(gif({2, 11, 2, 11, stripes, 0, 0, NO_TRANSPARENT_COLOR, true}));
  ASSERT_TRUE(striped);
  for (uint32_t y = 0; y < 11; ++y) EXPECT_EQ(striped->pixels[y * 8], y % 2 ? 0 : 200) << y;

  // A frame larger than its canvas stands alone; truncated files and ones declaring
  // sides beyond 4096 are refused before anything of that size exists.
  EXPECT_EQ(IconImage::decodeGif(gif({1, 1, 2, 1, {0, 0}}))->width, 2u);
  EXPECT_FALSE(IconImage::decodeGif(small.substr(0, small.size() - 8)));
  // Screen descriptor at 6; after the two-colour table and the control extension, the
  // frame's width at 32.
  EXPECT_FALSE(IconImage::decodeGif(patched(patched(small, 6, 5000, 2), 8, 5000, 2)));
  EXPECT_FALSE(IconImage::decodeGif(patched(small, 32, 5000, 2)));
}

TEST(IconImageTest, JpegDecodesAtTheSmallestScaleThatStillFillsTheThumbnail) {
  const Pixel teal{0, 128, 128, 255};
  const auto small = IconImage::decodeIcon(jpeg(solid(20, 10, teal)));
  ASSERT_TRUE(small);
  EXPECT_EQ(std::pair(small->width, small->height), std::pair(20u, 10u));
  EXPECT_TRUE(near(*small, teal));

  // 1/8 keeps 1000 pixels at 125, above 64; 1/8 of 400 would be 50, so 1/4 is used.
  for (const auto& [side, decoded] : {std::pair{1000u, 125u}, {400u, 100u}, {100u, 100u}}) {
    for (const bool progressive : {false, true}) {
      const auto image =
          IconImage::decodeJpeg(jpeg(solid(side, side / 2, teal), 95, progressive), 64);
      ASSERT_TRUE(image) << side;
      EXPECT_EQ(std::pair(image->width, image->height), std::pair(decoded, (decoded + 1) / 2))
          << side;
      EXPECT_TRUE(near(*image, teal)) << side;
    }
  }
  const auto thumb = IconImage::thumbnail(jpeg(solid(4096, 4096, teal)));
  ASSERT_TRUE(thumb);
  EXPECT_TRUE(near(*IconImage::decodePng(*thumb), teal));
  EXPECT_EQ(IconImage::decodePng(*thumb)->width, 64u);

  const std::string good = jpeg(solid(16, 16, teal));
  EXPECT_FALSE(IconImage::decodeJpeg(good.substr(0, 20)));
  EXPECT_FALSE(IconImage::decodeJpeg(jpeg(solid(4097, 8, teal))));
}

TEST(IconImageTest, WebpStillImagesExactlyAndLargeOnesScaledWhileDecoding) {
  RgbaImage image = solid(5, 3, {10, 20, 30, 255});
  image.pixels[4 * 7] = 250;
  image.pixels[3] = 0;  // alpha survives (the colour under it need not)
  auto decoded = IconImage::decodeIcon(webp(image));
  ASSERT_TRUE(decoded);
  std::copy_n(image.pixels.begin(), 3, decoded->pixels.begin());
  EXPECT_EQ(*decoded, image);
  const auto lossy = IconImage::decodeIcon(webp(solid(32, 32, {0, 0, 200, 255}), false));
  ASSERT_TRUE(lossy);
  EXPECT_TRUE(near(*lossy, {0, 0, 200, 255}, 10));

  const auto scaled = IconImage::decodeWebp(webp(solid(1000, 500, {9, 9, 9, 255})), 64);
  ASSERT_TRUE(scaled);
  EXPECT_EQ(*scaled, solid(64, 32, {9, 9, 9, 255}));
  // Of an animation, the first frame.
  const RgbaImage red = solid(6, 4, {200, 0, 0, 255}), blue = solid(6, 4, {0, 0, 200, 255});
  EXPECT_EQ(IconImage::decodeIcon(animatedWebp({red, blue})), red);
  EXPECT_EQ(IconImage::decodeIcon(animatedWebp({blue, red})), blue);

  const std::string good = webp(image);
  EXPECT_FALSE(IconImage::decodeWebp(good.substr(0, good.size() - 4)));
  EXPECT_FALSE(IconImage::decodeWebp(webp(solid(4097, 1, {0, 0, 0, 255}))));
}

TEST(IconImageTest, BmpFilesOfEveryRowOrderAndHostileHeaders) {
  const Pixel green{0, 150, 0, 255};
  EXPECT_EQ(IconImage::decodeIcon(bmp(3, 2, green)), solid(3, 2, green));
  EXPECT_EQ(IconImage::decodeIcon(bmp(3, -2, green)), solid(3, 2, green));
  // 32-bit pixels with nothing in the alpha byte are opaque; with alpha, they keep it.
  EXPECT_EQ(IconImage::decodeBmp(bmp(2, 2, {1, 2, 3, 0}, 32)), solid(2, 2, {1, 2, 3, 255}));
  EXPECT_EQ(IconImage::decodeBmp(bmp(2, 2, {1, 2, 3, 7}, 32)), solid(2, 2, {1, 2, 3, 7}));
  // The same with its channel masks stated (BI_BITFIELDS), as 32-bit files with alpha are
  // usually written; masks in another order are refused.
  std::string fields = patched(patched(bmp(2, 3, {1, 2, 3, 7}, 32), 30, 3, 4), 10, 54 + 12, 4);
  fields.insert(54, std::string("\0\0\xff\0\0\xff\0\0\xff\0\0\0", 12));
  EXPECT_EQ(IconImage::decodeBmp(fields), solid(2, 3, {1, 2, 3, 7}));
  EXPECT_FALSE(IconImage::decodeBmp(patched(fields, 54, 0xff, 4)));
  // Bottom row first: the top row is the last one written.
  std::string rows = bmp(1, 2, green);
  rows[54 + 4 + 2] = static_cast<char>(255);
  EXPECT_EQ(IconImage::decodeBmp(rows)->pixels[0], 255);

  const std::string good = bmp(4, 4, green);
  for (const std::string& hostile :
       {good.substr(0, good.size() - 1), patched(good, 10, 0xfffffff0, 4),
        patched(good, 18, 5000, 4), patched(good, 22, 0x80000000, 4), patched(good, 30, 1, 4),
        patched(good, 28, 16, 2)}) {
    EXPECT_FALSE(IconImage::decodeBmp(hostile));
  }
}

// ICO files made by a real icon tool from our own PNGs: BMP frames of every depth it can
// write, and PNG frames.
TEST(IconImageTest, IcotoolFilesGiveTheLargestFrame) {
  ASSERT_EQ(std::system("command -v icotool >/dev/null"), 0) << "icotool (icoutils) is needed";
  const auto folder =
      std::filesystem::temp_directory_path() / ("velto-ico-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  std::string sources;
  for (const auto& [side, color] :
       {std::pair{16u, Pixel{200, 0, 0, 255}}, {32u, {0, 200, 0, 255}}, {48u, {0, 0, 200, 255}}}) {
    RgbaImage image = solid(side, side, color);
    image.pixels[3] = 0;  // one transparent corner
    sources += " " + (folder / (std::to_string(side) + ".png")).string();
    std::ofstream(folder / (std::to_string(side) + ".png"), std::ios::binary) << png(image);
  }
  RgbaImage expected = solid(48, 48, {0, 0, 200, 255});
  std::fill_n(expected.pixels.begin(), 4, 0);
  const std::string pngFrame =
      sources.substr(0, sources.rfind(' ')) + " --raw=" + sources.substr(sources.rfind(' ') + 1);
  for (const std::string& options : {sources, "-b 1" + sources, "-b 4" + sources, "-b 8" + sources,
                                     "-b 24" + sources, pngFrame}) {
    const auto out = folder / "out.ico";
    ASSERT_EQ(std::system(("icotool -c -o " + out.string() + " " + options).c_str()), 0) << options;
    std::stringstream file;
    file << std::ifstream(out, std::ios::binary).rdbuf();
    const auto thumb = IconImage::thumbnail(file.str());
    const auto image = thumb ? IconImage::decodePng(*thumb) : std::nullopt;
    ASSERT_TRUE(image) << options;
    EXPECT_EQ(std::pair(image->width, image->height), std::pair(48u, 48u)) << options;
    RgbaImage seen = *image;
    EXPECT_EQ(seen.pixels[3], 0) << options;  // the transparent corner, whatever its colour
    std::fill_n(seen.pixels.begin(), 4, 0);
    EXPECT_EQ(seen, expected) << options;
  }
  std::filesystem::remove_all(folder);
}

}  // namespace
}  // namespace velto
