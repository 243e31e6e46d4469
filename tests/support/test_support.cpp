#include "support/test_support.h"

#include <cstdlib>
#include <fstream>
#include <random>
#include <sstream>
#include <stdexcept>

namespace vg::test {

std::filesystem::path dataPath(std::string_view relative) {
  return std::filesystem::path(VG_TEST_DATA_DIR) / relative;
}

std::filesystem::path binPath(std::string_view name) {
  return std::filesystem::path(VG_BIN_DIR) / name;
}

TempDir::TempDir() {
  std::random_device rd;
  std::mt19937_64 gen(rd());
  auto base = std::filesystem::temp_directory_path();
  for (int attempt = 0; attempt < 100; ++attempt) {
    auto candidate = base / ("vg-test-" + std::to_string(gen()));
    if (std::filesystem::create_directory(candidate)) {
      path_ = candidate;
      return;
    }
  }
  throw std::runtime_error("cannot create a temporary folder");
}

TempDir::~TempDir() {
  std::error_code ec;
  // Tests may leave read-only folders behind on purpose; make them writable first.
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
       !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec)) {
    std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
  }
  std::filesystem::remove_all(path_, ec);
}

std::string readFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw std::runtime_error("cannot read " + path.string());
  std::ostringstream ss;
  ss << in.rdbuf();
  return ss.str();
}

void writeFile(const std::filesystem::path& path, std::string_view bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  if (!out) throw std::runtime_error("cannot write " + path.string());
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
}

}  // namespace vg::test
