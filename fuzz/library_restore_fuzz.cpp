// Fuzz target for restoring a library backup: arbitrary bytes as the archive.
//
// Checks, beyond "no crash, no sanitizer report":
// - a refused restore changes nothing: the support folder stays empty;
// - after a restore, the only things under the scratch root are the support
//   folder, its three library folders and regular files in them whose names
//   follow their folder's pattern (no staging folder, no link, nothing
//   outside);
// - the summary accounts for every file it says it added.
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

#include "store/library_folders.h"
#include "store/library_restore.h"

#include "fuzz_check.h"

using vg::fuzz::check;
namespace fs = std::filesystem;

namespace {

const fs::path& scratchRoot() {
  static const fs::path root = [] {
    fs::path p = fs::temp_directory_path() / ("vg-restore-fuzz-" + std::to_string(::getpid()));
    fs::remove_all(p);
    fs::create_directories(p);
    return p;
  }();
  return root;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const fs::path& root = scratchRoot();
  const fs::path support = root / "support";
  fs::create_directories(support);

  vg::RestoreOptions options;
  options.maxEntries = 1000;
  options.maxTotalBytes = 4 << 20;
  const auto result =
      vg::restoreLibraryFromMemory(std::string_view(reinterpret_cast<const char*>(data), size), support, options);
  check(result.summary.has_value() != !result.error.empty(), "a summary or an error, never both");

  for (const auto& entry : fs::directory_iterator(root)) check(entry.path() == support, "nothing beside the support folder");
  size_t files = 0;
  for (auto it = fs::recursive_directory_iterator(support); it != fs::recursive_directory_iterator(); ++it) {
    const fs::path rel = it->path().lexically_relative(support);
    check(!it->is_symlink(), "no link is restored");
    const auto depth = std::distance(rel.begin(), rel.end());
    const vg::LibraryFolder* folder = vg::findLibraryFolder(rel.begin()->string());
    check(folder != nullptr, "only the library folders");
    if (depth == 1) {
      check(it->is_directory(), "a library folder is a folder");
    } else {
      check(depth == 2 && it->is_regular_file() && folder->isMemberName(rel.filename().string()),
            "only library files, one level deep");
      ++files;
    }
  }
  if (result.summary) {
    check(files == result.summary->added.size(), "every file written is listed as added");
  } else {
    check(files == 0, "a refused archive writes nothing");
  }
  fs::remove_all(support);
  return 0;
}
