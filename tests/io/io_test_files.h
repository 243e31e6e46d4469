// Writers of small synthetic image files for the loader tests: every format
// the loader reads, with the features under test (orientation, profiles,
// bit depths, layouts, camera RAW tags) and known pixel values.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "render/image.h"

namespace vg::test {

// Interleaved 8-bit samples, `channels` per pixel.
struct Raster8 {
  int width = 0, height = 0, channels = 3;
  std::vector<uint8_t> samples;
  uint8_t* at(int x, int y) { return samples.data() + (size_t(y) * width + x) * channels; }
};

// A width × height RGB pattern that tells every orientation apart: four
// flat quadrants of different colours (top-left red, top-right green,
// bottom-left blue, bottom-right white).
Raster8 quadrants(int width, int height);

void writeJpeg(const std::filesystem::path& path, const Raster8& raster, int quality = 95,
               bool progressive = false);
// Sets Exif Orientation (and any further Exif tags) with Exiv2.
void setExifOrientation(const std::filesystem::path& path, long orientation);

// samples: interleaved, 8 or 16 bits (host order), with `channels` 1-4.
void writePng(const std::filesystem::path& path, int width, int height, int channels, int bitDepth,
              const void* samples, const std::vector<uint8_t>& icc = {});

// An ICC profile made by Little CMS: RGB primaries (x, y pairs), D65 white,
// a pure gamma curve; stored with the given description.
std::vector<uint8_t> makeRgbProfile(const double primaries[6], double gamma, const std::string& description);
// A grey ICC profile (D50 white, pure gamma curve) with the given description.
std::vector<uint8_t> makeGrayProfile(double gamma, const std::string& description);
// Embeds `icc` in a JPEG, PNG or TIFF file with Exiv2, replacing any profile.
void embedIccProfile(const std::filesystem::path& path, const std::vector<uint8_t>& icc);

// A camera RAW in DNG form made with libtiff: a 16-bit RGGB Bayer mosaic
// from `mosaicValue(x, y)`, black 0, white 65535, an identity-like colour
// matrix, as-shot neutral 1/1/1, the given TIFF orientation and, when given,
// a BaselineExposure tag (EV).
void writeDng(const std::filesystem::path& path, int width, int height,
              const std::function<uint16_t(int x, int y)>& mosaicValue, int orientation = 1,
              bool deflate = false, std::optional<double> baselineExposure = std::nullopt);

// Largest absolute difference over every channel of two equal-sized images
// (infinity when the sizes differ).
double maxDifference(const Image& a, const Image& b);
// Mean absolute difference over the colour channels.
double meanDifference(const Image& a, const Image& b);
// Mean of each channel.
std::vector<double> channelMeans(const Image& image);

}  // namespace vg::test
