#include "io/image_formats.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

namespace vg {
namespace {

struct ExtensionEntry {
  std::string_view extension;
  ImageKind kind;
  std::string_view label;
};

// Every extension the loader knows, built once at compile time.
constexpr std::array kExtensions = {
    ExtensionEntry{"jpg", ImageKind::jpeg, "JPEG"},
    ExtensionEntry{"jpeg", ImageKind::jpeg, "JPEG"},
    ExtensionEntry{"jpe", ImageKind::jpeg, "JPEG"},
    ExtensionEntry{"jfif", ImageKind::jpeg, "JPEG"},
    ExtensionEntry{"jif", ImageKind::jpeg, "JPEG"},
    ExtensionEntry{"png", ImageKind::png, "PNG"},
    ExtensionEntry{"heic", ImageKind::heic, "HEIC"},
    ExtensionEntry{"heics", ImageKind::heic, "HEIC"},
    ExtensionEntry{"heif", ImageKind::heif, "HEIC"},
    ExtensionEntry{"hif", ImageKind::heif, "HEIC"},
    ExtensionEntry{"tif", ImageKind::tiff, "TIFF"},
    ExtensionEntry{"tiff", ImageKind::tiff, "TIFF"},
    // Camera RAW, by maker.
    ExtensionEntry{"dng", ImageKind::cameraRaw, "DNG RAW"},
    ExtensionEntry{"arw", ImageKind::cameraRaw, "Sony RAW"},
    ExtensionEntry{"srf", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"sr2", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"cr2", ImageKind::cameraRaw, "Canon RAW"},
    ExtensionEntry{"cr3", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"crw", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"raf", ImageKind::cameraRaw, "Fujifilm RAW"},
    ExtensionEntry{"orf", ImageKind::cameraRaw, "Olympus RAW"},
    ExtensionEntry{"ori", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"nef", ImageKind::cameraRaw, "Nikon RAW"},
    ExtensionEntry{"nrw", ImageKind::cameraRaw, "Nikon RAW"},
    ExtensionEntry{"rw2", ImageKind::cameraRaw, "Panasonic RAW"},
    ExtensionEntry{"raw", ImageKind::cameraRaw, "Panasonic RAW"},
    ExtensionEntry{"rwl", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"pef", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"srw", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"3fr", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"fff", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"iiq", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"mos", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"mrw", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"x3f", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"kdc", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"dcr", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"erf", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"mef", ImageKind::cameraRaw, "RAW"},
    ExtensionEntry{"gpr", ImageKind::cameraRaw, "RAW"},
};

std::string lower(std::string_view s) {
  std::string out(s);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return char(std::tolower(c)); });
  return out;
}

const ExtensionEntry* find(std::string_view extension) {
  if (!extension.empty() && extension.front() == '.') extension.remove_prefix(1);
  std::string key = lower(extension);
  for (const auto& e : kExtensions) {
    if (e.extension == key) return &e;
  }
  return nullptr;
}

}  // namespace

std::string lowerExtension(const std::filesystem::path& path) {
  std::string ext = path.extension().string();
  if (!ext.empty() && ext.front() == '.') ext.erase(0, 1);
  return lower(ext);
}

std::optional<ImageKind> imageKindForExtension(std::string_view extension) {
  if (const auto* e = find(extension)) return e->kind;
  return std::nullopt;
}

std::optional<ImageKind> imageKindForPath(const std::filesystem::path& path) {
  return imageKindForExtension(lowerExtension(path));
}

bool isSupportedImage(const std::filesystem::path& path) {
  return imageKindForPath(path).has_value();
}

std::vector<std::string_view> supportedExtensions() {
  std::vector<std::string_view> out;
  for (const auto& e : kExtensions) out.push_back(e.extension);
  return out;
}

std::string formatLabel(std::string_view extension) {
  if (const auto* e = find(extension)) return std::string(e->label);
  return {};
}

}  // namespace vg
