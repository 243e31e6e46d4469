// The heal stage. See heal_stage.h.
#include "render/heal_stage.h"

#include <cmath>
#include <new>
#include <stdexcept>
#include <string>

#include "model/log.h"
#include "render/heal_bitmap.h"

namespace vg {

namespace {

// Pixels a dab may change: its disc's bounding box, one pixel of slack.
Rect dabBox(const Healer::Dab& dab) {
  int x0 = int(std::floor(dab.cx - dab.radius)) - 1, y0 = int(std::floor(dab.cy - dab.radius)) - 1;
  int x1 = int(std::ceil(dab.cx + dab.radius)) + 1, y1 = int(std::ceil(dab.cy + dab.radius)) + 1;
  return {x0, y0, x1 - x0, y1 - y0};
}

}  // namespace

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
  HealCacheKey key{request.sourceId, std::vector<HealStroke>(request.heals.begin(), request.heals.end()),
                   request.geometry, geometry.outputRect()};
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

  std::vector<Rect> touched;
  for (const Healer::Stroke& stroke : strokes) {
    for (const Healer::Dab& dab : Healer::strokeDabs(stroke, bitmap.width, bitmap.height)) {
      touched.push_back(dabBox(dab));
    }
  }
  writeBackHealed(bitmap, frame, touched);

  auto image = std::make_shared<const Image>(std::move(frame));
  cache.insert(key, image, std::make_shared<const Healer::Bitmap>(std::move(bitmap)));
  return image;
}

}  // namespace vg
