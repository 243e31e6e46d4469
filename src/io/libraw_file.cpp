#include "io/libraw_file.h"

#include <libraw/libraw.h>

#include <algorithm>
#include <cmath>
#include <ctime>
#include <new>
#include <string>
#include <vector>

#include "io/decode_limits.h"
#include "io/load_error.h"
#include "model/log.h"

namespace vg {

void LibRawDeleter::operator()(LibRaw* p) const { delete p; }

namespace {

// LibRaw 0.20 reads a CFAPattern tag of 36 entries as a 6×6 pattern whatever
// the IFD's CFARepeatPatternDim says, and with a 2×2 one it then writes past
// its own state: a crafted DNG crashes the process while it is only being
// opened. So the TIFF structure (IFD0 and its chain, SubIFDs, the Exif IFD)
// is walked first, and a pattern whose length is not rows × columns refused.
// Anything that is not a TIFF, or that the walk cannot follow, is left to
// LibRaw.
bool cfaPatternsAgree(std::span<const uint8_t> b) {
  if (b.size() < 8 || !((b[0] == 'I' && b[1] == 'I') || (b[0] == 'M' && b[1] == 'M'))) return true;
  const bool little = b[0] == 'I';
  auto u16 = [&](size_t at) -> uint32_t {
    if (at + 2 > b.size()) return 0;
    return little ? b[at] | b[at + 1] << 8 : b[at] << 8 | b[at + 1];
  };
  auto u32 = [&](size_t at) -> uint32_t {
    if (at + 4 > b.size()) return 0;
    return little ? u16(at) | u16(at + 2) << 16 : u16(at) << 16 | u16(at + 2);
  };
  if (u16(2) != 42) return true;
  std::vector<uint32_t> pending{u32(4)}, seen;
  while (!pending.empty() && seen.size() < 64) {
    const uint32_t ifd = pending.back();
    pending.pop_back();
    if (ifd < 8 || ifd + 2 > b.size() || std::find(seen.begin(), seen.end(), ifd) != seen.end()) continue;
    seen.push_back(ifd);
    const uint32_t entries = u16(ifd);
    uint32_t rows = 0, columns = 0, patternLength = 0;
    for (uint32_t i = 0; i < entries && ifd + 2 + 12 * (i + 1) <= b.size(); ++i) {
      const size_t e = ifd + 2 + 12 * size_t(i);
      const uint32_t tag = u16(e), type = u16(e + 2), count = u32(e + 4);
      if (tag == 33421 && type == 3 && count == 2) {  // CFARepeatPatternDim
        rows = u16(e + 8);
        columns = u16(e + 10);
      } else if (tag == 33422) {  // CFAPattern
        patternLength = count;
      } else if (tag == 330 || tag == 34665) {  // SubIFDs, Exif IFD
        if (count == 1) pending.push_back(u32(e + 8));
        for (uint32_t k = 0; count > 1 && k < std::min(count, 16u); ++k) pending.push_back(u32(u32(e + 8) + 4 * k));
      }
    }
    if (rows && columns && patternLength && patternLength != rows * columns) return false;
    pending.push_back(u32(ifd + 2 + 12 * size_t(entries)));  // the next IFD in the chain
  }
  return true;
}

}  // namespace

LibRawPtr openRaw(std::span<const uint8_t> bytes) {
  if (!cfaPatternsAgree(bytes)) {
    logLine("image loader: RAW refused: a CFA pattern that disagrees with its repeat size");
    return nullptr;
  }
  LibRawPtr raw(new (std::nothrow) LibRaw(LIBRAW_OPTIONS_NONE));
  if (!raw) return nullptr;
  if (bytes.empty() || raw->open_buffer(const_cast<uint8_t*>(bytes.data()), bytes.size()) != LIBRAW_SUCCESS) {
    return nullptr;
  }
  const auto& s = raw->imgdata.sizes;
  try {
    decode_limits::check(s.raw_width, s.raw_height, bytes.size());
    decode_limits::check(s.width, s.height, bytes.size());
    // Some of LibRaw's decoders (Kodak's JPEG-compressed raw, for one)
    // allocate the declared size of the raw data before reading it: a
    // damaged size field of 4 GiB in a 40 KB file would be taken at its word.
    if (raw->get_internal_data_pointer()->unpacker_data.data_size > bytes.size()) {
      throw DecodeError("declares more raw data than the file holds");
    }
  } catch (const DecodeError& e) {
    logLine(std::string("image loader: RAW refused: ") + e.what());
    return nullptr;
  }
  return raw;
}

namespace {

// LibRaw keeps these facts in single precision: 3.7 would read 3.700000047.
double tidy(float v) { return std::round(double(v) * 1e6) / 1e6; }

}  // namespace

PhotoMetadata rawFacts(const LibRaw& raw) {
  const auto& d = raw.imgdata;
  PhotoMetadata m;
  nlohmann::ordered_json summary = nlohmann::ordered_json::object();
  auto nonEmpty = [](const char* s) { return s && *s; };
  if (nonEmpty(d.idata.make)) summary["Make"] = d.idata.make;
  if (nonEmpty(d.idata.model)) {
    summary["Model"] = d.idata.model;
    m.camera = std::string(d.idata.model);
  }
  if (nonEmpty(d.lens.Lens)) {
    summary["Lens"] = d.lens.Lens;
    m.lens = std::string(d.lens.Lens);
  }
  if (d.other.iso_speed > 0) {
    summary["ISOSpeed"] = tidy(d.other.iso_speed);
    m.iso = int(std::lround(d.other.iso_speed));
  }
  if (d.other.shutter > 0) {
    summary["ShutterSpeed"] = tidy(d.other.shutter);
    m.exposureTime = tidy(d.other.shutter);
  }
  if (d.other.aperture > 0) {
    summary["Aperture"] = tidy(d.other.aperture);
    m.fNumber = tidy(d.other.aperture);
  }
  if (d.other.focal_len > 0) {
    summary["FocalLength"] = tidy(d.other.focal_len);
    m.focalLength = tidy(d.other.focal_len);
  }
  if (d.other.timestamp > 0) {
    std::tm tm{};
    time_t t = d.other.timestamp;
    if (localtime_r(&t, &tm)) {
      char text[32];
      std::strftime(text, sizeof text, "%Y:%m:%d %H:%M:%S", &tm);
      m.takenAt = std::string(text);
    }
  }
  summary["WhiteBalanceMultipliers"] = {tidy(d.color.cam_mul[0]), tidy(d.color.cam_mul[1]),
                                        tidy(d.color.cam_mul[2]), tidy(d.color.cam_mul[3])};
  summary["BlackLevel"] = d.color.black;
  summary["WhiteLevel"] = d.color.maximum;
  summary["RawWidth"] = d.sizes.raw_width;
  summary["RawHeight"] = d.sizes.raw_height;
  m.rawSummary = std::move(summary);
  return m;
}

}  // namespace vg
