#include "render/render_engine.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <exception>
#include <optional>
#include <system_error>

#include "model/log.h"
#include "render/builtin_filters.h"
#include "render/curve_lut.h"
#include "render/gaussian_blur.h"
#include "render/heal_stage.h"
#include "render/kernel_apply.h"
#include "render/parallel.h"
#include "render/reduced_lowpass.h"
#include "render/row_clones.h"

namespace vg {

// ============================================================ stages

// One step of a compiled chain: either a point stage, run in place on a row
// of pixels (fused with its neighbours), or a full pass over the region.
// A full pass replaces the image's rows in place and hands every finished row
// to `after` (the point stages that follow it, possibly none) while the row
// is still in cache.

// A point stage may also run on planar runs (kernels.h): consecutive such
// stages keep a piece of a row de-interleaved from one to the next.
using PlanarFn = std::function<void(const kernels::PlanarRow&)>;

using FullFn = std::function<void(Image&, const RowFn& after)>;

struct RenderEngine::Stage {
  RowFn point;
  PlanarFn planar;
  FullFn full;
  int halo = 0;  // how far a full pass reads beyond a pixel
  // A blur-and-kernel pass (blurStage): consecutive ones run as one sweep
  // (gaussianBlurChain), and a first one may read an unchanged source itself.
  float blurSigma = 0;
  RowFn blurKernel;
  // A stage reading a low-pass on a reduced grid (reducedStage):
  // `reduction(bounds)` makes the low-pass for an image of those bounds, and
  // the pass before this stage hands it each of its finished rows through
  // `feed`. Once it is complete, the stage is a row function, `reducedRow`,
  // which runs in a pass of its own or in front of the blur passes after it.
  // `full` does it all on its own.
  std::function<std::unique_ptr<ReducedLowpass>(const Rect&)> reduction;
  std::function<void(ReducedLowpass&, const kernels::KernelRow&)> feed;
  ReducedLowpass::RowWithLowpass reducedRow;

  static Stage pointStage(RowFn fn, PlanarFn planar = {}) { return {std::move(fn), std::move(planar), {}, 0, 0, {}, {}, {}, {}}; }
  static Stage fullStage(FullFn fn, int halo) { return {{}, {}, std::move(fn), halo, 0, {}, {}, {}, {}}; }
};

using Stage = RenderEngine::Stage;

namespace {

constexpr int kGrainRows = 4;
constexpr double kClarityScale = 0.12;

int blurReach(double sigma) { return gaussianBlurReach(float(sigma)); }

// Runs every row of `image` through fn, in parallel bands.
void forEachRow(Image& image, const RowFn& fn) {
  const Rect b = image.bounds();
  parallelRows(b, kGrainRows, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) fn({image.row(y), nullptr, b.width, b.x, y});
  });
}

// A point stage from a kernel with both forms, f(params, row) for a
// KernelRow and for a PlanarRow.
template <class Params, class F>
Stage pointKernel(Params p, F f) {
  return Stage::pointStage([p, f](const kernels::KernelRow& r) { f(p, r); },
                           [p, f](const kernels::PlanarRow& r) { f(p, r); });
}

// Pixels per planar piece: four planes of them stay in the first-level cache.
constexpr int kPlanarPiece = 256;

// Planes for one piece of a row, per thread.
struct PlanarBuffer {
  alignas(64) float planes[4][kPlanarPiece];
  kernels::PlanarRow piece(int n, int x, int y) { return {planes[0], planes[1], planes[2], planes[3], n, x, y}; }
};

// The point stages [i, j) as one row function (empty when there are none).
// Runs of two or more stages with planar forms go through the row piece by
// piece, each piece de-interleaved once for the whole run.
RowFn fusedPoints(const std::vector<Stage>& stages, size_t i, size_t j) {
  if (i == j) return {};
  bool planarRun = false;
  for (size_t k = i; k + 1 < j; ++k) planarRun = planarRun || (stages[k].planar && stages[k + 1].planar);
  if (!planarRun) {
    return [&stages, i, j](const kernels::KernelRow& row) {
      for (size_t k = i; k < j; ++k) stages[k].point(row);
    };
  }
  return [&stages, i, j](const kernels::KernelRow& row) {
    thread_local PlanarBuffer buffer{};
    for (int x0 = 0; x0 < row.n; x0 += kPlanarPiece) {
      const int n = std::min(kPlanarPiece, row.n - x0);
      float* rgba = row.rgba + size_t(x0) * 4;
      const kernels::KernelRow piece{rgba, nullptr, n, row.x + x0, row.y};
      for (size_t k = i; k < j;) {
        if (stages[k].planar && k + 1 < j && stages[k + 1].planar) {
          const kernels::PlanarRow planes = buffer.piece(n, piece.x, piece.y);
          kernels::toPlanar(rgba, planes);
          for (; k < j && stages[k].planar; ++k) stages[k].planar(planes);
          kernels::fromPlanar(planes, rgba);
        } else {
          stages[k].point(piece);
          ++k;
        }
      }
    }
  };
}

// Runs `stages` over `image` in place. `produce(image, y0, y1)`, when given,
// first fills rows [y0, y1) (the geometry), fused with the leading point
// stages; every full pass carries the point stages after it. `copyOf`, when
// given, is an image of the same bounds that `produce` would copy: leading
// blur passes read it directly instead. A pass followed by a reduced stage
// fills that stage's low-pass with its finished rows. A set `cancel` stops
// the run before its next pass, leaving the image unfinished.
void runStages(Image& image, const std::vector<Stage>& stages,
               const std::function<void(Image&, int, int)>& produce = {}, const Image* copyOf = nullptr,
               const AsyncCancelToken* cancel = nullptr) {
  const Rect b = image.bounds();
  if (b.empty()) return;
  size_t i = 0;
  while (i < stages.size() && stages[i].point) ++i;
  // The low-pass the running pass fills (for stage `filling`), and the one
  // it filled for the stage it runs.
  std::unique_ptr<ReducedLowpass> filling, filled;
  // `after` followed by the low-pass of stage j, when stage j is reduced.
  auto feeding = [&](size_t j, RowFn after) -> RowFn {
    filling.reset();
    if (j >= stages.size() || !stages[j].reduction) return after;
    filling = stages[j].reduction(b);
    if (!filling) return after;
    return [after = std::move(after), low = filling.get(), &feed = stages[j].feed](const kernels::KernelRow& r) {
      if (after) after(r);
      feed(*low, r);
    };
  };
  // After a pass: the low-pass it filled is ready for the next stage.
  auto passed = [&](bool done) {
    filled.reset();
    if (!filling || !done) return filling.reset();
    try {
      filling->finish();
      filled = std::move(filling);
    } catch (const std::exception&) {
      logLine(kKernelApplyFailed);
      filling.reset();
    }
  };
  // Consecutive blur passes from stage k (with the point stages after each)
  // as one chain, when there are at least `least`; *end is set past them.
  std::vector<RowFn> afters;
  auto chainFrom = [&](size_t k, size_t* end, size_t least) {
    std::vector<BlurPass> chain;
    afters.clear();
    afters.reserve(stages.size());
    while (k < stages.size() && stages[k].blurKernel && gaussianBlurStreams(stages[k].blurSigma) &&
           stages[k].blurSigma > 0) {
      size_t j = k + 1;
      while (j < stages.size() && stages[j].point) ++j;
      afters.push_back(fusedPoints(stages, k + 1, j));
      const RowFn& kernel = stages[k].blurKernel;
      const RowFn& after = afters.back();
      const int width = b.width, x = b.x;
      chain.push_back({stages[k].blurSigma, [&kernel, &after, width, x](float* row, const float* blurred, int y) {
                         kernels::KernelRow r{row, blurred, width, x, y};
                         kernel(r);
                         r.aux = nullptr;
                         if (after) after(r);
                       }});
      *end = k = j;
    }
    if (chain.size() < least) return std::vector<BlurPass>{};
    afters.back() = feeding(*end, afters.back());  // the chain's last pass fills what follows
    return chain;
  };
  size_t chainEnd = 0;
  std::vector<BlurPass> chain;
  if (copyOf && i == 0 && copyOf->bounds() == b && !(chain = chainFrom(0, &chainEnd, 1)).empty()) {
    bool done = false;
    try {
      gaussianBlurChain(*copyOf, image, chain);
      i = chainEnd;
      done = true;
    } catch (const std::exception&) {  // nothing of image is kept: start over with the copy
      logLine(kKernelApplyFailed);
      parallelRows(b, kGrainRows, [&](int y0, int y1) { produce(image, y0, y1); });
    }
    passed(done);
  } else if (produce || i > 0) {
    const RowFn leading = feeding(i, fusedPoints(stages, 0, i));
    parallelRows(b, kGrainRows, [&](int y0, int y1) {
      if (produce) produce(image, y0, y1);
      if (leading)
        for (int y = y0; y < y1; ++y) leading({image.row(y), nullptr, b.width, b.x, y});
    });
    passed(true);
  }
  // The chain in place, its rows first prepared by `prepare` (if any).
  auto runChain = [&](const std::function<RowPrepare()>& prepare) {
    bool done = false;
    try {
      gaussianBlurChain(image, image, chain, prepare);
      done = true;
    } catch (const std::exception&) {
      logLine(kKernelApplyFailed);
    }
    passed(done);
    i = chainEnd;
  };
  while (i < stages.size()) {
    if (cancel && cancel->isCancelled()) return;
    if (!(chain = chainFrom(i, &chainEnd, 2)).empty()) {
      runChain({});
      continue;
    }
    size_t j = i + 1;
    while (j < stages.size() && stages[j].point) ++j;
    const RowFn points = fusedPoints(stages, i + 1, j);
    if (filled && stages[i].reducedRow && !(chain = chainFrom(j, &chainEnd, 1)).empty()) {
      // The reduced stage and its point stages prepare the rows of the blur
      // passes after them.
      const std::unique_ptr<ReducedLowpass> low = std::move(filled);
      const Stage& st = stages[i];
      runChain([&]() -> RowPrepare {
        auto rows = std::make_shared<ReducedLowpass::Rows>(*low);
        return [rows, &st, &points, b](float* row, int y) {
          const kernels::KernelRow r{row, nullptr, b.width, b.x, y};
          st.reducedRow(r, *rows);
          if (points) points(r);
        };
      });
      continue;
    }
    const RowFn after = feeding(j, points);
    bool done = false;
    try {
      if (filled && stages[i].reducedRow) {
        filled->apply(image, stages[i].reducedRow, after);
      } else {
        stages[i].full(image, after);
      }
      done = true;
    } catch (const std::exception&) {
      logLine(kKernelApplyFailed);
    }
    // A failed pass leaves its input; the point stages after it still run.
    if (!done && points) forEachRow(image, points);
    passed(done);
    i = j;
  }
}

int totalHalo(const std::vector<Stage>& stages) {
  int h = 0;
  for (const Stage& s : stages) h += s.halo;
  return h;
}

// The neighbourhood stages of an adjustment chain: which of them run and the
// sigma each blurs with. The chain builds its stages from this, and the halo
// a region render grows by and the scratch images a pass holds are read from
// it too, so a region can never be rendered with less context than the chain
// reads. Clarity's low-pass and, from 6 pixels of sigma on, dehaze's blurred
// dark channel are computed on reduced grids (reduced_lowpass.h).
struct ChainBlur {
  enum Kind { plain, clarity, darkChannel };
  Kind kind;
  double sigma;

  // How far the stage reads beyond a pixel.
  int reach() const {
    switch (kind) {
      case clarity:
        return int(std::ceil((blurReach(sigma) + 2) / kClarityScale)) + 2;
      case darkChannel: {
        const int f = darkChannelFactor(sigma);
        return f == 1 ? blurReach(sigma) : (blurReach(darkChannelSigma(sigma, f)) + 2) * f + 2;
      }
      case plain: break;
    }
    return blurReach(sigma);
  }
  // Full-size RGBA buffers the stage holds besides the running image: a
  // blur that cannot stream keeps its result and an intermediate; a dark
  // channel at full size is one more.
  int scratchImages() const {
    switch (kind) {
      case plain: return gaussianBlurStreams(float(sigma)) ? 0 : 2;
      case darkChannel: return darkChannelFactor(sigma) == 1 ? 1 : 0;
      case clarity: break;
    }
    return 0;
  }
};

struct ChainBlurs {
  std::optional<ChainBlur> denoise, colorDenoise, defringe, texture, clarity, dehaze, sharpen;

  template <class Fn>
  void forEach(Fn fn) const {
    for (const auto* b : {&denoise, &colorDenoise, &defringe, &texture, &clarity, &dehaze, &sharpen}) {
      if (*b) fn(**b);
    }
  }
};

ChainBlurs chainBlurs(const GlobalAdjustments& a, double s) {
  ChainBlurs b;
  if (a.denoise > 0) b.denoise = ChainBlur{ChainBlur::plain, 1.6 * s};
  if (a.colorDenoise > 0) b.colorDenoise = ChainBlur{ChainBlur::plain, 2.4 * s};
  if (a.defringe > 0) b.defringe = ChainBlur{ChainBlur::plain, 1.2 * s};
  if (a.texture != 0) b.texture = ChainBlur{ChainBlur::plain, 2.2 * s};
  if (a.clarity != 0) b.clarity = ChainBlur{ChainBlur::clarity, 8 * s};
  if (a.dehaze != 0) b.dehaze = ChainBlur{ChainBlur::darkChannel, 6 * s};
  if (a.sharpen > 0) b.sharpen = ChainBlur{ChainBlur::plain, a.sharpenRadius * s};
  return b;
}

// A neighbourhood stage: Blur(sigma) of the running image (edges clamped to
// its extent), then a kernel reading it as its second image, row by row in
// place as the blur streams.
Stage blurStage(const ChainBlur& blur, RowFn kernel) {
  const double sigma = blur.sigma;
  Stage st = Stage::fullStage(
      [sigma, kernel](Image& image, const RowFn& after) {
        const Rect b = image.bounds();
        gaussianBlurRows(image, float(sigma), b, [&](int y, const float* blurred) {
          kernels::KernelRow row{image.row(y), blurred, b.width, b.x, y};
          kernel(row);
          row.aux = nullptr;
          if (after) after(row);
        });
      },
      blur.reach());
  st.blurSigma = float(sigma);
  st.blurKernel = std::move(kernel);
  return st;
}

// A pass of `kernel` reading a low-pass on a reduced grid (its aux row), which
// `reduction` makes for the image's bounds.
Stage reducedStage(std::function<std::unique_ptr<ReducedLowpass>(const Rect&)> reduction, RowFn kernel, int halo) {
  ReducedLowpass::RowWithLowpass row = [kernel](const kernels::KernelRow& r, ReducedLowpass::Rows& rows) {
    kernel({r.rgba, rows(r.y), r.n, r.x, r.y});
  };
  Stage st = Stage::fullStage(
      [reduction, row](Image& image, const RowFn& after) {
        std::unique_ptr<ReducedLowpass> low = reduction(image.bounds());
        low->addAll(image);
        low->apply(image, row, after);
      },
      halo);
  st.reduction = std::move(reduction);
  st.feed = [](ReducedLowpass& low, const kernels::KernelRow& r) { low.add(r.y, r.rgba); };
  st.reducedRow = std::move(row);
  return st;
}

// Blend with mask: mix(background, adjusted, mask); outside the mask image 0.
void blendRow(float* background, const float* adjusted, int n, int x, int y, const GreyImage& mask) {
  const Rect& mb = mask.bounds();
  if (y < mb.y || y >= mb.bottom()) return;
  int x0 = std::max(x, mb.x), x1 = std::min(x + n, mb.right());
  if (x1 <= x0) return;
  kernels::maskBlend(background + size_t(x0 - x) * 4, adjusted + size_t(x0 - x) * 4, mask.row(y) + (x0 - mb.x), x1 - x0);
}

// The smallest rectangle inside `within` holding every mask value that is
// not 0 (outside it blending with the mask changes nothing).
Rect maskSupport(const GreyImage& mask, const Rect& within) {
  const Rect r = mask.bounds().intersected(within);
  if (r.empty()) return Rect{};
  std::vector<int> first(size_t(r.height), r.right()), last(size_t(r.height), r.x - 1);
  parallelRows(r, 16, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      const float* m = mask.row(y) + (r.x - mask.bounds().x);
      int a = 0, e = r.width;
      kernels::trimZeros(m, a, e);
      if (a == e) continue;
      first[size_t(y - r.y)] = r.x + a;
      last[size_t(y - r.y)] = r.x + e - 1;
    }
  });
  int x0 = r.right(), x1 = r.x - 1, y0 = r.bottom(), y1 = r.y - 1;
  for (int y = r.y; y < r.bottom(); ++y) {
    if (last[size_t(y - r.y)] < r.x) continue;
    x0 = std::min(x0, first[size_t(y - r.y)]);
    x1 = std::max(x1, last[size_t(y - r.y)]);
    y0 = std::min(y0, y);
    y1 = y;
  }
  if (x1 < x0) return Rect{};
  return Rect{x0, y0, x1 + 1 - x0, y1 + 1 - y0};
}

// A mask layer whose chain has neighbourhood stages: the layer's chain runs
// over an adjusted copy of the part of the image the mask touches (and the
// reach of those stages around it), and each finished row is blended back.
Stage maskLayerStage(std::shared_ptr<const std::vector<Stage>> chain, std::shared_ptr<const GreyImage> mask) {
  const int halo = totalHalo(*chain);
  Stage st = Stage::fullStage(
      [chain, mask, halo](Image& image, const RowFn& after) {
        const Rect b = image.bounds();
        const Rect support = maskSupport(*mask, b);
        if (support.empty()) {
          if (after) forEachRow(image, after);
          return;
        }
        // The adjusted copy is made row by row with the chain's leading
        // point stages, and each finished row is blended back at once,
        // then handed on.
        const Rect area = support.grown(halo).intersected(b);
        Image adjusted = Image::uninitialized(area);
        std::vector<Stage> stages = *chain;
        stages.push_back(Stage::pointStage([&](const kernels::KernelRow& r) {
          // r is the finished row of the adjusted area (wherever the pass holds it).
          if (r.y >= support.y && r.y < support.bottom()) {
            blendRow(image.at(support.x, r.y), r.rgba + size_t(support.x - r.x) * 4, support.width, support.x, r.y,
                     *mask);
          }
          if (after) after({image.row(r.y), nullptr, b.width, b.x, r.y});
        }));
        runStages(adjusted, stages, [&](Image& out, int y0, int y1) {
          for (int y = y0; y < y1; ++y) std::copy_n(image.at(area.x, y), size_t(area.width) * 4, out.row(y));
        });
        if (after) {  // the rows the adjusted copy does not reach
          parallelRows(b, kGrainRows, [&](int y0, int y1) {
            for (int y = y0; y < y1; ++y)
              if (y < area.y || y >= area.bottom()) after({image.row(y), nullptr, b.width, b.x, y});
          });
        }
      },
      halo);

  // A chain of point stages around one reduced stage (dehaze, clarity):
  // then the layer is a reduced stage itself, and needs no copy. The pass
  // before it fills the low-pass with its rows' area spans, adjusted by the
  // leading point stages on the way; then each row of the support is
  // adjusted again, run through the reduced stage and the point stages
  // after it, and blended back. The same bits as through the copy.
  size_t at = chain->size(), neighbourhood = 0;
  for (size_t k = 0; k < chain->size(); ++k) {
    if (!(*chain)[k].point) at = k, ++neighbourhood;
  }
  if (neighbourhood != 1 || !(*chain)[at].reduction) return st;
  struct Spans {
    Rect support, area;
  };
  auto spans = std::make_shared<Spans>();  // set for each image the reduction is made for
  st.reduction = [chain, at, mask, halo, spans](const Rect& b) -> std::unique_ptr<ReducedLowpass> {
    spans->support = maskSupport(*mask, b);
    if (spans->support.empty()) return nullptr;  // the full pass then only hands the rows on
    spans->area = spans->support.grown(halo).intersected(b);
    return (*chain)[at].reduction(spans->area);
  };
  const RowFn before = fusedPoints(*chain, 0, at), behind = fusedPoints(*chain, at + 1, chain->size());
  // Row r's span of the area, adjusted by the leading point stages, in buffer.
  auto adjustedSpan = [spans, before](const kernels::KernelRow& r, std::vector<float>& buffer) {
    const Rect& a = spans->area;
    const float* from = r.rgba + size_t(a.x - r.x) * 4;
    buffer.assign(from, from + size_t(a.width) * 4);
    const kernels::KernelRow span{buffer.data(), nullptr, a.width, a.x, r.y};
    if (before) before(span);
    return span;
  };
  st.feed = [chain, at, spans, adjustedSpan](ReducedLowpass& low, const kernels::KernelRow& r) {
    if (r.y < spans->area.y || r.y >= spans->area.bottom()) return;
    thread_local std::vector<float> buffer;
    (*chain)[at].feed(low, adjustedSpan(r, buffer));
  };
  st.reducedRow = [chain, at, spans, adjustedSpan, behind, mask](const kernels::KernelRow& r,
                                                                  ReducedLowpass::Rows& rows) {
    const Rect& s = spans->support;
    if (r.y < s.y || r.y >= s.bottom()) return;
    thread_local std::vector<float> buffer;
    const kernels::KernelRow span = adjustedSpan(r, buffer);
    (*chain)[at].reducedRow(span, rows);
    if (behind) behind(span);
    blendRow(r.rgba + size_t(s.x - r.x) * 4, span.rgba + size_t(s.x - span.x) * 4, s.width, s.x, r.y, *mask);
  };
  return st;
}

Rect clipRegion(const std::optional<Rect>& region, const Rect& outputRect) {
  return region ? region->intersected(outputRect) : outputRect;
}

Image cropCopy(const Image& image, const Rect& r) {
  Image out = Image::uninitialized(r);
  parallelRows(r, 16, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) std::copy_n(image.at(r.x, y), size_t(r.width) * 4, out.row(y));
  });
  return out;
}

bool isNeutral(const GlobalAdjustments& a) { return a == GlobalAdjustments{}; }

}  // namespace

// ============================================================ parameters

GeometryParams geometryParams(const EditDocument& recipe) {
  GeometryParams p;
  p.distortion = recipe.lens.distortion;
  p.flipHorizontal = recipe.crop.flipHorizontal;
  p.flipVertical = recipe.crop.flipVertical;
  p.quarterTurn = recipe.crop.quarterTurn;
  p.angle = recipe.crop.angle;
  if (recipe.crop.rect) {
    const NormalizedRect& r = *recipe.crop.rect;
    p.crop = RectF{r.x, r.y, r.width, r.height};
  }
  p.aspectLock = recipe.crop.aspectLock;
  return p;
}

std::array<uint8_t, 32> hslTexels(const HSLAdjustments& hsl) {
  std::array<uint8_t, 32> t;
  t.fill(255);
  auto encode = [](double v) {
    double e = std::trunc((v + 100.0) / 200.0 * 255.0);
    if (!(e > 0)) e = 0;
    return uint8_t(std::min(255.0, e));
  };
  for (size_t i = 0; i < 8 && i < hsl.bands.size(); ++i) {
    t[i * 4 + 0] = encode(hsl.bands[i].hue);
    t[i * 4 + 1] = encode(hsl.bands[i].saturation);
    t[i * 4 + 2] = encode(hsl.bands[i].luminance);
  }
  return t;
}

// ============================================================ engine

RenderEngine::RenderEngine(std::filesystem::path lutFolder) : lutFolder_(std::move(lutFolder)) {}

std::shared_ptr<const kernels::CurvesPrepared> RenderEngine::curvesFor(const CurveSet& curves) {
  {
    std::lock_guard<std::mutex> guard(cacheLock);
    auto it = curveCache.find(curves);
    if (it != curveCache.end()) return it->second;
  }
  Image lookup = buildCurveLookupImage(curves);
  auto prepared = std::make_shared<const kernels::CurvesPrepared>(kernels::prepare(curvesKernelParams(lookup)));
  std::lock_guard<std::mutex> guard(cacheLock);
  if (curveCache.emplace(curves, prepared).second) {
    curveCacheOrder.push_back(curves);
    while (curveCacheOrder.size() > kCurveCacheLimit) {
      curveCache.erase(curveCacheOrder.front());
      curveCacheOrder.pop_front();
    }
  }
  return prepared;
}

std::shared_ptr<const kernels::HslParams> RenderEngine::hslFor(const HSLAdjustments& hsl) {
  {
    std::lock_guard<std::mutex> guard(cacheLock);
    auto it = hslCache.find(hsl);
    if (it != hslCache.end()) return it->second;
  }
  std::array<uint8_t, 32> t = hslTexels(hsl);
  uint8_t raw[32];
  std::copy(t.begin(), t.end(), raw);
  auto params = std::make_shared<const kernels::HslParams>(kernels::HslParams::fromTexels(raw));
  std::lock_guard<std::mutex> guard(cacheLock);
  if (hslCache.emplace(hsl, params).second) {
    hslCacheOrder.push_back(hsl);
    while (hslCacheOrder.size() > kHslCacheLimit) {
      hslCache.erase(hslCacheOrder.front());
      hslCacheOrder.pop_front();
    }
  }
  return params;
}

std::shared_ptr<const ParsedLUT> RenderEngine::lutFor(const AppliedLUT& applied) {
  if (applied.filename.empty()) return nullptr;
  std::filesystem::path path = lutFolder_ / applied.filename;
  std::error_code ec;
  std::optional<std::filesystem::file_time_type> mtime;
  auto t = std::filesystem::last_write_time(path, ec);
  if (!ec) mtime = t;
  {
    std::lock_guard<std::mutex> guard(cacheLock);
    auto it = lutCache.find(applied.filename);
    if (it != lutCache.end() && it->second.modifiedAt == mtime) return it->second.lut;
  }
  LUTCacheEntry entry;
  entry.modifiedAt = mtime;
  LUTResult parsed = LUTLoader::load(path);
  if (ParsedLUT* lut = std::get_if<ParsedLUT>(&parsed)) {
    entry.bytes = lut->byteSize();
    entry.lut = std::make_shared<const ParsedLUT>(std::move(*lut));
  } else {
    logLine("Verdantglass: LUT " + applied.filename + ": " + std::get<LUTError>(parsed).description());
  }
  std::lock_guard<std::mutex> guard(cacheLock);
  auto old = lutCache.find(applied.filename);
  if (old != lutCache.end()) {
    lutCacheBytes -= old->second.bytes;
    lutCache.erase(old);
    lutCacheOrder.remove(applied.filename);
  }
  lutCacheBytes += entry.bytes;
  lutCache.emplace(applied.filename, entry);
  lutCacheOrder.push_back(applied.filename);
  while (lutCacheOrder.size() > 1 && (lutCacheOrder.size() > kLutCacheLimit || lutCacheBytes > kLutCacheBytes)) {
    auto victim = lutCache.find(lutCacheOrder.front());
    lutCacheBytes -= victim->second.bytes;
    lutCache.erase(victim);
    lutCacheOrder.pop_front();
  }
  return entry.lut;
}

std::size_t RenderEngine::curveCacheSize() const {
  std::lock_guard<std::mutex> guard(cacheLock);
  return curveCache.size();
}
std::size_t RenderEngine::hslCacheSize() const {
  std::lock_guard<std::mutex> guard(cacheLock);
  return hslCache.size();
}
std::size_t RenderEngine::lutCacheSize() const {
  std::lock_guard<std::mutex> guard(cacheLock);
  return lutCache.size();
}

// ------------------------------------------------------------ the adjustment chain

void RenderEngine::appendChain(std::vector<Stage>& st, const GlobalAdjustments& a, double s, const Rect& outputRect) {
  using namespace kernels;
  const ChainBlurs blurs = chainBlurs(a, s);
  // 1 Luminance noise reduction.
  if (blurs.denoise) {
    DenoiseParams p{float(a.denoise / 100 * 0.9)};
    st.push_back(blurStage(*blurs.denoise, [p](const KernelRow& r) { denoise(p, r); }));
  }
  // 2 White balance and 3 exposure; both together are one matrix (the white
  // balance's rows scaled by the exposure gain), one pass instead of two.
  const bool whiteBalance = a.temperature != 0 || a.tint != 0;
  if (whiteBalance) {
    filters::ColorMatrix m =
        filters::temperatureAndTint({6500, 0}, {6500 - 2500 * a.temperature / 100, 120 * a.tint / 100});
    if (a.exposure != 0) {
      const float gain = filters::exposureGain(float(a.exposure));
      for (std::array<float, 4>* row : {&m.r, &m.g, &m.b})
        for (float& v : *row) v *= gain;
      for (int c = 0; c < 3; ++c) m.bias[size_t(c)] *= gain;
    }
    st.push_back(pointKernel(m, [](const auto& q, const auto& r) { filters::colorMatrix(q, r); }));
  } else if (a.exposure != 0) {
    float gain = filters::exposureGain(float(a.exposure));
    st.push_back(pointKernel(gain, [](float q, const auto& r) { filters::exposure(q, r); }));
  }
  // 4 Tone.
  if (a.highlights != 0 || a.shadows != 0 || a.whites != 0 || a.blacks != 0 || a.contrast != 0) {
    ToneParams p{float(a.highlights / 100 * 0.7), float(a.shadows / 100 * 0.7), float(a.whites / 100),
                 float(a.blacks / 100), float(a.contrast / 100)};
    st.push_back(pointKernel(p, [](const auto& q, const auto& r) { tone(q, r); }));
  }
  // 5 Tone curves.
  if (!a.curves.isIdentity()) {
    auto p = curvesFor(a.curves);
    st.push_back(pointKernel(p, [](const auto& q, const auto& r) { curves(*q, r); }));
  }
  // 6 Vibrance.
  if (a.vibrance != 0) {
    VibranceParams p{float(a.vibrance / 100 * 0.9)};
    st.push_back(pointKernel(p, [](const auto& q, const auto& r) { vibrance(q, r); }));
  }
  // 7 Saturation.
  if (a.saturation != 0) {
    float sat = float(std::max(0.0, 1 + a.saturation / 100));
    st.push_back(pointKernel(sat, [](float q, const auto& r) { filters::saturation(q, r); }));
  }
  // 8 HSL.
  bool hslNeutral = std::all_of(a.hsl.bands.begin(), a.hsl.bands.end(), [](const HSLBand& b) { return b == HSLBand{}; });
  if (!hslNeutral) {
    auto p = hslFor(a.hsl);
    st.push_back(pointKernel(p, [](const auto& q, const auto& r) { hsl(*q, r); }));
  }
  // 9 Split toning.
  if (!(a.splitToning == SplitToning{})) {
    const SplitToning& t = a.splitToning;
    SplitTonePrepared p = prepare(SplitToneParams{float(t.highlightHue / 360), float(t.highlightSaturation / 100 * 0.85),
                                                  float(t.shadowHue / 360), float(t.shadowSaturation / 100 * 0.85),
                                                  float(t.balance / 100)});
    st.push_back(pointKernel(p, [](const auto& q, const auto& r) { splitTone(q, r); }));
  }
  // 10 Colour noise reduction.
  if (blurs.colorDenoise) {
    ChromaDenoiseParams p{float(a.colorDenoise / 100 * 0.95)};
    st.push_back(blurStage(*blurs.colorDenoise, [p](const KernelRow& r) { chromaDenoise(p, r); }));
  }
  // 11 Defringe.
  if (blurs.defringe) {
    DefringeParams p{float(a.defringe / 100)};
    st.push_back(blurStage(*blurs.defringe, [p](const KernelRow& r) { defringe(p, r); }));
  }
  // 12 Monochrome.
  if (a.monochrome) {
    MonochromePrepared p = prepare(MonochromeParams{float(a.monochromeRed), float(a.monochromeGreen), float(a.monochromeBlue)});
    st.push_back(pointKernel(p, [](const auto& q, const auto& r) { monochrome(q, r); }));
  }
  // 13 Texture.
  if (blurs.texture) {
    DetailParams p{float(a.texture / 100 * 0.9)};
    st.push_back(blurStage(*blurs.texture, [p](const KernelRow& r) { detail(p, r); }));
  }
  // 14 Clarity, its low-pass at reduced size.
  if (blurs.clarity) {
    DetailParams p{float(a.clarity / 100 * 0.75)};
    const double sigma = blurs.clarity->sigma;
    st.push_back(reducedStage(
        [sigma, outputRect](const Rect& bounds) {
          return std::make_unique<ReducedLowpass>(bounds, outputRect, kClarityScale, ReducedLowpass::Source::Colour, sigma);
        },
        [p](const KernelRow& r) { detail(p, r); }, blurs.clarity->reach()));
  }
  // 15 Dehaze on the blurred dark channel.
  if (blurs.dehaze) {
    DehazeParams p{float(a.dehaze / 100 * 0.8)};
    const double sigma = blurs.dehaze->sigma;
    // The dark channel lives on a reduced grid from 6 pixels of sigma on;
    // below, on a grid of one pixel per cell (the same dark channel and blur
    // as at full size), which the pass before fills all the same.
    const int f = darkChannelFactor(sigma);
    const double gridSigma = f == 1 ? sigma : darkChannelSigma(sigma, f);
    st.push_back(reducedStage(
        [f, gridSigma, outputRect](const Rect& bounds) {
          return std::make_unique<ReducedLowpass>(bounds, outputRect, 1.0 / f, ReducedLowpass::Source::DarkChannel,
                                                  gridSigma);
        },
        [p](const KernelRow& r) { dehazeGrey(p, r); }, blurs.dehaze->reach()));
  }
  // 16 Sharpening.
  if (blurs.sharpen) {
    const double radius = blurs.sharpen->sigma;
    float intensity = float((a.sharpen / 100 * 1.8 + 0.4) * (a.sharpenDetail / 100 + 0.5));
    if (a.sharpenMasking <= 0) {
      st.push_back(Stage::fullStage(
          [radius, intensity](Image& image, const RowFn& after) {
            const Rect b = image.bounds();
            gaussianBlurRows(image, float(radius), b, [&](int y, const float* blurred) {
              unsharpRow(image.row(y), blurred, image.row(y), b.width, intensity);
              if (after) after({image.row(y), nullptr, b.width, b.x, y});
            });
          },
          blurs.sharpen->reach()));
    } else {
      float lo = float(a.sharpenMasking / 100 * 0.285 + 0.015);
      SharpenBlendParams p{intensity, lo, lo + 0.06f};
      st.push_back(blurStage(*blurs.sharpen, [p](const KernelRow& r) { sharpenBlend(p, r); }));
    }
  }
}


// ------------------------------------------------------------ colour stage

void RenderEngine::appendColorStage(std::vector<Stage>& st, const EditDocument& recipe, const Geometry& g,
                                    const Rect& outputRect, double s) {
  using namespace kernels;
  // 1.2 Lens vignette correction.
  if (recipe.lens.vignette > 0) {
    VignettePrepared p = prepareLensVignette(
        {float(recipe.lens.vignette / 100 * 0.9), float(recipe.lens.vignetteMidpoint / 100),
         float(recipe.lens.vignetteFeather / 100), float(outputRect.x), float(outputRect.y),
         float(outputRect.width), float(outputRect.height)});
    st.push_back(pointKernel(p, [](const auto& q, const auto& r) { vignette(q, r); }));
  }
  // 1.3 Red-eye spots, each over its own square.
  const Rect& E = g.sourceExtent();
  for (const RedEyeSpot& spot : recipe.redEyes) {
    PointF c = g.normalisedToOutput({spot.center.x, spot.center.y});
    double r = std::max(2.0, g.coverFactor() * spot.radius * std::min(E.width, E.height));
    if (!std::isfinite(c.x) || !std::isfinite(c.y) || !std::isfinite(r)) continue;
    Rect square{int(std::floor(c.x - r - 2)), int(std::floor(c.y - r - 2)), 0, 0};
    square.width = int(std::ceil(c.x + r + 2)) - square.x;
    square.height = int(std::ceil(c.y + r + 2)) - square.y;
    square = square.intersected(outputRect);
    if (square.empty()) continue;
    RedEyeParams p{float(c.x), float(c.y), float(r), 0.45f};
    st.push_back(Stage::pointStage([p, square](const KernelRow& row) {
      if (row.y < square.y || row.y >= square.bottom()) return;
      int x0 = std::max(row.x, square.x), x1 = std::min(row.x + row.n, square.right());
      if (x1 <= x0) return;
      redEye(p, {row.rgba + size_t(x0 - row.x) * 4, nullptr, x1 - x0, x0, row.y});
    }));
  }
  // 1.4 The adjustment chain.
  appendChain(st, recipe.adjustments, s, outputRect);
  // 1.5 The LUT at its strength.
  if (recipe.lut) {
    std::shared_ptr<const ParsedLUT> lut = lutFor(*recipe.lut);
    if (lut) {
      float t = float(std::clamp(recipe.lut->strength / 100, 0.0, 1.0));
      PreparedLUT prepared = prepareLUT(*lut);
      if (t >= 0.999f) {
        st.push_back(Stage::pointStage([lut, prepared](const KernelRow& r) { lutApply(prepared, r); }));
      } else {
        // Dissolve: pre-LUT x (1 - t) + LUT x t.
        st.push_back(Stage::pointStage([lut, prepared, t](const KernelRow& r) {
          thread_local std::vector<float> before;
          before.assign(r.rgba, r.rgba + size_t(r.n) * 4);
          lutApply(prepared, r);
          filters::dissolve(t, {r.rgba, before.data(), r.n, r.x, r.y});
        }));
      }
    }
  }
}

ColorStage RenderEngine::colorStageImpl(const Image& source, bool geometryApplied, const Geometry& g,
                                        const EditDocument& recipe, double s, std::optional<Rect> region) {
  const Rect outputRect = geometryApplied ? source.bounds() : g.outputRect();
  const Rect target = clipRegion(region, outputRect);
  std::vector<Stage> stages;
  appendColorStage(stages, recipe, g, outputRect, s);
  const Rect work = target.grown(totalHalo(stages)).intersected(outputRect);
  Image image = Image::uninitialized(work);
  if (geometryApplied) {
    runStages(image, stages, [&](Image& out, int y0, int y1) {
      for (int y = y0; y < y1; ++y) std::copy_n(source.at(work.x, y), size_t(work.width) * 4, out.row(y));
    });
  } else {
    runStages(image, stages, [&](Image& out, int y0, int y1) { g.renderRows(source, out, y0, y1); });
  }
  if (work != target) image = cropCopy(image, target);
  return {std::make_shared<const Image>(std::move(image)), outputRect};
}

ColorStage RenderEngine::colorStage(const Image& source, const EditDocument& recipe, double scale, bool integralRect,
                                    std::optional<Rect> region, HealSourceId sourceId,
                                    const AsyncCancelToken* cancel) {
  GeometryParams params = geometryParams(recipe);
  Geometry g(source.bounds(), params, integralRect);
  if (!recipe.heals.empty()) {
    HealStageRequest request{&source, sourceId, params, integralRect, recipe.heals, cancel};
    std::shared_ptr<const Image> healed = runHealStage(healCache_, request);
    if (healed && healed->bounds() == g.outputRect()) return colorStageImpl(*healed, true, g, recipe, scale, region);
  }
  return colorStageImpl(source, false, g, recipe, scale, region);
}

ColorStage RenderEngine::colorStageGeometryApplied(const Image& healed, const Rect& originalExtent,
                                                   const EditDocument& recipe, double scale, bool integralRect,
                                                   std::optional<Rect> region) {
  Geometry g(originalExtent, geometryParams(recipe), integralRect);
  return colorStageImpl(healed, true, g, recipe, scale, region);
}

Image RenderEngine::applyAdjustments(const Image& image, const GlobalAdjustments& adjustments, double scale) {
  std::vector<Stage> stages;
  appendChain(stages, adjustments, scale, image.bounds());
  Image out = image.clone();
  runStages(out, stages);
  return out;
}

int RenderEngine::chainHalo(const GlobalAdjustments& a, double s) {
  int h = 0;
  chainBlurs(a, s).forEach([&](const ChainBlur& b) { h += b.reach(); });
  return h;
}

int RenderEngine::chainExtraBuffers(const GlobalAdjustments& a, double s) {
  int extra = 0;
  chainBlurs(a, s).forEach([&](const ChainBlur& b) { extra = std::max(extra, b.scratchImages()); });
  return extra;
}

// ------------------------------------------------------------ the whole render

Image RenderEngine::render(const Image& source, const EditDocument& recipe, const MaskImages& masks,
                           const RenderOptions& options, const ColorStage* colorStageIn) {
  const double s = options.scale;
  Geometry g(source.bounds(), geometryParams(recipe), options.integralRect);
  const Rect outputRect = colorStageIn ? colorStageIn->outputRect : g.outputRect();
  const Rect target = clipRegion(options.region, outputRect);
  if (target.empty()) return Image(target);

  // A large region is rendered in horizontal bands, each over its own halo,
  // so that the working buffers stay within the work budget.
  if (!colorStageIn) {
    int halo = chainHalo(recipe.adjustments, s);
    int extra = chainExtraBuffers(recipe.adjustments, s);
    for (const MaskLayer& layer : recipe.masks) {
      if (!layer.enabled || !masks.count(layer.id)) continue;
      const int layerHalo = chainHalo(layer.adjustments, s);
      halo += layerHalo;
      if (layerHalo > 0) extra = std::max(extra, 1 + chainExtraBuffers(layer.adjustments, s));
    }
    const int64_t rowBytes = int64_t(target.width) * 16 * (1 + extra);
    const int64_t workRows = std::min<int64_t>(target.height + 2 * halo, outputRect.height);
    if (workRows * rowBytes > int64_t(workBudget_)) {
      const int bandRows = int(std::max<int64_t>(64, int64_t(workBudget_) / rowBytes - 2 * halo));
      if (bandRows < target.height) {
        Image out = Image::uninitialized(target);
        for (int y = target.y; y < target.bottom(); y += bandRows) {
          if (options.cancel && options.cancel->isCancelled()) break;
          RenderOptions band = options;
          band.region = Rect{target.x, y, target.width, std::min(bandRows, target.bottom() - y)};
          Image part = render(source, recipe, masks, band, nullptr);
          const Rect& b = part.bounds();
          parallelRows(b, 16, [&](int y0, int y1) {
            for (int r = y0; r < y1; ++r) std::copy_n(part.row(r), size_t(b.width) * 4, out.at(b.x, r));
          });
        }
        return out;
      }
    }
  }

  // 2. The local-adjustment pass: one stage per active layer.
  std::vector<Stage> local;
  for (const MaskLayer& layer : recipe.masks) {
    if (!layer.enabled || isNeutral(layer.adjustments)) continue;
    auto found = masks.find(layer.id);
    if (found == masks.end() || !found->second) continue;
    std::shared_ptr<const GreyImage> mask = found->second;
    std::vector<Stage> chain;
    appendChain(chain, layer.adjustments, s, outputRect);
    if (chain.empty()) continue;
    const bool pointsOnly = std::all_of(chain.begin(), chain.end(), [](const Stage& st) { return bool(st.point); });
    if (pointsOnly) {
      // Fused: the adjusted copy of a row lives only while the row is in cache.
      // Only the span of the row the mask touches is adjusted.
      local.push_back(Stage::pointStage([chain = std::move(chain), mask](const kernels::KernelRow& r) {
        const Rect& mb = mask->bounds();
        if (r.y < mb.y || r.y >= mb.bottom()) return;
        // Columns of the mask row, trimmed of zeros at both ends.
        int a = std::max(r.x, mb.x) - mb.x, e = std::min(r.x + r.n, mb.right()) - mb.x;
        kernels::trimZeros(mask->row(r.y), a, e);
        if (e <= a) return;
        const int x0 = mb.x + a, x1 = mb.x + e;
        float* span = r.rgba + size_t(x0 - r.x) * 4;
        const int n = x1 - x0;
        thread_local std::vector<float> adjusted;
        adjusted.assign(span, span + size_t(n) * 4);
        kernels::KernelRow copy{adjusted.data(), nullptr, n, x0, r.y};
        for (const Stage& st : chain) st.point(copy);
        blendRow(span, adjusted.data(), n, x0, r.y, *mask);
      }));
    } else {
      local.push_back(maskLayerStage(std::make_shared<const std::vector<Stage>>(std::move(chain)), mask));
    }
  }

  // 3. Finishing.
  std::vector<Stage> finishing;
  const GlobalAdjustments& a = recipe.adjustments;
  if (a.vignetteAmount != 0) {
    kernels::VignettePrepared p = kernels::prepareVignette(
        {float(a.vignetteAmount / 100 * 1.1), float(a.vignetteMidpoint / 100), float(a.vignetteFeather / 100),
         float(outputRect.x), float(outputRect.y), float(outputRect.width), float(outputRect.height)});
    finishing.push_back(pointKernel(p, [](const auto& q, const auto& r) { kernels::vignette(q, r); }));
  }
  if (a.grainAmount > 0) {
    kernels::GrainPrepared p = kernels::prepare(kernels::GrainParams{
        float(a.grainAmount / 100), float(a.grainSize / 100), float(std::min(outputRect.width, outputRect.height)),
        float(outputRect.x), float(outputRect.y)});
    finishing.push_back(pointKernel(p, [](const auto& q, const auto& r) { kernels::grain(q, r); }));
  }
  if (options.dither) {
    finishing.push_back(pointKernel(kernels::DitherParams{}, [](const auto& q, const auto& r) { kernels::dither(q, r); }));
  }

  const int localHalo = totalHalo(local);
  const Rect localRegion = target.grown(localHalo).intersected(outputRect);
  std::vector<Stage> tail = std::move(local);
  tail.insert(tail.end(), finishing.begin(), finishing.end());

  Image image;
  const bool reuse = colorStageIn && colorStageIn->image && colorStageIn->image->bounds().contains(localRegion);
  const bool healing = !reuse && !recipe.heals.empty();
  if (reuse || healing) {
    ColorStage cs =
        reuse ? *colorStageIn
              : colorStage(source, recipe, s, options.integralRect, localRegion, options.sourceId, options.cancel);
    image = cropCopy(*cs.image, localRegion);
    runStages(image, tail, {}, nullptr, options.cancel);
  } else {
    // One list from the geometry to the dither, over the region every stage needs.
    std::vector<Stage> all;
    appendColorStage(all, recipe, g, outputRect, s);
    all.insert(all.end(), tail.begin(), tail.end());
    const Rect work = target.grown(totalHalo(all)).intersected(outputRect);
    image = Image::uninitialized(work);
    // Unchanged geometry over the whole picture: a first pass may read the source itself.
    const bool wholeSource = g.isIdentity() && work == source.bounds();
    runStages(image, all, [&](Image& out, int y0, int y1) { g.renderRows(source, out, y0, y1); },
              wholeSource ? &source : nullptr, options.cancel);
  }
  if (image.bounds() != target) image = cropCopy(image, target);
  return image;
}

}  // namespace vg
