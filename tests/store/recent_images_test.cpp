#include <gtest/gtest.h>

#include <set>

#include "store/recent_images.h"
#include "support/test_support.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

TEST(RecentImages, NewestFirstWithoutRepeatsAndAtMostTwenty) {
  RecentImages recent;
  for (int i = 0; i < 25; ++i) recent.noteOpened("/photos/" + std::to_string(i) + ".jpg");
  ASSERT_EQ(recent.images().size(), RecentImages::kMax);
  EXPECT_EQ(recent.images().front(), "/photos/24.jpg");
  EXPECT_EQ(recent.images().back(), "/photos/5.jpg") << "the oldest fell off";

  recent.noteOpened("/photos/trip/../10.jpg");
  EXPECT_EQ(recent.images().front(), "/photos/10.jpg");
  EXPECT_EQ(recent.images().size(), RecentImages::kMax) << "moved, not repeated";
  EXPECT_EQ(recent.images()[1], "/photos/24.jpg");

  recent.noteOpened("relative.jpg");
  EXPECT_EQ(recent.images().front(), fs::current_path() / "relative.jpg");

  // Read back leniently from settings.
  RecentImages stored({"/a.jpg", "", "relative.jpg", "/b/./c.jpg", "/a.jpg", "/b/c.jpg"});
  EXPECT_EQ(stored.toStrings(), (std::vector<std::string>{"/a.jpg", "/b/c.jpg"}));
  std::vector<std::string> many;
  for (int i = 0; i < 30; ++i) many.push_back("/" + std::to_string(i));
  EXPECT_EQ(RecentImages(many).images().size(), RecentImages::kMax);

  recent.clear();
  EXPECT_TRUE(recent.images().empty());
}

TEST(RecentImages, MissingFilesArePrunedWhenShown) {
  test::TempDir dir;
  test::writeFile(dir / "kept.jpg", "x");
  fs::create_directory(dir / "folder.jpg");
  RecentImages recent;
  for (const char* name : {"gone.jpg", "kept.jpg", "folder.jpg"}) recent.noteOpened(dir / name);
  EXPECT_TRUE(recent.pruneMissing());
  EXPECT_EQ(recent.images(), std::vector<fs::path>{dir / "kept.jpg"});
  EXPECT_FALSE(recent.pruneMissing()) << "nothing more to store";
}

}  // namespace
}  // namespace vg
