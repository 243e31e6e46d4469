#include "store/preset_library.h"

#include <algorithm>
#include <fstream>
#include <sstream>
#include <system_error>

#include "model/json.h"
#include "model/uuid.h"
#include "store/atomic_file.h"

namespace vg {
namespace {

constexpr std::string_view kUserPrefix = "user-";
constexpr std::string_view kExtension = ".json";

std::string trimmed(std::string s) {
  auto notSpace = [](unsigned char c) { return !std::isspace(c); };
  s.erase(s.begin(), std::find_if(s.begin(), s.end(), notSpace));
  s.erase(std::find_if(s.rbegin(), s.rend(), notSpace).base(), s.end());
  return s;
}

// A user id is "user-" followed by a UUID; nothing else can name a file here.
bool isUserId(std::string_view id) {
  return id.size() > kUserPrefix.size() && id.substr(0, kUserPrefix.size()) == kUserPrefix &&
         Uuid::parse(id.substr(kUserPrefix.size())).has_value();
}

bool hasControlCharacter(std::string_view s) {
  return std::any_of(s.begin(), s.end(), [](unsigned char c) { return c < 0x20 || c == 0x7f; });
}

}  // namespace

PresetLibrary::PresetLibrary(std::filesystem::path folder) : folder_(std::move(folder)) {}

bool PresetLibrary::isPresetFileName(std::string_view fileName) {
  return fileName.size() > kExtension.size() &&
         fileName.substr(fileName.size() - kExtension.size()) == kExtension &&
         isUserId(fileName.substr(0, fileName.size() - kExtension.size()));
}

std::filesystem::path PresetLibrary::fileFor(std::string_view id) const {
  return folder_ / (std::string(id) + std::string(kExtension));
}

std::variant<FilterPreset, std::string> PresetLibrary::decodeWithReason(std::string_view jsonText,
                                                                        std::string_view fileStem) {
  auto json = nlohmann::json::parse(jsonText, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object()) return std::string("不是有效的预设文件");
  FilterPreset p;
  auto id = json.find("id");
  if (id == json.end() || !id->is_string() || !isUserId(id->get<std::string>())) {
    return std::string("缺少有效的预设 id");
  }
  p.id = id->get<std::string>();
  if (p.id != fileStem) {
    return std::string("预设 id 与文件名不符");
  }
  auto name = json.find("name");
  if (name != json.end() && name->is_string()) p.name = trimmed(name->get<std::string>());
  if (p.name.empty()) p.name = p.id;
  if (auto a = json.find("adjustments"); a != json.end()) {
    p.adjustments = decodeGlobalAdjustments(*a).value_or(GlobalAdjustments{});
  }
  if (auto l = json.find("lut"); l != json.end()) p.lut = decodeAppliedLUT(*l);
  return p;
}

std::optional<FilterPreset> PresetLibrary::decode(std::string_view jsonText, std::string_view fileStem) {
  auto result = decodeWithReason(jsonText, fileStem);
  if (auto* preset = std::get_if<FilterPreset>(&result)) return std::move(*preset);
  return std::nullopt;
}

std::string PresetLibrary::encode(const FilterPreset& preset) {
  nlohmann::ordered_json json;
  json["id"] = preset.id;
  json["name"] = preset.name;
  json["adjustments"] = toJson(preset.adjustments);
  if (preset.lut) json["lut"] = toJson(*preset.lut);
  return dumpCompact(json);
}

std::variant<FilterPreset, std::string> PresetLibrary::read(const std::filesystem::path& file) const {
  std::error_code ec;
  const auto bytes = std::filesystem::file_size(file, ec);
  if (!ec && bytes > kMaxFileBytes) return std::string("文件过大");
  std::ifstream in(file, std::ios::binary);
  if (ec || !in) return std::string("无法读取文件");
  std::stringstream ss;
  ss << in.rdbuf();
  if (in.bad()) return std::string("无法读取文件");
  return decodeWithReason(ss.str(), file.stem().string());
}

std::string PresetLibrary::write(const FilterPreset& preset) {
  std::error_code ec;
  std::filesystem::create_directories(folder_, ec);
  if (auto failure = writeFileAtomically(fileFor(preset.id), encode(preset))) {
    return "无法保存预设：" + *failure;
  }
  return {};
}

std::string PresetLibrary::checkName(std::string& name, std::string_view exceptId) const {
  name = trimmed(std::move(name));
  if (name.empty()) return "预设名称不能为空";
  if (hasControlCharacter(name)) return "预设名称不能包含控制字符";
  for (const auto& p : list()) {
    if (p.name == name && p.id != exceptId) return "已有同名预设「" + name + "」";
  }
  return {};
}

PresetLibrary::UserListing PresetLibrary::scanUserPresets() const {
  UserListing out;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(folder_, ec);
       !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    const std::string name = it->path().filename().string();
    // Hidden files include the temporary files of writes in progress.
    std::error_code typeError;
    if (name.empty() || name[0] == '.' || it->path().extension() != kExtension ||
        it->is_directory(typeError)) {
      continue;
    }
    auto result = read(it->path());
    if (auto* preset = std::get_if<FilterPreset>(&result)) {
      out.presets.push_back(std::move(*preset));
    } else {
      out.damaged.push_back({name, std::get<std::string>(result)});
    }
  }
  std::sort(out.presets.begin(), out.presets.end(), [](const FilterPreset& a, const FilterPreset& b) {
    return a.name != b.name ? a.name < b.name : a.id < b.id;
  });
  std::sort(out.damaged.begin(), out.damaged.end(),
            [](const DamagedFile& a, const DamagedFile& b) { return a.fileName < b.fileName; });
  return out;
}

std::vector<FilterPreset> PresetLibrary::list() const {
  auto builtIns = builtInPresets();
  std::vector<FilterPreset> out(builtIns.begin(), builtIns.end());
  auto user = userPresets();
  out.insert(out.end(), user.begin(), user.end());
  return out;
}

std::optional<FilterPreset> PresetLibrary::find(std::string_view id) const {
  if (const auto* builtIn = findBuiltInPreset(id)) return *builtIn;
  if (!isUserId(id)) return std::nullopt;
  auto result = read(fileFor(id));
  if (auto* preset = std::get_if<FilterPreset>(&result)) return std::move(*preset);
  return std::nullopt;
}

PresetLibrary::Result PresetLibrary::saveNew(std::string name, const GlobalAdjustments& adjustments,
                                             const std::optional<AppliedLUT>& lut) {
  if (auto error = checkName(name, {}); !error.empty()) return {std::nullopt, error};
  FilterPreset p{std::string(kUserPrefix) + Uuid::random().toString(), std::move(name),
                 adjustments, lut};
  p.adjustments.hsl.normalize();
  if (auto error = write(p); !error.empty()) return {std::nullopt, error};
  return {p, {}};
}

PresetLibrary::Result PresetLibrary::duplicate(std::string_view id, std::string name) {
  auto source = find(id);
  if (!source) return {std::nullopt, "找不到该预设"};
  if (trimmed(name).empty()) {
    const auto all = list();
    auto taken = [&](const std::string& candidate) {
      return std::any_of(all.begin(), all.end(), [&](const FilterPreset& p) { return p.name == candidate; });
    };
    name = source->name + " 副本";
    for (int n = 2; taken(name); ++n) name = source->name + " 副本 " + std::to_string(n);
  }
  return saveNew(std::move(name), source->adjustments, source->lut);
}

PresetLibrary::Result PresetLibrary::rename(std::string_view id, std::string newName) {
  if (findBuiltInPreset(id)) return {std::nullopt, "内置预设不能重命名"};
  auto existing = isUserId(id) ? find(id) : std::nullopt;
  if (!existing) return {std::nullopt, "找不到该预设"};
  if (auto error = checkName(newName, id); !error.empty()) return {std::nullopt, error};
  existing->name = std::move(newName);
  if (auto error = write(*existing); !error.empty()) return {std::nullopt, error};
  return {existing, {}};
}

PresetLibrary::Result PresetLibrary::remove(std::string_view id) {
  if (findBuiltInPreset(id)) return {std::nullopt, "内置预设不能删除"};
  auto existing = isUserId(id) ? find(id) : std::nullopt;
  if (!existing) return {std::nullopt, "找不到该预设"};
  std::error_code ec;
  if (!std::filesystem::remove(fileFor(id), ec)) {
    return {std::nullopt, "无法删除预设：" + (ec ? ec.message() : std::string("文件已不存在"))};
  }
  return {existing, {}};
}

bool PresetLibrary::removeDamaged(std::string_view fileName) {
  const auto damaged = scanUserPresets().damaged;
  const bool listed = std::any_of(damaged.begin(), damaged.end(),
                                  [&](const DamagedFile& d) { return d.fileName == fileName; });
  std::error_code ec;
  return listed && std::filesystem::remove(folder_ / std::string(fileName), ec);
}

}  // namespace vg
