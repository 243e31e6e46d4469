#include "io/image_loader.h"

#include <cmath>
#include <cstring>
#include <fstream>
#include <new>

#include "io/heif_decoder.h"
#include "io/image_formats.h"
#include "io/jpeg_decoder.h"
#include "io/metadata_reader.h"
#include "io/png_decoder.h"
#include "io/raw_developer.h"
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

}  // namespace

ImageLoader::Loaded ImageLoader::load(const fs::path& file, const RAWDevelopSettings& settings) {
  fs::path path = localPath(file);
  std::string name = path.filename().string();
  auto access = std::make_shared<ScopedFileAccess>(ScopedFileAccess{path, false});

  std::error_code ec;
  fs::file_status status = fs::status(path, ec);
  if (ec || status.type() == fs::file_type::not_found || fs::is_directory(status)) {
    throw ImageLoadError::make(ImageLoadError::kUndecodable, name);
  }
  if (!fs::is_regular_file(status)) throw ImageLoadError::make(ImageLoadError::kNotLocalFile, name);

  const std::string extension = lowerExtension(path);
  const auto kind = imageKindForExtension(extension);
  std::vector<uint8_t> bytes = readWholeFile(path, name);

  Loaded loaded;
  loaded.url = path;
  loaded.access = access;

  if (kind == ImageKind::cameraRaw) {
    DevelopedRaw raw = developRaw(bytes, settings, name);
    loaded.meta = readExifFacts(bytes).meta;
    fillFrom(loaded.meta, raw.facts);
    loaded.colorSpaceName = "sRGB";
    loaded.isRAW = true;
    loaded.fileFormat = formatLabel(extension);
    loaded.pixelSize = {double(raw.image.width()), double(raw.image.height())};
    loaded.image = std::make_shared<const Image>(std::move(raw.image));
    return loaded;
  }

  const Sniffed sniffed = sniff(bytes);
  DecodedImage decoded;
  try {
    switch (sniffed) {
      case Sniffed::jpeg:
      case Sniffed::png: {
        ExifFacts facts = readExifFacts(bytes);
        loaded.meta = facts.meta;
        DecodeOptions options{facts.orientation};
        decoded = sniffed == Sniffed::jpeg ? decodeJpeg(bytes, options) : decodePng(bytes, options);
        break;
      }
      case Sniffed::tiff:
        loaded.meta = readExifFacts(bytes).meta;
        decoded = decodeTiff(bytes);
        break;
      case Sniffed::heif: {
        HeifDecoded heif = decodeHeif(bytes);
        if (!heif.exif.empty()) loaded.meta = readExifBlock(heif.exif).meta;
        decoded = std::move(heif.decoded);
        break;
      }
      case Sniffed::unknown:
        throw DecodeError("not a JPEG, PNG, TIFF or HEIF file");
    }
  } catch (const DecodeError& e) {
    logLine("image loader: " + name + ": " + e.what());
    throw ImageLoadError::make(ImageLoadError::kUndecodable, name);
  } catch (const std::bad_alloc&) {
    logLine("image loader: " + name + ": out of memory");
    throw ImageLoadError::make(ImageLoadError::kUndecodable, name);
  }
  if (decoded.image.width() < 1 || decoded.image.height() < 1) {
    throw ImageLoadError::make(ImageLoadError::kUndecodable, name);
  }
  loaded.fileFormat = kind ? formatLabel(extension) : labelFor(sniffed);
  loaded.colorSpaceName = colorSpaceLabel(decoded);
  loaded.pixelSize = {double(decoded.image.width()), double(decoded.image.height())};
  loaded.image = std::make_shared<const Image>(std::move(decoded.image));
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
