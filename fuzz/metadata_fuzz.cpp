// The metadata readers on arbitrary bytes: the file's Exif, IPTC and XMP as
// Exiv2 finds them in any format it recognises.
//
// - readExifFacts (a whole file) and readExifBlock (a bare Exif block, as
//   HEIF stores it) never fail, and what they return keeps the reader's
//   promises: orientation 1...8, no empty or blank-padded strings, only
//   positive finite focal lengths, apertures, times and speeds, a finite
//   exposure bias and one of the two white-balance words.
// - The export's copy of the same file without location
//   (ExportMetadata::fromSource) holds no GPS, IPTC or XMP location key and
//   only a positive resolution. Written into a small JPEG it leaves a file
//   that still decodes and reads back upright; the Exif block HEIC exports
//   get reads back upright too.
#include <unistd.h>

#include <cmath>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "io/decoded_image.h"
#include "io/export_error.h"
#include "io/export_metadata.h"
#include "io/image_encoder.h"
#include "io/jpeg_decoder.h"
#include "io/load_error.h"
#include "io/metadata_reader.h"

#include "fuzz_check.h"

using vg::fuzz::check;
namespace fs = std::filesystem;

namespace {

void checkText(const std::optional<std::string>& s) {
  if (!s) return;
  check(!s->empty(), "no empty strings");
  check(s->find('\0') == std::string::npos, "no NUL inside strings");
  check(s->back() != ' ', "no trailing blanks");
}

void checkPositive(const std::optional<double>& v) {
  if (v) check(std::isfinite(*v) && *v > 0, "only positive finite values");
}

void checkFacts(const vg::ExifFacts& facts) {
  check(facts.orientation >= 1 && facts.orientation <= 8, "orientation in 1...8");
  const vg::PhotoMetadata& m = facts.meta;
  checkText(m.camera);
  checkText(m.lens);
  checkText(m.takenAt);
  checkPositive(m.focalLength);
  checkPositive(m.fNumber);
  checkPositive(m.exposureTime);
  checkPositive(m.focalLength35mm);
  if (m.iso) check(*m.iso > 0, "positive ISO");
  if (m.exposureBias) check(std::isfinite(*m.exposureBias), "finite bias");
  if (m.whiteBalance) check(*m.whiteBalance == "自动" || *m.whiteBalance == "手动", "white balance word");
  check(!m.rawSummary, "no RAW summary from Exif");
}

bool isLocationKey(std::string_view key) {
  static constexpr std::string_view kPrefixes[] = {
      "Exif.GPSInfo.",          "Iptc.Application2.City",        "Iptc.Application2.SubLocation",
      "Iptc.Application2.ProvinceState", "Iptc.Application2.CountryCode", "Iptc.Application2.CountryName",
      "Xmp.exif.GPS",           "Xmp.photoshop.City",            "Xmp.photoshop.State",
      "Xmp.photoshop.Country",  "Xmp.iptc.Location",             "Xmp.iptc.CountryCode",
      "Xmp.iptcExt.LocationCreated", "Xmp.iptcExt.LocationShown"};
  for (std::string_view p : kPrefixes)
    if (key.starts_with(p)) return true;
  return false;
}

std::vector<uint8_t> readBytes(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void writeBytes(const fs::path& path, std::span<const uint8_t> bytes) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
  check(bool(out), "the scratch file is written");
}

// This process's scratch files, and an 8×8 JPEG made once by our encoder.
struct Scratch {
  fs::path folder = fs::temp_directory_path() / ("vg-metadata-fuzz-" + std::to_string(getpid()));
  fs::path source = folder / "source";
  fs::path exported = folder / "exported.jpg";
  std::vector<uint8_t> plainJpeg;

  Scratch() {
    fs::create_directories(folder);
    vg::EncodeSpec spec;
    spec.width = spec.height = 8;
    fs::remove(exported);
    auto encoder = vg::makeJpegEncoder(exported, spec);
    std::vector<uint8_t> rows(8 * 8 * 3, 128);
    encoder->writeRows(rows.data(), 8 * 3, 8);
    encoder->finish();
    encoder.reset();
    plainJpeg = readBytes(exported);
  }
  ~Scratch() {
    std::error_code ec;
    fs::remove_all(folder, ec);
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static Scratch scratch;
  const std::span<const uint8_t> bytes(data, size);
  checkFacts(vg::readExifFacts(bytes));
  checkFacts(vg::readExifBlock(bytes));

  writeBytes(scratch.source, bytes);
  const auto copied = vg::ExportMetadata::fromSource(scratch.source, /*includeLocation=*/false, 100);
  for (const std::string& key : copied.keys()) check(!isLocationKey(key), "no location without includeLocation");
  for (auto dpi : {copied.dpiX(), copied.dpiY()}) checkPositive(dpi);

  const std::string block = copied.exifBlock();
  if (!block.empty()) {
    const vg::ExifFacts facts =
        vg::readExifBlock({reinterpret_cast<const uint8_t*>(block.data()), block.size()});
    check(facts.orientation == 1, "the HEIC Exif block is upright");
  }

  writeBytes(scratch.exported, scratch.plainJpeg);
  try {
    copied.writeInto(scratch.exported);
  } catch (const vg::ExportError& e) {
    check(e.code() == vg::ExportError::kWriteFailed, "metadata failures are write failures");
    return 0;
  }
  const std::vector<uint8_t> written = readBytes(scratch.exported);
  check(vg::readExifFacts(written).orientation == 1, "the written JPEG is upright");
  try {
    const vg::DecodedImage d = vg::decodeJpeg(written, vg::DecodeOptions{});
    check(d.image.width() == 8 && d.image.height() == 8, "the written JPEG keeps its pixels");
  } catch (const vg::DecodeError&) {
    check(false, "metadata never break the JPEG they are written into");
  }
  return 0;
}
