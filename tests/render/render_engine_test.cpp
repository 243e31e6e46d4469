#include "render/render_engine.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <fstream>
#include <random>

#include "model/log.h"
#include "render/builtin_filters.h"
#include "render/curve_lut.h"
#include "render/gaussian_blur.h"
#include "render/kernel_apply.h"
#include "render/lut_loader.h"
#include "render/parallel.h"
#include "support/test_support.h"

namespace vg {
namespace {

// A smooth photograph-like test image: gradients, a few edges, some noise.
Image testImage(int w, int h, unsigned seed = 7) {
  Image img(w, h);
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> noise(-0.03f, 0.03f);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      float u = float(x) / float(w), v = float(y) / float(h);
      p[0] = std::clamp(0.2f + 0.6f * u + noise(rng) + ((x / 9 + y / 7) % 2 ? 0.1f : 0.0f), 0.0f, 1.0f);
      p[1] = std::clamp(0.7f * v + 0.1f + noise(rng), 0.0f, 1.0f);
      p[2] = std::clamp(0.5f + 0.4f * std::sin(float(x + 2 * y) * 0.05f) + noise(rng), 0.0f, 1.0f);
      p[3] = 1;
    }
  return img;
}

float maxDiff(const Image& a, const Image& b) {
  EXPECT_EQ(a.bounds(), b.bounds());
  if (a.bounds() != b.bounds()) return INFINITY;
  float m = 0;
  for (int y = a.bounds().y; y < a.bounds().bottom(); ++y)
    for (int x = a.bounds().x; x < a.bounds().right(); ++x)
      for (int c = 0; c < 4; ++c) m = std::max(m, std::fabs(a.at(x, y)[c] - b.at(x, y)[c]));
  return m;
}

bool identical(const Image& a, const Image& b) {
  if (a.bounds() != b.bounds()) return false;
  for (int y = a.bounds().y; y < a.bounds().bottom(); ++y)
    for (int x = a.bounds().x; x < a.bounds().right(); ++x)
      for (int c = 0; c < 4; ++c)
        if (std::memcmp(a.at(x, y) + c, b.at(x, y) + c, sizeof(float)) != 0) return false;
  return true;
}

Image crop(const Image& img, const Rect& r) {
  Image out(r);
  for (int y = r.y; y < r.bottom(); ++y) std::copy_n(img.at(r.x, y), size_t(r.width) * 4, out.row(y));
  return out;
}

// Runs a row kernel over a copy of img.
Image applied(const Image& img, const Image* aux, const std::function<void(const kernels::KernelRow&)>& fn) {
  Image out = img.clone();
  applyKernel(out, aux, fn);
  return out;
}

class RenderEngineTest : public ::testing::Test {
 protected:
  Image render(const Image& src, const EditDocument& doc, const MaskImages& masks = {}, RenderOptions o = {}) {
    return engine.render(src, doc, masks, o);
  }
  // A stage that fails passes its input on and logs; the results may still
  // look right (a fallback path), so no line may be logged.
  void TearDown() override { EXPECT_EQ(log.lines(), std::vector<std::string>{}); }
  ScopedLogCapture log;
  RenderEngine engine;
  Image source = testImage(96, 64);
};

TEST_F(RenderEngineTest, NeutralRecipeIsTheSourceCroppedPixelForPixel) {
  EditDocument doc;
  EXPECT_TRUE(identical(render(source, doc), source));
  doc.crop.rect = NormalizedRect{0.25, 0.125, 0.5, 0.5};
  Image out = render(source, doc);
  EXPECT_EQ(out.bounds(), (Rect{24, 8, 48, 32}));
  EXPECT_TRUE(identical(out, crop(source, out.bounds())));
  // Neutral values that are not the defaults still skip every stage.
  doc.adjustments.sharpenRadius = 3;
  doc.adjustments.grainSize = 80;
  doc.lens.vignetteMidpoint = 10;
  doc.adjustments.monochromeRed = 100;
  EXPECT_TRUE(identical(render(source, doc), crop(source, out.bounds())));
}

TEST_F(RenderEngineTest, OutputRectangleFollowsCropTurnsAndAspect) {
  EditDocument doc;
  doc.crop.quarterTurn = 1;
  EXPECT_EQ(render(source, doc).bounds(), (Rect{0, 0, 64, 96}));
  doc.crop.rect = NormalizedRect{0, 0, 1, 1};
  doc.crop.aspectLock = 1.0;
  EXPECT_EQ(render(source, doc).bounds(), (Rect{0, 16, 64, 64}));
  doc.crop = {};
  doc.crop.angle = 10;
  Image straight = render(source, doc);
  EXPECT_EQ(straight.bounds(), source.bounds());
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 96; ++x) ASSERT_NEAR(straight.at(x, y)[3], 1.0f, 1e-4f) << x << "," << y;
}

TEST_F(RenderEngineTest, PointStagesMatchTheirKernels) {
  EditDocument doc;
  doc.adjustments.exposure = -0.5;  // any non-zero value applies
  Image out = render(source, doc);
  EXPECT_NEAR(out.at(10, 10)[0], source.at(10, 10)[0] * std::pow(2.0f, -0.5f), 1e-6);

  doc = {};
  doc.adjustments.highlights = -40;
  doc.adjustments.shadows = 30;
  doc.adjustments.contrast = 25;
  kernels::ToneParams tp{-0.4f * 0.7f, 0.3f * 0.7f, 0, 0, 0.25f};
  EXPECT_LT(maxDiff(render(source, doc), applied(source, nullptr, [&](auto& r) { kernels::reference::tone(tp, r); })),
            1e-5);

  doc = {};
  doc.adjustments.vibrance = 50;
  doc.adjustments.saturation = -30;
  Image ref = applied(source, nullptr, [](auto& r) { kernels::reference::vibrance({0.45f}, r); });
  ref = applied(ref, nullptr, [](auto& r) { filters::saturation(0.7f, r); });
  EXPECT_LT(maxDiff(render(source, doc), ref), 1e-5);

  doc = {};
  doc.adjustments.monochrome = true;
  kernels::MonochromePrepared mp = kernels::prepare(kernels::MonochromeParams{30, 59, 11});
  EXPECT_LT(maxDiff(render(source, doc), applied(source, nullptr, [&](auto& r) { kernels::reference::monochrome(mp, r); })),
            1e-5);

  doc = {};
  doc.adjustments.splitToning = {30, 40, 220, 50, 20};
  kernels::SplitTonePrepared sp =
      kernels::prepare(kernels::SplitToneParams{30.f / 360, 0.4f * 0.85f, 220.f / 360, 0.5f * 0.85f, 0.2f});
  EXPECT_LT(maxDiff(render(source, doc), applied(source, nullptr, [&](auto& r) { kernels::reference::splitTone(sp, r); })),
            1e-5);

  doc = {};
  doc.adjustments.curves.rgb.points = {{0, 0}, {0.5, 0.65}, {1, 1}};
  Image lookup = buildCurveLookupImage(doc.adjustments.curves);
  kernels::CurvesPrepared cp = kernels::prepare(curvesKernelParams(lookup));
  EXPECT_LT(maxDiff(render(source, doc), applied(source, nullptr, [&](auto& r) { kernels::reference::curves(cp, r); })),
            1e-5);

  doc = {};
  doc.adjustments.temperature = 30;
  doc.adjustments.tint = -10;
  filters::ColorMatrix wb = filters::temperatureAndTint({6500, 0}, {6500 - 750, -12});
  EXPECT_LT(maxDiff(render(source, doc), applied(source, nullptr, [&](auto& r) { filters::colorMatrix(wb, r); })),
            1e-6);
  // With exposure: white balance, then the gain (run as one matrix).
  doc.adjustments.exposure = 0.8;
  Image balanced = applied(source, nullptr, [&](auto& r) { filters::colorMatrix(wb, r); });
  EXPECT_LT(maxDiff(render(source, doc), applied(balanced, nullptr, [](auto& r) { filters::exposure(std::exp2(0.8f), r); })),
            1e-6);
}

TEST_F(RenderEngineTest, HslParametersKeepTheirEightBitSteps) {
  HSLAdjustments hsl;
  hsl.bands[0] = {10, -100, 100};
  std::array<uint8_t, 32> t = hslTexels(hsl);
  EXPECT_EQ(t[0], 140);  // trunc(110 / 200 x 255)
  EXPECT_EQ(t[1], 0);
  EXPECT_EQ(t[2], 255);
  EXPECT_EQ(t[3], 255);
  EXPECT_EQ(t[4], 127);  // a zero band: trunc(127.5)

  EditDocument doc;
  doc.adjustments.hsl.bands[0].hue = 30;
  doc.adjustments.hsl.bands[5].saturation = -50;
  std::array<uint8_t, 32> tex = hslTexels(doc.adjustments.hsl);
  uint8_t raw[32];
  std::copy(tex.begin(), tex.end(), raw);
  kernels::HslParams quantised = kernels::HslParams::fromTexels(raw);
  EXPECT_NEAR(quantised.bands[0].hue, 29.4118f, 1e-3);  // texel 165, not 30: the 8-bit step is kept
  EXPECT_LT(maxDiff(render(source, doc), applied(source, nullptr, [&](auto& r) { kernels::reference::hsl(quantised, r); })),
            1e-5);
}

TEST_F(RenderEngineTest, NeighbourhoodStagesMatchTheirKernels) {
  EditDocument doc;
  doc.adjustments.denoise = 40;
  Image blur = gaussianBlur(source, 1.6f);
  EXPECT_LT(maxDiff(render(source, doc), applied(source, &blur, [](auto& r) { kernels::reference::denoise({0.36f}, r); })),
            1e-5);

  // At render scale 0.5 every radius halves.
  doc = {};
  doc.adjustments.texture = 60;
  RenderOptions half;
  half.scale = 0.5;
  Image tblur = gaussianBlur(source, 1.1f);
  EXPECT_LT(maxDiff(render(source, doc, {}, half),
                    applied(source, &tblur, [](auto& r) { kernels::reference::detail({0.54f}, r); })),
            1e-5);

  doc = {};
  doc.adjustments.sharpen = 50;
  doc.adjustments.sharpenMasking = 0;  // the plain unsharp mask
  float intensity = (0.5f * 1.8f + 0.4f) * (0.5f + 0.5f);
  EXPECT_LT(maxDiff(render(source, doc), unsharpMask(source, 1.5f, intensity)), 1e-5);
  doc.adjustments.sharpenMasking = 1;  // the edge-masked kernel
  Image sblur = gaussianBlur(source, 1.5f);
  float lo = 0.01f * 0.285f + 0.015f;
  EXPECT_LT(maxDiff(render(source, doc), applied(source, &sblur, [&](auto& r) {
              kernels::reference::sharpenBlend({intensity, lo, lo + 0.06f}, r);
            })),
            1e-5);

  // Dehaze: below 6 px of sigma the dark channel is blurred at full size ...
  doc = {};
  doc.adjustments.dehaze = 50;
  Image dark = applied(source, nullptr, [](auto& r) { filters::minimumComponent(r); });
  Image dblur = gaussianBlur(dark, 3.0f);
  EXPECT_LT(maxDiff(render(source, doc, {}, half),
                    applied(source, &dblur, [](auto& r) { kernels::reference::dehaze({0.4f}, r); })),
            1e-5);
  RenderOptions preview;  // the dark channel then streams as one float per pixel
  preview.scale = 0.4;
  Image dblur24 = gaussianBlur(dark, 2.4f);
  EXPECT_LT(maxDiff(render(source, doc, {}, preview),
                    applied(source, &dblur24, [](auto& r) { kernels::reference::dehaze({0.4f}, r); })),
            1e-5);
  // ... from 6 px on at half size, close to the full-size blur even on this hard-edged chart.
  Image dblur6 = gaussianBlur(dark, 6.0f);
  EXPECT_LT(maxDiff(render(source, doc), applied(source, &dblur6, [](auto& r) { kernels::reference::dehaze({0.4f}, r); })),
            5e-3);
}

TEST_F(RenderEngineTest, SkipRulesAtAndAroundZero) {
  EditDocument doc;
  doc.adjustments.denoise = -5;
  doc.adjustments.colorDenoise = -1;
  doc.adjustments.defringe = 0;
  doc.adjustments.sharpen = -3;
  doc.adjustments.grainAmount = -10;
  doc.lens.vignette = -20;
  EXPECT_TRUE(identical(render(source, doc), source));

  doc = {};
  doc.adjustments.vignetteAmount = -30;  // lightens the corners
  Image light = render(source, doc);
  EXPECT_GT(light.at(0, 0)[1], source.at(0, 0)[1]);
  EXPECT_EQ(light.at(48, 32)[1], source.at(48, 32)[1]);
  doc.adjustments.vignetteAmount = 30;
  EXPECT_LT(render(source, doc).at(0, 0)[1], source.at(0, 0)[1]);

  doc = {};
  doc.lens.vignette = 40;  // brightens the corners
  EXPECT_GT(render(source, doc).at(95, 63)[1], source.at(95, 63)[1]);
}

TEST_F(RenderEngineTest, FinishingStagesAreAnchoredToTheOutputFrame) {
  EditDocument doc;
  doc.crop.rect = NormalizedRect{0.5, 0.5, 0.5, 0.5};
  doc.adjustments.vignetteAmount = 50;
  doc.adjustments.grainAmount = 40;
  Image out = render(source, doc);
  const Rect o = out.bounds();
  kernels::VignettePrepared vp = kernels::prepareVignette(
      {0.55f, 0.5f, 0.5f, float(o.x), float(o.y), float(o.width), float(o.height)});
  kernels::GrainPrepared gp = kernels::prepare(kernels::GrainParams{0.4f, 0.25f, float(std::min(o.width, o.height)),
                                                                    float(o.x), float(o.y)});
  Image ref = applied(crop(source, o), nullptr, [&](auto& r) {
    kernels::reference::vignette(vp, r);
    kernels::reference::grain(gp, r);
  });
  EXPECT_LT(maxDiff(out, ref), 1e-5);

  RenderOptions dither;
  dither.dither = true;
  Image d = render(source, EditDocument{}, {}, dither);
  EXPECT_FALSE(identical(d, source));
  EXPECT_LE(maxDiff(d, source), 0.5f / 255 + 1e-6f);
}

TEST_F(RenderEngineTest, RedEyeSpotsMapThroughTheGeometry) {
  Image eye(Rect{0, 0, 80, 60});
  for (int y = 0; y < 60; ++y)
    for (int x = 0; x < 80; ++x) {
      float* p = eye.at(x, y);
      p[0] = 0.8f; p[1] = 0.1f; p[2] = 0.1f; p[3] = 1;  // red everywhere
    }
  EditDocument doc;
  RedEyeSpot spot;
  spot.center = {0.25, 0.5};  // source (20, 30)
  spot.radius = 0.1;          // 6 px of the 60 px short side
  doc.redEyes = {spot};
  doc.crop.flipHorizontal = true;
  Image out = render(eye, doc);
  EXPECT_LT(out.at(60, 30)[0], 0.3f);   // the mirrored position is fixed
  EXPECT_EQ(out.at(20, 30)[0], 0.8f);   // the unmirrored one is not

  // A spot whose square falls outside the picture is skipped without error.
  spot.center = {3.5, -2};
  doc.redEyes = {spot};
  EditDocument flipOnly;
  flipOnly.crop = doc.crop;
  EXPECT_TRUE(identical(render(eye, doc), render(eye, flipOnly)));
}

TEST_F(RenderEngineTest, MasksBlendTheirOwnChain) {
  EditDocument doc;
  MaskLayer layer;
  layer.adjustments.exposure = 1;
  doc.masks = {layer};
  auto full = std::make_shared<GreyImage>(source.bounds(), 1.0f);
  auto half = std::make_shared<GreyImage>(source.bounds(), 0.5f);

  EditDocument global;
  global.adjustments.exposure = 1;
  EXPECT_LT(maxDiff(render(source, doc, {{layer.id, full}}), render(source, global)), 1e-6);
  Image mixed = render(source, doc, {{layer.id, half}});
  EXPECT_NEAR(mixed.at(5, 5)[0], source.at(5, 5)[0] * 1.5f, 1e-6);

  // A mask with a neighbourhood stage takes the full-pass path.
  doc.masks[0].adjustments.clarity = 40;
  EditDocument both = global;
  both.adjustments.clarity = 40;
  EXPECT_LT(maxDiff(render(source, doc, {{layer.id, full}}), render(source, both)), 1e-5);

  // A mask over a small patch with a neighbourhood stage: inside it the
  // layer's chain over the whole frame, outside it the image untouched.
  doc.masks[0].adjustments = {};
  doc.masks[0].adjustments.texture = 60;
  doc.masks[0].adjustments.denoise = 30;
  auto patch = std::make_shared<GreyImage>(source.bounds(), 0.0f);
  for (int y = 20; y < 30; ++y)
    for (int x = 40; x < 52; ++x) patch->at(x, y) = 0.75f;
  Image patched = render(source, doc, {{layer.id, patch}});
  Image adjusted = engine.applyAdjustments(source, doc.masks[0].adjustments, 1.0);
  float inside = 0, outside = 0;
  for (int y = 0; y < 64; ++y)
    for (int x = 0; x < 96; ++x)
      for (int c = 0; c < 4; ++c) {
        const float s = source.at(x, y)[c], t = patch->at(x, y);
        const float want = s + (adjusted.at(x, y)[c] - s) * t;
        (t > 0 ? inside : outside) = std::max(t > 0 ? inside : outside, std::abs(patched.at(x, y)[c] - want));
      }
  EXPECT_LT(inside, 1e-6);
  EXPECT_EQ(outside, 0.0f);
  EXPECT_GT(maxDiff(patched, source), 0.005f);  // the layer did something
  doc.masks[0].adjustments = {};
  doc.masks[0].adjustments.exposure = 1;

  // Disabled, neutral, or without an image: nothing changes.
  doc.masks[0].enabled = false;
  EXPECT_TRUE(identical(render(source, doc, {{layer.id, full}}), source));
  doc.masks[0].enabled = true;
  doc.masks[0].adjustments = {};
  EXPECT_TRUE(identical(render(source, doc, {{layer.id, full}}), source));
  doc.masks[0].adjustments.exposure = 1;
  EXPECT_TRUE(identical(render(source, doc, {}), source));
}

EditDocument heavyRecipe() {
  EditDocument doc;
  GlobalAdjustments& a = doc.adjustments;
  a.exposure = 0.3; a.contrast = 20; a.highlights = -30; a.shadows = 25; a.whites = 10; a.blacks = -5;
  a.temperature = 12; a.tint = -4; a.saturation = 10; a.vibrance = 15;
  a.texture = 20; a.clarity = 25; a.dehaze = 15; a.sharpen = 40; a.sharpenMasking = 30;
  a.denoise = 20; a.colorDenoise = 25; a.defringe = 30;
  a.vignetteAmount = 20; a.grainAmount = 15;
  a.curves.rgb.points = {{0, 0.02}, {0.5, 0.55}, {1, 1}};
  a.hsl.bands[2].saturation = 30;
  a.splitToning = {40, 20, 210, 25, 0};
  return doc;
}

TEST_F(RenderEngineTest, SubRectanglesEqualCropsOfTheFullRender) {
  Image big = testImage(240, 160, 3);
  EditDocument doc = heavyRecipe();
  doc.crop.angle = 4;
  MaskLayer m;
  m.adjustments.texture = -30;
  m.adjustments.saturation = 20;
  doc.masks = {m};
  auto mask = std::make_shared<GreyImage>(Rect{0, 0, 240, 160}, 0.7f);
  MaskImages masks{{m.id, mask}};
  Image full = render(big, doc, masks);
  for (Rect r : {Rect{50, 40, 70, 33}, Rect{0, 0, 31, 160}, Rect{200, 100, 40, 60}}) {
    RenderOptions o;
    o.region = r;
    Image part = render(big, doc, masks, o);
    EXPECT_EQ(part.bounds(), r);
    EXPECT_LT(maxDiff(part, crop(full, r)), 2e-3) << r;  // clarity works at reduced size
  }
  doc.adjustments.clarity = 0;
  doc.masks.clear();
  Image noClarity = render(big, doc);
  RenderOptions o;
  o.region = Rect{90, 30, 50, 50};
  EXPECT_LT(maxDiff(render(big, doc, {}, o), crop(noClarity, *o.region)), 1e-4);
}

TEST_F(RenderEngineTest, LargeRegionsRenderInBandsWithTheSamePixels) {
  Image big = testImage(160, 300, 9);
  EditDocument doc = heavyRecipe();
  doc.adjustments.clarity = 0;
  Image whole = render(big, doc);
  engine.setWorkBudget(size_t(160) * 16 * 120);  // one buffer of 120 rows: bands
  Image banded = render(big, doc);
  EXPECT_LT(maxDiff(banded, whole), 1e-4);
  doc.adjustments.clarity = 30;  // a halo beyond the budget: bands of the 64-row minimum
  Image bandedClarity = render(big, doc);
  engine.setWorkBudget(RenderEngine::kWorkBudgetBytes);
  EXPECT_LT(maxDiff(bandedClarity, render(big, doc)), 2e-3);
}

TEST_F(RenderEngineTest, ChainHaloCoversHowFarEveryNeighbourhoodStageReaches) {
  // A small white square on a flat purple field: every pixel the chain
  // changes (against the field alone) must lie within chainHalo of the
  // square, for each neighbourhood stage alone and at a preview scale.
  const int size = 520, c = size / 2, h = 3;
  Image flat(size, size);
  for (int y = 0; y < size; ++y)
    for (int x = 0; x < size; ++x) std::copy_n(std::array<float, 4>{0.3f, 0.15f, 0.4f, 1}.data(), 4, flat.at(x, y));
  Image impulse = flat.clone();
  for (int y = c - h; y <= c + h; ++y)
    for (int x = c - h; x <= c + h; ++x) std::copy_n(std::array<float, 4>{1, 1, 1, 1}.data(), 4, impulse.at(x, y));
  std::vector<std::pair<const char*, GlobalAdjustments>> stages(8);
  stages[0] = {"denoise", {}}, stages[0].second.denoise = 60;
  stages[1] = {"colorDenoise", {}}, stages[1].second.colorDenoise = 60;
  stages[2] = {"defringe", {}}, stages[2].second.defringe = 80;
  stages[3] = {"texture", {}}, stages[3].second.texture = 60;
  stages[4] = {"clarity", {}}, stages[4].second.clarity = 60;
  stages[5] = {"dehaze", {}}, stages[5].second.dehaze = 60;
  stages[6] = {"sharpen", {}}, stages[6].second.sharpen = 80, stages[6].second.sharpenRadius = 4;
  stages[7] = {"sharpen with masking", stages[6].second}, stages[7].second.sharpenMasking = 10;
  for (double scale : {1.0, 0.5}) {
    for (const auto& [name, a] : stages) {
      SCOPED_TRACE(std::string(name) + " at scale " + std::to_string(scale));
      const int halo = RenderEngine::chainHalo(a, scale);
      const Image base = engine.applyAdjustments(flat, a, scale);
      const Image hit = engine.applyAdjustments(impulse, a, scale);
      int reach = -1;
      for (int y = 0; y < size; ++y)
        for (int x = 0; x < size; ++x)
          for (int ch = 0; ch < 4; ++ch)
            if (std::abs(hit.at(x, y)[ch] - base.at(x, y)[ch]) > 1e-6f)
              reach = std::max({reach, std::abs(x - c) - h, std::abs(y - c) - h});
      EXPECT_GT(reach, 0) << "the stage reaches beyond the square";
      EXPECT_LE(reach, halo);
    }
  }
}

TEST_F(RenderEngineTest, ThreadCountDoesNotChangeABit) {
  Image big = testImage(200, 150, 11);
  EditDocument doc = heavyRecipe();
  Image many = render(big, doc);
  ScopedThreadLimit one(1);
  EXPECT_TRUE(identical(render(big, doc), many));
}

TEST_F(RenderEngineTest, PassesRunTogetherAsTheyWouldOneAfterAnother) {
  // In a render, clarity's and dehaze's grids are filled by the pass before
  // them, and dehaze runs in front of the sharpening blur. Each stage on its
  // own, one after another, gives the same bits.
  Image big = testImage(240, 400, 5);
  std::vector<GlobalAdjustments> steps(5);
  steps[0].denoise = 30;
  steps[1].exposure = 0.3;
  steps[2].clarity = 40;
  steps[3].dehaze = 30;
  steps[4].sharpen = 50;
  steps[4].sharpenMasking = 20;
  EditDocument doc;
  doc.adjustments.denoise = 30;
  doc.adjustments.exposure = 0.3;
  doc.adjustments.clarity = 40;
  doc.adjustments.dehaze = 30;
  doc.adjustments.sharpen = 50;
  doc.adjustments.sharpenMasking = 20;
  Image oneByOne = big.clone();
  for (const GlobalAdjustments& a : steps) oneByOne = engine.applyAdjustments(oneByOne, a, 1.0);
  EXPECT_TRUE(identical(render(big, doc), oneByOne));
}

TEST_F(RenderEngineTest, ColorStageCanBeKeptAndPassedBack) {
  EditDocument doc = heavyRecipe();
  MaskLayer m;
  m.adjustments.exposure = -1;
  doc.masks = {m};
  auto mask = std::make_shared<GreyImage>(source.bounds(), 0.3f);
  ColorStage cs = engine.colorStage(source, doc, 1.0, false);
  EXPECT_EQ(cs.outputRect, source.bounds());
  Image direct = render(source, doc, {{m.id, mask}});
  Image reused = engine.render(source, doc, {{m.id, mask}}, {}, &cs);
  EXPECT_LT(maxDiff(direct, reused), 1e-6);

  // A layer of point stages around dehaze on a grid has its grid filled by
  // the colour stage's last pass and needs no copy; passed a kept colour
  // stage, it runs through its copy. The same bits either way.
  MaskLayer hazy;
  hazy.adjustments.exposure = -0.5;
  hazy.adjustments.dehaze = 40;
  hazy.adjustments.contrast = 10;
  const Image wide = testImage(300, 200, 4);  // the mask's area well inside the picture
  auto ramp = std::make_shared<GreyImage>(wide.bounds());
  for (int y = 90; y < 130; ++y)
    for (int x = 100; x < 170; ++x) ramp->at(x, y) = float(x - 100) / 70.0f;
  doc.masks = {hazy};
  ColorStage kept = engine.colorStage(wide, doc, 1.0, false);
  EXPECT_TRUE(identical(render(wide, doc, {{hazy.id, ramp}}), engine.render(wide, doc, {{hazy.id, ramp}}, {}, &kept)));

  // A first blur over the unchanged source reads the source itself; the
  // colour stage has it read a copy. The same bits either way.
  EditDocument blurFirst;
  blurFirst.adjustments.denoise = 30;
  blurFirst.adjustments.contrast = 10;
  EXPECT_TRUE(identical(render(source, blurFirst), *engine.colorStage(source, blurFirst, 1.0, false).image));
}

void writeCube(const std::filesystem::path& p, bool invert) {
  std::ofstream f(p);
  f << "LUT_3D_SIZE 2\n";
  for (int b = 0; b < 2; ++b)
    for (int g = 0; g < 2; ++g)
      for (int r = 0; r < 2; ++r) f << (invert ? 1 - r : r) << ' ' << (invert ? 1 - g : g) << ' ' << b << "\n";
}

TEST(RenderEngineLutTest, StrengthMixesAndAChangedFileIsReadAgain) {
  test::TempDir dir;
  writeCube(dir / "swap.cube", true);
  RenderEngine engine(dir.path());
  Image src = testImage(40, 30);
  EditDocument doc;
  doc.lut = AppliedLUT{"swap.cube", "Swap", 100};
  LUTResult parsed = LUTLoader::load(dir / "swap.cube");
  Image lutOnly = LUTLoader::apply(std::get<ParsedLUT>(parsed), src);
  EXPECT_LT(maxDiff(engine.render(src, doc, {}, {}), lutOnly), 1e-5);
  doc.lut->strength = 99.95;  // still counts as full
  EXPECT_LT(maxDiff(engine.render(src, doc, {}, {}), lutOnly), 1e-5);
  doc.lut->strength = 50;
  Image halfway = engine.render(src, doc, {}, {});
  EXPECT_NEAR(halfway.at(3, 4)[0], 0.5f * (src.at(3, 4)[0] + lutOnly.at(3, 4)[0]), 1e-5);
  EXPECT_EQ(engine.lutCacheSize(), 1u);

  // Rewritten with a new modification time: parsed again.
  writeCube(dir / "swap.cube", false);
  std::filesystem::last_write_time(dir / "swap.cube",
                                   std::filesystem::last_write_time(dir / "swap.cube") + std::chrono::seconds(5));
  doc.lut->strength = 100;
  EXPECT_LT(maxDiff(engine.render(src, doc, {}, {}), src), 1e-5);

  // A LUT that cannot be loaded leaves the picture unchanged.
  ScopedLogCapture capture;
  doc.lut->filename = "missing.cube";
  EXPECT_TRUE(identical(engine.render(src, doc, {}, {}), src));
  EXPECT_FALSE(capture.lines().empty());
}

TEST(RenderEngineCacheTest, CurveAndHslCachesAreBounded) {
  RenderEngine engine;
  Image src = testImage(16, 16);
  for (int i = 0; i < 20; ++i) {
    EditDocument doc;
    doc.adjustments.curves.rgb.points = {{0, 0}, {0.5, 0.3 + i * 0.01}, {1, 1}};
    doc.adjustments.hsl.bands[1].hue = i;
    engine.render(src, doc, {}, {});
  }
  EXPECT_EQ(engine.curveCacheSize(), RenderEngine::kCurveCacheLimit);
  EXPECT_EQ(engine.hslCacheSize(), RenderEngine::kHslCacheLimit);
}

TEST(RenderEngineHealTest, HealStrokesRepairTheFrameBeforeTheColourStage) {
  RenderEngine engine;
  Image src = testImage(120, 80, 5);
  for (int y = 35; y < 45; ++y)
    for (int x = 55; x < 65; ++x) {
      float* p = src.at(x, y);
      p[0] = p[1] = p[2] = 0;  // a black blemish
    }
  EditDocument doc;
  HealStroke h;
  h.points = {{0.5, 0.5}};
  h.size = 0.15;
  doc.heals = {h};
  Image out = engine.render(src, doc, {}, {});
  EXPECT_EQ(out.bounds(), src.bounds());
  EXPECT_GT(out.at(60, 40)[1], 0.05f);  // filled from the surroundings
  EXPECT_EQ(engine.healCache().entryCount(), 1u);
}

}  // namespace
}  // namespace vg
