// The heal stage. See heal_stage.h.
#include "render/heal_stage.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <new>
#include <stdexcept>
#include <string>

#include "model/log.h"
#include "render/heal_bitmap.h"

namespace vg {

namespace {

uint64_t mix(uint64_t h, uint64_t v) {
  // splitmix64 finaliser over the running value
  h ^= v + 0x9e3779b97f4a7c15ULL + (h << 6) + (h >> 2);
  h ^= h >> 30;
  h *= 0xbf58476d1ce4e5b9ULL;
  h ^= h >> 27;
  h *= 0x94d049bb133111ebULL;
  h ^= h >> 31;
  return h;
}

}  // namespace

uint64_t sourceFingerprint(const Image& source) {
  const Rect& b = source.bounds();
  uint64_t h = mix(mix(mix(mix(0, uint64_t(uint32_t(b.x))), uint64_t(uint32_t(b.y))), uint64_t(uint32_t(b.width))),
                   uint64_t(uint32_t(b.height)));
  if (b.empty()) return h;
  const int cols = std::min(b.width, 128), rows = std::min(b.height, 128);
  for (int j = 0; j < rows; ++j) {
    const int y = b.y + int(int64_t(j) * b.height / rows);
    for (int i = 0; i < cols; ++i) {
      const int x = b.x + int(int64_t(i) * b.width / cols);
      uint64_t bits[2];
      std::memcpy(bits, source.at(x, y), sizeof bits);
      h = mix(mix(h, bits[0]), bits[1]);
    }
  }
  return h;
}

std::vector<Healer::Stroke> healStrokesInFrame(std::span<const HealStroke> heals, const Geometry& geometry) {
  std::vector<Healer::Stroke> out;
  const Rect& frame = geometry.outputRect();
  if (frame.empty()) return out;
  const double sizeScale = double(geometry.sourceExtent().width) * geometry.coverFactor() / frame.width;
  out.reserve(heals.size());
  for (const HealStroke& stroke : heals) {
    Healer::Stroke mapped;
    mapped.size = stroke.size * sizeScale;
    mapped.points.reserve(stroke.points.size());
    for (const auto& p : stroke.points) {
      PointF q = geometry.normalisedToOutput({p.x, p.y});
      mapped.points.push_back({(q.x - frame.x) / frame.width, (q.y - frame.y) / frame.height});
    }
    out.push_back(std::move(mapped));
  }
  return out;
}

std::shared_ptr<const Image> runHealStage(HealCache& cache, const HealStageRequest& request) {
  if (!request.source) throw std::invalid_argument("runHealStage: no source image");
  const Geometry geometry(request.source->bounds(), request.geometry, request.integral);
  HealCacheKey key{request.sourceId, sourceFingerprint(*request.source),
                   std::vector<HealStroke>(request.heals.begin(), request.heals.end()), request.geometry,
                   geometry.outputRect()};
  if (std::shared_ptr<const Image> cached = cache.find(key)) return cached;

  Image frame(geometry.outputRect());
  geometry.render(*request.source, frame);
  if (key.heals.empty() || frame.empty()) return std::make_shared<const Image>(std::move(frame));
  if (cache.hasFailed(key)) return std::make_shared<const Image>(std::move(frame));

  const std::vector<Healer::Stroke> strokes = healStrokesInFrame(key.heals, geometry);
  Healer::Bitmap bitmap;
  size_t alreadyApplied = 0;
  try {
    if (std::optional<HealPrefixEntry> prefix = cache.prefixFor(key)) {
      bitmap = *prefix->image;
      alreadyApplied = prefix->applied.size();
    } else {
      bitmap = encodeHealBitmap(frame);
    }
  } catch (const std::bad_alloc&) {
    logLine("heal stage: no memory for a " + std::to_string(frame.width()) + "x" + std::to_string(frame.height()) +
            " heal bitmap; the picture is rendered without healing");
    cache.markFailed(key);
    return std::make_shared<const Image>(std::move(frame));
  }

  if (!Healer::healInPlace(bitmap, strokes, alreadyApplied, request.token)) return nullptr;

  // The healer changes only pixels within a dab's radius; one pixel of slack.
  Healer::ForbiddenMask touched(bitmap.pixelCount());
  for (const Healer::Stroke& stroke : strokes) {
    for (const Healer::Dab& dab : Healer::strokeDabs(stroke, bitmap.width, bitmap.height)) {
      touched.markDisc(bitmap.width, bitmap.height, dab.cx, dab.cy, dab.radius + 1.0);
    }
  }
  writeBackHealed(bitmap, frame, touched);

  auto image = std::make_shared<const Image>(std::move(frame));
  cache.insert(key, image, std::make_shared<const Healer::Bitmap>(std::move(bitmap)));
  return image;
}

}  // namespace vg
