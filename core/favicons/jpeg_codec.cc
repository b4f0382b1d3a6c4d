// jpeglib.h uses FILE and size_t without declaring them.
// clang-format off
#include <cstdio>
#include <jpeglib.h>
// clang-format on

#include <algorithm>
#include <csetjmp>

#include "core/favicons/icon_image.h"

namespace velto::IconImage {

namespace {

// Bounds on the work one icon may cost: progressive files may repeat scans without end,
// and each scan of a large image costs a pass over all of it; libjpeg's own allocations
// (the coefficients of a progressive image) may not grow past this, rather than spill
// to a temporary file.
constexpr int kMaxScans = 64;
constexpr long kMaxDecoderMemory = 64L << 20;

struct Failure {
  jpeg_error_mgr manager;
  std::jmp_buf jump;
};

// libjpeg's default handlers print to stderr and exit; a broken icon is an ordinary
// outcome.
[[noreturn]] void failQuietly(j_common_ptr info) {
  std::longjmp(reinterpret_cast<Failure*>(info->err)->jump, 1);
}
void ignoreMessage(j_common_ptr, int) {}

void limitScans(j_common_ptr info) {
  const auto* decoder = reinterpret_cast<j_decompress_ptr>(info);
  if (decoder->input_scan_number > kMaxScans) failQuietly(info);
}

// The scale libjpeg decodes at: 1/8, 1/4, 1/2 or 1, the smallest that keeps the longer
// side at least `minSide`.
unsigned scaleDenominator(JDIMENSION width, JDIMENSION height, uint32_t minSide) {
  const JDIMENSION longer = std::max(width, height);
  for (unsigned denominator : {8u, 4u, 2u}) {
    if ((longer + denominator - 1) / denominator >= minSide) return denominator;
  }
  return 1;
}

// libjpeg reports errors by longjmp out of this frame, so no object with a destructor may
// live in it: everything that owns memory belongs to the caller.
bool readJpeg(std::string_view* bytes, uint32_t minSide, RgbaImage* out) {
  jpeg_decompress_struct decoder;
  Failure failure;
  jpeg_progress_mgr progress;
  decoder.err = jpeg_std_error(&failure.manager);
  failure.manager.error_exit = failQuietly;
  failure.manager.emit_message = ignoreMessage;
  if (setjmp(failure.jump)) {
    jpeg_destroy_decompress(&decoder);
    return false;
  }
  jpeg_create_decompress(&decoder);
  decoder.mem->max_memory_to_use = kMaxDecoderMemory;
  progress.progress_monitor = limitScans;
  decoder.progress = &progress;
  jpeg_mem_src(&decoder, reinterpret_cast<const unsigned char*>(bytes->data()),
               static_cast<unsigned long>(bytes->size()));
  if (jpeg_read_header(&decoder, TRUE) != JPEG_HEADER_OK)
    failQuietly(reinterpret_cast<j_common_ptr>(&decoder));
  // The declared sides are checked before anything of their size is allocated.
  if (!withinSides(decoder.image_width, decoder.image_height)) {
    failQuietly(reinterpret_cast<j_common_ptr>(&decoder));
  }
  const bool cmyk = decoder.jpeg_color_space == JCS_CMYK || decoder.jpeg_color_space == JCS_YCCK;
  decoder.out_color_space = cmyk ? JCS_CMYK : JCS_EXT_RGBA;
  decoder.scale_num = 1;
  decoder.scale_denom = scaleDenominator(decoder.image_width, decoder.image_height, minSide);
  jpeg_start_decompress(&decoder);
  const JDIMENSION width = decoder.output_width, height = decoder.output_height;
  if (decoder.output_components != 4 || width < 1 || height < 1) {
    failQuietly(reinterpret_cast<j_common_ptr>(&decoder));
  }
  out->width = width;
  out->height = height;
  out->pixels.assign(size_t{width} * height * 4, 0);
  while (decoder.output_scanline < height) {
    JSAMPROW row = out->pixels.data() + size_t{decoder.output_scanline} * width * 4;
    jpeg_read_scanlines(&decoder, &row, 1);
  }
  // Adobe writes CMYK inverted (0 is full ink), which is what nearly every such file is.
  const bool inverted = decoder.saw_Adobe_marker;
  jpeg_finish_decompress(&decoder);
  jpeg_destroy_decompress(&decoder);
  if (cmyk) {
    for (size_t at = 0; at < out->pixels.size(); at += 4) {
      uint8_t* p = &out->pixels[at];
      const unsigned k = inverted ? p[3] : 255 - p[3];
      for (int c = 0; c < 3; ++c) {
        const unsigned ink = inverted ? p[c] : 255 - p[c];
        p[c] = static_cast<uint8_t>(ink * k / 255);
      }
      p[3] = 0xff;
    }
  }
  return true;
}

}  // namespace

std::optional<RgbaImage> decodeJpeg(std::string_view bytes, uint32_t minSide) {
  RgbaImage image;
  if (!readJpeg(&bytes, minSide, &image)) return std::nullopt;
  return image;
}

}  // namespace velto::IconImage
