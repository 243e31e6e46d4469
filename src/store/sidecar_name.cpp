#include "store/sidecar_name.h"

#include <openssl/evp.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>
#include <system_error>

namespace vg {
namespace {

bool isUnreservedInFileURL(unsigned char c) {
  if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
  return std::strchr("!$&'()*+,-./:;=@_~", c) != nullptr && c != '\0';
}

constexpr char kLowerHex[] = "0123456789abcdef";
constexpr char kUpperHex[] = "0123456789ABCDEF";

}  // namespace

std::filesystem::path standardizedPath(const std::filesystem::path& path) {
  std::error_code ec;
  std::filesystem::path absolute = std::filesystem::absolute(path, ec);
  if (ec) absolute = path;
  std::filesystem::path normal = absolute.lexically_normal();
  // "/a/b/" keeps an empty last element; the location is the same as "/a/b".
  if (!normal.has_filename() && normal.has_relative_path()) normal = normal.parent_path();
  return normal;
}

std::filesystem::path resolvingSymlinks(const std::filesystem::path& path) {
  std::error_code ec;
  std::filesystem::path resolved = std::filesystem::weakly_canonical(path, ec);
  if (ec || resolved.empty()) return path;
  if (!resolved.has_filename() && resolved.has_relative_path()) resolved = resolved.parent_path();
  return resolved;
}

std::string fileURLText(const std::filesystem::path& absolutePath) {
  const std::string& bytes = absolutePath.native();
  std::string url = "file://";
  url.reserve(url.size() + bytes.size() * 3);
  for (unsigned char c : bytes) {
    if (isUnreservedInFileURL(c)) {
      url.push_back(char(c));
    } else {
      url.push_back('%');
      url.push_back(kUpperHex[c >> 4]);
      url.push_back(kUpperHex[c & 15]);
    }
  }
  return url;
}

std::string sidecarDigest(const std::filesystem::path& image, bool resolveLinks, int byteCount) {
  std::filesystem::path location = standardizedPath(image);
  if (resolveLinks) location = resolvingSymlinks(location);
  const std::string url = fileURLText(location);

  std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
  unsigned int length = 0;
  if (EVP_Digest(url.data(), url.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1 ||
      length < 32) {
    // Only a broken crypto library gets here; no name can be made without it.
    throw std::runtime_error("SHA-256 is unavailable");
  }
  const int n = std::clamp(byteCount, 1, 32);
  std::string hex;
  hex.reserve(size_t(n) * 2);
  for (int i = 0; i < n; ++i) {
    hex.push_back(kLowerHex[digest[size_t(i)] >> 4]);
    hex.push_back(kLowerHex[digest[size_t(i)] & 15]);
  }
  return hex;
}

SidecarNames sidecarNames(const std::filesystem::path& image) {
  auto name = [](const std::string& hex) { return "edit-" + hex + ".json"; };
  return {name(sidecarDigest(image, true, 16)), name(sidecarDigest(image, false, 16)),
          name(sidecarDigest(image, true, 8))};
}

bool isSidecarFileName(std::string_view name) {
  constexpr std::string_view prefix = "edit-", suffix = ".json";
  if (name.size() <= prefix.size() + suffix.size()) return false;
  if (name.substr(0, prefix.size()) != prefix) return false;
  if (name.substr(name.size() - suffix.size()) != suffix) return false;
  const std::string_view hex = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
  if (hex.size() != 16 && hex.size() != 32) return false;
  for (char c : hex) {
    if (!((c >= '0' && c <= '9') || (c >= 'a' && c <= 'f'))) return false;
  }
  return true;
}

std::string corruptCopyName(std::string_view sidecarName, int64_t secondsSince1970) {
  std::string_view stem = sidecarName;
  if (auto dot = stem.rfind('.'); dot != std::string_view::npos && dot > 0) stem = stem.substr(0, dot);
  return std::string(stem) + ".corrupt-" + std::to_string(secondsSince1970) + ".json";
}

}  // namespace vg
