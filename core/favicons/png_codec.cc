#include <png.h>

#include <csetjmp>
#include <cstring>

#include "core/favicons/icon_image.h"

namespace velto::IconImage {

namespace {

struct ReadCursor {
  const uint8_t* data;
  size_t size;
  size_t offset;
};

void readFromCursor(png_structp png, png_bytep out, size_t count) {
  auto* cursor = static_cast<ReadCursor*>(png_get_io_ptr(png));
  if (count > cursor->size - cursor->offset) png_error(png, "truncated");
  std::memcpy(out, cursor->data + cursor->offset, count);
  cursor->offset += count;
}

void appendToString(png_structp png, png_bytep data, size_t count) {
  static_cast<std::string*>(png_get_io_ptr(png))->append(reinterpret_cast<const char*>(data), count);
}

void flushNothing(png_structp) {}

// libpng's default handlers print to stderr; a broken icon is an ordinary outcome.
[[noreturn]] void failQuietly(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void ignoreWarning(png_structp, png_const_charp) {}

// libpng reports errors by longjmp out of this frame, so no object with a destructor may
// live in it: everything that owns memory belongs to the caller.
// A non-interlaced image larger than `minSide` goes row by row into `rows` (through
// `rowBuffer`) and never exists whole; `out` is then left empty.
bool readPng(ReadCursor* cursor, uint32_t minSide, std::optional<RowDownscaler>* rows,
             std::vector<uint8_t>* rowBuffer, RgbaImage* out) {
  png_structp png =
      png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, failQuietly, ignoreWarning);
  if (png == nullptr) return false;
  png_infop info = png_create_info_struct(png);
  if (info == nullptr) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_read_struct(&png, &info, nullptr);
    return false;
  }
  png_set_read_fn(png, cursor, readFromCursor);
  png_set_user_limits(png, kMaxSide, kMaxSide);
  // Text and profile chunks may be compressed; bound what they can expand to.
  png_set_chunk_malloc_max(png, 1 << 20);
  png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_NEVER, nullptr, 0);
  png_read_info(png, info);

  const png_byte colorType = png_get_color_type(png, info);
  const png_byte bitDepth = png_get_bit_depth(png, info);
  if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (colorType == PNG_COLOR_TYPE_GRAY && bitDepth < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
  if (bitDepth == 16) png_set_strip_16(png);
  if (colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA) {
    png_set_gray_to_rgb(png);
  }
  png_set_filler(png, 0xff, PNG_FILLER_AFTER);
  const int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);

  const png_uint_32 width = png_get_image_width(png, info);
  const png_uint_32 height = png_get_image_height(png, info);
  if (width == 0 || height == 0 || png_get_rowbytes(png, info) != size_t{width} * 4) {
    png_error(png, "unexpected row layout");
  }
  if (passes == 1 && fittedSides(width, height, minSide) != std::pair(width, height)) {
    rows->emplace(width, height, minSide);
    rowBuffer->resize(size_t{width} * 4);
    for (png_uint_32 y = 0; y < height; ++y) {
      png_read_row(png, rowBuffer->data(), nullptr);
      (*rows)->addRow(rowBuffer->data());
    }
    png_destroy_read_struct(&png, &info, nullptr);
    return true;
  }
  out->width = width;
  out->height = height;
  out->pixels.assign(size_t{width} * height * 4, 0);
  for (int pass = 0; pass < passes; ++pass) {
    for (png_uint_32 y = 0; y < height; ++y) {
      png_read_row(png, out->pixels.data() + size_t{y} * width * 4, nullptr);
    }
  }
  png_destroy_read_struct(&png, &info, nullptr);
  return true;
}

// The same rule as readPng: nothing with a destructor in this frame.
bool writePng(const RgbaImage* image, std::string* out) {
  png_structp png =
      png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, failQuietly, ignoreWarning);
  if (png == nullptr) return false;
  png_infop info = png_create_info_struct(png);
  if (info == nullptr) {
    png_destroy_write_struct(&png, nullptr);
    return false;
  }
  if (setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    return false;
  }
  png_set_write_fn(png, out, appendToString, flushNothing);
  png_set_IHDR(png, info, image->width, image->height, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (uint32_t y = 0; y < image->height; ++y) {
    png_write_row(png, image->pixels.data() + size_t{y} * image->width * 4);
  }
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return true;
}

}  // namespace

std::optional<RgbaImage> decodePng(std::string_view bytes, uint32_t minSide) {
  ReadCursor cursor{reinterpret_cast<const uint8_t*>(bytes.data()), bytes.size(), 0};
  std::optional<RowDownscaler> rows;
  std::vector<uint8_t> rowBuffer;
  RgbaImage image;
  if (!readPng(&cursor, minSide, &rows, &rowBuffer, &image)) return std::nullopt;
  if (rows) return rows->finish();
  return image;
}

std::optional<std::string> encodePng(const RgbaImage& image) {
  if (image.width == 0 || image.height == 0 ||
      image.pixels.size() != size_t{image.width} * image.height * 4) {
    return std::nullopt;
  }
  std::string out;
  if (!writePng(&image, &out)) return std::nullopt;
  return out;
}

}  // namespace velto::IconImage
