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

std::string validateName(std::string& name) {
  name = trimmed(std::move(name));
  if (name.empty()) return "预设名称不能为空";
  return {};
}

}  // namespace

PresetLibrary::PresetLibrary(std::filesystem::path folder) : folder_(std::move(folder)) {}

std::filesystem::path PresetLibrary::fileFor(std::string_view id) const {
  return folder_ / (std::string(id) + ".json");
}

std::optional<FilterPreset> PresetLibrary::decode(std::string_view jsonText, std::string_view fileStem) {
  auto json = nlohmann::json::parse(jsonText, nullptr, /*allow_exceptions=*/false);
  if (!json.is_object()) return std::nullopt;
  FilterPreset p;
  auto id = json.find("id");
  if (id == json.end() || !id->is_string()) return std::nullopt;
  p.id = id->get<std::string>();
  if (!isUserId(p.id) || p.id != fileStem) return std::nullopt;
  auto name = json.find("name");
  if (name != json.end() && name->is_string()) p.name = name->get<std::string>();
  if (p.name.empty()) p.name = p.id;
  if (auto a = json.find("adjustments"); a != json.end()) {
    p.adjustments = decodeGlobalAdjustments(*a).value_or(GlobalAdjustments{});
  }
  if (auto l = json.find("lut"); l != json.end()) p.lut = decodeAppliedLUT(*l);
  return p;
}

std::string PresetLibrary::encode(const FilterPreset& preset) {
  nlohmann::ordered_json json;
  json["id"] = preset.id;
  json["name"] = preset.name;
  json["adjustments"] = toJson(preset.adjustments);
  if (preset.lut) json["lut"] = toJson(*preset.lut);
  return dumpCompact(json);
}

std::optional<FilterPreset> PresetLibrary::read(const std::filesystem::path& file) const {
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  std::stringstream ss;
  ss << in.rdbuf();
  return decode(ss.str(), file.stem().string());
}

std::string PresetLibrary::write(const FilterPreset& preset) {
  std::error_code ec;
  std::filesystem::create_directories(folder_, ec);
  if (auto failure = writeFileAtomically(fileFor(preset.id), encode(preset))) {
    return "无法保存预设：" + *failure;
  }
  return {};
}

std::vector<FilterPreset> PresetLibrary::userPresets() const {
  std::vector<FilterPreset> out;
  std::error_code ec;
  for (auto it = std::filesystem::directory_iterator(folder_, ec);
       !ec && it != std::filesystem::directory_iterator(); it.increment(ec)) {
    if (it->path().extension() != ".json" || !it->is_regular_file(ec)) continue;
    if (auto p = read(it->path())) out.push_back(std::move(*p));
  }
  std::sort(out.begin(), out.end(), [](const FilterPreset& a, const FilterPreset& b) {
    return a.name != b.name ? a.name < b.name : a.id < b.id;
  });
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
  return read(fileFor(id));
}

PresetLibrary::Result PresetLibrary::saveNew(std::string name, const GlobalAdjustments& adjustments,
                                             const std::optional<AppliedLUT>& lut) {
  if (auto error = validateName(name); !error.empty()) return {std::nullopt, error};
  FilterPreset p{std::string(kUserPrefix) + Uuid::random().toString(), std::move(name),
                 adjustments, lut};
  p.adjustments.hsl.normalize();
  if (auto error = write(p); !error.empty()) return {std::nullopt, error};
  return {p, {}};
}

PresetLibrary::Result PresetLibrary::rename(std::string_view id, std::string newName) {
  if (auto error = validateName(newName); !error.empty()) return {std::nullopt, error};
  auto existing = isUserId(id) ? read(fileFor(id)) : std::nullopt;
  if (!existing) return {std::nullopt, "找不到该预设"};
  existing->name = std::move(newName);
  if (auto error = write(*existing); !error.empty()) return {std::nullopt, error};
  return {existing, {}};
}

bool PresetLibrary::remove(std::string_view id) {
  if (!isUserId(id)) return false;
  std::error_code ec;
  return std::filesystem::remove(fileFor(id), ec);
}

}  // namespace vg
