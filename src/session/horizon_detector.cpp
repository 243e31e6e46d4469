#include "session/horizon_detector.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include "render/heal_bitmap.h"
#include "session/analysis_image.h"

namespace vg {

namespace {

using H = HorizonDetector;

bool cancelled(const AsyncCancelToken* cancel) { return cancel && cancel->isCancelled(); }

// The picture reduced by whole blocks of f x f pixels to kAnalysisSize or a
// little more on its long side: the Rec.709 luminance of each block, sRGB-encoded.
cv::Mat reducedLuminance(const Image& image) {
  const int longSide = std::max(image.width(), image.height());
  const Image small = averageBlocks(image, longSide / H::kAnalysisSize);
  cv::Mat grey(small.height(), small.width(), CV_8UC1);
  for (int y = 0; y < small.height(); ++y) {
    const float* p = small.row(y);
    uint8_t* out = grey.ptr<uint8_t>(y);
    for (int x = 0; x < small.width(); ++x, p += 4) out[x] = encodeSrgb8(0.2126f * p[0] + 0.7152f * p[1] + 0.0722f * p[2]);
  }
  return grey;
}

// Flips first, then clockwise quarter turns: the order the render applies them.
cv::Mat asShown(cv::Mat grey, const CropSettings& crop) {
  if (crop.flipHorizontal || crop.flipVertical) {
    const int code = crop.flipHorizontal && crop.flipVertical ? -1 : (crop.flipHorizontal ? 1 : 0);
    cv::flip(grey, grey, code);
  }
  switch (crop.quarterTurn & 3) {
    case 1: cv::rotate(grey, grey, cv::ROTATE_90_CLOCKWISE); break;
    case 2: cv::rotate(grey, grey, cv::ROTATE_180); break;
    case 3: cv::rotate(grey, grey, cv::ROTATE_90_COUNTERCLOCKWISE); break;
    default: break;
  }
  return grey;
}

struct Segment {
  double x0, y0, x1, y1;  // x0 <= x1
  double angle;           // degrees, y down: positive falls to the right
  double length;          // pixels
};

std::vector<Segment> nearHorizontalSegments(const cv::Mat& grey) {
  cv::Ptr<cv::LineSegmentDetector> lsd = cv::createLineSegmentDetector(cv::LSD_REFINE_STD);
  std::vector<cv::Vec4f> lines;
  lsd->detect(grey, lines);
  const double minLength = H::kMinSegment * grey.cols;
  std::vector<Segment> out;
  for (const cv::Vec4f& l : lines) {
    Segment s{l[0], l[1], l[2], l[3], 0, 0};
    if (s.x1 < s.x0) std::swap(s.x0, s.x1), std::swap(s.y0, s.y1);
    s.length = std::hypot(s.x1 - s.x0, s.y1 - s.y0);
    s.angle = std::atan2(s.y1 - s.y0, s.x1 - s.x0) * 180.0 / std::numbers::pi;
    if (s.length >= minLength && std::fabs(s.angle) <= H::kSearchRange) out.push_back(s);
  }
  return out;
}

// Length-weighted votes under a triangle of half-width kBand around `angle`.
double vote(const std::vector<Segment>& segments, double angle) {
  double sum = 0;
  for (const Segment& s : segments) sum += s.length * std::max(0.0, 1.0 - std::fabs(s.angle - angle) / H::kBand);
  return sum;
}

// The longest stretch, along direction `angle`, over which segments of one
// line (within kLineTolerance of the frame height across it) follow each other
// with gaps no longer than kMaxGap of the frame width.
double longestLine(std::vector<const Segment*> band, double angle, double frameWidth, double frameHeight) {
  const double c = std::cos(angle * std::numbers::pi / 180.0), s = std::sin(angle * std::numbers::pi / 180.0);
  auto across = [&](const Segment* g) { return -s * (g->x0 + g->x1) / 2 + c * (g->y0 + g->y1) / 2; };
  auto from = [&](const Segment* g) { return c * g->x0 + s * g->y0; };
  auto to = [&](const Segment* g) { return c * g->x1 + s * g->y1; };
  std::sort(band.begin(), band.end(), [&](auto a, auto b) { return across(a) < across(b); });
  const double tolerance = std::max(2.0, H::kLineTolerance * frameHeight), maxGap = H::kMaxGap * frameWidth;
  double best = 0;
  for (size_t i = 0; i < band.size();) {
    size_t j = i + 1;
    while (j < band.size() && across(band[j]) - across(band[j - 1]) <= tolerance) ++j;
    std::vector<const Segment*> line(band.begin() + long(i), band.begin() + long(j));
    std::sort(line.begin(), line.end(), [&](auto a, auto b) { return from(a) < from(b); });
    double start = from(line[0]), end = to(line[0]);
    for (const Segment* g : line) {
      if (from(g) > end + maxGap) start = from(g);
      end = std::max(end, to(g));
      best = std::max(best, end - start);
    }
    i = j;
  }
  return best;
}

std::optional<double> dominantAngle(const std::vector<Segment>& segments, double frameWidth, double frameHeight) {
  if (segments.empty()) return std::nullopt;
  // Candidate directions every 0.1 degree over the whole search range.
  constexpr double kStep = 0.1;
  const int steps = int(std::lround(2 * H::kSearchRange / kStep));
  std::vector<double> votes(size_t(steps + 1));
  size_t best = 0;
  for (int i = 0; i <= steps; ++i) {
    votes[size_t(i)] = vote(segments, -H::kSearchRange + i * kStep);
    if (votes[size_t(i)] > votes[best]) best = size_t(i);
  }
  const double peak = -H::kSearchRange + double(best) * kStep;
  double rival = 0;
  for (int i = 0; i <= steps; ++i) {
    if (std::fabs(-H::kSearchRange + i * kStep - peak) > H::kSeparation) rival = std::max(rival, votes[size_t(i)]);
  }
  if (std::fabs(peak) > H::kMaxTilt || rival >= H::kRivalRatio * votes[best]) return std::nullopt;

  std::vector<const Segment*> band;
  double support = 0, weighted = 0;
  for (const Segment& s : segments) {
    if (std::fabs(s.angle - peak) > H::kBand) continue;
    band.push_back(&s);
    support += s.length;
    weighted += s.length * s.angle;
  }
  const double line = longestLine(band, peak, frameWidth, frameHeight);
  if (support < H::kMinSupport * frameWidth || line < H::kMinLine * frameWidth) return std::nullopt;
  return weighted / support;
}

}  // namespace

std::optional<double> detectHorizonAngle(const Image& previewSource, const CropSettings& crop,
                                         const AsyncCancelToken* cancel) {
  if (previewSource.empty() || cancelled(cancel)) return std::nullopt;
  cv::Mat grey = reducedLuminance(previewSource);
  if (grey.cols < 16 || grey.rows < 16 || cancelled(cancel)) return std::nullopt;
  grey = asShown(std::move(grey), crop);
  std::vector<Segment> segments = nearHorizontalSegments(grey);
  if (cancelled(cancel)) return std::nullopt;
  std::optional<double> line = dominantAngle(segments, grey.cols, grey.rows);
  if (!line) return std::nullopt;
  // Turning the picture by -line levels it; kept to a hundredth of a degree.
  const double angle = std::round(-*line * 100.0) / 100.0;
  return angle == 0 ? 0.0 : angle;
}

}  // namespace vg
