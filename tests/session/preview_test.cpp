// Live pictures through the session: newest request wins, the histogram
// follows, viewport renders at full resolution, compare pictures.
#include <gtest/gtest.h>

#include <cmath>

#include "render/document_render.h"
#include "session_fixture.h"

namespace vg {
namespace {

using test::exposed;
using Change = EditorSession::Change;

struct PreviewTest : test::SessionFixture {
  // The preview as it must look: a direct render of `doc` on the preview source.
  Image expected(const EditorSession& s, const EditDocument& doc, std::optional<Rect> region = {},
                 bool full = false) {
    MaskImageCache masks;
    RenderOptions options;
    options.scale = full ? 1.0 : s.previewScale();
    options.integralRect = true;
    options.region = region;
    return renderDocument(*engine, masks, full ? *s.source() : *s.previewSource(), doc, options).image;
  }
};

void expectSamePixels(const Image& a, const Image& b, float tolerance = 0) {
  ASSERT_EQ(a.bounds(), b.bounds());
  for (int y = a.bounds().y; y < a.bounds().bottom(); ++y)
    for (int x = a.bounds().x; x < a.bounds().right(); ++x)
      for (int c = 0; c < 4; ++c) ASSERT_NEAR(a.at(x, y)[c], b.at(x, y)[c], tolerance) << x << "," << y;
}

TEST_F(PreviewTest, OnlyTheNewestCommitIsRenderedAndItsHistogramFollows) {
  auto session = openSession();
  settle();
  ASSERT_TRUE(session->previewImage());
  changes.clear();

  // A drag: three commits before the background gets to run.
  for (double ev : {0.2, 0.4, 0.6}) session->setDocument(exposed(ev));
  EXPECT_TRUE(session->isBusy(EditorSession::BusyFlag::rendering));
  const uint64_t before = session->previewImage()->generation;
  settle();
  EXPECT_FALSE(session->isBusy(EditorSession::BusyFlag::rendering));
  EXPECT_EQ(std::count(changes.begin(), changes.end(), Change::previewImage), 1)
      << "outdated renders never reach the main thread";
  const PreviewFrame& frame = *session->previewImage();
  EXPECT_GT(frame.generation, before);
  expectSamePixels(*frame.image, expected(*session, exposed(0.6)));
  ASSERT_TRUE(session->histogram());
  EXPECT_EQ(*session->histogram(), HistogramComputer::compute(*frame.image));
}

TEST_F(PreviewTest, ZoomedInBeyondThePreviewTheVisiblePartIsRenderedFromTheFullSource) {
  OpenedImage o = opened(96, 64);
  o.previewSource = ImageLoader::downscaled(o.loaded.image, 48);
  auto session = openSession(std::move(o));
  EditDocument doc = exposed(0.3);
  doc.adjustments.clarity = 40;  // a neighbourhood stage: the region needs its halo
  MaskLayer mask;
  mask.kind = RadialMaskGeometry{};
  mask.adjustments.saturation = -50;
  doc.masks.push_back(mask);
  session->setDocument(doc);
  settle();
  EXPECT_DOUBLE_EQ(session->previewScale(), 0.5);
  EXPECT_FALSE(session->viewportImage());

  ViewportState view;
  view.scale = 2;  // 200 %: a 40 x 30 view shows 20 x 15 pixels
  view.imageCenter = {50, 30};
  view.viewSize = {40, 30};
  session->setViewport(view);
  settle();
  ASSERT_TRUE(session->viewportImage());
  const PreviewFrame& frame = *session->viewportImage();
  EXPECT_EQ(frame.scale, 1.0);
  EXPECT_EQ(frame.image->bounds(), (Rect{40, 22, 20, 16}));
  expectSamePixels(*frame.image, expected(*session, doc, frame.image->bounds(), true), 2e-3f);

  view.scale = 0.5;  // zoomed out: the preview serves the view again
  session->setViewport(view);
  settle();
  EXPECT_FALSE(session->viewportImage());
}

TEST_F(PreviewTest, TheCropToolShowsTheWholeFrameAndCompareShowsTheUneditedFrame) {
  auto session = openSession();
  EditDocument doc = exposed(1);
  doc.crop.rect = NormalizedRect{0.25, 0.25, 0.5, 0.5};
  session->setDocument(doc);
  settle();
  EXPECT_EQ(session->previewImage()->image->bounds(), (Rect{12, 8, 24, 16}));

  session->setActiveTool(EditorTool::crop);
  settle();
  EXPECT_EQ(session->previewImage()->image->bounds(), (Rect{0, 0, 48, 32}));
  session->setActiveTool(EditorTool::adjust);

  session->setSplitCompare(true);
  settle();
  ASSERT_TRUE(session->splitOriginalImage());
  EditDocument frameOnly;
  frameOnly.crop = doc.crop;
  expectSamePixels(*session->splitOriginalImage()->image, expected(*session, frameOnly));
  EXPECT_EQ(session->compareStatusText(), "正在显示编辑后");
  session->setShowOriginal(true);
  EXPECT_EQ(session->compareStatusText(), "正在显示原图");
}

}  // namespace
}  // namespace vg
