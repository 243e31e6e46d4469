#include <gtest/gtest.h>

#include <unistd.h>

#include <filesystem>
#include <set>

#include "store/sidecar_name.h"
#include "support/test_support.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

TEST(FileURLText, PercentEncodesEverythingButTheURLPathCharacters) {
  EXPECT_EQ(fileURLText("/tmp/photo.jpg"), "file:///tmp/photo.jpg");
  EXPECT_EQ(fileURLText("/My Photos/\xE5\xBC\xA0.HEIC"), "file:///My%20Photos/%E5%BC%A0.HEIC");
  EXPECT_EQ(fileURLText("/a/!$&'()*+,-.:;=@_~"), "file:///a/!$&'()*+,-.:;=@_~");
  EXPECT_EQ(fileURLText("/a/100%#1?x[y]\"z\\"), "file:///a/100%25%231%3Fx%5By%5D%22z%5C");
  EXPECT_EQ(fileURLText("/tab\there"), "file:///tab%09here");
}

TEST(SidecarDigest, IsThePrefixOfSHA256OverTheURLText) {
  // sha256("file:///tmp/photo.jpg"), computed independently.
  const std::string full = "0d7d813d2bbc7f5d672001ae525150a48b34df8e8d9c43c4c95ca89c1d1a9dba";
  EXPECT_EQ(sidecarDigest("/tmp/photo.jpg", false, 16), full.substr(0, 32));
  EXPECT_EQ(sidecarDigest("/tmp/photo.jpg", false, 8), full.substr(0, 16));
  // sha256("file:///Users/%E5%BC%A0/My%20Photos/IMG_0001.HEIC")
  EXPECT_EQ(sidecarDigest("/Users/\xE5\xBC\xA0/My Photos/IMG_0001.HEIC", false, 16),
            "cb5ae520a65cfe482f48a2bc2214453b");
}

TEST(SidecarDigest, StandardisesDotsSeparatorsAndRelativePaths) {
  const std::string expected = sidecarDigest("/tmp/photo.jpg", false, 16);
  EXPECT_EQ(sidecarDigest("/tmp/./photo.jpg", false, 16), expected);
  EXPECT_EQ(sidecarDigest("/tmp/album/../photo.jpg", false, 16), expected);
  EXPECT_EQ(sidecarDigest("//tmp///photo.jpg", false, 16), expected);
  EXPECT_EQ(sidecarDigest("/tmp/photo.jpg/", false, 16), expected);
  EXPECT_NE(sidecarDigest("/tmp/photo.JPG", false, 16), expected);

  test::TempDir dir;
  const fs::path previous = fs::current_path();
  fs::current_path(dir.path());
  const std::string relative = sidecarDigest("photo.jpg", false, 16);
  fs::current_path(previous);
  EXPECT_EQ(relative, sidecarDigest(dir / "photo.jpg", false, 16));
}

TEST(SidecarNames, SymlinkAndRealPathShareTheCurrentName) {
  test::TempDir dir;
  fs::create_directory(dir / "real");
  test::writeFile(dir / "real" / "photo.jpg", "x");
  fs::create_symlink(dir / "real", dir / "linked-folder");
  fs::create_symlink(dir / "real" / "photo.jpg", dir / "linked-photo.jpg");

  const SidecarNames real = sidecarNames(dir / "real" / "photo.jpg");
  for (const fs::path& alias : {dir / "linked-folder" / "photo.jpg", dir / "linked-photo.jpg",
                                dir / "linked-folder" / "." / "photo.jpg"}) {
    SCOPED_TRACE(alias.string());
    const SidecarNames viaLink = sidecarNames(alias);
    EXPECT_EQ(viaLink.current, real.current);
    EXPECT_EQ(viaLink.oldest, real.oldest);
    // The older name hashes the path as given, so it tells the two apart.
    EXPECT_NE(viaLink.older, real.older);
  }
  // Without links, the current and older names coincide.
  EXPECT_EQ(real.current, real.older);
}

TEST(SidecarNames, DotDotIsRemovedBeforeLinksAreResolved) {
  // "link/.." is taken lexically: it means the folder holding the link, not
  // the parent of the link's target.
  test::TempDir dir;
  fs::create_directories(dir / "deep" / "inner");
  fs::create_symlink(dir / "deep" / "inner", dir / "link");
  EXPECT_EQ(sidecarNames(dir / "link" / ".." / "photo.jpg").current,
            sidecarNames(dir / "photo.jpg").current);
}

TEST(SidecarFileName, AcceptsOnlyTheStorePattern) {
  EXPECT_TRUE(isSidecarFileName("edit-0123456789abcdef.json"));
  EXPECT_TRUE(isSidecarFileName("edit-0123456789abcdef0123456789abcdef.json"));
  for (const char* bad :
       {"edit-0123456789ABCDEF.json", "edit-0123456789abcde.json", "edit-0123456789abcdef0.json",
        "edit-0123456789abcdeg.json", "edit-0123456789abcdef.json.tmp", "xedit-0123456789abcdef.json",
        "edit-0123456789abcdef.corrupt-1700000000.json", "edit-.json", "",
        ".edit-0123456789abcdef.json.tmp-abcdef"}) {
    EXPECT_FALSE(isSidecarFileName(bad)) << bad;
  }
}

}  // namespace
}  // namespace vg
