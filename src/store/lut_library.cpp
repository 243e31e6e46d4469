#include "store/lut_library.h"

#include <fcntl.h>
#include <stdio.h>
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

constexpr std::string_view kExtension = ".cube";
constexpr size_t kMaxNameBytes = 255;

std::string candidateName(const std::string& stem, int n) {
  return (n == 1 ? stem : stem + "-" + std::to_string(n)) + std::string(kExtension);
}

// A display name that can become "<name>.cube" in the folder.
bool isUsableStem(std::string_view stem) {
  return !stem.empty() && stem[0] != '.' && stem.size() + kExtension.size() <= kMaxNameBytes &&
         std::none_of(stem.begin(), stem.end(), [](unsigned char c) {
           return c < 0x20 || c == 0x7f || c == '/' || c == '\\';
         });
}

std::string trimmed(std::string s) {
  auto notSpace = [](unsigned char c) { return !std::isspace(c); };
  s.erase(s.begin(), std::find_if(s.begin(), s.end(), notSpace));
  s.erase(std::find_if(s.rbegin(), s.rend(), notSpace).base(), s.end());
  return s;
}

}  // namespace

LutLibrary::LutLibrary(std::filesystem::path folder, Inspector inspector)
    : folder_(std::move(folder)), inspector_(std::move(inspector)) {}

bool LutLibrary::isLibraryFileName(std::string_view name) {
  return name.size() > kExtension.size() && name.substr(name.size() - kExtension.size()) == kExtension &&
         isUsableStem(name.substr(0, name.size() - kExtension.size()));
}

LutLibrary::Entry LutLibrary::inspect(const std::string& filename) const {
  const auto path = folder_ / filename;
  std::error_code ec;
  const auto modified = std::filesystem::last_write_time(path, ec);
  const auto bytes = ec ? 0 : std::filesystem::file_size(path, ec);
  if (auto hit = cache_.find(filename);
      hit != cache_.end() && !ec && hit->second.modified == modified && hit->second.entry.bytes == bytes) {
    return hit->second.entry;
  }
  Entry entry{filename, filename.substr(0, filename.size() - kExtension.size()), {}, 0, bytes, {}};
  auto facts = inspector_(path);
  if (auto* info = std::get_if<LutInfo>(&facts)) {
    entry.title = std::move(info->title);
    entry.size = info->size;
  } else {
    entry.error = std::move(std::get<std::string>(facts));
  }
  if (!ec) cache_[filename] = {modified, entry};
  return entry;
}

std::vector<LutLibrary::Entry> LutLibrary::list() const {
  std::vector<std::string> names;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(folder_, ec);
       !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    std::string name = it->path().filename().string();
    std::error_code typeError;
    if (isLibraryFileName(name) && it->is_regular_file(typeError)) names.push_back(std::move(name));
  }
  std::sort(names.begin(), names.end());
  std::vector<Entry> out;
  out.reserve(names.size());
  for (const auto& name : names) out.push_back(inspect(name));
  return out;
}

LutLibrary::Result LutLibrary::import(const std::filesystem::path& source) {
  auto facts = inspector_(source);
  if (auto* rejection = std::get_if<std::string>(&facts)) return {std::nullopt, *rejection};
  std::string stem = std::filesystem::path(bareLUTFileName(source.filename().string())).stem().string();
  if (!isUsableStem(stem)) return {std::nullopt, "无法导入 LUT：文件名无效"};

  std::error_code ec;
  std::filesystem::create_directories(folder_, ec);
  std::string error;
  auto temp = copyToTemporary(source, folder_, error);
  if (temp.empty()) return {std::nullopt, error};

  // link() never replaces an existing file, so two imports of the same name
  // (even from two processes) end up under two names.
  const std::string bare = stem + std::string(kExtension);
  Result result{std::nullopt, "无法导入 LUT：" + bare};
  for (int n = 1; n < 10000; ++n) {
    std::string name = candidateName(stem, n);
    if (!isLibraryFileName(name)) break;
    if (::link(temp.c_str(), (folder_ / name).c_str()) == 0) {
      result = {inspect(name), {}};
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

LutLibrary::Result LutLibrary::rename(std::string_view filename, std::string newName) {
  newName = trimmed(std::move(newName));
  if (newName.empty()) return {std::nullopt, "LUT 名称不能为空"};
  if (!isUsableStem(newName)) return {std::nullopt, "LUT 名称无效"};
  if (!resolve(filename)) return {std::nullopt, "找不到该 LUT"};
  const std::string target = newName + std::string(kExtension);
  if (target == filename) return {inspect(target), {}};
  // RENAME_NOREPLACE: an existing file of the new name is never replaced.
  if (::renameat2(AT_FDCWD, (folder_ / std::string(filename)).c_str(), AT_FDCWD,
                  (folder_ / target).c_str(), RENAME_NOREPLACE) != 0) {
    if (errno == EEXIST) return {std::nullopt, "已有同名 LUT「" + newName + "」"};
    return {std::nullopt, std::string("无法重命名 LUT：") + std::strerror(errno)};
  }
  if (auto hit = cache_.find(filename); hit != cache_.end()) cache_.erase(hit);
  return {inspect(target), {}};
}

bool LutLibrary::remove(std::string_view filename) {
  if (!resolve(filename)) return false;
  std::error_code ec;
  return std::filesystem::remove(folder_ / std::string(filename), ec);
}

std::optional<std::filesystem::path> LutLibrary::resolve(std::string_view filename) const {
  if (!isLibraryFileName(filename)) return std::nullopt;
  std::error_code ec;
  auto candidate = folder_ / std::string(filename);
  auto real = std::filesystem::canonical(candidate, ec);
  if (ec) return std::nullopt;
  auto realFolder = std::filesystem::canonical(folder_, ec);
  if (ec || real.parent_path() != realFolder) return std::nullopt;
  if (!std::filesystem::is_regular_file(real, ec)) return std::nullopt;
  return real;
}

}  // namespace vg
