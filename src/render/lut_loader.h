// LUTLoader: reads a 3D colour look-up table in the text ".cube" format,
// validates it strictly and applies it to images.
//
// Parsing rules (the first fault ends the parse with its message):
// - CR LF becomes LF; lines are split at LF and trimmed of Unicode white space.
//   Empty lines and lines starting with "#" are skipped.
// - "TITLE ..." sets the title to the rest of the line, trimmed (the last one wins).
// - Any other line is cut at its first "#" (inline comment) and trimmed again.
// - "LUT_1D_SIZE": rejected. "LUT_3D_SIZE N": an integer (optional sign), valid
//   once, before any data line, for 2 <= N <= 128.
// - "DOMAIN_MIN" / "DOMAIN_MAX": exactly three finite 32-bit floats.
// - Every other line is a data line of exactly three finite 32-bit floats, after
//   the size; no more than N³ triples. Numbers are split at any white space and
//   read like strtof in the C locale, as a whole token; values outside 0...1
//   are kept as they stand.
// - At the end: a size must have been declared, exactly N³ triples read, and for
//   each channel min < max with a finite difference and a finite reciprocal.
// Text that is not valid UTF-8 is read as Latin-1 (one byte, one character);
// a leading UTF-8 byte-order mark is ignored. Files above 256 MB (268,435,456
// bytes) are refused before reading.
//
// Applying: each pixel is taken into the sRGB encoding (the curve of
// render/srgb.h), remapped by (v - min) / (max - min) when the domain is not
// the default, clamped to the cube (0...1, NaN to 0), looked up with trilinear
// interpolation between the eight surrounding entries, and decoded back to the
// linear working space. Partly transparent pixels are un-premultiplied around
// the look-up (the table describes colours, not coverage); alpha is kept.
// Applying never fails.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "render/image.h"
#include "render/kernels.h"

namespace vg {

struct ParsedLUT {
  std::string title;  // UTF-8
  int size = 0;       // cube edge N, 2...128
  // N³ entries of (R, G, B, 1) in file order: red index fastest, then green, then blue.
  std::vector<float> data;
  std::array<float, 3> domainMin{0, 0, 0};
  std::array<float, 3> domainMax{1, 1, 1};

  bool hasDefaultDomain() const;
  // Approximate memory held, for cache budgets.
  size_t byteSize() const { return data.size() * sizeof(float) + title.size(); }
  friend bool operator==(const ParsedLUT&, const ParsedLUT&) = default;
};

struct LUTError {
  enum class Kind {
    invalidFormat,  // the file is not an acceptable .cube table; message says why
    unreadable,     // the file could not be read at all; message is the system's reason
  };
  Kind kind = Kind::invalidFormat;
  std::string message;

  // "LUT 文件格式错误：<message>" for a format error; the message itself otherwise.
  std::string description() const;
  friend bool operator==(const LUTError&, const LUTError&) = default;
};

using LUTResult = std::variant<ParsedLUT, LUTError>;

class LUTLoader {
 public:
  static constexpr std::uintmax_t kMaxFileBytes = 268'435'456;

  // Reads, size-checks, decodes and parses a .cube file.
  static LUTResult load(const std::filesystem::path& path);
  // Parses .cube bytes (UTF-8, or Latin-1 when not valid UTF-8).
  static LUTResult parse(std::string_view bytes);

  // The LUT applied to a copy of image (same bounds).
  static Image apply(const ParsedLUT& lut, const Image& image);
};

// The row form of LUTLoader::apply, for fused tiles: prepare once per LUT,
// then lutApply / lutApplyReference on rows (kernels.h conventions; no aux).
// The fast path is vectorised (Highway) and agrees with the reference within
// 1e-5 on 0...1 data.
struct PreparedLUT {
  int size = 0;
  const float* data = nullptr;    // the LUT's RGBA entries (not owned)
  std::array<float, 3> scale{1, 1, 1}, bias{0, 0, 0};  // domain remap in the sRGB encoding
  bool remap = false;
  // The linear values whose encodings are the domain's ends (finite; 0 and 1
  // for the default domain): the fast path clamps to them before encoding.
  std::array<float, 3> linearMin{0, 0, 0}, linearMax{1, 1, 1};
};
PreparedLUT prepareLUT(const ParsedLUT& lut);  // lut must outlive the result
void lutApply(const PreparedLUT& lut, const kernels::KernelRow& row);
void lutApplyReference(const PreparedLUT& lut, const kernels::KernelRow& row);

}  // namespace vg
