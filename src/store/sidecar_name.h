// How an image's file location becomes the name of its edit sidecar.
//
// The key is a SHA-256 digest of the location's file URL text:
//   1. standardise the path: make it absolute (against the working folder),
//      remove "." and ".." components and redundant or trailing separators;
//   2. optionally resolve symbolic links (as far as the path exists);
//   3. take the file URL text: "file://" + the path with every byte
//      percent-encoded (upper-case hex) except ASCII letters, digits and
//      !$&'()*+,-./:;=@_~ ;
//   4. SHA-256 over those bytes; the first n bytes (16 or 8) as lower-case hex.
// The sidecar is "edit-<hex>.json". Three names exist per image, in order of
// preference: current (16 bytes, links resolved), older (16 bytes, links not
// resolved) and oldest (8 bytes, links resolved). Only the current name is
// written; the other two are read so that edits stored under them are found.
//
// All functions are pure apart from reading the file system to resolve links,
// and are safe to call from any thread.
#pragma once

#include <cstdint>
#include <filesystem>
#include <string>
#include <string_view>

namespace vg {

std::filesystem::path standardizedPath(const std::filesystem::path& path);

// Symbolic links resolved for the part of the path that exists; the rest is
// kept as given. A path that cannot be examined is returned unchanged.
std::filesystem::path resolvingSymlinks(const std::filesystem::path& path);

// The URL text of an absolute path, e.g. "/a b/é.jpg" -> "file:///a%20b/%C3%A9.jpg".
std::string fileURLText(const std::filesystem::path& absolutePath);

// The first `byteCount` bytes of SHA-256(file URL text of the image), as hex.
std::string sidecarDigest(const std::filesystem::path& image, bool resolveLinks, int byteCount);

struct SidecarNames {
  std::string current;  // edit-<32 hex>.json, links resolved; the one written
  std::string older;    // edit-<32 hex>.json, links not resolved
  std::string oldest;   // edit-<16 hex>.json, links resolved
};

SidecarNames sidecarNames(const std::filesystem::path& image);

// True for names of the form edit-<16 or 32 lower-case hex>.json, the only
// files of the edits folder that belong to the store.
bool isSidecarFileName(std::string_view name);

// Where an undecodable sidecar is set aside: "edit-<hex>.corrupt-<seconds>.json".
std::string corruptCopyName(std::string_view sidecarName, int64_t secondsSince1970);

}  // namespace vg
