// The editor window driven like a photographer would, on real sessions over
// the bundled photograph: open, drag a slider, undo, jump in the history,
// compare, sample, export through the sheet, drop files, quit with a failing
// autosave. Offscreen; each test opens its own copy of the image.
#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QListWidget>
#include <QComboBox>
#include <QMimeData>
#include <QPushButton>
#include <QSettings>
#include <QSlider>
#include <QTest>
#include <QToolButton>
#include <QTreeWidget>

#include "app/application.h"
#include "app/canvas/canvas_view.h"
#include "app/canvas/toast_view.h"
#include "app/editor_window.h"
#include "app/export_sheet.h"
#include "app/history_panel.h"
#include "app/inspector/adjust_panel.h"
#include "app/inspector/filter_panel.h"
#include "app/inspector/mask_panel.h"
#include "app/inspector/histogram_view.h"
#include "app/inspector/slider_row.h"
#include "app/welcome_view.h"
#include "app/welcome_window.h"
#include "app_test_support.h"
#include "io/image_loader.h"
#include "store/edit_store.h"
#include "support/test_support.h"

namespace vg::app {
namespace {

namespace fs = std::filesystem;
using test::waitUntil;

struct EditorWindowTest : test::AppFixture {
  fs::path photo = rocket();

  static bool idle(EditorWindow* w) {
    return !w->session()->isBusy(EditorSession::BusyFlag::rendering) &&
           !w->session()->isBusy(EditorSession::BusyFlag::loading);
  }
};

TEST_F(EditorWindowTest, DragASliderThenUndoAndJumpInTheHistory) {
  EditorWindow* w = open(photo);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  ASSERT_EQ(s.history().entries().size(), 1u);  // "打开图片"
  const uint64_t firstPicture = s.previewImage()->generation;

  // Drag the exposure slider from its middle to the right in several moves.
  SliderRow* exposure = w->adjustPanel()->slider("exposure");
  ASSERT_TRUE(exposure);
  QSlider* slider = exposure->slider();
  slider->setFocus();
  const QPoint middle = slider->rect().center();
  QTest::mousePress(slider, Qt::LeftButton, {}, middle);
  for (int dx = 10; dx <= 60; dx += 10) {
    QMouseEvent move(QEvent::MouseMove, QPointF(middle + QPoint(dx, 0)), slider->mapToGlobal(QPointF(middle + QPoint(dx, 0))),
                     Qt::NoButton, Qt::LeftButton, Qt::NoModifier);
    QApplication::sendEvent(slider, &move);
  }
  // Live: the document follows the drag before the button is released, and no step yet.
  const double during = s.document().adjustments.exposure;
  EXPECT_GT(during, 0);
  EXPECT_EQ(s.history().entries().size(), 1u);
  QTest::mouseRelease(slider, Qt::LeftButton, {}, middle + QPoint(60, 0));
  ASSERT_EQ(s.history().entries().size(), 2u);
  EXPECT_EQ(s.history().entries().back().label, "曝光");
  EXPECT_DOUBLE_EQ(s.history().entries().back().document.adjustments.exposure, during);
  // The canvas receives the re-rendered picture and the histogram follows.
  ASSERT_TRUE(waitUntil([&] { return idle(w) && s.previewImage()->generation > firstPicture; }));
  EXPECT_GT(s.previewImage()->generation, firstPicture);
  EXPECT_TRUE(w->canvas()->hasPicture());

  // A double click resets the slider: a second step.
  QTest::mouseDClick(slider, Qt::LeftButton, {}, middle);
  EXPECT_EQ(s.document().adjustments.exposure, 0);
  EXPECT_EQ(exposure->value(), 0);

  // Undo (the menu's action) brings back the dragged value, and the slider shows it.
  w->actions()->action(ActionId::undo)->trigger();
  EXPECT_DOUBLE_EQ(s.document().adjustments.exposure, during);
  EXPECT_DOUBLE_EQ(exposure->value(), during);
  EXPECT_TRUE(w->actions()->action(ActionId::redo)->isEnabled());

  // The history tool lists the steps; clicking the first returns to the untouched image.
  w->actions()->action(ActionId::toolHistory)->trigger();
  EXPECT_EQ(s.activeTool(), EditorTool::history);
  QTreeWidget* list = w->historyPanel()->list();
  ASSERT_TRUE(list->isVisible());
  ASSERT_EQ(list->topLevelItemCount(), int(s.history().entries().size()));
  EXPECT_EQ(list->topLevelItem(1)->text(0), QStringLiteral("曝光"));
  QTreeWidgetItem* first = list->topLevelItem(0);
  QTest::mouseClick(list->viewport(), Qt::LeftButton, {}, list->visualItemRect(first).center());
  EXPECT_EQ(s.document(), EditDocument{});
  EXPECT_EQ(exposure->value(), 0);
  EXPECT_FALSE(w->actions()->action(ActionId::undo)->isEnabled());
}

TEST_F(EditorWindowTest, CompareModesFollowTheKeysAndTheMenu) {
  EditorWindow* w = open(photo);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  CanvasView* canvas = w->canvas();

  w->actions()->action(ActionId::splitCompare)->trigger();
  EXPECT_TRUE(s.splitCompare());
  EXPECT_TRUE(canvas->splitCompare());
  ASSERT_TRUE(waitUntil([&] { return s.splitOriginalImage().has_value(); }));

  // Hold \ : the original while held.
  canvas->setFocus();
  QTest::keyPress(canvas, Qt::Key_Backslash);
  EXPECT_TRUE(s.showOriginal());
  EXPECT_TRUE(canvas->showsOriginal());
  QTest::qWait(ShowOriginalGesture::kTapMax.count() + 50);
  QTest::keyRelease(canvas, Qt::Key_Backslash);
  EXPECT_FALSE(s.showOriginal());
  // Two quick taps: it stays on the original, and the menu row is checked.
  QTest::keyClick(canvas, Qt::Key_Backslash);
  QTest::keyClick(canvas, Qt::Key_Backslash);
  EXPECT_TRUE(s.showOriginal());
  EXPECT_TRUE(w->actions()->action(ActionId::showOriginal)->isChecked());
  // The menu row switches back.
  w->actions()->action(ActionId::showOriginal)->trigger();
  EXPECT_FALSE(s.showOriginal());
  EXPECT_FALSE(canvas->showsOriginal());

  // The split divider follows a drag.
  const ViewRect r = canvas->viewport().imageRectInView();
  const double dpr = canvas->devicePixelRatioF();
  const QPoint divider(int((r.x + r.width * 0.5) / dpr), int((r.y + r.height / 2) / dpr));
  QTest::mousePress(canvas, Qt::LeftButton, {}, divider);
  QTest::mouseMove(canvas, divider + QPoint(int(r.width / dpr * 0.25), 0));
  QTest::mouseRelease(canvas, Qt::LeftButton, {}, divider + QPoint(int(r.width / dpr * 0.25), 0));
  EXPECT_NEAR(canvas->splitPosition(), 0.75, 0.02);
}

TEST_F(EditorWindowTest, WhiteBalanceSamplingPromptsAndEscDisarms) {
  EditorWindow* w = open(photo);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  w->adjustPanel()->whiteBalancePicker()->click();
  ASSERT_TRUE(s.samplingMode());
  w->canvas()->setFocus();
  QTest::keyClick(w->canvas(), Qt::Key_Escape);
  EXPECT_FALSE(s.samplingMode());

  // A click outside the picture is refused with its warning toast.
  w->adjustPanel()->whiteBalancePicker()->click();
  QTest::mouseClick(w->canvas(), Qt::LeftButton, {}, QPoint(2, 2));
  EXPECT_EQ(s.document(), EditDocument{});
  ASSERT_TRUE(s.toast());
  EXPECT_EQ(w->toastView()->text().toStdString(), s.toast()->text);
  EXPECT_TRUE(w->toastView()->isVisible());
}

TEST_F(EditorWindowTest, ExportThroughTheSheetRemembersItsSettings) {
  EditorWindow* w = open(photo);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  w->actions()->action(ActionId::exportImage)->trigger();
  ASSERT_TRUE(waitUntil([&] { return w->exportSheet() && w->exportSheet()->isVisible(); }));
  ExportSheet* sheet = w->exportSheet();
  sheet->formatBox()->setCurrentIndex(2);  // PNG
  const fs::path chosen = dir / "out" / "result";
  fs::create_directories(chosen.parent_path());
  sheet->setDestinationChooser([&](QWidget*, const fs::path& suggested, ExportFormat format) {
    EXPECT_EQ(suggested.filename(), "rocket-已编辑.png");
    EXPECT_EQ(format, ExportFormat::png);
    return std::optional<fs::path>(chosen);
  });
  sheet->exportButton()->click();
  ASSERT_TRUE(waitUntil([&] { return s.exporting(); }, 2000));
  ASSERT_TRUE(waitUntil([&] { return !s.exporting(); }, 20000));
  const fs::path written = dir / "out" / "result.png";
  ASSERT_TRUE(fs::exists(written));
  const auto loaded = ImageLoader::load(written);
  EXPECT_EQ(loaded.pixelSize, (ImageLoader::PixelSize{640, 427}));
  EXPECT_EQ(app->services().settings.value("export.format").toString(), "PNG");
  EXPECT_TRUE(s.toast() && s.toast()->kind == ToastMessage::Kind::success);
  // The window was usable all along: the sheet closed as the export started.
  EXPECT_FALSE(w->exportSheet());
}

TEST_F(EditorWindowTest, DroppedFilesOpenAndTheSameImageIsNotOpenedTwice) {
  app->start({});
  WelcomeView* welcome = app->welcome()->view();
  const fs::path second = dir / "second.jpg";
  fs::copy_file(photo, second);
  QMimeData data;
  data.setUrls({QUrl::fromLocalFile(QString::fromStdString(photo.string())),
                QUrl::fromLocalFile(QString::fromStdString(second.string())), QUrl("https://example.com/x.jpg")});
  // The drag enters the window first, as a file manager's drag does.
  QDragEnterEvent enter(QPoint(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(welcome, &enter);
  ASSERT_TRUE(enter.isAccepted());
  QDropEvent drop(QPointF(10, 10), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
  QApplication::sendEvent(welcome, &drop);
  EXPECT_EQ(welcome->message(), QStringLiteral("只能打开本机图片文件"));
  ASSERT_EQ(app->windows().size(), 2u);
  ASSERT_TRUE(waitUntil([&] { return app->windows()[0]->isOpen() && app->windows()[1]->isOpen(); }));
  app->openFiles({photo});
  EXPECT_EQ(app->windows().size(), 2u);
  // Opening puts the images at the front of the recent list.
  QSettings& settings = app->services().settings;
  const QStringList recent = settings.value("recentImages").toStringList();
  ASSERT_GE(recent.size(), 2);

  // A file that cannot be decoded opens nothing and says why.
  const fs::path broken = dir / "broken.jpg";
  vg::test::writeFile(broken, "not a jpeg");
  app->openFiles({broken});
  ASSERT_TRUE(waitUntil([&] { return app->windows().size() == 2u && !welcome->message().isEmpty(); }));
  EXPECT_TRUE(welcome->message().contains("broken.jpg"));
}

TEST_F(EditorWindowTest, QuittingWarnsWhenAnEditCannotBeSaved) {
  EditorWindow* w = open(photo);
  ASSERT_TRUE(w);
  w->session()->applyEdit("曝光", [](EditDocument& d) { d.adjustments.exposure = 1; });
  // The edits folder becomes a file: every save fails.
  fs::remove_all(dir / "Edits");
  vg::test::writeFile(dir / "Edits", "");
  QStringList asked;
  app->setQuitQuestion([&](QWidget*, const QStringList& failed) {
    asked = failed;
    return false;  // stay
  });
  EXPECT_FALSE(app->requestQuit());
  EXPECT_EQ(asked, QStringList{"rocket.jpg"});
  ASSERT_EQ(app->windows().size(), 1u);
  // Still editable: nothing was closed or lost.
  EXPECT_EQ(w->session()->document().adjustments.exposure, 1);
  EXPECT_FALSE(w->session()->isClosed());

  // Once the folder is writable again quitting stores the edit.
  fs::remove(dir / "Edits");
  EXPECT_TRUE(app->requestQuit());
  const auto saved = store.load(photo);
  ASSERT_TRUE(saved);
  EXPECT_EQ(saved->adjustments.exposure, 1);
}

TEST_F(EditorWindowTest, MaskAndFilterToolsEditThroughTheSession) {
  EditorWindow* w = open(photo);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  w->actions()->action(ActionId::toolMask)->trigger();
  MaskPanel* masks = w->maskPanel();
  ASSERT_TRUE(masks->isVisible());
  EXPECT_FALSE(masks->adjustments()->isVisible());  // nothing selected yet
  for (QPushButton* b : masks->findChildren<QPushButton*>())
    if (b->text() == QStringLiteral("新建径向蒙版")) b->click();
  ASSERT_EQ(s.document().masks.size(), 1u);
  EXPECT_EQ(s.selectedMaskID(), s.document().masks[0].id);
  EXPECT_EQ(s.history().entries().back().label, "新建径向蒙版");
  ASSERT_TRUE(masks->adjustments()->isVisible());
  // The local exposure goes into the mask, not into the picture's adjustments.
  masks->adjustments()->slider("exposure")->slider()->setValue(
      masks->adjustments()->slider("exposure")->slider()->maximum());
  EXPECT_EQ(s.document().masks[0].adjustments.exposure, 5);
  EXPECT_EQ(s.document().adjustments.exposure, 0);
  // Switching the mask off is one step.
  masks->list()->item(0)->setCheckState(Qt::Unchecked);
  EXPECT_FALSE(s.document().masks[0].enabled);

  w->actions()->action(ActionId::toolFilter)->trigger();
  FilterPanel* filters = w->filterPanel();
  ASSERT_GE(filters->list()->count(), 2);
  filters->list()->setCurrentRow(1);
  ASSERT_TRUE(s.document().filterID);
  EXPECT_EQ(s.document().filterStrength, 100);
  filters->strength()->slider()->setValue(50);
  EXPECT_EQ(s.document().filterStrength, 50);
  EXPECT_EQ(s.history().entries().back().label, "滤镜强度");
  filters->list()->setCurrentRow(0);  // "无"
  EXPECT_FALSE(s.document().filterID);
}

TEST(AdjustPanel, EveryFieldOfTheTablesHasItsControl) {
  AdjustPanel panel([](EditDocument& d) { return &d.adjustments; }, {});
  panel.setRawDecoderOptions({{"", "最新"}, {"ahd-1", "AHD（标准）"}});
  for (const ScalarField& f : scalarFields()) {
    SliderRow* row = panel.slider(qtext(f.key));
    ASSERT_TRUE(row) << f.key;
    EXPECT_EQ(row->spec().min, f.min);
    EXPECT_EQ(row->spec().max, f.max);
    EXPECT_EQ(row->spec().label, qtext(f.title));
  }
  for (const HSLBandName& band : hslBandNames())
    for (const auto& f : hslBandFields().numbers())
      EXPECT_TRUE(panel.slider("hsl." + qtext(band.key) + "." + qtext(f.key))) << band.key << f.key;
  for (const auto& f : splitToningFields().numbers()) EXPECT_TRUE(panel.slider("splitToning." + qtext(f.key)));
  for (const auto& f : lensCorrectionFields().numbers()) EXPECT_TRUE(panel.slider("lens." + qtext(f.key)));
  for (const auto& f : rawDevelopFields().numbers()) EXPECT_TRUE(panel.slider("raw." + qtext(f.key)));
  EXPECT_TRUE(panel.toggle("monochrome"));
  EXPECT_TRUE(panel.toggle("raw.gamutMapping"));
  EXPECT_EQ(panel.decoderMenu()->count(), 2);

  // The panel's edits land in the record it was built over.
  EditDocument doc;
  panel.refresh(doc);
  std::vector<DocumentEdit> edits;
  QObject::connect(&panel, &InspectorPanel::edited, [&](const DocumentEdit& e) { edits.push_back(e); });
  panel.slider("hsl.aqua.saturation")->slider()->setValue(panel.slider("hsl.aqua.saturation")->slider()->maximum());
  panel.toggle("monochrome")->setChecked(true);
  for (const auto& e : edits) e(doc);
  EXPECT_EQ(doc.adjustments.hsl[HSLBandKind::aqua].saturation, 100);
  EXPECT_TRUE(doc.adjustments.monochrome);
}

}  // namespace
}  // namespace vg::app
