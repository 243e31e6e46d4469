// SourceFormat: the layout of the decoded samples a decoder hands to the
// colour conversion (interleaved, one row after another).
#pragma once

#include <cstddef>

namespace vg {

enum class SampleType { u8, u16, f16, f32, f64 };
enum class ColorModel { gray, rgb, cmyk };

struct SourceFormat {
  ColorModel model = ColorModel::rgb;
  SampleType type = SampleType::u8;
  // Significant bits of integer samples: 8 for u8, 9-16 for u16 (a 10-bit
  // HEIF holds 0...1023 in 16-bit words). Larger values are clamped.
  int bitDepth = 8;
  bool hasAlpha = false;        // one alpha sample after the colour samples
  bool alphaAssociated = false; // colour already multiplied by alpha
  bool inverted = false;        // grey stored min-is-white, CMYK stored inverted (Adobe)

  int colorChannels() const { return model == ColorModel::gray ? 1 : model == ColorModel::rgb ? 3 : 4; }
  int channels() const { return colorChannels() + (hasAlpha ? 1 : 0); }
  size_t bytesPerSample() const {
    switch (type) {
      case SampleType::u8: return 1;
      case SampleType::u16:
      case SampleType::f16: return 2;
      case SampleType::f32: return 4;
      case SampleType::f64: return 8;
    }
    return 1;
  }
  size_t bytesPerPixel() const { return bytesPerSample() * size_t(channels()); }
  bool isFloat() const { return type == SampleType::f16 || type == SampleType::f32 || type == SampleType::f64; }
};

}  // namespace vg
