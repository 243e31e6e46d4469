#include "io/export_temp_file.h"

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <random>
#include <system_error>

#include "io/export_error.h"
#include "model/log.h"

namespace vg {
namespace {

[[noreturn]] void throwErrno(const std::string& what) {
  throw std::system_error(errno, std::generic_category(), what);
}

void syncPath(const std::filesystem::path& path, int flags, const char* what) {
  int fd = ::open(path.c_str(), flags | O_CLOEXEC);
  if (fd < 0) throwErrno(std::string(what) + " " + path.filename().string());
  int rc = ::fsync(fd);
  int saved = errno;
  ::close(fd);
  errno = saved;
  if (rc != 0) throwErrno(std::string(what) + " " + path.filename().string());
}

}  // namespace

std::string ExportTempFile::newUuid() {
  unsigned char b[16];
  if (::getrandom(b, sizeof b, 0) != ssize_t(sizeof b)) {
    std::random_device rd;
    for (auto& c : b) c = static_cast<unsigned char>(rd());
  }
  b[6] = (b[6] & 0x0F) | 0x40;  // version 4
  b[8] = (b[8] & 0x3F) | 0x80;  // RFC 4122 variant
  char text[37];
  std::snprintf(text, sizeof text, "%02X%02X%02X%02X-%02X%02X-%02X%02X-%02X%02X-%02X%02X%02X%02X%02X%02X", b[0],
                b[1], b[2], b[3], b[4], b[5], b[6], b[7], b[8], b[9], b[10], b[11], b[12], b[13], b[14], b[15]);
  return text;
}

ExportTempFile::ExportTempFile(const std::filesystem::path& destination, std::string_view extension)
    : destination_(destination) {
  std::filesystem::path parent = destination.parent_path();
  if (parent.empty()) parent = ".";
  std::string pattern = (parent / ".verdantglass-tmp-XXXXXX").string();
  if (!::mkdtemp(pattern.data()))
    throw ExportError(ExportError::kCreateFailed,
                      "cannot make a temporary folder in " + parent.string() + ": " + std::strerror(errno));
  folder_ = pattern;
  file_ = folder_ / (".verdantglass-export-" + newUuid() + "." + std::string(extension));
}

ExportTempFile::~ExportTempFile() {
  std::error_code ec;
  std::filesystem::remove_all(folder_, ec);
  if (ec) logLine("Verdantglass: cannot remove temporary export folder " + folder_.string() + ": " + ec.message());
}

void ExportTempFile::commit() {
  syncPath(file_, O_RDONLY, "cannot flush");
  if (::rename(file_.c_str(), destination_.c_str()) != 0)
    throwErrno("cannot move the export to " + destination_.filename().string());
  std::filesystem::path parent = destination_.parent_path();
  if (parent.empty()) parent = ".";
  try {
    syncPath(parent, O_RDONLY | O_DIRECTORY, "cannot flush folder");
  } catch (const std::system_error& e) {
    // The file is in place; a folder that cannot be flushed is logged only.
    logLine(std::string("Verdantglass: ") + e.what());
  }
}

}  // namespace vg
