#include "io/jpeg_decoder.h"

#include <tbb/task_group.h>

#include <algorithm>
#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <optional>
#include <vector>

#include <jpeglib.h>
#include <jerror.h>

#include "io/decode_limits.h"
#include "io/input_color.h"
#include "io/load_error.h"
#include "io/orientation.h"
#include "io/upright_writer.h"

namespace vg {
namespace {

// Measured on the 24 MP camera JPEG of the loader benchmark, 2 cores: best
// 91 ms against 84 ms for djpeg of the same file (the whole 8-bit raster it
// replaced cost 129 ms, mostly page faults on the libjpeg thread).
constexpr int kBandRows = 32;      // rows handed to the pool at a time (multiple of the writer's block)
constexpr int kBandSlots = 4;      // band buffers in flight: decode runs ahead of conversion by up to 3 bands
constexpr int kMaxScans = 500;     // progressive files beyond this are refused (decode time bomb)

struct ErrorManager {
  jpeg_error_mgr base;
  std::jmp_buf jump;
  char message[JMSG_LENGTH_MAX] = {};
  bool endedBeforeData = false;
};

void errorExit(j_common_ptr cinfo) {
  auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
  (*cinfo->err->format_message)(cinfo, err->message);
  std::longjmp(err->jump, 1);
}

void emitMessage(j_common_ptr cinfo, int level) {
  if (level >= 0) return;  // trace messages
  auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
  if (cinfo->err->msg_code == JWRN_JPEG_EOF && cinfo->is_decompressor) {
    auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
    if (d->input_iMCU_row == 0 && d->input_scan_number <= 1) err->endedBeforeData = true;
  }
  cinfo->err->num_warnings++;
}

void outputMessage(j_common_ptr) {}

void progress(j_common_ptr cinfo) {
  if (!cinfo->is_decompressor) return;
  auto* d = reinterpret_cast<j_decompress_ptr>(cinfo);
  if (d->progressive_mode && d->input_scan_number > kMaxScans) {
    cinfo->err->msg_code = JERR_BAD_SCAN_SCRIPT;
    auto* err = reinterpret_cast<ErrorManager*>(cinfo->err);
    std::snprintf(err->message, sizeof err->message, "progressive JPEG with more than %d scans", kMaxScans);
    std::longjmp(err->jump, 1);
  }
}

// For a reduced decode: the smallest DCT scale n/8 whose longer output side
// still reaches minLongSide; 8/8 when no smaller one does. libjpeg-turbo
// then runs its scaled inverse DCTs, so the entropy decoding is all that
// still costs as much as a full decode.
void chooseReducedScale(jpeg_decompress_struct& cinfo, double minLongSide) {
  cinfo.scale_denom = 8;
  for (unsigned n = 1; n <= 8; ++n) {
    cinfo.scale_num = n;
    jpeg_calc_output_dimensions(&cinfo);
    if (double(std::max(cinfo.output_width, cinfo.output_height)) >= minLongSide) return;
  }
}

// One band buffer of decoded 8-bit rows and the conversion that reads it.
// The buffer is reused only after its conversion has finished.
struct BandSlot {
  std::unique_ptr<uint8_t[]> pixels;  // kBandRows rows, not cleared: libjpeg writes every row
  tbb::task_group conversion;
};

// Everything that must survive a longjmp back into decodeJpeg lives here,
// owned through a pointer that is never reassigned after setjmp.
struct Context {
  std::vector<uint8_t> icc;
  std::optional<InputColor> color;
  std::optional<UprightWriter> writer;
  std::array<BandSlot, kBandSlots> slots;
  SourceFormat format;

  void waitAll() {
    for (auto& s : slots) s.conversion.wait();
  }
};

}  // namespace

DecodedImage decodeJpeg(std::span<const uint8_t> bytes, const DecodeOptions& options) {
  if (bytes.size() < 4) throw DecodeError("not a JPEG file (too short)");
  auto ctx = std::make_unique<Context>();
  jpeg_decompress_struct cinfo;
  ErrorManager err;
  jpeg_progress_mgr progressManager;
  cinfo.err = jpeg_std_error(&err.base);
  cinfo.mem = nullptr;  // nothing to release until jpeg_create_decompress
  err.base.error_exit = errorExit;
  err.base.emit_message = emitMessage;
  err.base.output_message = outputMessage;
  // Every way out (a libjpeg error, an exception such as a refused size or
  // bad_alloc, the normal return) releases libjpeg's memory; destroying
  // twice, or before creation, does nothing.
  struct Release {
    j_decompress_ptr cinfo;
    ~Release() { jpeg_destroy_decompress(cinfo); }
  } release{&cinfo};

  if (setjmp(err.jump)) {
    try {
      ctx->waitAll();
    } catch (...) {
      // the decode error below is the one to report
    }
    throw DecodeError(std::string("JPEG: ") + err.message);
  }

  jpeg_create_decompress(&cinfo);
  progressManager.progress_monitor = progress;
  cinfo.progress = &progressManager;
  cinfo.mem->max_memory_to_use = size_t(2) << 30;
  jpeg_mem_src(&cinfo, bytes.data(), (unsigned long)bytes.size());
  jpeg_save_markers(&cinfo, JPEG_APP0 + 2, 0xFFFF);
  jpeg_read_header(&cinfo, TRUE);
  decode_limits::check(cinfo.image_width, cinfo.image_height, bytes.size());

  Context& c = *ctx;
  c.format.type = SampleType::u8;
  c.format.bitDepth = 8;
  switch (cinfo.jpeg_color_space) {
    case JCS_GRAYSCALE:
      cinfo.out_color_space = JCS_GRAYSCALE;
      c.format.model = ColorModel::gray;
      break;
    case JCS_CMYK:
    case JCS_YCCK:
      cinfo.out_color_space = JCS_CMYK;
      c.format.model = ColorModel::cmyk;
      c.format.inverted = cinfo.saw_Adobe_marker;
      break;
    default:
      cinfo.out_color_space = JCS_RGB;
      c.format.model = ColorModel::rgb;
      break;
  }
  JOCTET* iccData = nullptr;
  unsigned int iccLength = 0;
  if (jpeg_read_icc_profile(&cinfo, &iccData, &iccLength) && iccData) {
    c.icc.assign(iccData, iccData + iccLength);
    std::free(iccData);
  }
  c.color.emplace(InputColor::fromIcc(c.icc, c.format));
  if (options.minLongSide > 0) chooseReducedScale(cinfo, options.minLongSide);

  jpeg_start_decompress(&cinfo);
  const int width = int(cinfo.output_width), height = int(cinfo.output_height);
  const size_t pitch = size_t(width) * size_t(cinfo.output_components);
  c.writer.emplace(width, height, options.orientation, *c.color);
  for (auto& s : c.slots) s.pixels.reset(new uint8_t[pitch * kBandRows]);

  // Decode band after band into the ring of slots; each full band is
  // converted on the pool while libjpeg decodes the next ones.
  for (int band = 0; int(cinfo.output_scanline) < height; ++band) {
    BandSlot& slot = c.slots[size_t(band % kBandSlots)];
    slot.conversion.wait();
    const int y0 = int(cinfo.output_scanline);
    const int n = std::min(kBandRows, height - y0);
    JSAMPROW rows[kBandRows];
    for (int k = 0; k < n; ++k) rows[k] = slot.pixels.get() + pitch * size_t(k);
    while (int(cinfo.output_scanline) < y0 + n) {
      int done = int(cinfo.output_scanline) - y0;
      if (jpeg_read_scanlines(&cinfo, rows + done, JDIMENSION(n - done)) == 0) {
        // Cannot happen with an in-memory source (it never suspends); a
        // decoder that stops giving rows must not hang the load.
        std::snprintf(err.message, sizeof err.message, "the decoder stopped at row %d", y0 + done);
        std::longjmp(err.jump, 1);
      }
    }
    const uint8_t* src = slot.pixels.get();
    UprightWriter* writer = &*c.writer;
    slot.conversion.run([writer, src, pitch, y0, n] { writer->write(src, pitch, y0, n); });
  }
  bool endedBeforeData = err.endedBeforeData;
  jpeg_abort_decompress(&cinfo);
  c.waitAll();
  if (endedBeforeData) throw DecodeError("JPEG: the file ends before any image data");

  DecodedImage out;
  out.image = c.writer->take();
  const bool turned = orientation::swapsAxes(orientation::normalized(options.orientation));
  out.fullWidth = int(turned ? cinfo.image_height : cinfo.image_width);
  out.fullHeight = int(turned ? cinfo.image_width : cinfo.image_height);
  out.profileName = c.color->profileDescription();
  out.colorModel = c.format.model == ColorModel::gray ? "Gray"
                   : c.format.model == ColorModel::cmyk ? "CMYK"
                                                        : "RGB";
  return out;
}

}  // namespace vg
