#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <numbers>
#include <random>

#include "io/image_loader.h"
#include "render/geometry.h"
#include "session/horizon_detector.h"
#include "support/test_support.h"

namespace vg {
namespace {

constexpr double kRad = std::numbers::pi / 180.0;

// A source picture whose content, seen through the crop's flips and quarter
// turns, is scene(x, y, width, height) in display pixels: the render's own
// geometry decides where each source pixel shows, so the test does not
// restate the orientation rules.
Image shownAs(int w, int h, const CropSettings& crop, const std::function<float(double, double, double, double)>& scene) {
  Image img(w, h);
  GeometryParams params;
  params.quarterTurn = crop.quarterTurn;
  params.flipHorizontal = crop.flipHorizontal;
  params.flipVertical = crop.flipVertical;
  Geometry geometry(img.bounds(), params);
  const double dw = geometry.outputRect().width, dh = geometry.outputRect().height;
  std::mt19937 rng(7);
  std::normal_distribution<float> noise(0.0f, 0.01f);
  for (int y = 0; y < h; ++y) {
    for (int x = 0; x < w; ++x) {
      PointF d = geometry.toOutput({x + 0.5, y + 0.5});
      float v = std::max(0.0f, scene(d.x, d.y, dw, dh) + noise(rng));
      float* p = img.at(x, y);
      p[0] = p[1] = p[2] = v;
      p[3] = 1;
    }
  }
  return img;
}

// Bright sky over dark ground, the boundary through the centre at `tilt`
// degrees (y down), anti-aliased over one pixel.
auto horizonScene(double tilt) {
  return [tilt](double x, double y, double w, double h) {
    double dist = (y - h / 2) * std::cos(tilt * kRad) - (x - w / 2) * std::sin(tilt * kRad);
    double ground = std::clamp(dist + 0.5, 0.0, 1.0);
    return float(0.7 - 0.6 * ground);
  };
}

// The slope (degrees) of the sky/ground boundary in a rendered picture,
// fitted through the first dark row of each column in the middle half.
double renderedTilt(const Image& out) {
  double sx = 0, sy = 0, sxx = 0, sxy = 0, n = 0;
  const Rect& b = out.bounds();
  for (int x = b.x + b.width / 4; x < b.x + 3 * b.width / 4; ++x) {
    for (int y = b.y + 1; y < b.bottom(); ++y) {
      float above = out.at(x, y - 1)[0], here = out.at(x, y)[0];
      if (above >= 0.4f && here < 0.4f) {
        double cross = y - 0.5 + (above - 0.4) / (above - here) - 0.5;
        sx += x, sy += cross, sxx += double(x) * x, sxy += x * cross, n += 1;
        break;
      }
    }
  }
  double slope = (n * sxy - sx * sy) / (n * sxx - sx * sx);
  return std::atan(slope) / kRad;
}

TEST(HorizonDetector, RecoversTiltsThroughEveryOrientation) {
  struct Case {
    double tilt;
    int quarterTurn;
    bool flipH, flipV;
  };
  for (Case c : {Case{4.0, 0, false, false}, Case{-7.5, 0, false, false}, Case{0.0, 0, false, false},
                 Case{12.0, 1, false, false}, Case{-3.0, 3, false, false}, Case{2.5, 2, true, false},
                 Case{-14.0, 1, false, true}, Case{9.0, 0, true, true}}) {
    SCOPED_TRACE(testing::Message() << "tilt " << c.tilt << " turn " << c.quarterTurn << " flips " << c.flipH << c.flipV);
    CropSettings crop;
    crop.quarterTurn = c.quarterTurn;
    crop.flipHorizontal = c.flipH;
    crop.flipVertical = c.flipV;
    crop.angle = 33;  // the old straightening is replaced, not added to
    Image source = shownAs(960, 640, crop, horizonScene(c.tilt));
    std::optional<double> angle = detectHorizonAngle(source, crop);
    ASSERT_TRUE(angle);
    EXPECT_NEAR(*angle, -c.tilt, 0.5);
  }
}

TEST(HorizonDetector, StoredAngleLevelsTheRenderedPicture) {
  CropSettings crop;
  crop.quarterTurn = 1;
  crop.flipHorizontal = true;
  Image source = shownAs(900, 600, crop, horizonScene(6.0));
  std::optional<double> angle = detectHorizonAngle(source, crop);
  ASSERT_TRUE(angle);
  GeometryParams params;
  params.flipHorizontal = crop.flipHorizontal;
  params.quarterTurn = crop.quarterTurn;
  params.angle = *angle;
  Geometry geometry(source.bounds(), params);
  Image out(geometry.outputRect());
  geometry.render(source, out);
  EXPECT_NEAR(renderedTilt(out), 0.0, 0.3);
  params.angle = 0;
  Geometry unlevelled(source.bounds(), params);
  Image before(unlevelled.outputRect());
  unlevelled.render(source, before);
  EXPECT_NEAR(renderedTilt(before), 6.0, 0.3);  // the oracle itself sees the tilt
}

TEST(HorizonDetector, RefusesPicturesWithoutALevelLine) {
  auto flat = [](double, double, double, double) { return 0.4f; };
  auto disc = [](double x, double y, double w, double h) {
    return std::hypot(x - w / 2, y - h / 2) < h / 3 ? 0.8f : 0.1f;
  };
  auto steep = [](double x, double y, double w, double h) {  // a 22 degree edge: a slope, not a horizon
    return (y - h / 2) * std::cos(22 * kRad) - (x - w / 2) * std::sin(22 * kRad) < 0 ? 0.8f : 0.1f;
  };
  auto crossing = [](double x, double y, double w, double h) {  // two equal lines at +-10 degrees
    double a = (y - h / 2) * std::cos(10 * kRad) - (x - w / 2) * std::sin(10 * kRad);
    double b = (y - h / 2) * std::cos(10 * kRad) + (x - w / 2) * std::sin(10 * kRad);
    return std::fabs(a) < 3 || std::fabs(b) < 3 ? 0.9f : 0.1f;
  };
  auto shortDash = [](double x, double y, double w, double h) {  // one line a tenth of the width
    return std::fabs(y - h / 2) < 2 && std::fabs(x - w / 2) < w / 20 ? 0.9f : 0.1f;
  };
  int i = 0;
  for (const auto& scene : std::vector<std::function<float(double, double, double, double)>>{
           flat, disc, steep, crossing, shortDash}) {
    SCOPED_TRACE(i++);
    EXPECT_FALSE(detectHorizonAngle(shownAs(900, 600, {}, scene), {}));
  }
  EXPECT_FALSE(detectHorizonAngle(Image(), {}));
  EXPECT_FALSE(detectHorizonAngle(Image(10, 6), {}));
}

// A real dusk skyline, whose soft horizon is level: turning the picture by a
// known angle through the render moves the answer by exactly that angle.
TEST(HorizonDetector, FollowsARealHorizonTurnedByTheRender) {
  std::shared_ptr<const Image> photo = ImageLoader::load(test::dataPath("jpeg/sony-alpha-6000.reduced.jpg")).image;
  std::optional<double> level = detectHorizonAngle(*photo, {});
  ASSERT_TRUE(level);
  EXPECT_NEAR(*level, 0.0, 0.5);
  for (double turn : {-10.0, -4.0, 2.0, 6.0}) {
    GeometryParams params;
    params.angle = turn;
    Geometry geometry(photo->bounds(), params);
    Image shown(geometry.outputRect());
    geometry.render(*photo, shown);
    std::optional<double> angle = detectHorizonAngle(shown, {});
    ASSERT_TRUE(angle) << turn;
    EXPECT_NEAR(*angle, *level - turn, 0.5) << turn;
  }
}

TEST(HorizonDetector, CancelledRunHasNoAnswer) {
  Image source = shownAs(900, 600, {}, horizonScene(3.0));
  AsyncCancelToken token;
  EXPECT_TRUE(detectHorizonAngle(source, {}, &token));
  token.cancel();
  EXPECT_FALSE(detectHorizonAngle(source, {}, &token));
}

}  // namespace
}  // namespace vg
