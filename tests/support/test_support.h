// Helpers shared by every test executable: where the bundled test data lives,
// scratch folders that clean up after themselves, and whole-file I/O.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

namespace vg::test {

// tests/data in the source tree (files copied from the shared test set, with
// their licence lines in tests/data/LICENSES.md).
std::filesystem::path dataPath(std::string_view relative = {});

// build/bin, where the verdantglass-cli binary is.
std::filesystem::path binPath(std::string_view name);

// A fresh, empty folder under the system temporary folder, removed with
// everything in it when the object is destroyed.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(std::string_view name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

std::string readFile(const std::filesystem::path& path);
void writeFile(const std::filesystem::path& path, std::string_view bytes);

}  // namespace vg::test
