#include "store/lut_library.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <system_error>

#include "model/json.h"
#include "model/uuid.h"

namespace vg {
namespace {

// Copies `source` to a fresh temporary file inside `folder`; empty on failure.
std::filesystem::path copyToTemporary(const std::filesystem::path& source,
                                      const std::filesystem::path& folder, std::string& error) {
  auto temp = folder / (".import-" + Uuid::random().toString() + ".tmp");
  std::ifstream in(source, std::ios::binary);
  std::ofstream out(temp, std::ios::binary | std::ios::trunc);
  if (!in || !out) {
    error = "无法导入 LUT：" + source.filename().string();
    return {};
  }
  out << in.rdbuf();
  out.flush();
  if (!out || in.bad()) {
    std::error_code ec;
    out.close();
    std::filesystem::remove(temp, ec);
    error = "无法导入 LUT：" + source.filename().string();
    return {};
  }
  return temp;
}

std::string candidateName(const std::string& stem, const std::string& ext, int n) {
  return n == 1 ? stem + ext : stem + "-" + std::to_string(n) + ext;
}

}  // namespace

LutLibrary::LutLibrary(std::filesystem::path folder, Validator validator)
    : folder_(std::move(folder)), validator_(std::move(validator)) {}

std::vector<LutLibrary::Entry> LutLibrary::list() const {
  std::vector<Entry> out;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(folder_, ec);
       !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    std::string name = it->path().filename().string();
    if (name.empty() || name[0] == '.' || !it->is_regular_file(ec)) continue;
    out.push_back({name, it->path().stem().string()});
  }
  std::sort(out.begin(), out.end(),
            [](const Entry& a, const Entry& b) { return a.filename < b.filename; });
  return out;
}

LutLibrary::ImportResult LutLibrary::import(const std::filesystem::path& source) {
  if (auto rejection = validator_(source)) return {std::nullopt, *rejection};
  std::string bare = bareLUTFileName(source.filename().string());
  if (bare.empty() || bare[0] == '.') return {std::nullopt, "无法导入 LUT：文件名无效"};

  std::error_code ec;
  std::filesystem::create_directories(folder_, ec);
  std::string error;
  auto temp = copyToTemporary(source, folder_, error);
  if (temp.empty()) return {std::nullopt, error};

  // link() never replaces an existing file, so two imports of the same name
  // (even from two processes) end up under two names.
  std::filesystem::path stemPath(bare);
  std::string stem = stemPath.stem().string(), ext = stemPath.extension().string();
  ImportResult result{std::nullopt, "无法导入 LUT：" + bare};
  for (int n = 1; n < 10000; ++n) {
    std::string name = candidateName(stem, ext, n);
    if (::link(temp.c_str(), (folder_ / name).c_str()) == 0) {
      result = {Entry{name, std::filesystem::path(name).stem().string()}, {}};
      break;
    }
    if (errno != EEXIST) {
      result.error = "无法导入 LUT：" + bare + "（" + std::strerror(errno) + "）";
      break;
    }
  }
  std::filesystem::remove(temp, ec);
  return result;
}

bool LutLibrary::remove(std::string_view filename) {
  auto path = resolve(filename);
  if (!path) return false;
  std::error_code ec;
  return std::filesystem::remove(folder_ / std::filesystem::path(*path).filename(), ec);
}

std::optional<std::filesystem::path> LutLibrary::resolve(std::string_view filename) const {
  std::string bare = bareLUTFileName(filename);
  if (bare.empty() || bare != filename || bare[0] == '.') return std::nullopt;
  std::error_code ec;
  auto candidate = folder_ / bare;
  auto real = std::filesystem::canonical(candidate, ec);
  if (ec) return std::nullopt;
  auto realFolder = std::filesystem::canonical(folder_, ec);
  if (ec || real.parent_path() != realFolder) return std::nullopt;
  if (!std::filesystem::is_regular_file(real, ec)) return std::nullopt;
  return real;
}

}  // namespace vg
