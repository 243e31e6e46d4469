#include "session/auto_mask_generator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>

#include "io/image_loader.h"
#include "render/geometry.h"
#include "render/heal_bitmap.h"
#include "render/mask_rasterizer.h"
#include "support/test_support.h"

namespace vg {
namespace {

// An opaque working image painted with sRGB 8-bit colours: the drawing the
// generator makes of it gives those bytes back exactly.
struct Painter {
  Image image;
  Painter(int w, int h, std::array<std::uint8_t, 3> c) : image(w, h) { box(0, 0, w, h, c); }
  Painter& box(int x0, int y0, int x1, int y1, std::array<std::uint8_t, 3> c) {
    for (int y = y0; y < y1; ++y)
      for (int x = x0; x < x1; ++x) {
        float* p = image.at(x, y);
        for (int i = 0; i < 3; ++i) p[i] = decodeSrgb8(c[std::size_t(i)]);
        p[3] = 1;
      }
    return *this;
  }
  std::shared_ptr<const Image> done() { return std::make_shared<const Image>(std::move(image)); }
};

constexpr std::array<std::uint8_t, 3> kSky{150, 190, 240}, kGround{40, 60, 30};

AutoMaskRequest request(AutoMaskSource kind, std::shared_ptr<const Image> image) {
  AutoMaskRequest r;
  r.kind = kind;
  r.image = std::move(image);
  return r;
}

// The mean of a raster over [x0, x1) x [y0, y1), or outside it when `outside`.
double mean(const MaskRaster& m, int x0, int y0, int x1, int y1, bool outside = false) {
  double sum = 0;
  long n = 0;
  for (int y = 0; y < m.height; ++y)
    for (int x = 0; x < m.width; ++x) {
      bool in = x >= x0 && x < x1 && y >= y0 && y < y1;
      if (in != outside) sum += m.at(x, y), ++n;
    }
  return n ? sum / double(n) : 0;
}

AutoMaskError::Code failure(const AutoMaskGenerator& g, const AutoMaskRequest& r) {
  try {
    g.raster(r);
  } catch (const AutoMaskError& e) {
    return e.code();
  }
  ADD_FAILURE() << "no AutoMaskError";
  return AutoMaskError::Code::decompressFailed;
}

TEST(AutoMaskGeneratorTest, AnEmptyImageIsInvalidForEveryKind) {
  AutoMaskGenerator g(std::make_shared<SubjectSegmenter>("/nonexistent/u2netp.onnx"));
  for (AutoMaskSource kind :
       {AutoMaskSource::subject, AutoMaskSource::background, AutoMaskSource::sky, AutoMaskSource::magicWand}) {
    EXPECT_EQ(failure(g, request(kind, nullptr)), AutoMaskError::Code::invalidImage);
    EXPECT_EQ(failure(g, request(kind, std::make_shared<const Image>(Rect{5, 5, 0, 10}))),
              AutoMaskError::Code::invalidImage);
  }
  EXPECT_STREQ(AutoMaskError(AutoMaskError::Code::invalidImage).what(), "图像无效");
}

TEST(AutoMaskGeneratorTest, SkyAndWandRunOnTheImageReducedTo1024) {
  auto image = Painter(2000, 1000, kGround).box(0, 0, 2000, 400, kSky).done();
  AutoMaskGenerator g(nullptr);  // neither kind needs the network

  std::optional<BitmapMaskData> sky = g.generate(request(AutoMaskSource::sky, image));
  ASSERT_TRUE(sky);
  EXPECT_EQ(sky->source, AutoMaskSource::sky);
  MaskRaster s = decompressMaskRaster(*sky);
  ASSERT_EQ(s.width, 1024);
  ASSERT_EQ(s.height, 512);
  EXPECT_EQ(mean(s, 0, 0, 1024, 200), 255);   // the sky reaches down to row 204.8
  EXPECT_EQ(mean(s, 0, 230, 1024, 512), 0);  // beyond the softening

  AutoMaskRequest wand = request(AutoMaskSource::magicWand, image);
  wand.wand = {{0.3, 0.9}, 10, 0};
  std::optional<BitmapMaskData> w = g.generate(wand);
  ASSERT_TRUE(w);
  EXPECT_EQ(w->source, AutoMaskSource::magicWand);
  MaskRaster m = decompressMaskRaster(*w);
  EXPECT_EQ(mean(m, 0, 0, 1024, 200), 0);
  EXPECT_EQ(mean(m, 0, 210, 1024, 512), 255);
  EXPECT_NE(w->id, sky->id);

  AsyncCancelToken token;
  token.cancel();
  EXPECT_FALSE(g.generate(request(AutoMaskSource::sky, image), &token));
}

TEST(AutoMaskGeneratorTest, DrawingPremultipliesTransparentPixels) {
  Image image(2, 1);
  float half[4] = {0.5f, 0.5f, 0.5f, 0.5f};  // white at half opacity
  std::copy(half, half + 4, image.at(0, 0));
  float opaque[4] = {0.5f, 0.5f, 0.5f, 1.0f};
  std::copy(opaque, opaque + 4, image.at(1, 0));
  Rgba8Bitmap b = AutoMaskGenerator::drawReduced(std::make_shared<const Image>(std::move(image)), 1024);
  EXPECT_EQ(b.at(0, 0)[0], 128);
  EXPECT_EQ(b.at(0, 0)[3], 128);
  EXPECT_EQ(b.at(1, 0)[0], encodeSrgb8(0.5f));
}

TEST(AutoMaskGeneratorTest, DamagedRasterDataDoesNotDecompress) {
  MaskRaster r(50, 40);
  for (std::size_t i = 0; i < r.values.size(); ++i) r.values[i] = std::uint8_t(i * 7);
  BitmapMaskData data = compressMaskRaster(r, AutoMaskSource::subject);
  EXPECT_EQ(decompressMaskRaster(data), r);

  auto code = [](BitmapMaskData d) {
    try {
      decompressMaskRaster(d);
    } catch (const AutoMaskError& e) {
      EXPECT_STREQ(e.what(), "蒙版数据损坏");
      return true;
    }
    return false;
  };
  BitmapMaskData cut = data;
  cut.compressedData.resize(cut.compressedData.size() / 2);
  EXPECT_TRUE(code(cut));
  BitmapMaskData wider = data;
  wider.width = 51;
  EXPECT_TRUE(code(wider));
  BitmapMaskData negative = data;
  negative.height = -40;
  EXPECT_TRUE(code(negative));
  BitmapMaskData huge = data;
  huge.width = huge.height = std::int64_t(1) << 20;
  EXPECT_TRUE(code(huge));
}

TEST(AutoMaskGeneratorTest, AGeneratedMaskRendersThroughTheBitmapPath) {
  // 64 x 48 needs no reduction, so raster pixel (x, y) lies on source pixel
  // (x, y), with row 0 at the top.
  auto image = Painter(64, 48, kGround).box(0, 0, 64, 20, kSky).box(30, 0, 34, 30, kSky).done();
  AutoMaskGenerator g(nullptr);
  BitmapMaskData data = *g.generate(request(AutoMaskSource::sky, image));
  MaskRaster raster = decompressMaskRaster(data);
  Geometry geometry(image->bounds(), GeometryParams{}, false);
  std::optional<GreyImage> mask = rasterizeShape(data, MaskFrame{&geometry, geometry.outputRect(), nullptr});
  ASSERT_TRUE(mask);
  ASSERT_EQ(mask->width(), 64);
  ASSERT_EQ(mask->height(), 48);
  EXPECT_EQ(raster.at(10, 0), 255);
  EXPECT_EQ(raster.at(10, 47), 0);
  for (int y = 0; y < 48; ++y)
    for (int x = 0; x < 64; ++x) ASSERT_NEAR(mask->at(x, y), raster.at(x, y) / 255.0, 1e-6) << x << "," << y;
}

// Loading and running the network takes a moment: one segmenter for all.
SubjectSegmenter& segmenter() {
  static SubjectSegmenter s(SubjectSegmenter::defaultModelFile());
  return s;
}

struct SubjectCase {
  const char* file;
  int x0, y0, x1, y1;  // a box well inside the subject
  int ox0, oy0, ox1, oy1;  // outside this box lies only background
  bool background;         // also check the background (another network run)
};

TEST(SubjectMaskTest, CoversTheSubjectOfRealPhotographs) {
  std::shared_ptr<SubjectSegmenter> shared(&segmenter(), [](SubjectSegmenter*) {});
  AutoMaskGenerator g(shared);
  for (SubjectCase c : {SubjectCase{"jpeg/flower.jpg", 240, 150, 400, 310, 130, 50, 510, 400, true},
                        SubjectCase{"jpeg/tower.jpg", 226, 220, 248, 300, 130, 0, 350, 512, false}}) {
    SCOPED_TRACE(c.file);
    auto image = ImageLoader::load(test::dataPath(c.file)).image;
    std::optional<MaskRaster> subject = g.raster(request(AutoMaskSource::subject, image));
    ASSERT_TRUE(subject);
    EXPECT_EQ(subject->width, image->width());  // small photos are not reduced
    EXPECT_EQ(subject->height, image->height());
    EXPECT_GT(mean(*subject, c.x0, c.y0, c.x1, c.y1), 220);
    EXPECT_LT(mean(*subject, c.ox0, c.oy0, c.ox1, c.oy1, true), 20);
    if (!c.background) continue;

    std::optional<MaskRaster> background = g.raster(request(AutoMaskSource::background, image));
    ASSERT_TRUE(background);
    ASSERT_EQ(background->values.size(), subject->values.size());
    for (std::size_t i = 0; i < subject->values.size(); ++i) {
      ASSERT_EQ(background->values[i], 255 - subject->values[i]) << i;
    }
  }
}

TEST(SubjectMaskTest, MissingOrDamagedModelIsAnErrorWithItsCause) {
  test::TempDir dir;
  auto causeOf = [](SubjectSegmenter& s) -> std::string {
    try {
      s.load();
    } catch (const SubjectModelError& e) {
      return e.what();
    }
    return "";
  };
  SubjectSegmenter missing(dir / "u2netp.onnx");
  EXPECT_NE(causeOf(missing).find("cannot be read"), std::string::npos);

  std::string bytes = test::readFile(SubjectSegmenter::defaultModelFile());
  bytes[bytes.size() / 2] ^= 0x10;
  test::writeFile(dir / "u2netp.onnx", bytes);
  SubjectSegmenter damaged(dir / "u2netp.onnx");
  EXPECT_NE(causeOf(damaged).find("SHA-256"), std::string::npos);

  test::writeFile(dir / "u2netp.onnx", "");
  SubjectSegmenter empty(dir / "u2netp.onnx");
  EXPECT_NE(causeOf(empty).find("SHA-256"), std::string::npos);

  // The generator passes the cause on; the model-free kinds are unaffected.
  AutoMaskGenerator g(std::make_shared<SubjectSegmenter>(dir / "u2netp.onnx"));
  auto image = Painter(40, 30, kGround).box(0, 0, 40, 10, kSky).done();
  EXPECT_THROW(g.raster(request(AutoMaskSource::background, image)), SubjectModelError);
  EXPECT_TRUE(g.raster(request(AutoMaskSource::sky, image)));
}

}  // namespace
}  // namespace vg
