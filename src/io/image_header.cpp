#include "io/image_header.h"

#include <fcntl.h>
#include <libheif/heif.h>
#include <libraw/libraw.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <tiffio.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <fstream>
#include <functional>
#include <memory>

#include "io/image_formats.h"
#include "io/libraw_file.h"

namespace vg {
namespace {

uint16_t be16(const unsigned char* p) { return uint16_t(p[0] << 8 | p[1]); }
uint32_t be32(const unsigned char* p) {
  return uint32_t(p[0]) << 24 | uint32_t(p[1]) << 16 | uint32_t(p[2]) << 8 | p[3];
}

std::optional<ImageDimensions> jpegDimensions(std::ifstream& in) {
  unsigned char b[8];
  if (!in.read(reinterpret_cast<char*>(b), 2) || b[0] != 0xFF || b[1] != 0xD8) return std::nullopt;
  for (int guard = 0; guard < 4096; ++guard) {
    int c = in.get();
    while (c != EOF && c != 0xFF) c = in.get();  // resynchronise on the next marker
    while (c == 0xFF) c = in.get();
    if (c == EOF) return std::nullopt;
    const int marker = c;
    if (marker == 0xD9 || marker == 0xDA) return std::nullopt;  // end or scan before any frame
    if ((marker >= 0xD0 && marker <= 0xD7) || marker == 0x01) continue;  // no length
    if (!in.read(reinterpret_cast<char*>(b), 2)) return std::nullopt;
    const int length = be16(b);
    if (length < 2) return std::nullopt;
    const bool frame = marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 &&
                       marker != 0xCC;
    if (frame) {
      if (length < 7 || !in.read(reinterpret_cast<char*>(b), 5)) return std::nullopt;
      ImageDimensions d{be16(b + 3), be16(b + 1)};
      if (d.width <= 0 || d.height <= 0) return std::nullopt;
      return d;
    }
    in.seekg(length - 2, std::ios::cur);
  }
  return std::nullopt;
}

std::optional<ImageDimensions> pngDimensions(std::ifstream& in) {
  std::array<unsigned char, 24> b{};
  static constexpr unsigned char kSignature[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
  if (!in.read(reinterpret_cast<char*>(b.data()), b.size())) return std::nullopt;
  if (!std::equal(std::begin(kSignature), std::end(kSignature), b.begin())) return std::nullopt;
  if (b[12] != 'I' || b[13] != 'H' || b[14] != 'D' || b[15] != 'R') return std::nullopt;
  ImageDimensions d{be32(&b[16]), be32(&b[20])};
  if (d.width <= 0 || d.height <= 0) return std::nullopt;
  return d;
}

std::optional<ImageDimensions> tiffDimensions(const std::filesystem::path& file) {
  TIFFSetWarningHandler(nullptr);
  TIFFSetErrorHandler(nullptr);
  std::unique_ptr<TIFF, void (*)(TIFF*)> tif(TIFFOpen(file.c_str(), "r"), TIFFClose);
  if (!tif) return std::nullopt;
  uint32_t w = 0, h = 0;
  if (!TIFFGetField(tif.get(), TIFFTAG_IMAGEWIDTH, &w) ||
      !TIFFGetField(tif.get(), TIFFTAG_IMAGELENGTH, &h) || w == 0 || h == 0) {
    return std::nullopt;
  }
  return ImageDimensions{w, h};
}

std::optional<ImageDimensions> heifDimensions(const std::filesystem::path& file) {
  std::unique_ptr<heif_context, void (*)(heif_context*)> ctx(heif_context_alloc(), heif_context_free);
  if (!ctx || heif_context_read_from_file(ctx.get(), file.c_str(), nullptr).code != heif_error_Ok) {
    return std::nullopt;
  }
  heif_image_handle* raw = nullptr;
  if (heif_context_get_primary_image_handle(ctx.get(), &raw).code != heif_error_Ok) return std::nullopt;
  std::unique_ptr<heif_image_handle, void (*)(const heif_image_handle*)> handle(raw, heif_image_handle_release);
  ImageDimensions d{heif_image_handle_get_width(handle.get()), heif_image_handle_get_height(handle.get())};
  if (d.width <= 0 || d.height <= 0) return std::nullopt;
  return d;
}

// The RAW file is mapped rather than read: only the pages holding its
// headers are touched, and it goes through the same guarded opening as a
// development (a damaged header must not reach LibRaw here either).
std::optional<ImageDimensions> rawDimensions(const std::filesystem::path& file) {
  const int fd = ::open(file.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return std::nullopt;
  struct stat st {};
  void* map = MAP_FAILED;
  if (::fstat(fd, &st) == 0 && S_ISREG(st.st_mode) && st.st_size > 0) {
    map = ::mmap(nullptr, size_t(st.st_size), PROT_READ, MAP_PRIVATE, fd, 0);
  }
  ::close(fd);
  if (map == MAP_FAILED) return std::nullopt;
  std::unique_ptr<void, std::function<void(void*)>> unmap(map, [&](void* p) { ::munmap(p, size_t(st.st_size)); });
  LibRawPtr processor = openRaw({static_cast<const uint8_t*>(map), size_t(st.st_size)});
  if (!processor) return std::nullopt;
  const auto& s = processor->imgdata.sizes;
  ImageDimensions d{s.width, s.height};
  if (d.width <= 0 || d.height <= 0) return std::nullopt;
  return d;
}

}  // namespace

std::optional<ImageDimensions> readImageDimensions(const std::filesystem::path& file) {
  auto kind = imageKindForPath(file);
  if (!kind) return std::nullopt;
  switch (*kind) {
    case ImageKind::cameraRaw:
      return rawDimensions(file);
    case ImageKind::heic:
    case ImageKind::heif:
      return heifDimensions(file);
    case ImageKind::tiff:
      return tiffDimensions(file);
    case ImageKind::jpeg:
    case ImageKind::png:
      break;
  }
  // Trust the bytes over the extension: a PNG named .jpg still has a size.
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  if (auto d = jpegDimensions(in)) return d;
  in.clear();
  in.seekg(0);
  return pngDimensions(in);
}

}  // namespace vg
