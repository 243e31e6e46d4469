#include "session/auto_adjust.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <numbers>
#include <vector>

#include "render/geometry.h"
#include "render/heal_bitmap.h"
#include "render/render_engine.h"
#include "session/analysis_image.h"

namespace vg::AutoAdjust {

namespace {

// ---- Measuring -----------------------------------------------------------------

using Bitmap = Healer::Bitmap;

// The picture at most kAnalysisSize on its long side, 8-bit sRGB, straight alpha.
Bitmap analysisBitmap(const Image& image) {
  const int longSide = std::max(image.width(), image.height());
  return encodeHealBitmap(averageBlocks(image, (longSide + kAnalysisSize - 1) / kAnalysisSize));
}

const uint8_t* pixel(const Bitmap& b, int x, int y) { return &b.pixels[(size_t(y) * size_t(b.width) + size_t(x)) * 4]; }

bool measured(const uint8_t* p) { return p[3] >= 128; }

double luminance(const uint8_t* p) { return 0.2126 * p[0] + 0.7152 * p[1] + 0.0722 * p[2]; }

// Immerkaer's noise estimate, sqrt(pi/2) / 6 times the mean absolute response
// of his Laplacian difference, taken in the flattest kNoiseBlock-square
// blocks (the kFlatShare quantile of the blocks' means): noise covers the
// whole picture evenly while detail does not, so the flattest blocks hold
// little but noise.
constexpr int kNoiseBlock = 16;
constexpr double kFlatShare = 0.1;

double noiseEstimate(const Bitmap& b) {
  std::vector<double> lum(b.pixelCount());
  for (int y = 0; y < b.height; ++y)
    for (int x = 0; x < b.width; ++x) lum[size_t(y) * size_t(b.width) + size_t(x)] = luminance(pixel(b, x, y)) / 255.0;
  auto L = [&](int x, int y) { return lum[size_t(y) * size_t(b.width) + size_t(x)]; };
  std::vector<double> blockMeans;
  for (int by = 1; by + kNoiseBlock < b.height; by += kNoiseBlock) {
    for (int bx = 1; bx + kNoiseBlock < b.width; bx += kNoiseBlock) {
      double sum = 0;
      bool whole = true;
      for (int y = by - 1; y <= by + kNoiseBlock && whole; ++y)
        for (int x = bx - 1; x <= bx + kNoiseBlock && whole; ++x) whole = measured(pixel(b, x, y));
      if (!whole) continue;
      for (int y = by; y < by + kNoiseBlock; ++y) {
        for (int x = bx; x < bx + kNoiseBlock; ++x) {
          sum += std::fabs(L(x - 1, y - 1) - 2 * L(x, y - 1) + L(x + 1, y - 1) - 2 * L(x - 1, y) + 4 * L(x, y) -
                           2 * L(x + 1, y) + L(x - 1, y + 1) - 2 * L(x, y + 1) + L(x + 1, y + 1));
        }
      }
      blockMeans.push_back(sum / (kNoiseBlock * kNoiseBlock));
    }
  }
  if (blockMeans.empty()) return 0;
  const auto at = blockMeans.begin() + long(double(blockMeans.size() - 1) * kFlatShare);
  std::nth_element(blockMeans.begin(), at, blockMeans.end());
  return std::sqrt(std::numbers::pi / 2) / 6 * *at;
}

// ---- The mapping -------------------------------------------------------------------

double r(double x) { return std::round(x); }  // half away from zero
// "x <= floor -> floor, otherwise round(min(x, cap))".
double atLeast(double x, double floor, double cap) { return x <= floor ? floor : r(std::min(x, cap)); }
// round(min(x, cap)), and 0 when x is not positive.
double positive(double x, double cap) { return x <= 0 ? 0 : r(std::min(x, cap)); }

// E(target, low, high): the exposure that brings the median to target, in
// 0.05 EV steps, at least `low` and at most `high`.
double exposureRule(double m, double target, double low, double high) {
  const double q = std::log2(target / std::max(m, 0.01));
  return q <= low ? low : r(std::min(q, high) / 0.05) / 20.0;
}

// W(s): temperature and tint against a colour cast, at strength s.
void whiteBalanceRule(const ImageStats& st, double s, GlobalAdjustments& a) {
  if ((st.meanR + st.meanG + st.meanB) / 3 <= 0.05) return;
  const double ratio = st.meanR / std::max(st.meanB, 0.001);
  if (ratio > 1.15) a.temperature = atLeast(s * (ratio - 1) * -30, -25, 0);
  else if (ratio < 0.85) a.temperature = atLeast(s * (1 - ratio) * 30, 0, 25);
  const double d = st.meanG / std::max((st.meanR + st.meanB) / 2, 0.001) - 1;
  if (std::fabs(d) > 0.08) a.tint = r(std::clamp(s * d * -30, -15.0, 15.0));
}

struct Terms {
  double m, lo, hi, range, hr, sr, dc, sat, sd;
  explicit Terms(const ImageStats& s)
      : m(s.medianLuminance), lo(s.p2Luminance), hi(s.p98Luminance), range(s.p98Luminance - s.p2Luminance),
        hr(s.highlightRatio), sr(s.shadowRatio), dc(s.darkChannelMean), sat(s.meanSaturation), sd(s.stdDevLuminance) {}
};

void balanced(const ImageStats& st, const Terms& t, GlobalAdjustments& a) {
  if (std::fabs(0.48 - t.m) > 0.05) a.exposure = exposureRule(t.m, 0.48, -1.5, 2.0);
  if (t.range < 0.55) a.contrast = atLeast((0.55 - t.range) * 80, 0, 35);
  else if (t.range > 0.9) a.contrast = atLeast((t.range - 0.9) * -60, -20, 0);
  if (t.hr > 0.08) a.highlights = r(std::max(t.hr * -300, -50.0));
  else if (t.hi < 0.75) a.highlights = atLeast((0.75 - t.hi) * 50, 0, 20);
  if (t.sr > 0.02) a.shadows = atLeast(t.sr * 300, 5, 40);
  else if (t.lo > 0.25) a.shadows = atLeast((t.lo - 0.25) * -30, -10, 0);
  if (t.hi < 0.85) a.whites = atLeast((0.85 - t.hi) * 60, 0, 25);
  if (t.lo > 0.12) a.blacks = atLeast((t.lo - 0.12) * -60, -20, 0);
  whiteBalanceRule(st, 1.0, a);
  if (t.sat < 0.25) a.vibrance = r(std::min((0.25 - t.sat) * 100, 20.0));
  else if (t.sat < 0.35) a.vibrance = r(std::min((0.35 - t.sat) * 50, 12.0));
  if (t.dc > 0.28) a.dehaze = r(std::min((t.dc - 0.28) * 80, 30.0));
  if (t.sd < 0.18) a.clarity = r(std::min((0.18 - t.sd) * 100, 15.0));
  if (st.noiseEnergy <= 0.006) a.texture = 6;
}

void portrait(const ImageStats& st, const Terms& t, GlobalAdjustments& a) {
  if (std::fabs(0.52 - t.m) > 0.05) a.exposure = exposureRule(t.m, 0.52, -1.0, 1.5);
  if (t.range < 0.55) a.contrast = r(std::min((0.55 - t.range) * 50, 20.0));
  if (t.hr > 0.08) a.highlights = r(std::max(t.hr * -250, -40.0));
  a.shadows = t.sr > 0.02 ? atLeast(t.sr * 350, 8, 40) : 10;
  if (t.hi < 0.8) a.whites = r(std::min((0.8 - t.hi) * 50, 20.0));
  whiteBalanceRule(st, 0.7, a);
  a.vibrance = t.sat >= 0.3 ? 0 : r(std::min((0.3 - t.sat) * 80, 18.0));
  if (t.dc > 0.3) a.dehaze = r(std::min((t.dc - 0.3) * 80, 20.0));
  a.texture = 0, a.clarity = 0, a.sharpen = 25;
  a.vignetteAmount = 15, a.vignetteMidpoint = 55, a.vignetteFeather = 65;
}

void landscape(const ImageStats& st, const Terms& t, GlobalAdjustments& a) {
  if (std::fabs(0.47 - t.m) > 0.05) a.exposure = exposureRule(t.m, 0.47, -1.5, 2.0);
  if (t.range < 0.65) a.contrast = r(std::min((0.65 - t.range) * 100, 40.0));
  if (t.hr > 0.06) a.highlights = r(std::max(t.hr * -350, -60.0));
  else if (t.hi < 0.7) a.highlights = r(std::min((0.7 - t.hi) * 50, 18.0));
  a.shadows = t.sr > 0.02 ? atLeast(t.sr * 400, 10, 50) : 12;
  a.whites = positive((0.9 - t.hi) * 60, 28);
  if (t.lo > 0.1) a.blacks = atLeast((t.lo - 0.1) * -80, -25, 0);
  whiteBalanceRule(st, 1.0, a);
  if (t.sat < 0.3) a.saturation = r(std::min((0.3 - t.sat) * 50, 12.0));
  const double vibrance = (0.35 - t.sat) * 120;
  a.vibrance = vibrance > 8 ? r(std::min(vibrance, 25.0)) : 8;
  a.dehaze = t.dc > 0.2 ? atLeast((t.dc - 0.2) * 100, 5, 40) : 5;
  const double clarity = (0.22 - t.sd) * 120;
  a.clarity = clarity > 8 ? r(std::min(clarity, 25.0)) : 8;
  a.texture = 12, a.sharpen = 35;
}

void nightScene(const ImageStats& st, const Terms& t, GlobalAdjustments& a) {
  if (0.35 - t.m > 0.05) a.exposure = exposureRule(t.m, 0.35, 0, 2.0);
  a.contrast = -10;
  if (t.hr > 0.03) a.highlights = atLeast(t.hr * -400, -60, -5);
  else if (t.hr > 0.01) a.highlights = -10;
  if (t.sr > 0.15) a.shadows = atLeast(t.sr * 300, 25, 60);
  else if (t.sr > 0.05) a.shadows = atLeast(t.sr * 350, 15, 45);
  else a.shadows = 10;
  a.whites = positive((0.8 - t.hi) * 50, 20);
  a.blacks = t.m < 0.25 ? 10 : 5;
  const double ratio = st.meanR / std::max(st.meanB, 0.001);
  if ((st.meanR + st.meanG + st.meanB) / 3 > 0.03 && ratio < 0.75) a.temperature = r(std::min((1 - ratio) * 25, 20.0));
  if (t.dc > 0.22) a.dehaze = r(std::min((t.dc - 0.22) * 80, 25.0));
  a.vibrance = 15, a.sharpen = 15, a.sharpenRadius = 1.0, a.denoise = 40, a.texture = 0, a.clarity = 0;
}

void highKey(const ImageStats&, const Terms& t, GlobalAdjustments& a) {
  if (0.58 - t.m > 0.03) a.exposure = exposureRule(t.m, 0.58, 0, 2.0);
  a.contrast = -15, a.whites = 18, a.blacks = 18, a.temperature = -8, a.saturation = -10, a.vibrance = 10;
  a.highlights = t.hr > 0.15 ? r(std::max(t.hr * -150, -20.0)) : 10;
  a.shadows = t.sr > 0.05 ? atLeast(t.sr * 280, 20, 50) : 20;
  a.texture = 5, a.clarity = -5, a.dehaze = 0, a.sharpen = 20;
}

void lowKey(const ImageStats&, const Terms& t, GlobalAdjustments& a) {
  if (t.m > 0.38) a.exposure = exposureRule(t.m, 0.33, -1.5, 0);
  else if (t.m < 0.25) a.exposure = exposureRule(t.m, 0.33, 0, 0.5);
  a.contrast = 25, a.whites = -10, a.temperature = 8, a.saturation = 8, a.vibrance = 15;
  a.shadows = t.m > 0.35 ? -15 : -8;
  a.blacks = t.m > 0.35 ? -25 : -15;
  a.highlights = t.hr > 0.05 ? r(std::max(t.hr * -350, -50.0)) : -15;
  if (t.dc > 0.22) a.dehaze = r(std::min((t.dc - 0.22) * 100, 25.0));
  a.texture = 12, a.clarity = 20, a.sharpen = 30;
  a.vignetteAmount = 25, a.vignetteMidpoint = 45, a.vignetteFeather = 55;
}

void vivid(const ImageStats& st, const Terms& t, GlobalAdjustments& a) {
  if (std::fabs(0.48 - t.m) > 0.05) a.exposure = exposureRule(t.m, 0.48, -1.2, 1.5);
  a.contrast = t.range < 0.6 ? atLeast((0.6 - t.range) * 90, 5, 35) : 10;
  if (t.hr > 0.08) a.highlights = r(std::max(t.hr * -280, -45.0));
  a.shadows = t.sr > 0.02 ? atLeast(t.sr * 300, 5, 35) : 8;
  a.whites = 12;
  if (t.lo > 0.1) a.blacks = atLeast((t.lo - 0.1) * -60, -15, 0);
  whiteBalanceRule(st, 1.0, a);
  a.dehaze = t.dc > 0.22 ? atLeast((t.dc - 0.22) * 100, 5, 35) : 5;
  a.saturation = 18, a.vibrance = 28, a.texture = 10, a.clarity = 12, a.sharpen = 28;
}

void blackAndWhite(const ImageStats&, const Terms& t, GlobalAdjustments& a) {
  if (std::fabs(0.5 - t.m) > 0.05) a.exposure = exposureRule(t.m, 0.5, -1.2, 1.5);
  const double c = (0.7 - t.range) * 80;
  a.contrast = c < 18 ? 18 : r(std::min(c, 40.0));
  a.highlights = t.hr > 0.08 ? r(std::max(t.hr * -280, -45.0)) : -8;
  a.shadows = t.sr > 0.03 ? atLeast(t.sr * 300, 8, 35) : 12;  // 12 above the clamp of 8 on purpose
  a.whites = 15, a.blacks = -12;
  a.saturation = -100;  // the monochrome look comes from saturation, not the monochrome switch
  if (t.dc > 0.25) a.dehaze = r(std::min((t.dc - 0.25) * 80, 25.0));
  a.texture = 15, a.clarity = 22, a.sharpen = 32, a.grainAmount = 10, a.grainSize = 28;
}

// Fine noise would be amplified by local contrast and sharpening: damp them.
void dampNoise(double ne, GlobalAdjustments& a) {
  if (ne <= 0.006) return;
  const double k = std::min((ne - 0.006) / 0.02, 1.0);
  if (a.clarity > 0) a.clarity = r(a.clarity * (1 - 0.7 * k));
  if (a.texture > 0) a.texture = r(a.texture * (1 - 0.7 * k));
  if (a.sharpen > 15) a.sharpen = r(a.sharpen * (1 - 0.5 * k));
  if (k > 0.5 && a.denoise == 0) a.denoise = r(20 * k);
}

// ---- JSON ----------------------------------------------------------------------------

struct StatField {
  const char* key;
  double ImageStats::*member;
};

constexpr std::array<StatField, 15> kStatFields{{
    {"meanLuminance", &ImageStats::meanLuminance},
    {"medianLuminance", &ImageStats::medianLuminance},
    {"p2Luminance", &ImageStats::p2Luminance},
    {"p98Luminance", &ImageStats::p98Luminance},
    {"p10Luminance", &ImageStats::p10Luminance},
    {"p90Luminance", &ImageStats::p90Luminance},
    {"stdDevLuminance", &ImageStats::stdDevLuminance},
    {"meanSaturation", &ImageStats::meanSaturation},
    {"highlightRatio", &ImageStats::highlightRatio},
    {"shadowRatio", &ImageStats::shadowRatio},
    {"darkChannelMean", &ImageStats::darkChannelMean},
    {"meanR", &ImageStats::meanR},
    {"meanG", &ImageStats::meanG},
    {"meanB", &ImageStats::meanB},
    {"noiseEnergy", &ImageStats::noiseEnergy},
}};

}  // namespace

std::optional<ImageStats> analyze(const Image& image) {
  if (image.empty()) return std::nullopt;
  const Bitmap b = analysisBitmap(image);
  std::array<size_t, 256> histogram{};
  double n = 0, sumL = 0, sumL2 = 0, sumSat = 0, sumDark = 0, sumR = 0, sumG = 0, sumB = 0;
  for (int y = 0; y < b.height; ++y) {
    for (int x = 0; x < b.width; ++x) {
      const uint8_t* p = pixel(b, x, y);
      if (!measured(p)) continue;
      const double l = luminance(p) / 255.0;
      histogram[size_t(std::lround(l * 255.0))]++;
      const int hi = std::max({p[0], p[1], p[2]}), lo = std::min({p[0], p[1], p[2]});
      n += 1, sumL += l, sumL2 += l * l;
      sumSat += hi > 0 ? double(hi - lo) / hi : 0.0;
      sumDark += lo / 255.0;
      sumR += p[0] / 255.0, sumG += p[1] / 255.0, sumB += p[2] / 255.0;
    }
  }
  if (n == 0) return std::nullopt;
  auto percentile = [&](double fraction) {
    double running = 0;
    for (size_t bin = 0; bin < histogram.size(); ++bin) {
      running += double(histogram[bin]);
      if (running >= fraction * n) return double(bin) / 255.0;
    }
    return 1.0;
  };
  auto share = [&](size_t from, size_t to) {
    double count = 0;
    for (size_t bin = from; bin <= to; ++bin) count += double(histogram[bin]);
    return count / n;
  };
  ImageStats s;
  s.meanLuminance = sumL / n;
  s.medianLuminance = percentile(0.5);
  s.p2Luminance = percentile(0.02);
  s.p98Luminance = percentile(0.98);
  s.p10Luminance = percentile(0.10);
  s.p90Luminance = percentile(0.90);
  s.stdDevLuminance = std::sqrt(std::max(0.0, sumL2 / n - s.meanLuminance * s.meanLuminance));
  s.meanSaturation = sumSat / n;
  s.highlightRatio = share(230, 255);
  s.shadowRatio = share(0, 25);
  s.darkChannelMean = sumDark / n;
  s.meanR = sumR / n, s.meanG = sumG / n, s.meanB = sumB / n;
  s.noiseEnergy = noiseEstimate(b);
  return s;
}

std::optional<ImageStats> analyzeShown(const Image& previewSource, const EditDocument& recipe) {
  if (previewSource.empty()) return std::nullopt;
  // Frame a reduced copy (twice the analysis size keeps the resampling of a
  // straightened picture out of the measurements), then measure that.
  const int longSide = std::max(previewSource.width(), previewSource.height());
  Image reduced = averageBlocks(previewSource, longSide / (2 * kAnalysisSize));
  Geometry geometry(reduced.bounds(), geometryParams(recipe));
  if (geometry.isIdentity()) return analyze(reduced);
  Image shown(geometry.outputRect());
  if (shown.empty()) return std::nullopt;
  geometry.render(reduced, shown);
  return analyze(shown);
}

GlobalAdjustments adjustments(const ImageStats& stats, AutoMode mode) {
  GlobalAdjustments a;
  const Terms t(stats);
  switch (mode) {
    case AutoMode::balanced: balanced(stats, t, a); break;
    case AutoMode::portrait: portrait(stats, t, a); break;
    case AutoMode::landscape: landscape(stats, t, a); break;
    case AutoMode::nightScene: nightScene(stats, t, a); break;
    case AutoMode::highKey: highKey(stats, t, a); break;
    case AutoMode::lowKey: lowKey(stats, t, a); break;
    case AutoMode::vivid: vivid(stats, t, a); break;
    case AutoMode::bw: blackAndWhite(stats, t, a); break;
  }
  dampNoise(stats.noiseEnergy, a);
  return a;
}

nlohmann::ordered_json toJson(const ImageStats& stats) {
  nlohmann::ordered_json j = nlohmann::ordered_json::object();
  for (const StatField& f : kStatFields) j[f.key] = stats.*f.member;
  return j;
}

std::optional<ImageStats> statsFromJson(const nlohmann::json& value, std::string* error) {
  auto fail = [&](std::string message) {
    if (error) *error = std::move(message);
    return std::nullopt;
  };
  if (!value.is_object()) return fail("the statistics must be a JSON object");
  ImageStats s;
  for (const StatField& f : kStatFields) {
    auto it = value.find(f.key);
    if (it == value.end() || !it->is_number() || !std::isfinite(it->get<double>()))
      return fail(std::string("\"") + f.key + "\" must be a finite number");
    s.*f.member = it->get<double>();
  }
  return s;
}

}  // namespace vg::AutoAdjust
