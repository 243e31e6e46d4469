#include <gtest/gtest.h>

#include "session_fixture.h"

namespace vg {
namespace {

using test::exposed;

struct AutoMaskSessionTest : test::SessionFixture {
  // An opened image of two colours: `top` above row `split`, `bottom` below
  // it; or, when `leftRight`, `top` left of column `split`.
  OpenedImage twoColours(int w, int h, int split, bool leftRight, std::array<float, 3> top,
                         std::array<float, 3> bottom, std::optional<EditDocument> saved = std::nullopt) {
    auto image = std::make_shared<Image>(w, h);
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const auto& c = ((leftRight ? x : y) < split) ? top : bottom;
        float* p = image->at(x, y);
        for (int i = 0; i < 3; ++i) p[i] = c[std::size_t(i)];
        p[3] = 1;
      }
    OpenedImage o = opened(w, h, std::move(saved));
    o.loaded.image = image;
    o.previewSource = image;
    return o;
  }

  static const BitmapMaskData& bitmapOf(const MaskLayer& layer) { return std::get<BitmapMaskData>(layer.kind); }
};

constexpr std::array<float, 3> kBlue{0.3f, 0.5f, 0.9f}, kDark{0.02f, 0.03f, 0.01f}, kRed{0.8f, 0.05f, 0.05f};

TEST_F(AutoMaskSessionTest, ASkyArrivesAsTheSelectedLayerOfItsKindWithItsStep) {
  auto session = openSession(twoColours(48, 32, 12, false, kBlue, kDark));
  session->generateAutoMask(AutoMaskSource::sky);
  session->generateAutoMask(AutoMaskSource::sky);  // the second run replaces the first
  EXPECT_TRUE(session->generatingAutoMask());
  EXPECT_TRUE(session->document().masks.empty()) << "nothing before the background has run";
  settle();

  EXPECT_FALSE(session->generatingAutoMask());
  ASSERT_EQ(session->document().masks.size(), 1u);
  const MaskLayer& layer = session->document().masks[0];
  EXPECT_EQ(layer.name, "天空蒙版");
  EXPECT_EQ(session->selectedMaskID(), layer.id);
  EXPECT_EQ(labels(*session).back(), "新建天空蒙版");
  const MaskRaster raster = decompressMaskRaster(bitmapOf(layer));
  EXPECT_EQ(bitmapOf(layer).source, AutoMaskSource::sky);
  ASSERT_EQ(raster.width, 48);
  ASSERT_EQ(raster.height, 32);
  EXPECT_GT(raster.at(24, 2), 200);
  EXPECT_EQ(raster.at(24, 30), 0);
}

TEST_F(AutoMaskSessionTest, AResultForAReplacedDocumentOrAClosedSessionIsDropped) {
  auto session = openSession(twoColours(48, 32, 12, false, kBlue, kDark));
  session->setDocument(exposed(0.3));
  session->recordStep("曝光");
  session->generateAutoMask(AutoMaskSource::sky);
  ASSERT_TRUE(session->undo());
  settle();
  EXPECT_TRUE(session->document().masks.empty());
  EXPECT_FALSE(session->generatingAutoMask());
  ASSERT_TRUE(session->toast());
  EXPECT_EQ(session->toast()->text, "编辑已变化，天空蒙版已丢弃");
  EXPECT_EQ(session->toast()->kind, ToastMessage::Kind::warning);
  EXPECT_TRUE(session->canRedo()) << "the history was not touched";

  // A closed session drops its late result and starts nothing more.
  session->generateAutoMask(AutoMaskSource::sky);
  EXPECT_TRUE(session->close());
  EXPECT_FALSE(session->generatingAutoMask());
  settle();
  EXPECT_TRUE(session->document().masks.empty());
  session->setMagicWand(true, 20, 2);
  EXPECT_FALSE(session->magicWandClick({0.5, 0.5}));
}

TEST_F(AutoMaskSessionTest, TheWandClickIsMappedThroughTheFlipToTheSourcePixel) {
  // Red on the left of the source, blue on the right; shown mirrored, so the
  // left of the picture on screen is the blue half.
  EditDocument flipped;
  flipped.crop.flipHorizontal = true;
  auto session = openSession(twoColours(40, 20, 20, true, kRed, kBlue, flipped));
  session->setMagicWand(true, 10, 0);
  EXPECT_FALSE(session->magicWandClick({1.5, 0.5}));
  EXPECT_FALSE(session->generatingAutoMask()) << "a click off the picture starts nothing";
  ASSERT_TRUE(session->magicWandClick({0.25, 0.5}));
  EXPECT_FALSE(session->magicWandActive()) << "one click per arming";
  EXPECT_EQ(session->magicWandTolerance(), 10);
  settle();

  ASSERT_EQ(session->document().masks.size(), 1u);
  const MaskLayer& layer = session->document().masks[0];
  EXPECT_EQ(layer.name, "魔棒选区");
  EXPECT_EQ(labels(*session).back(), "新建魔棒选区");
  ASSERT_TRUE(session->toast());
  EXPECT_EQ(session->toast()->text, "已生成魔棒选区");
  const MaskRaster raster = decompressMaskRaster(bitmapOf(layer));
  for (int y : {0, 10, 19}) {
    EXPECT_EQ(raster.at(5, y), 0) << "the red half, row " << y;
    EXPECT_EQ(raster.at(35, y), 255) << "the blue half, row " << y;
  }

  // The wand's settings are kept in range whatever the caller passes.
  session->setMagicWand(true, 250, -3);
  EXPECT_EQ(session->magicWandTolerance(), 100);
  EXPECT_EQ(session->magicWandFeather(), 0);
}

TEST_F(AutoMaskSessionTest, AnUnusableModelFailsWithTheKindsTextAndChangesNothing) {
  SessionServices s = services();
  s.subjectSegmenter = std::make_shared<SubjectSegmenter>(dir / "missing.onnx");
  auto session = std::make_unique<EditorSession>(s, twoColours(48, 32, 12, false, kBlue, kDark));
  const auto before = labels(*session);
  for (auto [kind, text] : {std::pair{AutoMaskSource::subject, "主体分割失败"},
                            std::pair{AutoMaskSource::background, "背景分割失败"}}) {
    session->generateAutoMask(kind);
    settle();
    ASSERT_TRUE(session->toast());
    EXPECT_EQ(session->toast()->text, text);
    EXPECT_EQ(session->toast()->kind, ToastMessage::Kind::error);
    session->dismissToast();
  }
  EXPECT_TRUE(session->document().masks.empty());
  EXPECT_EQ(labels(*session), before);
  EXPECT_FALSE(session->generatingAutoMask());
}

}  // namespace
}  // namespace vg
