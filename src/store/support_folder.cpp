#include "store/support_folder.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <system_error>

namespace vg {
namespace {

std::optional<std::string> nonEmpty(const EnvironmentLookup& env, std::string_view name) {
  auto value = env(name);
  if (value && value->empty()) return std::nullopt;
  return value;
}

std::optional<std::filesystem::path> homeFolder(const EnvironmentLookup& env) {
  if (auto home = nonEmpty(env, "HOME")) return std::filesystem::path(*home);
  // getpwuid_r keeps this usable from any thread.
  struct passwd entry {};
  struct passwd* found = nullptr;
  char buffer[4096];
  if (getpwuid_r(getuid(), &entry, buffer, sizeof buffer, &found) == 0 && found &&
      found->pw_dir && found->pw_dir[0] != '\0') {
    return std::filesystem::path(found->pw_dir);
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> processEnvironment(std::string_view name) {
  const char* value = std::getenv(std::string(name).c_str());
  if (!value) return std::nullopt;
  return std::string(value);
}

std::filesystem::path supportFolder(const EnvironmentLookup& env) {
  if (auto dir = nonEmpty(env, "VERDANTGLASS_DATA_DIR")) return std::filesystem::path(*dir);
  if (auto xdg = nonEmpty(env, "XDG_DATA_HOME")) {
    std::filesystem::path base(*xdg);
    if (base.is_absolute()) return base / "Verdantglass";
  }
  if (auto home = homeFolder(env)) return *home / ".local" / "share" / "Verdantglass";
  std::error_code ec;
  auto temp = std::filesystem::temp_directory_path(ec);
  if (ec) temp = "/tmp";
  return temp / ("Verdantglass-" + std::to_string(getuid()));
}

std::filesystem::path editsFolder(const EnvironmentLookup& env) {
  return supportFolder(env) / "Edits";
}

}  // namespace vg
