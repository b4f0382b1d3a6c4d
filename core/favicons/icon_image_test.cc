#include "core/favicons/icon_image.h"

#include <gtest/gtest.h>
#include <png.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace velto {
namespace {

using Pixel = std::array<uint8_t, 4>;
using Pick = std::optional<std::pair<uint32_t, uint8_t>>;  // width and first red value

RgbaImage solid(uint32_t width, uint32_t height, Pixel color) {
  RgbaImage image{width, height, {}};
  for (uint32_t i = 0; i < width * height; ++i)
    image.pixels.insert(image.pixels.end(), color.begin(), color.end());
  return image;
}

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
    EXPECT_FALSE(IconImage::decodeBmpFrame(bad)) << testing::PrintToString(bad.substr(0, 40));
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
