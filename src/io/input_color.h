// InputColor: converts decoded samples of one image into the linear working
// space (Rec.709/sRGB primaries, D65, linear light, premultiplied RGBA float).
//
// Prepared once per image from what the file says about its colour:
// - no profile: RGB is sRGB, grey is sRGB-encoded grey, CMYK is converted
//   naively (R = (1-C)(1-K), ...) and then taken as sRGB;
// - an ICC matrix/shaper profile (RGB or grey): per-channel tables built from
//   its tone curves, then one 3×3 matrix from its colourants to the working
//   primaries (both in the D50 connection space). This is the fast path:
//   integer samples cost one table lookup per channel; 8-bit samples go
//   through whole-pixel tables (curve and matrix fused, three 4-lane adds
//   per pixel) that give exactly the same floats;
// - any other usable profile (LUT-based RGB, CMYK): a Little CMS transform to
//   linear sRGB, evaluated row by row (slow, only for such exotic files);
// - primaries and a transfer curve given as numbers (HEIF nclx), built into a
//   matrix/shaper profile and taken through the fast path;
// - HDR transfers (nclx PQ and HLG) are scaled so that HDR reference white,
//   203 cd/m² (BT.2408), becomes 1.0 in the working space; everything
//   brighter stays above 1.0 for the highlight controls to bring in (nothing
//   is tone-mapped at load):
//   - PQ (SMPTE ST 2084): the EOTF gives absolute luminance, divided by 203,
//     so its 10000 cd/m² peak is 49.3;
//   - HLG (BT.2100): the inverse OETF gives scene light, then the BT.2100
//     OOTF of a 1000 cd/m² reference display (system gamma 1.2, on the
//     luminance of the file's own primaries) makes it display light, divided
//     by 203: a 75 % signal is 1.0, full signal 4.93;
// - float data without a profile can be declared working-space data as is.
// An empty, unreadable or mismatched profile (an RGB profile on grey data),
// or one whose tone curves give non-finite values, is ignored and the default for the colour model applies.
//
// Alpha: straight alpha multiplies the linear colour; associated alpha is
// divided out before the tone curve and multiplied in again after it.
// convert() is const and thread-safe: rows are converted in parallel.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "io/source_format.h"

namespace vg {

class InputColor {
 public:
  enum class Transfer { srgb, bt709, gamma22, linear, pq, hlg };
  struct Primaries {
    double redX, redY, greenX, greenY, blueX, blueY, whiteX, whiteY;
  };

  static InputColor fromIcc(std::span<const uint8_t> icc, const SourceFormat& format);
  static InputColor fromPrimaries(const Primaries& primaries, Transfer transfer,
                                  const SourceFormat& format);
  // Samples already in the working space (linear Rec.709); only alpha is applied.
  static InputColor workingSpace(const SourceFormat& format);

  // The embedded profile's description, also when the profile does not fit
  // the colour model or cannot be used (usesProfile() then says false);
  // empty when there is no readable profile.
  const std::string& profileDescription() const { return description_; }
  const SourceFormat& format() const { return format_; }
  // True when the profile was usable and drives the conversion.
  bool usesProfile() const { return usesProfile_; }

  // Converts `count` pixels from src (format() layout) into dst (RGBA floats).
  void convert(const uint8_t* src, int count, float* dst) const;

  struct Lcms;  // the Little CMS transform of the slow path

 private:
  enum class Mode { tables, lcms, cmykNaive };
  enum class FloatCurve { identity, srgb, table };

  // Prepares the whole-pixel tables of 8-bit samples (the common case).
  static InputColor finished(InputColor c);
  // Builds the curve tables (cmsToneCurve*, null = sRGB); false when a curve
  // gives a non-finite or absurd value, and the profile must not be used.
  bool buildTables(const std::array<const void*, 3>& curves);
  void convertBytes(const uint8_t* src, int count, float* dst) const;
  float curveFloat(int channel, float v) const;
  void applyHlgSystemGamma(float& r, float& g, float& b) const;
  // Linear light to the working space: the HLG system gamma, then the matrix.
  void toWorkingSpace(float& r, float& g, float& b) const;

  SourceFormat format_;
  Mode mode_ = Mode::tables;
  std::string description_;
  bool usesProfile_ = false;
  // Integer samples: one table per colour channel of 2^bitDepth entries.
  std::array<std::vector<float>, 3> tables_;
  // 8-bit samples: per colour channel, 256 whole RGBA contributions that
  // add up to the converted pixel (see finished()).
  struct alignas(16) PixelEntry {
    float lanes[4];
  };
  std::vector<PixelEntry> pixelTables_;
  // Float samples: the curve of each channel.
  FloatCurve floatCurve_ = FloatCurve::srgb;
  std::array<std::vector<float>, 3> floatTables_;  // 4097 entries over 0...1
  // HLG: the OOTF between the curve and the matrix (luminance weights of the
  // file's primaries); off for every other transfer.
  bool hlgOotf_ = false;
  std::array<float, 3> hlgLuma_{};
  bool hasMatrix_ = false;
  std::array<float, 9> matrix_{};
  std::shared_ptr<const Lcms> lcms_;
};

}  // namespace vg
