// DisplayTransform: working-space pixels to the monitor's 8-bit pixels.
//
// Working pixels are linear Rec.709 float RGBA with premultiplied alpha
// (render/image.h); display pixels are 8-bit R, G, B, A, not premultiplied
// (QImage::Format_RGBA8888). One pixel, in order:
//   1. alpha clamped to 0...1; colour un-premultiplied and clipped to 0...1
//      (NaN counts as 0), i.e. what an 8-bit sRGB file of the picture holds;
//   2. an sRGB monitor (also when none is known) takes the exporter's own
//      vectorised sRGB encoding (render/color_profiles.h) with its ordered
//      dither, so smooth skies do not band on an 8-bit screen;
//      matrix/shaper monitor profiles (nearly all others): a 3x3 matrix from
//      Rec.709 primaries to the monitor's, clipped to 0...1, then the
//      monitor's inverse tone curve from a table indexed by the float's
//      exponent and top 8 mantissa bits (256 steps per octave from 2^-20 to
//      1: under half an 8-bit step of error, also in the steep start of
//      gamma curves);
//      table-based profiles: the sRGB encoding, then a 33x33x33 table from
//      sRGB-encoded to monitor-encoded values read with tetrahedral
//      interpolation (within a few 8-bit steps in deep shadows);
//   3. rounded to 8 bits; alpha rounded.
// Matrices, curves and tables are built once per profile with Little CMS
// (relative colorimetric, which is what matrix/shaper profiles offer;
// perceptual with black-point compensation for table profiles). Profiles
// that are not RGB monitor, output or colour-space profiles are refused by
// create(); callers then fall back to sRGB.
//
// Immutable after construction and safe to share between threads.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

namespace vg::app {

class DisplayTransform {
 public:
  static constexpr int kOctaves = 20;
  static constexpr int kCurveSize = kOctaves * 256 + 1;
  static constexpr int kGrid = 33;
  enum class Method { automatic, table };

  // The transform for an sRGB monitor (also the fallback).
  static std::shared_ptr<const DisplayTransform> sRGB();
  // The transform into the monitor profile `icc`; null when the bytes are not
  // a usable RGB profile. `table` forces the 3-D table (tests).
  static std::shared_ptr<const DisplayTransform> create(std::span<const uint8_t> icc, Method method = Method::automatic);

  // The profile's description, as the View menu names it.
  const std::string& name() const { return name_; }
  bool isSRGB() const { return srgb_; }
  bool usesTable() const { return !grid_.empty(); }

  // Converts `count` working pixels (4 floats each) to display pixels (4
  // bytes each). x and y place the row in the picture (they fix the dither).
  void convertRow(const float* src, int count, uint8_t* dst, int x = 0, int y = 0) const;

 private:
  DisplayTransform() = default;
  using Curve = std::array<uint16_t, kCurveSize>;
  void encode(const float rgb[3], uint32_t out16[3]) const;

  std::string name_;
  bool srgb_ = false;
  bool identityMatrix_ = true;
  std::array<float, 9> matrix_{1, 0, 0, 0, 1, 0, 0, 0, 1};  // row-major, Rec.709 linear -> monitor linear
  std::array<Curve, 3> curves_{};  // per channel, by float bits: linear -> encoded 0...65535
  std::vector<uint16_t> grid_;     // table profiles: kGrid^3 RGB triples
};

}  // namespace vg::app
