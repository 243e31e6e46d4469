// The session's commit path, history and discrete edits on fake time.
#include <gtest/gtest.h>

#include "session_fixture.h"

namespace vg {
namespace {

using namespace std::chrono_literals;
using test::exposed;
using Change = EditorSession::Change;

using EditorSessionTest = test::SessionFixture;

TEST_F(EditorSessionTest, ASavedRecipeIsRestoredAsOneStepThatUndoLeaves) {
  auto session = openSession(opened(48, 32, exposed(1.5)));
  EXPECT_TRUE(session->didFinishInit());
  EXPECT_EQ(session->document(), exposed(1.5));
  EXPECT_EQ(labels(*session), (std::vector<std::string>{"打开图片", "恢复上次编辑"}));
  EXPECT_EQ(session->documentReplacementCount(), 1);
  wait(1s);
  EXPECT_FALSE(onDisk()) << "opening alone writes nothing";

  ASSERT_TRUE(session->undo());
  EXPECT_EQ(session->document(), EditDocument{});
  EXPECT_EQ(session->documentReplacementCount(), 2);
  EXPECT_FALSE(session->undo());
  EXPECT_EQ(session->documentReplacementCount(), 2) << "nothing was replaced";
  ASSERT_TRUE(session->redo());
  EXPECT_EQ(session->document(), exposed(1.5));
  EXPECT_EQ(session->documentReplacementCount(), 3);
  wait(1s);
  EXPECT_EQ(onDisk(), exposed(1.5));
}

TEST_F(EditorSessionTest, AnEqualDocumentDoesNothingAndADragIsOneWriteAndOneStep) {
  auto session = openSession();
  settle();
  changes.clear();
  session->setDocument(session->document());
  session->recordStep("曝光");
  wait(1s);
  EXPECT_TRUE(changes.empty());
  EXPECT_EQ(session->history().entries().size(), 1u);
  EXPECT_FALSE(onDisk());

  for (int k = 1; k <= 10; ++k) session->setDocument(exposed(0.1 * k));
  session->recordStep("曝光");
  EXPECT_EQ(labels(*session), (std::vector<std::string>{"打开图片", "曝光"}));
  wait(599ms);
  EXPECT_FALSE(onDisk());
  wait(1ms);
  EXPECT_EQ(onDisk(), exposed(0.1 * 10));
  EXPECT_EQ(session->documentReplacementCount(), 0) << "commits are not replacements";
}

TEST_F(EditorSessionTest, JumpsResetAndPasteReplaceTheDocumentAsSteps) {
  auto session = openSession();
  for (double ev : {0.5, 1.0, 1.5}) {
    session->setDocument(exposed(ev));
    session->recordStep("曝光");
  }
  const Uuid second = session->history().entries()[2].id;
  ASSERT_TRUE(session->jumpToHistoryEntry(second));
  EXPECT_EQ(session->document(), exposed(1.0));
  EXPECT_TRUE(session->canRedo());
  EXPECT_FALSE(session->jumpToHistoryEntry(Uuid::random()));

  session->resetAll();
  EXPECT_EQ(session->document(), EditDocument{});
  EXPECT_EQ(labels(*session), (std::vector<std::string>{"打开图片", "曝光", "曝光", "复位全部调整"}));
  session->undo();
  EXPECT_EQ(session->document(), exposed(1.0));

  GlobalAdjustments pasted;
  pasted.contrast = 30;
  const int64_t before = session->documentReplacementCount();
  session->pasteAdjustments(pasted);
  EXPECT_EQ(session->document().adjustments, pasted);
  EXPECT_EQ(session->documentReplacementCount(), before + 1);
  EXPECT_EQ(session->history().entries().back().label, "粘贴调整参数");
  ASSERT_TRUE(session->toast());
  EXPECT_EQ(session->toast()->text, "已粘贴调整参数");
  EXPECT_EQ(session->toast()->kind, ToastMessage::Kind::success);
}

TEST_F(EditorSessionTest, MasksAreMadeSelectedAndTheirAdjustmentsPasteIntoTheSelection) {
  auto session = openSession();
  EXPECT_FALSE(session->pasteMaskAdjustments(GlobalAdjustments{}));
  EXPECT_EQ(session->toast()->kind, ToastMessage::Kind::warning);

  const auto radial = session->addMask(MaskKindCase::radial);
  const auto linear = session->addMask(MaskKindCase::linear);
  const auto brush = session->addMask(MaskKindCase::brush);
  const auto luminosity = session->addMask(MaskKindCase::luminosity);
  EXPECT_FALSE(session->addMask(MaskKindCase::bitmap));
  ASSERT_TRUE(radial && linear && brush && luminosity);
  EXPECT_EQ(session->selectedMaskID(), luminosity);
  EXPECT_EQ(labels(*session), (std::vector<std::string>{"打开图片", "新建径向蒙版", "新建渐变蒙版", "新建画笔蒙版",
                                                        "新建亮度蒙版"}));
  EXPECT_EQ(session->document().masks[0].name, "径向蒙版");

  EditDocument doc = session->document();
  doc.masks[0].adjustments.exposure = 0.7;
  session->setDocument(doc);
  ASSERT_TRUE(session->copyMaskAdjustments(*radial));
  EXPECT_EQ(session->toast()->text, "已复制「径向蒙版」的局部调整参数");
  session->selectMask(linear);
  ASSERT_TRUE(session->pasteMaskAdjustments());
  const MaskLayer& target = session->document().masks[1];
  EXPECT_EQ(target.adjustments.exposure, 0.7);
  EXPECT_TRUE(std::holds_alternative<LinearMaskGeometry>(target.kind)) << "the geometry stays";
  EXPECT_EQ(session->toast()->text, "已粘贴到「渐变蒙版」");
  EXPECT_EQ(session->history().entries().back().label, "粘贴蒙版参数");

  ASSERT_TRUE(session->addSubtractShape(RadialMaskGeometry{}));
  ASSERT_TRUE(session->addSubtractShape(LinearMaskGeometry{}));
  const Uuid firstShape = session->document().masks[1].subtractIDs[0];
  ASSERT_TRUE(session->removeSubtractShape(firstShape));
  EXPECT_TRUE(std::holds_alternative<LinearMaskGeometry>(session->document().masks[1].subtracts.at(0)));
  ASSERT_TRUE(session->clearSubtractShapes());
  EXPECT_TRUE(session->document().masks[1].subtracts.empty());
  const auto& entries = session->history().entries();
  EXPECT_EQ(entries[entries.size() - 4].label, "添加减去形状");
  EXPECT_EQ(entries[entries.size() - 2].label, "移除减去形状");
  EXPECT_EQ(entries.back().label, "清除减去区域");

  ASSERT_TRUE(session->removeMask(*linear));
  EXPECT_FALSE(session->selectedMaskID());
}

TEST_F(EditorSessionTest, HealStrokesAndRedEyeSpotsAreSteps) {
  auto session = openSession();
  HealStroke stroke;
  stroke.points = {{0.4, 0.4}, {0.5, 0.5}};
  stroke.size = 0.05;
  session->addHealStroke(stroke);
  EXPECT_TRUE(session->healing()) << "the render with the new stroke is outstanding";
  settle();
  EXPECT_FALSE(session->healing());
  const Uuid a = session->addRedEyeSpot({0.2, 0.3}, 0.02);
  const Uuid b = session->addRedEyeSpot({0.6, 0.3}, 0.02);
  ASSERT_TRUE(session->removeRedEyeSpot(b));
  EXPECT_EQ(session->history().entries().back().label, "移除红眼点 2");
  ASSERT_TRUE(session->removeRedEyeSpot(a));
  EXPECT_EQ(session->history().entries().back().label, "移除红眼点 1");
  ASSERT_TRUE(session->removeHealStroke(0));
  EXPECT_FALSE(session->removeHealStroke(0));
  EXPECT_EQ(labels(*session), (std::vector<std::string>{"打开图片", "修复笔触", "添加红眼点", "添加红眼点",
                                                        "移除红眼点 2", "移除红眼点 1", "移除修复笔触"}));
}

TEST_F(EditorSessionTest, ClosingFlushesCancelsAndIgnoresLaterEdits) {
  auto session = openSession();
  detector = [](const Image&, const CropSettings&, const AsyncCancelToken*) { return std::optional<double>(3); };
  session->setDocument(exposed(0.3));
  session->autoStraighten();
  session->requestFilterThumbnails({builtInPresets().front()});
  EXPECT_TRUE(session->detectingHorizon());
  EXPECT_TRUE(session->close());
  EXPECT_FALSE(session->detectingHorizon());
  EXPECT_EQ(onDisk(), exposed(0.3)) << "flushed at once, without waiting for the quiet period";
  changes.clear();
  settle();
  EXPECT_EQ(session->document().crop.angle, 0) << "the late detection was dropped";
  EXPECT_TRUE(session->filterThumbnails().empty());
  EXPECT_TRUE(changes.empty()) << "no render, thumbnail or result reaches a closed session";
  session->setDocument(exposed(2));
  EXPECT_EQ(session->document(), exposed(0.3));
  wait(1s);
  EXPECT_EQ(onDisk(), exposed(0.3));
}

}  // namespace
}  // namespace vg
