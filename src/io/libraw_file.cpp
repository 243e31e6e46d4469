#include "io/libraw_file.h"

#include <libraw/libraw.h>

#include <cmath>
#include <ctime>
#include <new>
#include <string>

#include "io/decode_limits.h"
#include "io/load_error.h"
#include "model/log.h"

namespace vg {

void LibRawDeleter::operator()(LibRaw* p) const { delete p; }

LibRawPtr openRaw(std::span<const uint8_t> bytes) {
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
