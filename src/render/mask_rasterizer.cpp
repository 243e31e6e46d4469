#include "render/mask_rasterizer.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "codec/lzfse.h"
#include "model/hashing.h"
#include "model/log.h"
#include "render/kernels.h"
#include "render/parallel.h"
#include "render/srgb.h"

namespace vg {

namespace {

constexpr double kDegrees = std::numbers::pi / 180.0;
constexpr int kGrainRows = 16;
// A bitmap raster larger than this is taken as corrupt rather than allocated.
constexpr std::int64_t kMaxBitmapPixels = std::int64_t(1) << 28;

// The value fn(source point) of every pixel of the frame's region, in
// parallel row bands. Without lens distortion the mapping to the source is
// affine: along a row the source point moves by a constant step, taken from
// column 0 of that row, so a pixel's point does not depend on the region.
template <typename Fn>
GreyImage evaluate(const MaskFrame& frame, Fn&& fn) {
  GreyImage out(frame.region);
  const Geometry& g = *frame.geometry;
  const bool affine = g.distortionAmount() == 0;
  parallelRows(frame.region, kGrainRows, [&](int y0, int y1) {
    for (int y = y0; y < y1; ++y) {
      // Indexed from the row's own start: column x of the frame is row[x - x0].
      float* row = out.row(y);
      const int x0 = frame.region.x, x1 = frame.region.right();
      if (affine) {
        const PointF p0 = g.toSource({0.5, y + 0.5}), p1 = g.toSource({1.5, y + 0.5});
        const double sx = p1.x - p0.x, sy = p1.y - p0.y;
        for (int x = x0; x < x1; ++x) row[x - x0] = fn(PointF{p0.x + x * sx, p0.y + x * sy});
      } else {
        for (int x = x0; x < x1; ++x) row[x - x0] = fn(g.toSource({x + 0.5, y + 0.5}));
      }
    }
  });
  return out;
}

GreyImage radial(const RadialMaskGeometry& m, const MaskFrame& frame) {
  const Geometry& g = *frame.geometry;
  const Rect& E = g.sourceExtent();
  PointF c = g.sourcePoint({m.center.x, m.center.y});
  double a = std::max(1e-9, m.radiusX * E.width), b = std::max(1e-9, m.radiusY * E.height);
  double cs = std::cos(m.angle * kDegrees), sn = std::sin(m.angle * kDegrees);
  double inner = 1 - 0.95 * std::max(m.feather / 100.0, 0.001);
  const double span = 1 - inner;
  // Scaled into the unit circle: the ellipse's own axes divided by its radii.
  const double ua = cs / a, va = sn / a, ub = -sn / b, vb = cs / b, perSpan = 1 / span;
  return evaluate(frame, [&](PointF p) {
    const double dx = p.x - c.x, dy = p.y - c.y;
    const double u = ua * dx + va * dy, v = ub * dx + vb * dy;
    const double d = std::sqrt(u * u + v * v);
    const double value = d <= inner ? 1.0 : d >= 1 ? 0.0 : (1 - d) * perSpan;
    return float(value);
  });
}

GreyImage linear(const LinearMaskGeometry& m, const MaskFrame& frame) {
  const Geometry& g = *frame.geometry;
  PointF c = g.sourcePoint({m.center.x, m.center.y});
  double ux = std::sin(m.angle * kDegrees), uy = -std::cos(m.angle * kDegrees);
  double half = std::max(m.feather / 100.0, 0.02) * m.length * g.sourceExtent().width;
  half = std::max(half, 1e-9);
  return evaluate(frame, [&](PointF p) {
    double t = (p.x - c.x) * ux + (p.y - c.y) * uy;
    return float(std::clamp((t + half) / (2 * half), 0.0, 1.0));
  });
}

// ---------------------------------------------------------------- brush

struct Dab {
  PointF centre;  // source pixels
  Rect box;       // output pixels it may touch
};

struct StrokeDabs {
  double radius = 0, core = 0, flow = 0;
  bool erase = false;
  std::vector<Dab> dabs;
};

StrokeDabs layOutStroke(const BrushStroke& s, const Geometry& g) {
  StrokeDabs out;
  const Rect& E = g.sourceExtent();
  out.radius = s.size * E.width / 2;
  out.core = out.radius * std::clamp(s.hardness / 100.0, 0.0, 1.0);
  out.flow = std::clamp(s.flow / 100.0, 0.0, 1.0);
  out.erase = s.erase;
  if (s.points.empty() || out.radius <= 0 || out.flow <= 0) return out;
  // Keep at least a one-pixel fall-off for antialiasing of hard brushes.
  double pixel = 1.0 / std::max(1e-9, g.coverFactor());
  if (out.radius - out.core < pixel) out.core = std::max(0.0, out.radius - pixel);

  double reach = out.radius * g.coverFactor() * (1 + 3 * std::fabs(g.distortionAmount())) + 2;
  auto addDab = [&](PointF c) {
    PointF o = g.toOutput(c);
    Rect box{int(std::floor(o.x - reach)), int(std::floor(o.y - reach)), 0, 0};
    box.width = int(std::ceil(o.x + reach)) - box.x;
    box.height = int(std::ceil(o.y + reach)) - box.y;
    out.dabs.push_back({c, box});
  };
  double spacing = std::max(0.25 * out.radius, 0.5);
  PointF prev = g.sourcePoint({s.points[0].x, s.points[0].y});
  addDab(prev);
  double carried = 0;  // distance travelled since the last dab
  for (size_t i = 1; i < s.points.size(); ++i) {
    PointF next = g.sourcePoint({s.points[i].x, s.points[i].y});
    double len = std::hypot(next.x - prev.x, next.y - prev.y);
    double t = spacing - carried;
    while (t <= len) {
      double f = t / len;
      addDab({prev.x + (next.x - prev.x) * f, prev.y + (next.y - prev.y) * f});
      t += spacing;
      if (out.dabs.size() > 4'000'000) return out;  // a hostile stroke cannot exhaust memory
    }
    carried = len - (t - spacing);
    prev = next;
  }
  return out;
}

GreyImage brush(const std::vector<BrushStroke>& strokes, const MaskFrame& frame) {
  const Geometry& g = *frame.geometry;
  std::vector<StrokeDabs> laid;
  laid.reserve(strokes.size());
  for (const BrushStroke& s : strokes) laid.push_back(layOutStroke(s, g));
  GreyImage out(frame.region);
  parallelRows(frame.region, kGrainRows, [&](int y0, int y1) {
    Rect band{frame.region.x, y0, frame.region.width, y1 - y0};
    for (const StrokeDabs& s : laid) {
      double span = std::max(1e-9, s.radius - s.core);
      for (const Dab& d : s.dabs) {
        Rect r = d.box.intersected(band);
        if (r.empty()) continue;
        for (int y = r.y; y < r.bottom(); ++y) {
          float* row = out.row(y);
          for (int x = r.x; x < r.right(); ++x) {
            PointF p = g.toSource({x + 0.5, y + 0.5});
            double dist = std::hypot(p.x - d.centre.x, p.y - d.centre.y);
            if (dist >= s.radius) continue;
            double t = dist <= s.core ? 0.0 : (dist - s.core) / span;
            double a = s.flow * (1 - t * t * (3 - 2 * t));
            float& m = row[x - frame.region.x];
            m = s.erase ? float(m * (1 - a)) : float(m + a * (1 - m));
          }
        }
      }
    }
  });
  return out;
}

// ---------------------------------------------------------------- bitmap

std::optional<GreyImage> bitmap(const BitmapMaskData& m, const MaskFrame& frame) {
  if (m.width <= 0 || m.height <= 0 || m.width > kMaxBitmapPixels / m.height) return std::nullopt;
  LzfseDecoded raster = decodeLzfse(m.compressedData, size_t(m.width * m.height));
  if (!raster.ok()) {
    logLine(std::string("Verdantglass: bitmap mask: ") + describe(*raster.error));
    return std::nullopt;
  }
  const Geometry& g = *frame.geometry;
  const Rect& E = g.sourceExtent();
  const int bw = int(m.width), bh = int(m.height);
  const uint8_t* px = raster.bytes.data();
  return evaluate(frame, [&](PointF p) {
    double u = (p.x - E.x) / E.width, v = (p.y - E.y) / E.height;
    if (!(u >= 0 && u <= 1 && v >= 0 && v <= 1)) return 0.0f;
    double fx = std::clamp(u * bw - 0.5, 0.0, bw - 1.0), fy = std::clamp(v * bh - 0.5, 0.0, bh - 1.0);
    int x0 = int(fx), y0 = int(fy);
    int x1 = std::min(x0 + 1, bw - 1), y1 = std::min(y0 + 1, bh - 1);
    double tx = fx - x0, ty = fy - y0;
    auto at = [&](int x, int y) { return px[size_t(y) * size_t(bw) + size_t(x)] / 255.0; };
    double top = at(x0, y0) + (at(x1, y0) - at(x0, y0)) * tx;
    double bottom = at(x0, y1) + (at(x1, y1) - at(x0, y1)) * tx;
    return float(top + (bottom - top) * ty);
  });
}

// ---------------------------------------------------------------- colour-stage kinds

// Runs a mask kernel over rows prepared from the colour stage; R of the
// kernel's output is the mask value.
template <typename Prepare, typename Kernel>
GreyImage fromColorStage(const MaskFrame& frame, Prepare&& prepare, Kernel&& kernel) {
  GreyImage out(frame.region);
  if (!frame.colorStage) return out;
  const Image& cs = *frame.colorStage;
  Rect r = frame.region.intersected(cs.bounds());
  parallelRows(r, kGrainRows, [&](int y0, int y1) {
    std::vector<float> buf(size_t(r.width) * 4);
    for (int y = y0; y < y1; ++y) {
      const float* src = cs.at(r.x, y);
      for (int i = 0; i < r.width; ++i) prepare(src + i * 4, buf.data() + i * 4);
      kernels::KernelRow row{buf.data(), nullptr, r.width, r.x, y};
      kernel(row);
      float* dst = out.row(y) + (r.x - frame.region.x);
      for (int i = 0; i < r.width; ++i) dst[i] = buf[size_t(i) * 4];
    }
  });
  return out;
}

float encoded01(float v) { return srgb::encode(std::clamp(std::isnan(v) ? 0.0f : v, 0.0f, 1.0f)); }

GreyImage luminosity(const LuminanceMaskGeometry& m, const MaskFrame& frame) {
  kernels::LuminanceRangeMaskParams p{float(m.low), float(m.high), float(m.feather / 100.0 * 0.5)};
  return fromColorStage(
      frame,
      [](const float* s, float* d) {
        float l = 0.2126f * std::clamp(s[0], 0.0f, 1.0f) + 0.7152f * std::clamp(s[1], 0.0f, 1.0f) +
                  0.0722f * std::clamp(s[2], 0.0f, 1.0f);
        d[0] = d[1] = d[2] = encoded01(l);
        d[3] = 1;
      },
      [&](const kernels::KernelRow& row) { kernels::luminanceRangeMask(p, row); });
}

GreyImage colorRange(const ColorRangeGeometry& m, const MaskFrame& frame) {
  kernels::ColorRangeMaskParams p{float(m.red), float(m.green), float(m.blue), float(m.tolerance),
                                  float(m.feather)};
  return fromColorStage(
      frame,
      [](const float* s, float* d) {
        d[0] = encoded01(s[0]);
        d[1] = encoded01(s[1]);
        d[2] = encoded01(s[2]);
        d[3] = 1;
      },
      [&](const kernels::KernelRow& row) { kernels::colorRangeMask(p, row); });
}

void invertInPlace(GreyImage& m) {
  for (int y = m.bounds().y; y < m.bounds().bottom(); ++y) {
    float* row = m.row(y);
    for (int i = 0; i < m.width(); ++i) row[i] = 1.0f - row[i];
  }
}

}  // namespace

bool readsColorStage(const MaskKind& kind) {
  return std::holds_alternative<LuminanceMaskGeometry>(kind) || std::holds_alternative<ColorRangeGeometry>(kind);
}

std::optional<GreyImage> rasterizeShape(const MaskKind& kind, const MaskFrame& frame, std::string* error) {
  std::optional<GreyImage> out;
  bool invert = false;
  std::visit(
      [&](const auto& k) {
        using T = std::decay_t<decltype(k)>;
        if constexpr (std::is_same_v<T, RadialMaskGeometry>) {
          out = radial(k, frame);
          invert = k.invert;
        } else if constexpr (std::is_same_v<T, LinearMaskGeometry>) {
          out = linear(k, frame);
          invert = k.invert;
        } else if constexpr (std::is_same_v<T, std::vector<BrushStroke>>) {
          out = brush(k, frame);
        } else if constexpr (std::is_same_v<T, BitmapMaskData>) {
          out = bitmap(k, frame);
        } else if constexpr (std::is_same_v<T, LuminanceMaskGeometry>) {
          out = luminosity(k, frame);
          invert = k.invert;
        } else {
          out = colorRange(k, frame);
          invert = k.invert;
        }
      },
      kind);
  if (!out) {
    if (error) *error = std::string(kCorruptMaskMessage);
    return std::nullopt;
  }
  if (invert) invertInPlace(*out);
  return out;
}

std::optional<GreyImage> rasterizeLayer(const MaskLayer::RenderData& layer, const MaskFrame& frame,
                                        std::string* error) {
  std::optional<GreyImage> mask = rasterizeShape(layer.kind, frame, error);
  if (!mask) return std::nullopt;
  for (const MaskKind& sub : layer.subtracts) {
    std::optional<GreyImage> s = rasterizeShape(sub, frame, error);
    if (!s) return std::nullopt;
    for (int y = mask->bounds().y; y < mask->bounds().bottom(); ++y) {
      float* m = mask->row(y);
      const float* r = s->row(y);
      for (int i = 0; i < mask->width(); ++i) m[i] *= 1.0f - r[i];
    }
  }
  return mask;
}

// ---------------------------------------------------------------- cache

namespace {
void hashAppend(Hasher& h, const Rect& r) {
  h.addInt(r.x);
  h.addInt(r.y);
  h.addInt(r.width);
  h.addInt(r.height);
}
void hashAppend(Hasher& h, const GeometryParams& p) {
  h.addDouble(p.distortion);
  h.addBool(p.flipHorizontal);
  h.addBool(p.flipVertical);
  h.addInt(p.quarterTurn);
  h.addDouble(p.angle);
  h.addBool(p.crop.has_value());
  if (p.crop) {
    h.addDouble(p.crop->x);
    h.addDouble(p.crop->y);
    h.addDouble(p.crop->width);
    h.addDouble(p.crop->height);
  }
  h.addBool(p.aspectLock.has_value());
  if (p.aspectLock) h.addDouble(*p.aspectLock);
}
}  // namespace

std::size_t hashValue(const MaskCacheKey& k) {
  Hasher h;
  vg::hashAppend(h, k.kind);
  h.addCount(k.subtracts.size());
  for (const MaskKind& s : k.subtracts) vg::hashAppend(h, s);
  hashAppend(h, k.sourceExtent);
  hashAppend(h, k.geometry);
  h.addBool(k.integral);
  hashAppend(h, k.region);
  h.addWord(k.colorStageId);
  return h.finish();
}

MaskImageCache::MaskImageCache(std::size_t maxEntries, std::size_t maxBytes)
    : maxEntries_(std::max<std::size_t>(1, maxEntries)), maxBytes_(maxBytes) {}

std::shared_ptr<const GreyImage> MaskImageCache::find(const MaskCacheKey& key) const {
  std::lock_guard<std::mutex> guard(lock_);
  auto it = entries_.find(key);
  return it == entries_.end() ? nullptr : it->second;
}

void MaskImageCache::insert(const MaskCacheKey& key, std::shared_ptr<const GreyImage> mask) {
  if (!mask) return;
  std::lock_guard<std::mutex> guard(lock_);
  auto it = entries_.find(key);
  if (it != entries_.end()) {
    bytes_ -= it->second->byteSize();
    it->second = std::move(mask);
    bytes_ += it->second->byteSize();
  } else {
    bytes_ += mask->byteSize();
    entries_.emplace(key, std::move(mask));
    order_.push_back(key);
  }
  while (order_.size() > 1 && (order_.size() > maxEntries_ || bytes_ > maxBytes_)) {
    auto victim = entries_.find(order_.front());
    if (victim != entries_.end()) {
      bytes_ -= victim->second->byteSize();
      entries_.erase(victim);
    }
    order_.pop_front();
  }
}

std::shared_ptr<const GreyImage> MaskImageCache::layerMask(const MaskLayer::RenderData& layer, const MaskFrame& frame,
                                                           const GeometryParams& geometryParams, bool integral,
                                                           std::uint64_t colorStageId, std::string* error) {
  bool reads = readsColorStage(layer.kind) ||
               std::any_of(layer.subtracts.begin(), layer.subtracts.end(), readsColorStage);
  MaskCacheKey key{layer.kind,  layer.subtracts, frame.geometry->sourceExtent(), geometryParams, integral,
                   frame.region, reads ? colorStageId : 0};
  if (auto hit = find(key)) return hit;
  std::string message;
  std::optional<GreyImage> mask = rasterizeLayer(layer, frame, &message);
  if (!mask) {
    logLine(message);
    if (error) *error = message;
    return nullptr;
  }
  auto shared = std::make_shared<const GreyImage>(std::move(*mask));
  // A colour-dependent mask without an identity for its colour stage is not cached.
  if (!reads || colorStageId != 0) insert(key, shared);
  return shared;
}

std::size_t MaskImageCache::size() const {
  std::lock_guard<std::mutex> guard(lock_);
  return entries_.size();
}

std::size_t MaskImageCache::bytes() const {
  std::lock_guard<std::mutex> guard(lock_);
  return bytes_;
}

void MaskImageCache::clear() {
  std::lock_guard<std::mutex> guard(lock_);
  entries_.clear();
  order_.clear();
  bytes_ = 0;
}

}  // namespace vg
