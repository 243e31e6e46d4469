// Automatic adjustment and red-eye detection through the session, on fake
// time, with a scripted red-eye detector (the real one is tested on its own
// and through `edit --redeye`).
#include <gtest/gtest.h>

#include "render/geometry.h"
#include "render/render_engine.h"
#include "session/auto_adjust.h"
#include "session/red_eye_spots.h"
#include "session_fixture.h"

namespace vg {
namespace {

using Kind = ToastMessage::Kind;
using EditorSessionAnalysesTest = test::SessionFixture;

RedEyeSpot spot(double x, double y, double radius = 0.03) { return {Uuid::random(), {x, y}, radius}; }

RedEyeDetectionOutcome found(std::vector<RedEyeSpot> spots) { return {std::move(spots), std::nullopt, false}; }

void expectToast(const EditorSession& s, std::string_view text, Kind kind) {
  ASSERT_TRUE(s.toast());
  EXPECT_EQ(s.toast()->text, text);
  EXPECT_EQ(s.toast()->kind, kind);
}

// The normalised point of the picture as shown where the source point `at`
// (normalised) appears.
PointF shownPoint(const EditorSession& s, Point at) {
  const Rect src = s.previewSource()->bounds();
  const Geometry g(src, geometryParams(s.document()), true);
  const Rect out = g.outputRect();
  const PointF p = g.toOutput({src.x + at.x * src.width, src.y + at.y * src.height});
  return {(p.x - out.x) / out.width, (p.y - out.y) / out.height};
}

TEST_F(EditorSessionAnalysesTest, AutoAdjustReplacesTheAdjustmentsWithTheModesAsOneStep) {
  auto session = openSession();
  session->rotate90(true);
  EditDocument doc = session->document();
  doc.adjustments.contrast = 60;
  doc.adjustments.curves.rgb.points = {{0, 0}, {0.5, 0.6}, {1, 1}};
  session->setDocument(doc);
  session->recordStep("对比度");

  session->autoAdjust(AutoMode::portrait);
  EXPECT_TRUE(session->autoAdjusting());
  settle();
  EXPECT_FALSE(session->autoAdjusting());
  const auto stats = AutoAdjust::analyzeShown(*session->previewSource(), doc);
  ASSERT_TRUE(stats);
  EXPECT_EQ(session->document().adjustments, AutoAdjust::adjustments(*stats, AutoMode::portrait))
      << "every adjustment is the mode's, the curve included";
  EXPECT_EQ(session->document().adjustments.sharpen, 25);
  EXPECT_EQ(session->document().crop.quarterTurn, 1) << "the framing stays";
  EXPECT_EQ(labels(*session).back(), "自动调整：人像");
  expectToast(*session, "已应用「人像」自动调整", Kind::success);
  ASSERT_TRUE(session->undo());
  EXPECT_EQ(session->document(), doc);

  // A replacement while it measures: the result is dropped.
  session->autoAdjust(AutoMode::vivid);
  session->resetAll();
  settle();
  EXPECT_EQ(session->document(), EditDocument{});
  EXPECT_EQ(labels(*session).back(), "复位全部调整");
  expectToast(*session, EditorSession::kAutoAdjustStale, Kind::warning);
}

TEST_F(EditorSessionAnalysesTest, AutoAdjustOfAPictureWithNothingToMeasureFails) {
  OpenedImage o = opened();
  auto clear = std::make_shared<Image>(48, 32);  // every pixel transparent
  o.loaded.image = clear;
  o.previewSource = clear;
  auto session = openSession(std::move(o));
  session->autoAdjust(AutoMode::balanced);
  settle();
  EXPECT_FALSE(session->autoAdjusting());
  EXPECT_EQ(session->document(), EditDocument{});
  EXPECT_EQ(labels(*session).size(), 1u);
  expectToast(*session, EditorSession::kAutoAdjustFailed, Kind::error);
}

TEST_F(EditorSessionAnalysesTest, DetectedSpotsAreAddedOnceWithFreshIdsAndTheirTexts) {
  auto session = openSession();
  std::vector<RedEyeSpot> pupils = {spot(0.3, 0.4), spot(0.7, 0.4)};
  redEyes = [&](const Image&, const AsyncCancelToken*) { return std::optional(found(pupils)); };

  session->detectRedEyes();
  EXPECT_TRUE(session->detectingRedEyes());
  settle();
  EXPECT_FALSE(session->detectingRedEyes());
  const auto& added = session->document().redEyes;
  ASSERT_EQ(added.size(), 2u);
  EXPECT_EQ(added[1].center, pupils[1].center);
  EXPECT_NE(added[0].id, pupils[0].id) << "fresh ids";
  EXPECT_EQ(labels(*session).back(), "红眼检测（2 处）");
  expectToast(*session, "已修复 2 处红眼", Kind::success);

  session->detectRedEyes();
  settle();
  EXPECT_EQ(session->document().redEyes.size(), 2u);
  EXPECT_EQ(labels(*session).size(), 2u) << "no step";
  expectToast(*session, EditorSession::kNoNewRedEyes, Kind::info);

  // One pupil moved by less than 1.5 radii (a duplicate), one new face.
  pupils = {spot(0.31, 0.4), spot(0.5, 0.8)};
  session->detectRedEyes();
  settle();
  ASSERT_EQ(session->document().redEyes.size(), 3u);
  EXPECT_EQ(session->document().redEyes[2].center, (Point{0.5, 0.8}));
  EXPECT_EQ(labels(*session).back(), "红眼检测（1 处）");

  // A replacement while it looks: nothing is added.
  pupils = {spot(0.1, 0.1)};
  session->detectRedEyes();
  ASSERT_TRUE(session->undo());
  settle();
  EXPECT_EQ(session->document().redEyes.size(), 2u);
  expectToast(*session, EditorSession::kRedEyeStale, Kind::warning);
}

TEST_F(EditorSessionAnalysesTest, NoFaceWarnsAndAFailedDetectionSaysWhy) {
  auto session = openSession();
  RedEyeDetectionOutcome outcome{{}, std::string(RedEyeDetector::kNoFaceText), false};
  redEyes = [&](const Image&, const AsyncCancelToken*) { return std::optional(outcome); };
  session->detectRedEyes();
  settle();
  expectToast(*session, RedEyeDetector::kNoFaceText, Kind::warning);

  outcome = {{}, "检测失败：无法读取人脸模型", true};
  session->detectRedEyes();
  settle();
  expectToast(*session, "检测失败：无法读取人脸模型", Kind::error);
  EXPECT_TRUE(session->document().redEyes.empty());
  EXPECT_EQ(labels(*session).size(), 1u);
}

TEST_F(EditorSessionAnalysesTest, FacesAreSoughtUprightAndSpotsAreStoredInSourceUnits) {
  // A bright marker at a known source pixel; the scripted detector puts a
  // spot on it in the picture it is given.
  OpenedImage o = opened(48, 32);
  auto marked = std::make_shared<Image>(o.loaded.image->clone());
  float* p = marked->at(10, 5);
  p[0] = p[1] = p[2] = 1;
  o.loaded.image = marked;
  o.previewSource = marked;
  auto session = openSession(std::move(o));
  session->rotate90(false);

  int seenWidth = 0;
  redEyes = [&](const Image& image, const AsyncCancelToken*) {
    seenWidth = image.width();
    for (int y = 0; y < image.height(); ++y) {
      for (int x = 0; x < image.width(); ++x) {
        if (image.at(x, y)[1] > 0.99f)
          return std::optional(found({spot((x + 0.5) / image.width(), (y + 0.5) / image.height())}));
      }
    }
    return std::optional(found({}));
  };
  session->detectRedEyes();
  settle();
  EXPECT_EQ(seenWidth, 32) << "turned like the picture shown";
  ASSERT_EQ(session->document().redEyes.size(), 1u);
  const Point c = session->document().redEyes[0].center;
  EXPECT_NEAR(c.x, 10.5 / 48, 1e-9);
  EXPECT_NEAR(c.y, 5.5 / 32, 1e-9);
}

TEST_F(EditorSessionAnalysesTest, ManualModeClicksPlaceAndRemoveSpotsWhereTheyAreShown) {
  auto session = openSession();
  EXPECT_FALSE(session->redEyeClick({0.5, 0.5})) << "not in manual mode";
  session->setRedEyeManualMode(true);
  EXPECT_TRUE(session->redEyeManualMode());
  expectToast(*session, EditorSession::kRedEyeManualModeOn, Kind::info);

  session->rotate90(true);
  session->flip(true);
  const Point at{0.25, 0.6};
  ASSERT_TRUE(session->redEyeClick(shownPoint(*session, at)));
  ASSERT_EQ(session->document().redEyes.size(), 1u);
  const RedEyeSpot placed = session->document().redEyes[0];
  EXPECT_NEAR(placed.center.x, at.x, 1e-9);
  EXPECT_NEAR(placed.center.y, at.y, 1e-9);
  EXPECT_EQ(placed.radius, kManualRadius);
  EXPECT_EQ(labels(*session).back(), "添加红眼点");

  EXPECT_FALSE(session->redEyeClick({1.2, 0.5})) << "off the picture";
  // A click on the spot, a little off its centre, removes it.
  ASSERT_TRUE(session->redEyeClick(shownPoint(*session, {at.x + 0.01, at.y})));
  EXPECT_TRUE(session->document().redEyes.empty());
  EXPECT_EQ(labels(*session).back(), "移除红眼点 1");

  session->setRedEyeManualMode(false);
  EXPECT_FALSE(session->redEyeClick({0.5, 0.5}));
  EXPECT_TRUE(session->document().redEyes.empty());
}

}  // namespace
}  // namespace vg
