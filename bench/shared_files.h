// Files of the shared test set for benchmarks that need real photographs.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <vector>

namespace vg::bench {

// A file of the shared test set beside the repository ($VG_SHARED_DIR, else
// ../shared from the source tree or from the folder holding it); empty when
// there is none.
inline std::filesystem::path sharedTestFile(const char* relative) {
  std::vector<std::filesystem::path> roots;
  if (const char* env = std::getenv("VG_SHARED_DIR")) roots.emplace_back(env);
  roots.push_back(std::filesystem::path(VG_SOURCE_DIR) / ".." / "shared");
  roots.push_back(std::filesystem::path(VG_SOURCE_DIR) / ".." / ".." / "shared");
  for (const auto& root : roots) {
    auto p = root / "testdata" / relative;
    if (std::filesystem::exists(p)) return p;
  }
  return {};
}

}  // namespace vg::bench
