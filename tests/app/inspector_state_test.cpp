// State the inspector keeps: fold states shared through the session, the
// clipping indicators' thresholds, and the sharp detail drawn at 100 % in
// the right place of a cropped frame.
#include <gtest/gtest.h>

#include <QAction>
#include <QSettings>
#include <QToolButton>

#include "app/application.h"
#include "app/canvas/canvas_view.h"
#include "app/editor_window.h"
#include "app/inspector/adjust_panel.h"
#include "app/inspector/collapsible_section.h"
#include "app/inspector/histogram_view.h"
#include "app/inspector/mask_panel.h"
#include "app_test_support.h"
#include "store/edit_store.h"
#include "support/test_support.h"

namespace vg::app {
namespace {

namespace fs = std::filesystem;
using test::waitUntil;

TEST(HistogramView, ClippingIndicatorsShowAboveTheirThresholdsOnly) {
  HistogramView view;
  HistogramBins bins;
  bins.shadowClipping = 0.05f;
  bins.highlightClipping = 0.001f;
  view.setBins(bins);
  EXPECT_EQ(view.shadowText(), QStringLiteral("阴影裁切 5.0%（提亮阴影/黑色滑杆）"));
  EXPECT_TRUE(view.highlightText().isEmpty());
  bins.shadowClipping = 0.002f;  // at the threshold: not shown
  bins.highlightClipping = 0.123f;
  view.setBins(bins);
  EXPECT_TRUE(view.shadowText().isEmpty());
  EXPECT_EQ(view.highlightText(), QStringLiteral("高光裁切 12.3%（压低高光/白色滑杆）"));
}

using WindowStateTest = test::AppFixture;

TEST_F(WindowStateTest, FoldedSectionsAreKeptInTheSessionForEveryPanel) {
  EditorWindow* w = open(rocket(), 900, 600);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  CollapsibleSection* light = w->adjustPanel()->section("light");
  ASSERT_TRUE(light);
  light->header()->click();
  EXPECT_TRUE(s.isSectionCollapsed("light"));
  EXPECT_FALSE(light->contentWidget()->isVisibleTo(light));
  // The mask tool's panel shows the same sections folded the same way.
  s.addMask(MaskKindCase::radial);
  CollapsibleSection* maskLight = w->maskPanel()->adjustments()->section("light");
  ASSERT_TRUE(maskLight);
  EXPECT_TRUE(maskLight->collapsed());
  maskLight->header()->click();
  EXPECT_FALSE(s.isSectionCollapsed("light"));
  EXPECT_FALSE(light->collapsed());
}

TEST_F(WindowStateTest, TheSharpDetailAt100PercentCoversTheVisiblePartOfACroppedFrame) {
  // Larger than the preview source (so 100 % needs the full-resolution
  // source), with a coloured grid.
  QImage image(2800, 900, QImage::Format_RGB32);
  for (int y = 0; y < 900; ++y)
    for (int x = 0; x < 2800; ++x) image.setPixel(x, y, qRgb((x / 200) * 15, (y / 100) * 25, 128));
  const fs::path file = dir / "grid.png";
  image.save(QString::fromStdString(file.string()));
  EditorWindow* w = open(file, 900, 600);
  ASSERT_TRUE(w);
  EditorSession& s = *w->session();
  ASSERT_TRUE(waitUntil([&] { return s.source() != nullptr; }));
  // Crop to the right half: the frame starts at x = 1400 of the source.
  s.applyEdit("裁剪", [](EditDocument& d) { d.crop.rect = NormalizedRect{0.5, 0, 0.5, 1}; });
  ASSERT_TRUE(waitUntil([&] { return w->canvas()->viewport().imageWidth == 1400; }));
  ASSERT_LT(s.previewScale(), 1);
  w->actions()->action(ActionId::actualSize)->trigger();
  ASSERT_TRUE(waitUntil([&] { return s.viewportImage().has_value() && w->canvas()->paintedDetailGeneration() > 0; }));
  const ViewRect visible = w->canvas()->viewport().visibleImageRect();
  const PreviewFrame& detail = *s.viewportImage();
  const Rect b = detail.image->bounds();
  // In frame coordinates the detail starts where the view does.
  EXPECT_NEAR(b.x - detail.frame.x, visible.x, 1.0);
  EXPECT_NEAR(b.y - detail.frame.y, visible.y, 1.0);
  EXPECT_GE(b.width, int(visible.width));
}

}  // namespace
}  // namespace vg::app
