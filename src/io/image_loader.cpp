#include "io/image_loader.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <new>
#include <optional>

#include "io/heif_decoder.h"
#include "io/image_formats.h"
#include "io/jpeg_decoder.h"
#include "io/metadata_reader.h"
#include "io/png_decoder.h"
#include "io/raw_developer.h"
#include "io/raw_preview.h"
#include "io/tiff_decoder.h"
#include "model/log.h"
#include "render/resample.h"

namespace vg {
namespace fs = std::filesystem;

namespace {

constexpr uintmax_t kMaxFileBytes = uintmax_t(4) << 30;

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// A plain path stays as it is; "file://" URLs are percent-decoded; any other
// URL scheme is not a local file (code 2).
fs::path localPath(const fs::path& location) {
  const std::string& s = location.native();
  size_t colon = s.find("://");
  if (colon == std::string::npos || colon == 0) return location;
  for (size_t i = 0; i < colon; ++i) {
    char c = s[i];
    bool ok = std::isalpha(static_cast<unsigned char>(c)) ||
              (i > 0 && (std::isdigit(static_cast<unsigned char>(c)) || c == '+' || c == '-' || c == '.'));
    if (!ok) return location;  // a relative path that merely contains "://"
  }
  std::string scheme = s.substr(0, colon);
  for (auto& c : scheme) c = char(std::tolower(static_cast<unsigned char>(c)));
  if (scheme != "file") throw ImageLoadError::make(ImageLoadError::kNotLocalFile, "");
  std::string rest = s.substr(colon + 3);
  if (rest.rfind("localhost/", 0) == 0) rest.erase(0, 9);
  if (rest.empty() || rest.front() != '/') throw ImageLoadError::make(ImageLoadError::kNotLocalFile, "");
  std::string decoded;
  for (size_t i = 0; i < rest.size(); ++i) {
    if (rest[i] == '%' && i + 2 < rest.size() + 0 && hexValue(rest[i + 1]) >= 0 && hexValue(rest[i + 2]) >= 0) {
      decoded += char(hexValue(rest[i + 1]) * 16 + hexValue(rest[i + 2]));
      i += 2;
    } else {
      decoded += rest[i];
    }
  }
  return fs::path(decoded);
}

std::vector<uint8_t> readWholeFile(const fs::path& path, const std::string& name) {
  std::error_code ec;
  uintmax_t size = fs::file_size(path, ec);
  if (ec || size > kMaxFileBytes) throw ImageLoadError::make(ImageLoadError::kUndecodable, name);
  std::vector<uint8_t> bytes;
  try {
    bytes.resize(size_t(size));
  } catch (const std::bad_alloc&) {
    throw ImageLoadError::make(ImageLoadError::kUndecodable, name);
  }
  std::ifstream in(path, std::ios::binary);
  if (!in || !in.read(reinterpret_cast<char*>(bytes.data()), std::streamsize(size))) {
    throw ImageLoadError::make(ImageLoadError::kUndecodable, name);
  }
  return bytes;
}

enum class Sniffed { unknown, jpeg, png, tiff, heif };

Sniffed sniff(std::span<const uint8_t> b) {
  if (b.size() >= 3 && b[0] == 0xFF && b[1] == 0xD8 && b[2] == 0xFF) return Sniffed::jpeg;
  if (b.size() >= 8 && std::memcmp(b.data(), "\x89PNG\r\n\x1a\n", 8) == 0) return Sniffed::png;
  if (b.size() >= 4 && (std::memcmp(b.data(), "II*\0", 4) == 0 || std::memcmp(b.data(), "MM\0*", 4) == 0 ||
                        std::memcmp(b.data(), "II+\0", 4) == 0 || std::memcmp(b.data(), "MM\0+", 4) == 0)) {
    return Sniffed::tiff;
  }
  if (b.size() >= 12 && std::memcmp(b.data() + 4, "ftyp", 4) == 0) return Sniffed::heif;
  return Sniffed::unknown;
}

std::string labelFor(Sniffed s) {
  switch (s) {
    case Sniffed::jpeg: return "JPEG";
    case Sniffed::png: return "PNG";
    case Sniffed::tiff: return "TIFF";
    case Sniffed::heif: return "HEIC";
    case Sniffed::unknown: break;
  }
  return {};
}

std::string colorSpaceLabel(const DecodedImage& d) {
  if (!d.profileName.empty()) return d.profileName;
  if (!d.colorModel.empty() && d.colorModel != "RGB") return d.colorModel;
  return "sRGB";
}

// Fields the Exif did not give, taken from the RAW developer's facts.
void fillFrom(PhotoMetadata& meta, const PhotoMetadata& facts) {
  if (!meta.camera) meta.camera = facts.camera;
  if (!meta.lens) meta.lens = facts.lens;
  if (!meta.focalLength) meta.focalLength = facts.focalLength;
  if (!meta.fNumber) meta.fNumber = facts.fNumber;
  if (!meta.exposureTime) meta.exposureTime = facts.exposureTime;
  if (!meta.iso) meta.iso = facts.iso;
  if (!meta.takenAt) meta.takenAt = facts.takenAt;
  meta.rawSummary = facts.rawSummary;
}

// The steps load() and loadPreview() share: the location checks, the whole
// file in memory and the facts known before decoding.
struct OpenedFile {
  fs::path path;
  std::string name;
  std::string extension;
  std::optional<ImageKind> kind;
  std::vector<uint8_t> bytes;
};

OpenedFile openFile(const fs::path& file) {
  OpenedFile f;
  f.path = localPath(file);
  f.name = f.path.filename().string();
  std::error_code ec;
  fs::file_status status = fs::status(f.path, ec);
  if (ec || status.type() == fs::file_type::not_found || fs::is_directory(status)) {
    throw ImageLoadError::make(ImageLoadError::kUndecodable, f.name);
  }
  if (!fs::is_regular_file(status)) throw ImageLoadError::make(ImageLoadError::kNotLocalFile, f.name);
  f.extension = lowerExtension(f.path);
  f.kind = imageKindForExtension(f.extension);
  f.bytes = readWholeFile(f.path, f.name);
  return f;
}

ImageLoader::Loaded loadedFor(const OpenedFile& f) {
  ImageLoader::Loaded loaded;
  loaded.url = f.path;
  loaded.access = std::make_shared<ScopedFileAccess>(ScopedFileAccess{f.path, false});
  return loaded;
}

// The RAW path's facts about a developed file.
void finishRaw(const OpenedFile& f, const PhotoMetadata& facts, int width, int height, ImageLoader::Loaded& loaded) {
  loaded.meta = readExifFacts(f.bytes).meta;
  fillFrom(loaded.meta, facts);
  loaded.colorSpaceName = "sRGB";
  loaded.isRAW = true;
  loaded.fileFormat = formatLabel(f.extension);
  loaded.pixelSize = {double(width), double(height)};
}

// The plain path: JPEG, PNG, TIFF or HEIF by the file's leading bytes.
// minLongSide > 0 asks the decoders that can for a reduced decode
// (decoded_image.h); pixelSize is always the full image's.
std::shared_ptr<const Image> decodePlain(const OpenedFile& f, double minLongSide, ImageLoader::Loaded& loaded) {
  const Sniffed sniffed = sniff(f.bytes);
  DecodedImage decoded;
  try {
    switch (sniffed) {
      case Sniffed::jpeg:
      case Sniffed::png: {
        ExifFacts facts = readExifFacts(f.bytes);
        loaded.meta = facts.meta;
        DecodeOptions options{facts.orientation};
        options.minLongSide = minLongSide;
        decoded = sniffed == Sniffed::jpeg ? decodeJpeg(f.bytes, options) : decodePng(f.bytes, options);
        break;
      }
      case Sniffed::tiff:
        loaded.meta = readExifFacts(f.bytes).meta;
        decoded = decodeTiff(f.bytes);
        break;
      case Sniffed::heif: {
        HeifDecoded heif = decodeHeif(f.bytes, minLongSide);
        if (!heif.exif.empty()) loaded.meta = readExifBlock(heif.exif).meta;
        decoded = std::move(heif.decoded);
        break;
      }
      case Sniffed::unknown:
        throw DecodeError("not a JPEG, PNG, TIFF or HEIF file");
    }
  } catch (const DecodeError& e) {
    logLine("image loader: " + f.name + ": " + e.what());
    throw ImageLoadError::make(ImageLoadError::kUndecodable, f.name);
  } catch (const std::bad_alloc&) {
    logLine("image loader: " + f.name + ": out of memory");
    throw ImageLoadError::make(ImageLoadError::kUndecodable, f.name);
  }
  if (decoded.image.width() < 1 || decoded.image.height() < 1) {
    throw ImageLoadError::make(ImageLoadError::kUndecodable, f.name);
  }
  loaded.fileFormat = f.kind ? formatLabel(f.extension) : labelFor(sniffed);
  loaded.colorSpaceName = colorSpaceLabel(decoded);
  loaded.pixelSize = {double(decoded.fullWidth > 0 ? decoded.fullWidth : decoded.image.width()),
                      double(decoded.fullHeight > 0 ? decoded.fullHeight : decoded.image.height())};
  loaded.opaque = decoded.opaque;
  return std::make_shared<const Image>(std::move(decoded.image));
}

}  // namespace

ImageLoader::Loaded ImageLoader::load(const fs::path& file, const RAWDevelopSettings& settings) {
  const OpenedFile f = openFile(file);
  Loaded loaded = loadedFor(f);
  if (f.kind == ImageKind::cameraRaw) {
    DevelopedRaw raw = developRaw(f.bytes, settings, f.name);
    finishRaw(f, raw.facts, raw.image.width(), raw.image.height(), loaded);
    loaded.image = std::make_shared<const Image>(std::move(raw.image));
    return loaded;
  }
  loaded.image = decodePlain(f, 0, loaded);
  return loaded;
}

ImageLoader::Loaded ImageLoader::loadPreview(const fs::path& file, double maxDimension,
                                             const RAWDevelopSettings& settings) {
  const OpenedFile f = openFile(file);
  Loaded loaded = loadedFor(f);
  if (f.kind == ImageKind::cameraRaw) {
    RawPreview raw = previewRaw(f.bytes, settings, f.name, maxDimension);
    finishRaw(f, raw.facts, raw.fullWidth, raw.fullHeight, loaded);
    loaded.image = std::make_shared<const Image>(std::move(raw.image));
  } else {
    loaded.image = decodePlain(f, maxDimension, loaded);
  }
  loaded.image = downscaled(std::move(loaded.image), maxDimension);
  return loaded;
}

std::vector<ImageLoader::RAWDecoderOption> ImageLoader::rawDecoderOptions(const fs::path& file) {
  std::vector<RAWDecoderOption> options;
  std::vector<uint8_t> bytes;
  try {
    fs::path path = localPath(file);
    if (!fs::is_regular_file(path)) return options;
    bytes = readWholeFile(path, path.filename().string());
  } catch (const std::exception&) {
    return options;
  }
  auto presets = rawPresetsFor(bytes);
  if (!presets) return options;
  options.push_back({"", "最新"});
  for (const RawPreset* p : *presets) options.push_back({std::string(p->id), std::string(p->title)});
  return options;
}

std::vector<double> ImageLoader::downscalePasses(double longest, double maxDimension) {
  std::vector<double> passes;
  if (!(maxDimension > 0) || !std::isfinite(maxDimension) || !std::isfinite(longest) ||
      maxDimension >= longest) {
    return passes;
  }
  double scale = maxDimension / longest;
  while (scale < 0.25) {
    passes.push_back(0.5);
    scale *= 2;
  }
  passes.push_back(scale);
  return passes;
}

std::shared_ptr<const Image> ImageLoader::downscaled(std::shared_ptr<const Image> image, double maxDimension) {
  if (!image) return image;
  double longest = std::max(image->width(), image->height());
  std::vector<double> passes = downscalePasses(longest, maxDimension);
  std::shared_ptr<const Image> current = image;
  for (size_t i = 0; i < passes.size(); ++i) {
    Image next;
    bool last = i + 1 == passes.size();
    if (last) {
      // The last pass lands the longer side on the limit exactly, whatever
      // rounding the halvings did.
      double s = maxDimension / std::max(current->width(), current->height());
      int w = std::max(1, int(std::lround(current->width() * s)));
      int h = std::max(1, int(std::lround(current->height() * s)));
      w = std::min(w, int(maxDimension));
      h = std::min(h, int(maxDimension));
      next = lanczosResize(*current, w, h);
    } else {
      next = lanczosScale(*current, passes[i], 1.0);
    }
    if (next.empty()) break;  // keep the best image so far
    current = std::make_shared<const Image>(std::move(next));
  }
  return current;
}

}  // namespace vg
