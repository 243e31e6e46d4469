// Which files the loader opens, and the display label of each format.
//
// A file's kind is decided by its lower-cased path extension alone (never by
// its bytes): a JPEG named photo.dat is not a supported image. The kinds, in
// the order they are tried: JPEG, PNG, HEIC, HEIF, TIFF, camera RAW.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace vg {

enum class ImageKind { jpeg, png, heic, heif, tiff, cameraRaw };

// The kind named by an extension ("JPG", ".jpg" and "jpg" alike), or nothing
// for an unknown extension.
std::optional<ImageKind> imageKindForExtension(std::string_view extension);
std::optional<ImageKind> imageKindForPath(const std::filesystem::path& path);

// True exactly when the path's extension names one of the kinds above.
bool isSupportedImage(const std::filesystem::path& path);

// The format label shown to the user: "JPEG", "PNG", "HEIC", "TIFF", and for
// RAW files "DNG RAW", "Sony RAW" (arw), "Canon RAW" (cr2), "Fujifilm RAW"
// (raf), "Olympus RAW" (orf), "Nikon RAW" (nef, nrw), "Panasonic RAW"
// (rw2, raw) or "RAW" for every other RAW extension. Empty for unknown ones.
std::string formatLabel(std::string_view extension);

// Every extension the loader opens, lower-case, without the dot, in the
// order above (file dialogs and the desktop entry list them).
std::vector<std::string_view> supportedExtensions();

// The lower-cased extension of a path, without the dot ("" when none).
std::string lowerExtension(const std::filesystem::path& path);

}  // namespace vg
