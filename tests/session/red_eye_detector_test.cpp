#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "io/image_loader.h"
#include "render/document_render.h"
#include "render/srgb.h"
#include "session/red_eye_detector.h"
#include "support/test_support.h"

namespace vg {
namespace {

// The portrait's pupils, found by eye on the 512 x 512 picture.
constexpr Point kLeftPupil{202 / 512.0, 101 / 512.0};
constexpr Point kRightPupil{246.5 / 512.0, 103.5 / 512.0};

std::shared_ptr<const Image> portrait() {
  static const std::shared_ptr<const Image> image = ImageLoader::load(test::dataPath("faces/astronaut.jpg")).image;
  return image;
}

// A copy of the portrait with each pupil painted flash red over `radius` pixels.
Image withRedPupils(double radius) {
  Image img = portrait()->clone();
  for (Point p : {kLeftPupil, kRightPupil}) {
    for (int y = 0; y < img.height(); ++y)
      for (int x = 0; x < img.width(); ++x)
        if (std::hypot(x + 0.5 - p.x * 512, y + 0.5 - p.y * 512) <= radius) {
          float* px = img.at(x, y);
          px[0] = srgb::decode(0.8f), px[1] = srgb::decode(0.1f), px[2] = srgb::decode(0.12f);
        }
  }
  return img;
}

double redness(const Image& img, Point p, double radius) {
  double sum = 0, n = 0;
  const Rect& b = img.bounds();
  for (int y = b.y; y < b.bottom(); ++y)
    for (int x = b.x; x < b.right(); ++x)
      if (std::hypot(x - b.x + 0.5 - p.x * b.width, y - b.y + 0.5 - p.y * b.height) <= radius) {
        const float* px = img.at(x, y);
        sum += px[0] - (px[1] + px[2]) / 2, n += 1;
      }
  return sum / n;
}

void expectPupils(const RedEyeDetectionOutcome& outcome) {
  ASSERT_FALSE(outcome.failed);
  ASSERT_EQ(outcome.spots.size(), 2u);
  EXPECT_NEAR(outcome.spots[0].center.x, kLeftPupil.x, 0.01);
  EXPECT_NEAR(outcome.spots[0].center.y, kLeftPupil.y, 0.01);
  EXPECT_NEAR(outcome.spots[1].center.x, kRightPupil.x, 0.01);
  EXPECT_NEAR(outcome.spots[1].center.y, kRightPupil.y, 0.01);
  for (const RedEyeSpot& s : outcome.spots) EXPECT_EQ(s.radius, RedEyeDetector::kMinRadius);  // a 90 px face
  EXPECT_NE(outcome.spots[0].id, outcome.spots[1].id);
}

// One test loads the 100 MB landmark model once for all its checks.
TEST(RedEyeDetector, FindsThePupilsOfAPortraitAtAnySizeAndTheRenderDarkensThem) {
  RedEyeDetector& detector = RedEyeDetector::shared();
  Image red = withRedPupils(5);
  std::optional<RedEyeDetectionOutcome> found = detector.detect(red);
  ASSERT_TRUE(found);
  expectPupils(*found);

  // Three times larger: reduced to 1200 px first, the same places come out.
  Image big(1536, 1536);
  for (int y = 0; y < 1536; ++y)
    for (int x = 0; x < 1536; ++x) std::copy_n(red.at(x / 3, y / 3), 4, big.at(x, y));
  std::optional<RedEyeDetectionOutcome> scaled = detector.detect(big);
  ASSERT_TRUE(scaled);
  expectPupils(*scaled);

  // The spots, rendered, take the red out of the painted pupils.
  EditDocument recipe;
  recipe.redEyes = found->spots;
  test::TempDir luts;
  RenderEngine engine(luts.path());
  MaskImageCache cache;
  DocumentRender out = renderDocument(engine, cache, red, recipe, {});
  for (Point p : {kLeftPupil, kRightPupil}) {
    EXPECT_GT(redness(red, p, 3), 0.4);
    EXPECT_LT(redness(out.image, p, 3), 0.1 * redness(red, p, 3));
  }

  // No face: nothing found, the manual mode suggested.
  std::optional<RedEyeDetectionOutcome> none = detector.detect(Image(640, 480));
  ASSERT_TRUE(none);
  EXPECT_EQ(*none, (RedEyeDetectionOutcome{{}, std::string(RedEyeDetector::kNoFaceText), false}));

  AsyncCancelToken cancelled;
  cancelled.cancel();
  EXPECT_FALSE(detector.detect(red, &cancelled));
}

TEST(RedEyeDetector, AMissingModelFailsWithItsCause) {
  test::TempDir dir;
  RedEyeDetector detector(dir / "landmarks.dat");
  for (int attempt = 0; attempt < 2; ++attempt) {  // tried again, failing the same way
    std::optional<RedEyeDetectionOutcome> outcome = detector.detect(*portrait());
    ASSERT_TRUE(outcome);
    EXPECT_TRUE(outcome->failed);
    EXPECT_TRUE(outcome->spots.empty());
    EXPECT_EQ(outcome->message->rfind("检测失败：", 0), 0u);
    EXPECT_NE(outcome->message->find("landmarks.dat"), std::string::npos);
  }
  test::writeFile(dir / "landmarks.dat", "not a model");
  std::optional<std::string> error = detector.load();
  ASSERT_TRUE(error);
  EXPECT_NE(error->find("landmarks.dat"), std::string::npos);
}

}  // namespace
}  // namespace vg
