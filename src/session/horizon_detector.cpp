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

// Edge pixels with the direction of the edge through them (degrees, y down,
// positive falling to the right), for those within reach of the search range.
struct EdgePixel {
  int x, y;
  double direction;
};

std::vector<EdgePixel> nearHorizontalEdges(const cv::Mat& grey) {
  cv::Mat blurred, gx, gy, edges;
  cv::GaussianBlur(grey, blurred, cv::Size(0, 0), H::kBlurSigma);
  cv::Sobel(blurred, gx, CV_32F, 1, 0, 3);
  cv::Sobel(blurred, gy, CV_32F, 0, 1, 3);
  cv::Canny(blurred, edges, H::kCannyLow, H::kCannyHigh, 3, true);
  std::vector<EdgePixel> out;
  for (int y = 0; y < grey.rows; ++y) {
    const uint8_t* e = edges.ptr<uint8_t>(y);
    const float* dx = gx.ptr<float>(y);
    const float* dy = gy.ptr<float>(y);
    for (int x = 0; x < grey.cols; ++x) {
      if (!e[x] || dy[x] == 0) continue;
      // The edge runs across its gradient.
      const double direction = std::atan(-dx[x] / dy[x]) * 180.0 / std::numbers::pi;
      if (std::fabs(direction) <= H::kSearchRange + H::kSpread) out.push_back({x, y, direction});
    }
  }
  return out;
}

struct Line {
  double direction;  // degrees
  double offset;     // -x sin + y cos, pixels
  double votes;      // edge pixels on it
};

// Hough transform over the search range: each edge pixel votes for the lines
// through it whose direction is within kSpread of its own edge direction.
// Per direction, the best offset (votes of three neighbouring offsets
// together, so a soft or slightly bent edge still counts whole).
std::vector<Line> bestLinePerDirection(const std::vector<EdgePixel>& edges, int width, int height) {
  const int directions = int(std::lround(2 * H::kSearchRange / H::kAngleStep)) + 1;
  const double reach = width * std::sin(H::kSearchRange * std::numbers::pi / 180.0);
  const int minOffset = -int(std::ceil(reach)) - 2;
  const int offsets = height + 2 * int(std::ceil(reach)) + 5;
  std::vector<double> cosines(static_cast<size_t>(directions)), sines(static_cast<size_t>(directions));
  for (int t = 0; t < directions; ++t) {
    const double a = (-H::kSearchRange + t * H::kAngleStep) * std::numbers::pi / 180.0;
    cosines[size_t(t)] = std::cos(a), sines[size_t(t)] = std::sin(a);
  }
  std::vector<float> votes(size_t(directions) * size_t(offsets));
  for (const EdgePixel& p : edges) {
    const int t0 = std::max(0, int(std::ceil((p.direction - H::kSpread + H::kSearchRange) / H::kAngleStep)));
    const int t1 = std::min(directions - 1, int(std::floor((p.direction + H::kSpread + H::kSearchRange) / H::kAngleStep)));
    for (int t = t0; t <= t1; ++t) {
      const long offset = std::lround(-p.x * sines[size_t(t)] + p.y * cosines[size_t(t)]) - minOffset;
      votes[size_t(t) * size_t(offsets) + size_t(offset)] += 1;
    }
  }
  std::vector<Line> best(static_cast<size_t>(directions));
  for (int t = 0; t < directions; ++t) {
    const float* row = &votes[size_t(t) * size_t(offsets)];
    Line& line = best[size_t(t)];
    line.direction = -H::kSearchRange + t * H::kAngleStep;
    for (int r = 1; r + 1 < offsets; ++r) {
      const double v = double(row[r - 1]) + row[r] + row[r + 1];
      if (v > line.votes) line.votes = v, line.offset = r + minOffset;
    }
  }
  return best;
}

// The direction of a line fitted by least squares through the edge pixels
// within kFitDistance of `line` whose own direction agrees with it.
double fittedDirection(const std::vector<EdgePixel>& edges, const Line& line) {
  const double a = line.direction * std::numbers::pi / 180.0, c = std::cos(a), s = std::sin(a);
  double sx = 0, sy = 0, sxx = 0, sxy = 0, n = 0;
  for (const EdgePixel& p : edges) {
    if (std::fabs(p.direction - line.direction) > H::kSpread) continue;
    if (std::fabs(-p.x * s + p.y * c - line.offset) > H::kFitDistance) continue;
    sx += p.x, sy += p.y, sxx += double(p.x) * p.x, sxy += double(p.x) * p.y, n += 1;
  }
  const double spread = n * sxx - sx * sx;
  if (n < 2 || spread <= 0) return line.direction;
  return std::atan((n * sxy - sx * sy) / spread) * 180.0 / std::numbers::pi;
}

std::optional<double> dominantDirection(const std::vector<EdgePixel>& edges, int width, int height) {
  if (edges.empty()) return std::nullopt;
  const std::vector<Line> lines = bestLinePerDirection(edges, width, height);
  const Line& best = *std::max_element(lines.begin(), lines.end(), [](const Line& a, const Line& b) { return a.votes < b.votes; });
  double rival = 0;
  for (const Line& l : lines) {
    if (std::fabs(l.direction - best.direction) > H::kSeparation) rival = std::max(rival, l.votes);
  }
  if (std::fabs(best.direction) > H::kMaxTilt || best.votes < H::kMinLine * width || rival >= H::kRivalRatio * best.votes)
    return std::nullopt;
  return fittedDirection(edges, best);
}

}  // namespace

std::optional<double> detectHorizonAngle(const Image& previewSource, const CropSettings& crop,
                                         const AsyncCancelToken* cancel) {
  if (previewSource.empty() || cancelled(cancel)) return std::nullopt;
  cv::Mat grey = reducedLuminance(previewSource);
  if (grey.cols < 16 || grey.rows < 16 || cancelled(cancel)) return std::nullopt;
  grey = asShown(std::move(grey), crop);
  std::vector<EdgePixel> edges = nearHorizontalEdges(grey);
  if (cancelled(cancel)) return std::nullopt;
  std::optional<double> line = dominantDirection(edges, grey.cols, grey.rows);
  if (!line) return std::nullopt;
  // Turning the picture by -line levels it; kept to a hundredth of a degree.
  const double angle = std::round(-*line * 100.0) / 100.0;
  return angle == 0 ? 0.0 : angle;
}

}  // namespace vg
