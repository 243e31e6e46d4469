// One whole editing session on a real photograph: thirty edits of every
// kind, undo and redo, close, reopen — the sidecar and the history checked
// after every step.
#include <gtest/gtest.h>

#include "session_fixture.h"
#include "store/filter_preset.h"

namespace vg {
namespace {

using namespace std::chrono_literals;

struct ScriptedSessionTest : test::SessionFixture {
  void SetUp() override { std::filesystem::copy_file(test::dataPath("jpeg/test-issue-6.jpg"), image); }

  std::unique_ptr<EditorSession> openFile() {
    std::unique_ptr<EditorSession> session;
    EditorSession::open(image, services(), [&](std::unique_ptr<EditorSession> s, std::optional<std::string> error) {
      EXPECT_FALSE(error) << *error;
      session = std::move(s);
    });
    settle();
    return session;
  }

  // After the quiet period the sidecar holds the document (or, for one that
  // changes nothing, may be absent).
  void expectStored(const EditorSession& s) {
    wait(700ms);
    const auto stored = onDisk();
    if (isNoEdit(s.document())) {
      EXPECT_TRUE(!stored || *stored == s.document());
    } else {
      EXPECT_EQ(stored, s.document());
    }
    const auto& entries = s.history().entries();
    EXPECT_EQ(entries[size_t(s.history().currentIndex())].document, s.document());
  }
};

void slider(EditorSession& s, const char* label, double GlobalAdjustments::*field, double value) {
  EditDocument doc = s.document();
  for (int k = 1; k <= 3; ++k) {  // a drag: several commits, one step
    doc.adjustments.*field = value * k / 3;
    s.setDocument(doc);
  }
  s.recordStep(label);
}

TEST_F(ScriptedSessionTest, ThirtyEditsUndoRedoCloseAndReopen) {
  auto session = openFile();
  ASSERT_TRUE(session);
  EXPECT_EQ(session->fileFormat(), "JPEG");
  EXPECT_EQ(session->source()->width(), 200) << "the full decode followed the reduced one";

  HealStroke stroke;
  stroke.points = {{0.3, 0.3}, {0.35, 0.32}};
  stroke.size = 0.04;
  const FilterPreset& preset = builtInPresets().front();
  const std::vector<std::pair<std::string, std::function<void(EditorSession&)>>> edits = {
      {"曝光", [](EditorSession& s) { slider(s, "曝光", &GlobalAdjustments::exposure, 0.6); }},
      {"对比度", [](EditorSession& s) { slider(s, "对比度", &GlobalAdjustments::contrast, 20); }},
      {"高光", [](EditorSession& s) { slider(s, "高光", &GlobalAdjustments::highlights, -30); }},
      {"阴影", [](EditorSession& s) { slider(s, "阴影", &GlobalAdjustments::shadows, 25); }},
      {"白色", [](EditorSession& s) { slider(s, "白色", &GlobalAdjustments::whites, 10); }},
      {"黑色", [](EditorSession& s) { slider(s, "黑色", &GlobalAdjustments::blacks, -10); }},
      {"色温", [](EditorSession& s) { slider(s, "色温", &GlobalAdjustments::temperature, 15); }},
      {"色调", [](EditorSession& s) { slider(s, "色调", &GlobalAdjustments::tint, -5); }},
      {"饱和度", [](EditorSession& s) { slider(s, "饱和度", &GlobalAdjustments::saturation, 12); }},
      {"自然饱和度", [](EditorSession& s) { slider(s, "自然饱和度", &GlobalAdjustments::vibrance, 18); }},
      {"清晰度", [](EditorSession& s) { slider(s, "清晰度", &GlobalAdjustments::clarity, 30); }},
      {"去朦胧", [](EditorSession& s) { slider(s, "去朦胧", &GlobalAdjustments::dehaze, 10); }},
      {"暗角", [](EditorSession& s) { slider(s, "暗角", &GlobalAdjustments::vignetteAmount, -20); }},
      {"新建径向蒙版", [](EditorSession& s) { s.addMask(MaskKindCase::radial); }},
      {"曝光", [](EditorSession& s) {
         EditDocument doc = s.document();
         doc.masks.back().adjustments.exposure = 0.8;
         s.setDocument(doc);
         s.recordStep("曝光");
       }},
      {"添加减去形状", [](EditorSession& s) { s.addSubtractShape(LinearMaskGeometry{}); }},
      {"新建渐变蒙版", [](EditorSession& s) { s.addMask(MaskKindCase::linear); }},
      {"新建画笔蒙版", [](EditorSession& s) { s.addMask(MaskKindCase::brush); }},
      {"删除蒙版", [](EditorSession& s) { s.removeMask(*s.selectedMaskID()); }},
      {"新建亮度蒙版", [](EditorSession& s) { s.addMask(MaskKindCase::luminosity); }},
      {"顺时针旋转 90°", [](EditorSession& s) { s.rotate90(true); }},
      {"水平翻转", [](EditorSession& s) { s.flip(true); }},
      {"逆时针旋转 90°", [](EditorSession& s) { s.rotate90(false); }},
      {"拉直", [](EditorSession& s) {
         s.setStraightenAngle(4);
         s.recordStep("拉直");
       }},
      {"修复笔触", [stroke](EditorSession& s) { s.addHealStroke(stroke); }},
      {"添加红眼点", [](EditorSession& s) { s.addRedEyeSpot({0.5, 0.4}, 0.02); }},
      {"应用滤镜「" + preset.name + "」", [&preset](EditorSession& s) { s.applyFilterPreset(preset, 60); }},
      {"粘贴调整参数", [](EditorSession& s) {
         GlobalAdjustments a = s.document().adjustments;
         a.grainAmount = 20;
         s.pasteAdjustments(a);
       }},
      {"移除修复笔触", [](EditorSession& s) { s.removeHealStroke(0); }},
      {"复位全部调整", [](EditorSession& s) { s.resetAll(); }},
  };
  ASSERT_EQ(edits.size(), 30u);
  std::vector<EditDocument> documents{session->document()};
  for (const auto& [label, edit] : edits) {
    SCOPED_TRACE(label);
    const size_t before = session->history().entries().size();
    edit(*session);
    ASSERT_EQ(session->history().entries().size(), before + 1);
    EXPECT_EQ(session->history().entries().back().label, label);
    documents.push_back(session->document());
    expectStored(*session);
  }
  EXPECT_EQ(session->document(), EditDocument{});

  for (int k = 1; k <= 5; ++k) {
    ASSERT_TRUE(session->undo());
    EXPECT_EQ(session->document(), documents[documents.size() - 1 - size_t(k)]);
    expectStored(*session);
  }
  for (int k = 1; k <= 2; ++k) {
    ASSERT_TRUE(session->redo());
    expectStored(*session);
  }
  const EditDocument last = session->document();
  EXPECT_EQ(last, documents[documents.size() - 4]);
  EXPECT_TRUE(session->close());
  session.reset();
  settle();

  auto reopened = openFile();
  ASSERT_TRUE(reopened);
  EXPECT_EQ(reopened->document(), last);
  EXPECT_EQ(labels(*reopened), (std::vector<std::string>{"打开图片", "恢复上次编辑"}));
  ASSERT_TRUE(reopened->undo());
  EXPECT_EQ(reopened->document(), EditDocument{});
}

}  // namespace
}  // namespace vg
