#include "io/raw_developer.h"

#include <libraw/libraw.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "io/libraw_file.h"
#include "io/load_error.h"
#include "io/raw_tone.h"
#include "model/log.h"

namespace vg {
namespace {

// LibRaw's ProPhoto output is this matrix applied to linear sRGB (dcraw's
// prophoto_rgb table); its inverse takes the output back to linear sRGB.
constexpr double kSrgbToProPhoto[9] = {0.529317, 0.330092, 0.140588, 0.098368, 0.873465,
                                       0.028169, 0.016879, 0.117663, 0.865457};

std::array<float, 9> proPhotoToSrgb() {
  const double* m = kSrgbToProPhoto;
  double det = m[0] * (m[4] * m[8] - m[5] * m[7]) - m[1] * (m[3] * m[8] - m[5] * m[6]) +
               m[2] * (m[3] * m[7] - m[4] * m[6]);
  double d = 1.0 / det;
  return {float((m[4] * m[8] - m[5] * m[7]) * d), float((m[2] * m[7] - m[1] * m[8]) * d),
          float((m[1] * m[5] - m[2] * m[4]) * d), float((m[5] * m[6] - m[3] * m[8]) * d),
          float((m[0] * m[8] - m[2] * m[6]) * d), float((m[2] * m[3] - m[0] * m[5]) * d),
          float((m[3] * m[7] - m[4] * m[6]) * d), float((m[1] * m[6] - m[0] * m[7]) * d),
          float((m[0] * m[4] - m[1] * m[3]) * d)};
}

bool isBayer(const LibRaw& raw) {
  unsigned filters = raw.imgdata.idata.filters;
  return filters > 1000;  // 0: no CFA, 1: Leaf, 9: X-Trans; larger: a Bayer pattern
}

// Pulls colours outside the working gamut in along the line to grey of equal
// luminance until no component is negative.
inline void mapIntoGamut(float& r, float& g, float& b) {
  float lo = std::min({r, g, b});
  if (lo >= 0.0f) return;
  float y = 0.2126f * r + 0.7152f * g + 0.0722f * b;
  if (y <= 0.0f) {
    r = g = b = 0.0f;
    return;
  }
  float t = y / (y - lo);
  r = y + (r - y) * t;
  g = y + (g - y) * t;
  b = y + (b - y) * t;
}

// The file's DNG BaselineExposure in EV, 0 when it has none. LibRaw 0.20
// reads the tag but marks its absence with -999, not with its parsedfields
// bit.
double baselineExposureOf(const LibRaw& raw) {
  if (!raw.imgdata.idata.dng_version) return 0;
  const float v = raw.imgdata.color.dng_levels.baseline_exposure;
  return std::isfinite(v) && v > -999.0f ? double(v) : 0.0;
}

}  // namespace

float shadowLift(float x, float b, float knee) {
  if (b == 1.0f || !(x > 0.0f)) return x;
  float t = std::min(x / knee, 1.0f);
  float s = t * t * (3.0f - 2.0f * t);
  return x * (1.0f + (b - 1.0f) * (1.0f - s));
}

RawProcessing rawProcessingFor(const RAWDevelopSettings& settings, bool bayer, double baselineExposure) {
  RawProcessing p;
  p.preset = &newestRawPreset();
  if (const RawPreset* chosen = findRawPreset(settings.decoderVersion)) {
    p.preset = bayer ? chosen : &firstRawPresetOf(chosen->generation);
  }
  double ev = std::isfinite(settings.exposure) ? std::clamp(settings.exposure, -2.0, 2.0) : 0.0;
  if (p.preset->generation == 1) {
    p.exposureShift = float(std::exp2(float(ev)));
    p.highlightPreserve = p.exposureShift > 1.0f ? 0.8f : 0.0f;
  } else {
    double baseline = std::isfinite(baselineExposure) ? std::clamp(baselineExposure, -4.0, 4.0) : 0.0;
    p.toneGain = std::exp2(baseline + ev);
  }
  double boost = std::isfinite(settings.shadowBoost) ? std::clamp(settings.shadowBoost, 0.0, 100.0) : 0.0;
  p.boostAmount = float(boost / 100.0 + 1.0);
  double nr = std::isfinite(settings.noiseReduction) ? settings.noiseReduction : 100.0;
  if (nr < 100.0) {
    float amount = float(std::max(nr, 0.0) / 100.0);
    p.noiseReductionSet = true;
    p.luminanceNoiseReduction = amount;
    p.colorNoiseReduction = amount;
  }
  p.mapGamut = settings.gamutMapping;
  p.highlightMode = settings.gamutMapping ? 2 : 0;
  return p;
}

std::optional<std::vector<const RawPreset*>> rawPresetsFor(std::span<const uint8_t> bytes) {
  auto raw = openRaw(bytes);
  if (!raw) return std::nullopt;
  std::vector<const RawPreset*> list;
  if (isBayer(*raw)) {
    for (const auto& p : rawPresets()) list.push_back(&p);
  }
  return list;
}

DevelopedRaw developRaw(std::span<const uint8_t> bytes, const RAWDevelopSettings& settings,
                        std::string_view fileName, RawScale scale) {
  auto raw = openRaw(bytes);
  if (!raw) throw ImageLoadError::make(ImageLoadError::kRawDecoderUnavailable, fileName);

  const RawProcessing p = rawProcessingFor(settings, isBayer(*raw), baselineExposureOf(*raw));
  const bool toned = p.preset->generation >= 2;
  auto& params = raw->imgdata.params;
  params.output_bps = 16;
  params.output_color = 4;  // ProPhoto: keeps colours outside sRGB
  params.gamm[0] = 1.0;
  params.gamm[1] = 1.0;
  params.no_auto_bright = 1;
  params.half_size = scale == RawScale::half ? 1 : 0;
  params.use_camera_wb = 1;
  params.user_qual = p.preset->demosaic;
  params.dcb_iterations = p.preset->dcbIterations;
  params.dcb_enhance_fl = p.preset->dcbEnhance ? 1 : 0;
  params.highlight = p.highlightMode;
  params.exp_correc = toned ? 0 : 1;
  params.exp_shift = p.exposureShift;
  params.exp_preser = p.highlightPreserve;
  if (p.noiseReductionSet) {
    params.threshold = 500.0f * p.luminanceNoiseReduction;
    params.med_passes = int(std::lround(3.0f * p.colorNoiseReduction));
  } else {
    float iso = raw->imgdata.other.iso_speed;
    params.threshold = iso > 400 ? std::min(300.0f, 60.0f * std::log2(iso / 400.0f)) : 0.0f;
    params.med_passes = iso >= 1600 ? 1 : 0;
  }

  DevelopedRaw result;
  result.facts = rawFacts(*raw);  // before development rewrites the black and white levels

  int rc = raw->unpack();
  if (rc == LIBRAW_SUCCESS) rc = raw->dcraw_process();
  if (rc != LIBRAW_SUCCESS) {
    logLine(std::string("image loader: RAW development failed: ") + libraw_strerror(rc));
    throw ImageLoadError::make(ImageLoadError::kRawDecodeFailed, fileName);
  }
  int err = 0;
  libraw_processed_image_t* out = raw->dcraw_make_mem_image(&err);
  if (!out) throw ImageLoadError::make(ImageLoadError::kRawDecodeFailed, fileName);
  std::unique_ptr<libraw_processed_image_t, void (*)(libraw_processed_image_t*)> guard(
      out, [](libraw_processed_image_t* q) { LibRaw::dcraw_clear_mem(q); });
  if (out->type != LIBRAW_IMAGE_BITMAP || out->bits != 16 || (out->colors != 3 && out->colors != 1)) {
    throw ImageLoadError::make(ImageLoadError::kRawDecodeFailed, fileName);
  }
  if (out->width < 1 || out->height < 1) throw ImageLoadError::make(ImageLoadError::kRawInvalidSize, fileName);

  try {
    result.image = Image::uninitialized(int(out->width), int(out->height));
  } catch (const std::bad_alloc&) {
    throw ImageLoadError::make(ImageLoadError::kRawDecodeFailed, fileName);
  }
  const auto m = proPhotoToSrgb();
  const RawTone tone(p.toneGain, p.boostAmount);
  const int colors = out->colors;
  const int width = out->width;
  const auto* pixels = reinterpret_cast<const uint16_t*>(out->data);
  Image& image = result.image;
  tbb::parallel_for(tbb::blocked_range<int>(0, int(out->height), 16), [&](const tbb::blocked_range<int>& rows) {
    for (int y = rows.begin(); y < rows.end(); ++y) {
      const uint16_t* s = pixels + size_t(y) * width * colors;
      float* d = image.row(y);
      for (int x = 0; x < width; ++x, s += colors, d += 4) {
        float pr = s[0] / 65535.0f, pg = s[colors > 1 ? 1 : 0] / 65535.0f, pb = s[colors > 1 ? 2 : 0] / 65535.0f;
        float r = m[0] * pr + m[1] * pg + m[2] * pb;
        float g = m[3] * pr + m[4] * pg + m[5] * pb;
        float b = m[6] * pr + m[7] * pg + m[8] * pb;
        if (colors == 1) r = g = b = pr;
        if (p.mapGamut) mapIntoGamut(r, g, b);
        if (toned) {
          d[0] = tone(r);
          d[1] = tone(g);
          d[2] = tone(b);
        } else {
          d[0] = shadowLift(r, p.boostAmount);
          d[1] = shadowLift(g, p.boostAmount);
          d[2] = shadowLift(b, p.boostAmount);
        }
        d[3] = 1.0f;
      }
    }
  });
  return result;
}

}  // namespace vg
