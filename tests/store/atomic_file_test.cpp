#include <gtest/gtest.h>

#include <sys/stat.h>

#include <filesystem>

#include "store/atomic_file.h"
#include "support/test_support.h"

namespace vg {
namespace {

namespace fs = std::filesystem;

std::vector<std::string> namesIn(const fs::path& folder) {
  std::vector<std::string> names;
  for (const auto& e : fs::directory_iterator(folder)) names.push_back(e.path().filename().string());
  std::sort(names.begin(), names.end());
  return names;
}

TEST(AtomicWrite, CreatesAndReplacesWithoutLeavingTemporaryFiles) {
  test::TempDir dir;
  const fs::path target = dir / "edit-0123456789abcdef.json";
  ASSERT_EQ(writeFileAtomically(target, "{\"a\":1}"), std::nullopt);
  EXPECT_EQ(test::readFile(target), "{\"a\":1}");
  ASSERT_EQ(writeFileAtomically(target, std::string(100000, 'x')), std::nullopt);
  EXPECT_EQ(test::readFile(target), std::string(100000, 'x'));
  ASSERT_EQ(writeFileAtomically(target, ""), std::nullopt);
  EXPECT_EQ(test::readFile(target), "");
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"edit-0123456789abcdef.json"});

  struct stat info {};
  ASSERT_EQ(::stat(target.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0644u);
}

TEST(AtomicWrite, FailureLeavesTheOldFileAndNoTemporaryFile) {
  test::TempDir dir;
  // A folder in the target's place cannot be replaced by a file (not even by root).
  const fs::path blocked = dir / "blocked.json";
  fs::create_directory(blocked);
  test::writeFile(blocked / "keep", "k");
  auto error = writeFileAtomically(blocked, "new");
  ASSERT_TRUE(error.has_value());
  EXPECT_EQ(error->rfind("blocked.json: ", 0), 0u) << *error;
  EXPECT_EQ(test::readFile(blocked / "keep"), "k");
  EXPECT_EQ(namesIn(dir.path()), std::vector<std::string>{"blocked.json"});

  // A folder that does not exist.
  error = writeFileAtomically(dir / "missing" / "x.json", "new");
  ASSERT_TRUE(error.has_value());
  EXPECT_NE(error->find("No such file or directory"), std::string::npos) << *error;

  // A "folder" that is a regular file.
  test::writeFile(dir / "plain", "p");
  EXPECT_TRUE(writeFileAtomically(dir / "plain" / "x.json", "new").has_value());
  EXPECT_EQ(test::readFile(dir / "plain"), "p");
}

TEST(AtomicWrite, StaleTemporaryFilesAreRecognisedAndOnlyOldOnesRemoved) {
  EXPECT_TRUE(isAtomicWriteTemporaryName(".edit-0123456789abcdef.json.tmp-a1B2c3"));
  EXPECT_FALSE(isAtomicWriteTemporaryName("edit-0123456789abcdef.json"));
  EXPECT_FALSE(isAtomicWriteTemporaryName(".edit-0123456789abcdef.json"));
  EXPECT_FALSE(isAtomicWriteTemporaryName("x.tmp-a1B2c3"));

  test::TempDir dir;
  test::writeFile(dir / ".edit-aa.json.tmp-OLD123", "old");
  test::writeFile(dir / ".edit-bb.json.tmp-NEW123", "young");
  test::writeFile(dir / "edit-0123456789abcdef.json", "{}");
  fs::last_write_time(dir / ".edit-aa.json.tmp-OLD123",
                      fs::file_time_type::clock::now() - std::chrono::hours(2));
  fs::last_write_time(dir / "edit-0123456789abcdef.json",
                      fs::file_time_type::clock::now() - std::chrono::hours(2));
  EXPECT_EQ(removeStaleTemporaryFiles(dir.path()), 1);
  EXPECT_EQ(namesIn(dir.path()),
            (std::vector<std::string>{".edit-bb.json.tmp-NEW123", "edit-0123456789abcdef.json"}));
}

}  // namespace
}  // namespace vg
