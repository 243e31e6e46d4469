// What an export must never do: overwrite the source, leave a partial file at
// the destination, or leave its temporary file behind; and the settings it
// refuses with the user's own messages.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cmath>
#include <regex>

#include "export_readback.h"
#include "io/image_exporter.h"
#include "support/test_support.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

Image grey(int w, int h) {
  Image img(w, h);
  for (int y = 0; y < h; ++y)
    for (int x = 0; x < w; ++x) {
      float* p = img.at(x, y);
      p[0] = p[1] = p[2] = 0.4f;
      p[3] = 1;
    }
  return img;
}

// Everything in dir except the given names (temporary leftovers show up here).
std::vector<std::string> strays(const fs::path& dir, std::initializer_list<std::string> expected) {
  std::vector<std::string> out;
  for (const auto& e : fs::directory_iterator(dir)) {
    std::string name = e.path().filename().string();
    if (std::find(expected.begin(), expected.end(), name) == expected.end()) out.push_back(name);
  }
  return out;
}

template <typename Fn>
ExportError::Code failureCode(Fn&& fn) {
  try {
    fn();
  } catch (const ExportError& e) {
    EXPECT_EQ(e.domain(), "Verdantglass.Exporter");
    EXPECT_EQ(std::string(e.what()), ExportError::messageFor(e.code()));
    return e.code();
  }
  ADD_FAILURE() << "no ExportError";
  return ExportError::Code(0);
}

TEST(ExportSafety, TheSourceIsRefusedUnderEverySpelling) {
  test::TempDir dir;
  fs::create_directory(dir / "photos");
  const fs::path source = dir / "photos" / "IMG_1.jpg";
  test::writeFile(source, "original bytes");
  fs::create_symlink(source, dir / "link.jpg");
  fs::create_hard_link(source, dir / "hard.jpg");
  Image img = grey(8, 8);
  ImageExporter::Options o;
  o.metadataSourceURL = source;

  for (const fs::path& dest : {source, dir / "photos" / ".." / "photos" / "IMG_1.jpg", dir / "link.jpg",
                               dir / "hard.jpg"}) {
    EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(img, dest, o); }), ExportError::kWouldOverwriteSource)
        << dest;
  }
  // The source is also protected when it is reached through the link.
  o.metadataSourceURL = dir / "link.jpg";
  EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(img, source, o); }), ExportError::kWouldOverwriteSource);

  EXPECT_EQ(test::readFile(source), "original bytes");
  EXPECT_TRUE(strays(dir.path(), {"photos", "link.jpg", "hard.jpg"}).empty());
  EXPECT_TRUE(strays(dir / "photos", {"IMG_1.jpg"}).empty());

  // A different file beside it is fine.
  o.metadataSourceURL = source;
  EXPECT_EQ(ImageExporter::exportImage(img, dir / "photos" / "IMG_1-edit.jpg", o), ImageExporter::Result::written);
}

TEST(ExportSafety, InvalidSettingsAndImpossibleSizesFailWithTheirCodes) {
  test::TempDir dir;
  Image img = grey(8, 8);
  ImageExporter::Options o;
  o.quality = 1.0;
  EXPECT_EQ(ImageExporter::exportImage(img, dir / "q1.jpg", o), ImageExporter::Result::written);
  for (double q : {1.01, -0.01, std::nan(""), HUGE_VAL}) {
    o.quality = q;
    EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(img, dir / "bad.jpg", o); }),
              ExportError::kInvalidSettings)
        << q;
  }
  o.quality = 0.9;
  o.longEdge = 0;
  EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(img, dir / "bad.jpg", o); }), ExportError::kInvalidSettings);
  o.longEdge = -5;
  EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(img, dir / "bad.jpg", o); }), ExportError::kInvalidSettings);

  // Sizes are refused before a single band is rendered.
  struct Huge final : BandSource {
    int w, h;
    Huge(int w, int h) : w(w), h(h) {}
    int width() const override { return w; }
    int height() const override { return h; }
    bool opaque() const override { return true; }
    Image renderBand(const Rect&) override { throw std::logic_error("must not render"); }
  };
  o.longEdge.reset();
  Huge wide(1'000'001, 1);
  EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(wide, dir / "wide.jpg", o); }), ExportError::kRenderFailed);
  Huge big(100'000, 100'000);  // 40 GB even at 4 bytes a pixel
  EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(big, dir / "big.jpg", o); }), ExportError::kRenderFailed);
  Huge empty(0, 10);
  EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(empty, dir / "e.jpg", o); }), ExportError::kRenderFailed);
  EXPECT_TRUE(strays(dir.path(), {"q1.jpg"}).empty());
}

TEST(ExportSafety, TemporaryFileIsNamedAndPlacedBesideTheDestination) {
  test::TempDir dir;
  Image img = grey(8, 8);
  ImageExporter::Options o;
  o.format = ExportFormat::png;
  std::vector<fs::path> seen;
  std::vector<fs::perms> folderPerms;
  auto spy = [&] {
    for (const auto& e : fs::recursive_directory_iterator(dir.path())) {
      seen.push_back(e.path());
      folderPerms.push_back(fs::status(e.path().parent_path()).permissions() & fs::perms::all);
    }
    return false;
  };
  ImageExporter::exportImage(img, dir / "out.PNG", o, spy);
  const std::regex name(R"(\.verdantglass-export-[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}\.PNG)");
  bool found = false;
  for (size_t i = 0; i < seen.size(); ++i)
    if (std::regex_match(seen[i].filename().string(), name)) {
      found = true;
      EXPECT_EQ(seen[i].parent_path().parent_path(), dir.path());  // private folder on the same file system
      EXPECT_EQ(folderPerms[i], fs::perms::owner_all);
    }
  EXPECT_TRUE(found);
  EXPECT_TRUE(strays(dir.path(), {"out.PNG"}).empty());

  // Without an extension the format's own is used.
  seen.clear();
  o.format = ExportFormat::tiff;
  ImageExporter::exportImage(img, dir / "noext", o, spy);
  EXPECT_TRUE(std::any_of(seen.begin(), seen.end(), [](const fs::path& p) { return p.extension() == ".tiff"; }));
}

TEST(ExportSafety, CancellingAfterEncodingLeavesThePreviousFile) {
  test::TempDir dir;
  test::writeFile(dir / "out.jpg", "previous export");
  Image img = grey(16, 16);
  bool asked = false;
  auto result = ImageExporter::exportImage(img, dir / "out.jpg", {}, [&] { return asked = true; });
  EXPECT_TRUE(asked);
  EXPECT_EQ(result, ImageExporter::Result::cancelled);
  EXPECT_EQ(test::readFile(dir / "out.jpg"), "previous export");
  EXPECT_TRUE(strays(dir.path(), {"out.jpg"}).empty());

  // Not cancelled: the same call replaces it.
  EXPECT_EQ(ImageExporter::exportImage(img, dir / "out.jpg", {}, [] { return false; }), ImageExporter::Result::written);
  EXPECT_EQ(test::readJpeg(dir / "out.jpg").width, 16);
  EXPECT_TRUE(strays(dir.path(), {"out.jpg"}).empty());
}

TEST(ExportSafety, AFailingWriteLeavesTheDestinationAsItWas) {
  test::TempDir dir;
  test::writeFile(dir / "out.tif", "previous export");
  // Busy enough that no format gets it under the limit.
  Image noisy(1024, 1024);
  for (int y = 0; y < 1024; ++y)
    for (int x = 0; x < 1024; ++x) {
      float* p = noisy.at(x, y);
      p[0] = float((x * 7919 + y * 104729) % 251) / 250.0f;
      p[1] = float((x * 31 + y * 17) % 97) / 96.0f;
      p[2] = float((x ^ y) & 255) / 255.0f;
      p[3] = 1;
    }

  // The file-size limit makes every write past 64 KiB fail with EFBIG.
  struct sigaction ignore {}, previous {};
  ignore.sa_handler = SIG_IGN;
  sigaction(SIGXFSZ, &ignore, &previous);
  rlimit old{};
  getrlimit(RLIMIT_FSIZE, &old);
  rlimit limit = old;
  limit.rlim_cur = 64 * 1024;
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  ImageExporter::Options o;
  o.format = ExportFormat::tiff;
  ExportError::Code tiffCode = failureCode([&] { ImageExporter::exportImage(noisy, dir / "out.tif", o); });
  o.format = ExportFormat::png;
  ExportError::Code pngCode = failureCode([&] { ImageExporter::exportImage(noisy, dir / "out.tif", o); });
  o.format = ExportFormat::jpeg;
  o.quality = 1.0;
  ExportError::Code jpegCode = failureCode([&] { ImageExporter::exportImage(noisy, dir / "out.tif", o); });
  setrlimit(RLIMIT_FSIZE, &old);
  sigaction(SIGXFSZ, &previous, nullptr);

  EXPECT_EQ(tiffCode, ExportError::kWriteFailed);
  EXPECT_EQ(pngCode, ExportError::kWriteFailed);
  EXPECT_EQ(jpegCode, ExportError::kWriteFailed);
  EXPECT_TRUE(test::readFile(dir / "out.tif") == "previous export");
  EXPECT_TRUE(strays(dir.path(), {"out.tif"}).empty());
}

TEST(ExportSafety, AFolderThatCannotTakeTheFileFailsToCreate) {
  test::TempDir dir;
  Image img = grey(8, 8);
  EXPECT_EQ(failureCode([&] { ImageExporter::exportImage(img, dir / "missing" / "out.jpg", {}); }),
            ExportError::kCreateFailed);
  EXPECT_TRUE(strays(dir.path(), {}).empty());
}

TEST(ExportSafety, TheReplaceErrorIsPassedOnAndNothingIsLeft) {
  test::TempDir dir;
  fs::create_directory(dir / "taken.jpg");  // a folder cannot be replaced by a file
  test::writeFile(dir / "taken.jpg" / "inside", "x");
  Image img = grey(8, 8);
  EXPECT_THROW(ImageExporter::exportImage(img, dir / "taken.jpg", {}), std::system_error);
  EXPECT_TRUE(fs::is_directory(dir / "taken.jpg"));
  EXPECT_TRUE(strays(dir.path(), {"taken.jpg"}).empty());
}

}  // namespace
}  // namespace vg
