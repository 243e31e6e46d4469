#include "io/png_decoder.h"

#include <png.h>
#include <tbb/task_group.h>

#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "io/decode_limits.h"
#include "io/input_color.h"
#include "io/load_error.h"
#include "io/upright_writer.h"

namespace vg {
namespace {

constexpr int kBandRows = 64;

struct Reader {
  const uint8_t* data;
  size_t size;
  size_t offset = 0;
};

struct Context {
  Reader reader{nullptr, 0};
  std::string message;
  std::vector<uint8_t> icc;
  std::vector<uint8_t> pixels;
  std::vector<png_bytep> rows;
  std::optional<InputColor> color;
  std::optional<UprightWriter> writer;
  tbb::task_group tasks;
  SourceFormat format;
};

void readData(png_structp png, png_bytep out, png_size_t length) {
  auto* ctx = static_cast<Context*>(png_get_io_ptr(png));
  Reader& r = ctx->reader;
  if (length > r.size - r.offset) {
    ctx->message = "unexpected end of file";
    png_longjmp(png, 1);
  }
  std::memcpy(out, r.data + r.offset, length);
  r.offset += length;
}

void onError(png_structp png, png_const_charp message) {
  auto* ctx = static_cast<Context*>(png_get_error_ptr(png));
  ctx->message = message ? message : "error";
  png_longjmp(png, 1);
}

void onWarning(png_structp, png_const_charp) {}

}  // namespace

DecodedImage decodePng(std::span<const uint8_t> bytes, const DecodeOptions& options) {
  if (bytes.size() < 8 || png_sig_cmp(bytes.data(), 0, 8) != 0) throw DecodeError("not a PNG file");
  auto ctx = std::make_unique<Context>();
  ctx->reader = {bytes.data(), bytes.size()};
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, ctx.get(), onError, onWarning);
  if (!png) throw DecodeError("PNG: out of memory");
  png_infop info = png_create_info_struct(png);
  if (!info) {
    png_destroy_read_struct(&png, nullptr, nullptr);
    throw DecodeError("PNG: out of memory");
  }
  if (setjmp(png_jmpbuf(png))) {
    ctx->tasks.wait();
    png_destroy_read_struct(&png, &info, nullptr);
    throw DecodeError("PNG: " + ctx->message);
  }
  Context& c = *ctx;
  png_set_read_fn(png, ctx.get(), readData);
  png_set_chunk_malloc_max(png, 64u << 20);
  png_read_info(png, info);

  png_uint_32 width = 0, height = 0;
  int bitDepth = 0, colorType = 0, interlace = 0;
  png_get_IHDR(png, info, &width, &height, &bitDepth, &colorType, &interlace, nullptr, nullptr);
  decode_limits::check(width, height, bytes.size());

  png_charp iccName = nullptr;
  int compression = 0;
  png_bytep iccData = nullptr;
  png_uint_32 iccLength = 0;
  if (png_get_iCCP(png, info, &iccName, &compression, &iccData, &iccLength) && iccData) {
    c.icc.assign(iccData, iccData + iccLength);
  }

  if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
  if (colorType == PNG_COLOR_TYPE_GRAY && bitDepth < 8) png_set_expand_gray_1_2_4_to_8(png);
  if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
  if (bitDepth == 16) png_set_swap(png);
  int passes = png_set_interlace_handling(png);
  png_read_update_info(png, info);

  int channels = png_get_channels(png, info);
  int depth = png_get_bit_depth(png, info);
  c.format.type = depth == 16 ? SampleType::u16 : SampleType::u8;
  c.format.bitDepth = depth == 16 ? 16 : 8;
  c.format.model = channels <= 2 ? ColorModel::gray : ColorModel::rgb;
  c.format.hasAlpha = channels == 2 || channels == 4;
  if (c.format.channels() != channels) throw DecodeError("PNG: unexpected channel layout");
  c.color.emplace(InputColor::fromIcc(c.icc, c.format));

  const size_t pitch = png_get_rowbytes(png, info);
  if (pitch != c.format.bytesPerPixel() * width) throw DecodeError("PNG: unexpected row size");
  c.pixels.resize(pitch * height);
  c.writer.emplace(int(width), int(height), options.orientation, *c.color);
  std::vector<png_bytep>& rows = c.rows;  // in the context: a longjmp must not skip its destructor
  rows.resize(height);
  for (png_uint_32 y = 0; y < height; ++y) rows[y] = c.pixels.data() + pitch * y;

  if (passes > 1) {
    png_read_image(png, rows.data());
    c.writer->writeAll(c.pixels.data(), pitch);
  } else {
    for (png_uint_32 y0 = 0; y0 < height; y0 += kBandRows) {
      png_uint_32 n = std::min<png_uint_32>(kBandRows, height - y0);
      png_read_rows(png, rows.data() + y0, nullptr, n);
      const uint8_t* src = rows[y0];
      UprightWriter* writer = &*c.writer;
      c.tasks.run([writer, src, pitch, y0, n] { writer->write(src, pitch, int(y0), int(n)); });
    }
    c.tasks.wait();
  }
  png_destroy_read_struct(&png, &info, nullptr);

  DecodedImage out;
  out.image = c.writer->take();
  out.opaque = c.writer->opaque();
  out.profileName = c.color->profileDescription();
  out.colorModel = c.format.model == ColorModel::gray ? "Gray" : "RGB";
  return out;
}

}  // namespace vg
