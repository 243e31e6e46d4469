// Sampling, the crop session, automatic straightening, export and filter
// thumbnails through the session.
#include <gtest/gtest.h>

#include <cmath>

#include "render/srgb.h"
#include "session_fixture.h"
#include "store/filter_preset.h"

namespace vg {
namespace {

using namespace std::chrono_literals;
using Outcome = EditorSession::SampleOutcome;

// Left half neutral grey, right half bluish, a black block bottom right.
std::shared_ptr<const Image> patches() {
  auto image = std::make_shared<Image>(48, 32);
  for (int y = 0; y < 32; ++y)
    for (int x = 0; x < 48; ++x) {
      float* p = image->at(x, y);
      const bool black = x >= 40 && y >= 24;
      const float r = black ? 0 : x < 24 ? 0.4f : 0.25f, b = black ? 0 : x < 24 ? 0.4f : 0.5f;
      p[0] = r;
      p[1] = r;
      p[2] = b;
      p[3] = 1;
    }
  return image;
}

struct SessionToolsTest : test::SessionFixture {
  std::unique_ptr<EditorSession> openPatches() {
    OpenedImage o = opened();
    o.loaded.image = o.previewSource = patches();
    return openSession(std::move(o));
  }
};

TEST(SamplingTest, WhiteBalanceFollowsTheSampledRatios) {
  EXPECT_EQ(whiteBalanceFromLinear(0.4, 0.4, 0.4), (WhiteBalanceValues{0, 0}));
  EXPECT_DOUBLE_EQ(whiteBalanceFromLinear(0.5, 0.5, 1.0).temperature, 50);
  EXPECT_NEAR(whiteBalanceFromLinear(0.5, 0.5, 1.0).tint, 100.0 / 3, 1e-12);
  EXPECT_LT(whiteBalanceFromLinear(0.3, 0.6, 0.3).tint, 0) << "greenish";
  EXPECT_EQ(whiteBalanceFromLinear(1, 0, 0).temperature, -100) << "clamped";
  EXPECT_NEAR(linearFromSRGB(0.5), 0.214041, 1e-6);
}

TEST_F(SessionToolsTest, AWhiteBalanceClickNeutralisesAndRefusedClicksChangeNothing) {
  auto session = openPatches();
  session->armSampling({SamplingMode::Kind::whiteBalance, std::nullopt});
  EXPECT_EQ(samplingPrompt(*session->samplingMode()), "点击画面中的中性灰或白色区域（Esc 取消）");

  EXPECT_EQ(session->sampleAt({1.2, 0.5}), Outcome::transparent);
  EXPECT_EQ(session->toast()->text, "无法采样：请点击画面内非透明的有效像素（Esc 取消）");
  EXPECT_EQ(session->toast()->kind, ToastMessage::Kind::warning);
  EXPECT_EQ(session->sampleAt({0.95, 0.95}), Outcome::badlyExposed);
  EXPECT_EQ(session->toast()->text, "无法采样：请点击画面内曝光正常的有效像素（Esc 取消）");
  EXPECT_EQ(session->document(), EditDocument{});
  EXPECT_TRUE(session->samplingMode()) << "still armed after a refused click";

  EXPECT_EQ(session->sampleAt({0.7, 0.3}), Outcome::applied);
  EXPECT_NEAR(session->document().adjustments.temperature, 50, 1e-4);
  EXPECT_NEAR(session->document().adjustments.tint, 100.0 / 3, 1e-4);
  EXPECT_EQ(session->history().entries().back().label, "白平衡取样");
  EXPECT_FALSE(session->samplingMode());

  session->armSampling({SamplingMode::Kind::whiteBalance, std::nullopt});
  EXPECT_EQ(session->sampleAt({0.2, 0.5}), Outcome::applied);
  EXPECT_EQ(session->document().adjustments.temperature, 0);
  EXPECT_EQ(session->document().adjustments.tint, 0);

  session->armSampling({SamplingMode::Kind::newColorRange, std::nullopt});
  EXPECT_TRUE(session->handleEscape());
  EXPECT_FALSE(session->samplingMode());
}

TEST_F(SessionToolsTest, AColourSampleMakesAColourRangeMaskOfTheClickedColour) {
  auto session = openPatches();
  session->armSampling({SamplingMode::Kind::newColorRange, std::nullopt});
  EXPECT_EQ(samplingPrompt(*session->samplingMode()), "点击要选择的颜色（Esc 取消）");
  ASSERT_EQ(session->sampleAt({0.7, 0.3}), Outcome::applied);
  ASSERT_EQ(session->document().masks.size(), 1u);
  const MaskLayer mask = session->document().masks[0];
  EXPECT_EQ(mask.name, "颜色范围蒙版");
  EXPECT_EQ(session->selectedMaskID(), mask.id);
  const auto colour = std::get<ColorRangeGeometry>(mask.kind);
  EXPECT_NEAR(colour.red, srgb::encode(0.25f), 1e-5);
  EXPECT_NEAR(colour.blue, srgb::encode(0.5f), 1e-5);
  EXPECT_EQ(session->history().entries().back().label, "颜色范围取样");

  // Resampling the mask reads the picture as the masks see it: after the
  // global exposure.
  EditDocument doc = session->document();
  doc.adjustments.exposure = 1;
  session->setDocument(doc);
  session->armSampling({SamplingMode::Kind::colorRange, mask.id});
  ASSERT_EQ(session->sampleAt({0.2, 0.5}), Outcome::applied);
  EXPECT_NEAR(std::get<ColorRangeGeometry>(session->document().masks[0].kind).green, srgb::encode(0.8f), 1e-4);
}

TEST_F(SessionToolsTest, EscapeRestoresTheCropTheToolOpenedWith) {
  auto session = openSession();
  session->setActiveTool(EditorTool::mask);
  EditDocument doc = session->document();
  doc.crop.rect = NormalizedRect{0.25, 0.25, 0.5, 0.5};
  session->setDocument(doc);
  session->recordStep("裁剪");
  const CropSettings opening = session->document().crop;

  session->setActiveTool(EditorTool::crop);
  ASSERT_TRUE(session->cropSession());
  EXPECT_EQ(session->cropSession()->returnTool, EditorTool::mask);
  session->rotate90(true);
  session->flip(false);
  EditDocument dragged = session->document();  // a drag not yet recorded
  dragged.crop.rect->x = 0.1;
  session->setDocument(dragged);

  EXPECT_TRUE(session->handleEscape());
  EXPECT_EQ(session->document().crop, opening);
  EXPECT_EQ(session->activeTool(), EditorTool::mask);
  EXPECT_FALSE(session->cropSession());
  EXPECT_TRUE(session->canRedo()) << "the crop session's steps stay reachable";
  EXPECT_EQ(session->history().entries().back().label, "垂直翻转");

  // Leaving the tool otherwise keeps the crop.
  session->setActiveTool(EditorTool::crop);
  session->rotate90(false);
  session->setActiveTool(EditorTool::adjust);
  EXPECT_EQ(session->document().crop.quarterTurn, 3);
  EXPECT_FALSE(session->handleEscape());
}

TEST_F(SessionToolsTest, AutomaticStraighteningAppliesAPlausibleAngleOnly) {
  auto session = openSession();
  std::optional<double> found = 46;
  CropSettings seen;
  detector = [&](const Image& preview, const CropSettings& crop, const AsyncCancelToken*) {
    EXPECT_EQ(preview.width(), 48);
    seen = crop;
    return found;
  };
  session->rotate90(true);
  session->autoStraighten();
  EXPECT_TRUE(session->detectingHorizon());
  settle();
  EXPECT_FALSE(session->detectingHorizon());
  EXPECT_EQ(seen.quarterTurn, 1);
  EXPECT_EQ(session->toast()->text, "未检测到可用的地平线");
  EXPECT_EQ(session->document().crop.angle, 0);

  found = -8.5;
  session->autoStraighten();
  settle();
  EXPECT_EQ(session->document().crop.angle, -8.5);
  EXPECT_EQ(session->history().entries().back().label, "自动拉直");

  found = 3;
  session->autoStraighten();
  session->undo();  // while it detects
  settle();
  EXPECT_EQ(session->toast()->text, "编辑已变化，自动拉直结果已丢弃");
  EXPECT_EQ(session->document().crop.angle, 0);
}

TEST_F(SessionToolsTest, OneExportAtATimeAndItWaitsForTheFullSource) {
  // Opened from a reduced decode: the full source is still on its way.
  std::filesystem::copy_file(test::dataPath("jpeg/test-issue-6.jpg"), image);
  OpenedImage o;
  o.loaded = ImageLoader::loadPreview(image, 64);
  o.previewSource = std::move(o.loaded.image);
  auto session = openSession(std::move(o));
  EXPECT_TRUE(session->isBusy(EditorSession::BusyFlag::loading));
  EXPECT_FALSE(session->source());
  session->setDocument(test::exposed(0.5));

  std::optional<EditorSession::ExportOutcome> outcome;
  ASSERT_TRUE(session->startExport(dir / "out.jpg", ImageExporter::Options{},
                                   [&](const EditorSession::ExportOutcome& o) { outcome = o; }));
  EXPECT_TRUE(session->exporting());
  EXPECT_EQ(session->exportPhase(), "正在载入原图…");
  EXPECT_FALSE(session->startExport(dir / "other.jpg", ImageExporter::Options{}));
  EXPECT_EQ(session->toast()->text, "已有导出正在进行中");

  background.runReady();  // the full decode
  main.runReady();
  ASSERT_TRUE(session->source());
  EXPECT_EQ(session->source()->width(), 200);
  EXPECT_EQ(session->exportPhase(), "正在导出全分辨率图像…");
  settle();
  ASSERT_TRUE(outcome);
  EXPECT_TRUE(outcome->written);
  EXPECT_FALSE(session->exporting());
  EXPECT_TRUE(session->exportPhase().empty());
  EXPECT_EQ(session->toast()->text, "已导出：out.jpg");
  EXPECT_EQ(ImageLoader::load(dir / "out.jpg").pixelSize, (ImageLoader::PixelSize{200, 133}));
  EXPECT_FALSE(std::filesystem::exists(dir / "other.jpg"));

  EXPECT_FALSE(session->startExport(image, ImageExporter::Options{}));
  EXPECT_EQ(session->toast()->text, "导出失败：为保留原图，请选择其他文件名或导出位置");
}

TEST_F(SessionToolsTest, FilterThumbnailsAreMadeOncePerDocumentAndPresetList) {
  auto session = openSession(opened(480, 320));
  const std::vector<FilterPreset> presets(builtInPresets().begin(), builtInPresets().begin() + 2);
  session->requestFilterThumbnails(presets);
  settle();
  ASSERT_EQ(session->filterThumbnails().size(), 2u);
  const auto& thumb = session->filterThumbnails().at(presets[0].id);
  EXPECT_EQ(std::max(thumb->width(), thumb->height()), 192);
  const uint64_t generation = session->thumbnailGeneration();
  EXPECT_FALSE(session->thumbnailFingerprint().empty());
  const std::string fingerprint = session->thumbnailFingerprint();

  session->requestFilterThumbnails(presets);
  EXPECT_EQ(background.pendingCount(), 0u) << "nothing changed: nothing is rendered again";
  session->setDocument(test::exposed(1));
  settle();
  session->requestFilterThumbnails(presets);
  session->requestFilterThumbnails({presets[1]});  // supersedes the request before it
  settle();
  EXPECT_EQ(session->thumbnailGeneration(), generation + 2);
  EXPECT_EQ(session->filterThumbnails().size(), 1u);
  EXPECT_EQ(session->thumbnailFingerprint(), fingerprint);
}

TEST_F(SessionToolsTest, RawSettingsRedevelopInTheBackgroundAndOnlyTheNewestIsKept) {
  const auto raw = dir / "camera.kdc";
  std::filesystem::copy_file(test::dataPath("raw/kodak-dc120-compressed-good-P003913.kdc"), raw);
  std::unique_ptr<EditorSession> session;
  EditorSession::open(raw, services(), [&](std::unique_ptr<EditorSession> s, std::optional<std::string> error) {
    ASSERT_FALSE(error) << *error;
    session = std::move(s);
  });
  settle();
  ASSERT_TRUE(session);
  ASSERT_TRUE(session->isRAW());
  ASSERT_TRUE(session->source());
  const auto firstSource = session->source();
  const uint64_t generation = session->rawDecodeGeneration();

  EditDocument doc = session->document();
  doc.raw.exposure = 1;
  session->setDocument(doc);
  EXPECT_TRUE(session->rawDecoding());
  doc.raw.exposure = 1.5;  // before the first development is back
  session->setDocument(doc);
  ASSERT_TRUE(session->startExport(dir / "out.jpg", ImageExporter::Options{}));
  EXPECT_EQ(session->exportPhase(), "等待 RAW 显影…");
  settle();
  EXPECT_FALSE(session->rawDecoding());
  EXPECT_EQ(session->rawDecodeGeneration(), generation + 2);
  EXPECT_NE(session->source(), firstSource);
  EXPECT_FALSE(session->exporting());
  EXPECT_TRUE(std::filesystem::exists(dir / "out.jpg"));
  // The source now is the development with the newest settings: brighter.
  const auto meanGreen = [](const Image& image) {
    double sum = 0;
    for (int y = 0; y < image.height(); ++y)
      for (int x = 0; x < image.width(); ++x) sum += image.at(image.bounds().x + x, image.bounds().y + y)[1];
    return sum / (double(image.width()) * image.height());
  };
  EXPECT_GT(meanGreen(*session->source()), meanGreen(*firstSource) * 1.15);

  std::filesystem::remove(raw);
  doc.raw.shadowBoost = 30;
  session->setDocument(doc);
  settle();
  ASSERT_TRUE(session->toast());
  EXPECT_EQ(session->toast()->text.rfind("RAW 显影失败：", 0), 0u) << session->toast()->text;
  EXPECT_EQ(session->toast()->kind, ToastMessage::Kind::error);
  EXPECT_EQ(session->document(), doc) << "the recipe keeps what the user set";
}

}  // namespace
}  // namespace vg
