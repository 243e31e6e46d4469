// The window's input paths on real sessions: canvas clicks land on the right
// pixel, keys reach the tools, the curves editor edits the document, the
// confirmation of "复位全部调整…", refused exports and toast actions.
#include <gtest/gtest.h>

#include <QAbstractSpinBox>
#include <QAction>
#include <QComboBox>
#include <QApplication>
#include <QMenu>
#include <QMessageBox>
#include <QPushButton>
#include <QTest>
#include <QTimer>
#include <QToolButton>

#include "app/application.h"
#include "app/canvas/canvas_view.h"
#include "app/canvas/toast_view.h"
#include "app/editor_window.h"
#include "app/export_sheet.h"
#include "app/inspector/adjust_panel.h"
#include "app/inspector/crop_panel.h"
#include "app/inspector/mask_panel.h"
#include "app/inspector/curves_editor.h"
#include "app/inspector/slider_row.h"
#include "app_test_support.h"
#include "store/edit_store.h"
#include "support/test_support.h"

namespace vg::app {
namespace {

namespace fs = std::filesystem;
using test::waitUntil;

struct WindowInteractionTest : test::AppFixture {
  // A 300 x 200 PNG: the left half bluish, the right half reddish.
  fs::path twoTones() {
    QImage image(300, 200, QImage::Format_RGB32);
    for (int y = 0; y < 200; ++y)
      for (int x = 0; x < 300; ++x) image.setPixel(x, y, x < 150 ? qRgb(100, 120, 200) : qRgb(200, 120, 100));
    const fs::path file = dir / "tones.png";
    image.save(QString::fromStdString(file.string()));
    return file;
  }

  // The widget point over the picture's point (fx, fy), fractions of its size.
  static QPoint onPicture(CanvasView* canvas, double fx, double fy) {
    const ViewRect r = canvas->viewport().imageRectInView();
    const double dpr = canvas->devicePixelRatioF();
    return QPoint(int((r.x + r.width * fx) / dpr), int((r.y + r.height * fy) / dpr));
  }
};

TEST_F(WindowInteractionTest, WhiteBalanceClicksSampleThePixelUnderThePointer) {
  EditorWindow* w = open(twoTones(), 1000, 700);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  // The bluish half warms the picture, the reddish half cools it.
  w->adjustPanel()->whiteBalancePicker()->click();
  QTest::mouseClick(w->canvas(), Qt::LeftButton, {}, onPicture(w->canvas(), 0.2, 0.5));
  EXPECT_GT(s.document().adjustments.temperature, 20);
  EXPECT_FALSE(s.samplingMode());  // an applied sample disarms
  EXPECT_DOUBLE_EQ(w->adjustPanel()->slider("temperature")->value(), s.document().adjustments.temperature);
  w->adjustPanel()->whiteBalancePicker()->click();
  QTest::mouseClick(w->canvas(), Qt::LeftButton, {}, onPicture(w->canvas(), 0.8, 0.5));
  EXPECT_LT(s.document().adjustments.temperature, -20);
  // Zoomed in and panned, the click still finds the pixel under it.
  w->canvas()->actualSize();
  w->adjustPanel()->whiteBalancePicker()->click();
  QTest::mouseClick(w->canvas(), Qt::LeftButton, {}, onPicture(w->canvas(), 0.1, 0.9));
  EXPECT_GT(s.document().adjustments.temperature, 20);

  // A colour-range mask from a click, with the colour prompt meanwhile.
  w->actions()->action(ActionId::fit)->trigger();
  w->actions()->action(ActionId::toolMask)->trigger();
  for (QPushButton* b : w->maskPanel()->findChildren<QPushButton*>())
    if (b->text() == QStringLiteral("新建颜色范围蒙版")) b->click();
  ASSERT_TRUE(s.samplingMode());
  EXPECT_EQ(s.samplingMode()->kind, SamplingMode::Kind::newColorRange);
  QTest::mouseClick(w->canvas(), Qt::LeftButton, {}, onPicture(w->canvas(), 0.75, 0.5));
  ASSERT_EQ(s.document().masks.size(), 1u);
  EXPECT_EQ(kindCase(s.document().masks[0].kind), MaskKindCase::colorRange);
  EXPECT_EQ(s.history().entries().back().label, "颜色范围取样");
}

TEST_F(WindowInteractionTest, ToolKeysEscapeAndEnter) {
  EditorWindow* w = open(twoTones(), 1000, 700);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  w->activateWindow();
  w->canvas()->setFocus();
  QTest::keyClick(w->canvas(), Qt::Key_C);
  ASSERT_EQ(s.activeTool(), EditorTool::crop);
  // A turn, then Esc: the crop as the tool opened, back to the adjust tool.
  w->findChild<CropPanel*>()->findChildren<QPushButton*>().at(2)->click();  // the clockwise turn
  EXPECT_EQ(s.document().crop.quarterTurn, 1);
  EXPECT_EQ(w->canvas()->viewport().imageWidth, 200);  // the frame turned
  QTest::keyClick(w->canvas(), Qt::Key_Escape);
  EXPECT_EQ(s.document().crop.quarterTurn, 0);
  EXPECT_EQ(s.activeTool(), EditorTool::adjust);
  // Enter keeps what the crop tool did.
  QTest::keyClick(w->canvas(), Qt::Key_C);
  s.rotate90(false);
  QTest::keyClick(w->canvas(), Qt::Key_Return);
  EXPECT_EQ(s.activeTool(), EditorTool::adjust);
  EXPECT_EQ(s.document().crop.quarterTurn, 3);
  QTest::keyClick(w->canvas(), Qt::Key_Y);
  EXPECT_EQ(s.activeTool(), EditorTool::history);
  // Letters typed into a value box stay there.
  QTest::keyClick(w->canvas(), Qt::Key_A);
  SliderRow* exposure = w->adjustPanel()->slider("exposure");
  QWidget* box = exposure->findChild<QAbstractSpinBox*>();
  box->setFocus();
  QTest::keyClick(box, Qt::Key_H);
  EXPECT_EQ(s.activeTool(), EditorTool::adjust);
}

TEST_F(WindowInteractionTest, CurvesEditorAddsMovesAndRemovesPoints) {
  EditorWindow* w = open(twoTones(), 1000, 700);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  CurvesEditor* curves = w->adjustPanel()->curves();
  w->adjustPanel()->ensureWidgetVisible(curves);
  CurveGraph* graph = curves->graph();
  const size_t steps = s.history().entries().size();
  // Click in the middle and drag the new point up: one point, one step.
  const QPoint start = graph->toWidget(0.5, 0.5).toPoint();
  QTest::mousePress(graph, Qt::LeftButton, {}, start);
  QTest::mouseMove(graph, graph->toWidget(0.5, 0.7).toPoint());
  QTest::mouseRelease(graph, Qt::LeftButton, {}, graph->toWidget(0.5, 0.7).toPoint());
  const ToneCurve& rgb = s.document().adjustments.curves.rgb;
  ASSERT_EQ(rgb.points.size(), 3u);
  EXPECT_NEAR(rgb.points[1].x, 0.5, 0.02);
  EXPECT_NEAR(rgb.points[1].y, 0.7, 0.02);
  EXPECT_EQ(s.history().entries().size(), steps + 1);
  EXPECT_EQ(s.history().entries().back().label, "曲线");
  // The red channel is its own curve.
  curves->setChannel(CurveChannel::red);
  QTest::mouseClick(graph, Qt::LeftButton, {}, graph->toWidget(0.25, 0.1).toPoint());
  EXPECT_EQ(s.document().adjustments.curves.red.points.size(), 3u);
  EXPECT_EQ(s.document().adjustments.curves.rgb.points.size(), 3u);
  // A double click on a point removes it; the end points stay.
  curves->setChannel(CurveChannel::rgb);
  QTest::mouseDClick(graph, Qt::LeftButton, {}, graph->toWidget(0.5, 0.7).toPoint());
  EXPECT_EQ(s.document().adjustments.curves.rgb.points.size(), 2u);
  QTest::mouseDClick(graph, Qt::LeftButton, {}, graph->toWidget(0, 0).toPoint());
  EXPECT_EQ(s.document().adjustments.curves.rgb.points.size(), 2u);
}

TEST_F(WindowInteractionTest, ResetAllAsksFirstAndCanBeUndone) {
  EditorWindow* w = open(twoTones(), 1000, 700);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  s.applyEdit("曝光", [](EditDocument& d) { d.adjustments.exposure = 1.5; });
  auto answer = [](const QString& button) {
    QTimer::singleShot(50, [button] {
      auto* box = qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
      ASSERT_TRUE(box);
      EXPECT_EQ(box->text(), QString::fromUtf8(EditorSession::kResetAllConfirmation.data()));
      for (QAbstractButton* b : box->buttons())
        if (b->text() == button) b->click();
    });
  };
  answer(QStringLiteral("取消"));
  w->actions()->action(ActionId::resetAll)->trigger();
  EXPECT_EQ(s.document().adjustments.exposure, 1.5);
  answer(QStringLiteral("复位"));
  w->actions()->action(ActionId::resetAll)->trigger();
  EXPECT_EQ(s.document(), EditDocument{});
  EXPECT_FALSE(w->actions()->action(ActionId::resetAll)->isEnabled());
  w->actions()->action(ActionId::undo)->trigger();
  EXPECT_EQ(s.document().adjustments.exposure, 1.5);
}

TEST_F(WindowInteractionTest, AutomaticAdjustmentRunsTheChosenStyleAsOneUndoStep) {
  EditorWindow* w = open(twoTones(), 1000, 700);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  QToolButton* button = w->adjustPanel()->autoAdjustButton();
  EXPECT_EQ(button->text(), QStringLiteral("自动调整：均衡"));
  QAction* night = nullptr;
  for (QAction* a : button->menu()->actions())
    if (a->text().startsWith(QStringLiteral("夜景\t"))) night = a;
  ASSERT_TRUE(night);
  const size_t steps = s.history().entries().size();
  night->trigger();  // chooses the style and runs it
  EXPECT_EQ(button->text(), QStringLiteral("自动调整：夜景"));
  EXPECT_EQ(button->isEnabled(), !s.autoAdjusting());
  ASSERT_TRUE(waitUntil([&] { return s.history().entries().size() == steps + 1; }));
  EXPECT_EQ(s.history().entries().back().label, "自动调整：夜景");
  EXPECT_TRUE(button->isEnabled());
  EXPECT_EQ(w->toastView()->text(), QStringLiteral("已应用「夜景」自动调整"));
  EXPECT_FALSE(s.document().adjustments == GlobalAdjustments{});
  w->actions()->action(ActionId::undo)->trigger();
  EXPECT_TRUE(s.document().adjustments == GlobalAdjustments{});
  button->click();  // the main part runs the chosen style again
  ASSERT_TRUE(waitUntil([&] { return !(s.document().adjustments == GlobalAdjustments{}); }));
  EXPECT_EQ(s.history().entries().size(), steps + 1);
  EXPECT_EQ(s.history().entries().back().label, "自动调整：夜景");
}

TEST_F(WindowInteractionTest, AnExportOntoTheSourceIsRefusedWithItsReason) {
  const fs::path file = twoTones();
  EditorWindow* w = open(file, 1000, 700);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  const auto before = vg::test::readFile(file);
  w->actions()->action(ActionId::exportImage)->trigger();
  ASSERT_TRUE(waitUntil([&] { return w->exportSheet() != nullptr; }));
  w->exportSheet()->formatBox()->setCurrentIndex(2);  // PNG, the source's own format
  w->exportSheet()->setDestinationChooser(
      [&](QWidget*, const fs::path&, ExportFormat) { return std::optional<fs::path>(file); });
  w->exportSheet()->exportButton()->click();
  EXPECT_FALSE(s.exporting());
  ASSERT_TRUE(s.toast());
  EXPECT_EQ(s.toast()->kind, ToastMessage::Kind::error);
  EXPECT_EQ(w->toastView()->text(), QStringLiteral("导出失败：为保留原图，请选择其他文件名或导出位置"));
  EXPECT_EQ(vg::test::readFile(file), before);
}

TEST_F(WindowInteractionTest, ToastActionsRunAndCopiedAdjustmentsPaste) {
  EditorWindow* w = open(twoTones(), 1000, 700);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  int ran = 0;
  s.showToast("已导出：a.jpg", ToastMessage::Kind::success, std::string("在文件夹中显示"), [&] { ++ran; });
  ToastView* toast = w->toastView();
  ASSERT_TRUE(toast->isVisible());
  QPushButton* action = toast->findChild<QPushButton*>();
  ASSERT_TRUE(action && action->isVisible());
  action->click();
  EXPECT_EQ(ran, 1);
  s.dismissToast();
  EXPECT_FALSE(toast->isVisible());

  // Copy here, paste into another window.
  s.applyEdit("对比度", [](EditDocument& d) { d.adjustments.contrast = 40; });
  w->actions()->action(ActionId::copyAdjustments)->trigger();
  const fs::path other = dir / "other.png";
  fs::copy_file(dir / "tones.png", other);
  EditorWindow* second = open(other, 1000, 700);
  ASSERT_TRUE(second);
  ASSERT_TRUE(second->actions()->action(ActionId::pasteAdjustments)->isEnabled());
  second->actions()->action(ActionId::pasteAdjustments)->trigger();
  EXPECT_EQ(second->session()->document().adjustments.contrast, 40);
  EXPECT_EQ(second->session()->history().entries().back().label, "粘贴调整参数");
  EXPECT_EQ(second->toastView()->text(), QStringLiteral("已粘贴调整参数"));
}

}  // namespace
}  // namespace vg::app
