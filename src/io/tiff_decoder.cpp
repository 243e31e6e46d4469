#include "io/tiff_decoder.h"

#include <tiffio.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "io/decode_limits.h"
#include "io/input_color.h"
#include "io/load_error.h"
#include "io/orientation.h"
#include "io/upright_writer.h"

namespace vg {
namespace {

struct MemoryFile {
  const uint8_t* data;
  size_t size;
  uint64_t position = 0;
  std::string firstError;
};

tmsize_t readProc(thandle_t h, void* buffer, tmsize_t n) {
  auto* f = static_cast<MemoryFile*>(h);
  if (n <= 0 || f->position >= f->size) return 0;
  size_t count = std::min<uint64_t>(uint64_t(n), f->size - f->position);
  std::memcpy(buffer, f->data + f->position, count);
  f->position += count;
  return tmsize_t(count);
}

tmsize_t writeProc(thandle_t, void*, tmsize_t) { return 0; }

toff_t seekProc(thandle_t h, toff_t offset, int whence) {
  auto* f = static_cast<MemoryFile*>(h);
  uint64_t base = whence == SEEK_CUR ? f->position : whence == SEEK_END ? f->size : 0;
  uint64_t target = base + offset;
  if (target < base && whence != SEEK_SET) return toff_t(-1);
  f->position = target;
  return target;
}

int closeProc(thandle_t) { return 0; }
toff_t sizeProc(thandle_t h) { return static_cast<MemoryFile*>(h)->size; }

int mapProc(thandle_t h, void** base, toff_t* size) {
  auto* f = static_cast<MemoryFile*>(h);
  *base = const_cast<uint8_t*>(f->data);
  *size = f->size;
  return 1;
}

void unmapProc(thandle_t, void*, toff_t) {}

int errorHandler(TIFF*, void* user, const char* module, const char* fmt, va_list ap) {
  auto* f = static_cast<MemoryFile*>(user);
  if (f->firstError.empty()) {
    char text[512];
    std::vsnprintf(text, sizeof text, fmt, ap);
    f->firstError = std::string(module ? module : "TIFF") + ": " + text;
  }
  return 1;
}

int warningHandler(TIFF*, void*, const char*, const char*, va_list) { return 1; }

struct TiffCloser {
  void operator()(TIFF* t) const { TIFFClose(t); }
};

[[noreturn]] void fail(const MemoryFile& file, const std::string& what) {
  throw DecodeError("TIFF: " + what + (file.firstError.empty() ? "" : " (" + file.firstError + ")"));
}

// Reads every strip or tile of a contiguous or planar image into one
// interleaved buffer of `spp` samples of `bytesPerSample` bytes per pixel.
std::vector<uint8_t> readInterleaved(TIFF* tif, const MemoryFile& file, uint32_t width, uint32_t height,
                                     int spp, size_t bytesPerSample, bool planar) {
  const size_t pixelBytes = bytesPerSample * size_t(spp);
  const size_t pitch = pixelBytes * width;
  std::vector<uint8_t> out(pitch * height);
  const int planes = planar ? spp : 1;
  const size_t chunkPixelBytes = planar ? bytesPerSample : pixelBytes;

  auto place = [&](const uint8_t* chunk, size_t chunkPitch, uint32_t x0, uint32_t y0, uint32_t w, uint32_t h,
                   int plane) {
    for (uint32_t r = 0; r < h; ++r) {
      const uint8_t* s = chunk + size_t(r) * chunkPitch;
      uint8_t* d = out.data() + size_t(y0 + r) * pitch + size_t(x0) * pixelBytes;
      if (!planar) {
        std::memcpy(d, s, size_t(w) * pixelBytes);
      } else {
        d += size_t(plane) * bytesPerSample;
        for (uint32_t x = 0; x < w; ++x) std::memcpy(d + x * pixelBytes, s + x * bytesPerSample, bytesPerSample);
      }
    }
  };

  if (TIFFIsTiled(tif)) {
    uint32_t tw = 0, th = 0;
    TIFFGetField(tif, TIFFTAG_TILEWIDTH, &tw);
    TIFFGetField(tif, TIFFTAG_TILELENGTH, &th);
    if (tw == 0 || th == 0 || tw > 65536 || th > 65536) fail(file, "bad tile size");
    tmsize_t tileSize = TIFFTileSize(tif);
    if (tileSize <= 0 || size_t(tileSize) < size_t(tw) * th * chunkPixelBytes) fail(file, "bad tile size");
    std::vector<uint8_t> tile(static_cast<size_t>(tileSize));
    for (int plane = 0; plane < planes; ++plane) {
      for (uint32_t y = 0; y < height; y += th) {
        for (uint32_t x = 0; x < width; x += tw) {
          uint32_t index = TIFFComputeTile(tif, x, y, 0, uint16_t(plane));
          if (TIFFReadEncodedTile(tif, index, tile.data(), tileSize) < 0) fail(file, "unreadable tile");
          place(tile.data(), size_t(tw) * chunkPixelBytes, x, y, std::min(tw, width - x), std::min(th, height - y),
                plane);
        }
      }
    }
  } else {
    uint32_t rowsPerStrip = 0;
    TIFFGetFieldDefaulted(tif, TIFFTAG_ROWSPERSTRIP, &rowsPerStrip);
    rowsPerStrip = std::clamp<uint32_t>(rowsPerStrip, 1, height);
    tmsize_t stripSize = TIFFStripSize(tif);
    if (stripSize <= 0) fail(file, "bad strip size");
    std::vector<uint8_t> strip(static_cast<size_t>(stripSize));
    uint32_t stripsPerPlane = (height + rowsPerStrip - 1) / rowsPerStrip;
    for (int plane = 0; plane < planes; ++plane) {
      for (uint32_t k = 0; k < stripsPerPlane; ++k) {
        uint32_t y0 = k * rowsPerStrip;
        uint32_t rows = std::min(rowsPerStrip, height - y0);
        size_t need = size_t(rows) * width * chunkPixelBytes;
        if (need > strip.size()) fail(file, "strip smaller than its rows");
        uint32_t index = TIFFComputeStrip(tif, y0, uint16_t(plane));
        if (TIFFReadEncodedStrip(tif, index, strip.data(), tmsize_t(need)) < 0) fail(file, "unreadable strip");
        place(strip.data(), size_t(width) * chunkPixelBytes, 0, y0, width, rows, plane);
      }
    }
  }
  return out;
}

// libtiff's own 8-bit RGBA reader, for layouts we do not read ourselves. It
// flips rows and columns for the file's orientation but never transposes, so
// orientations 5-8 still need the transposing part.
DecodedImage readThroughRgba(TIFF* tif, const MemoryFile& file, uint32_t width, uint32_t height,
                             int fileOrientation, std::span<const uint8_t> icc) {
  char message[1024] = {};
  if (!TIFFRGBAImageOK(tif, message)) fail(file, std::string("unsupported layout: ") + message);
  std::vector<uint32_t> raster(size_t(width) * height);
  if (!TIFFReadRGBAImageOriented(tif, width, height, raster.data(), ORIENTATION_TOPLEFT, 0)) {
    fail(file, "unreadable image");
  }
  static const int kRemaining[9] = {1, 1, 1, 1, 1, 5, 7, 5, 7};
  SourceFormat format;
  format.model = ColorModel::rgb;
  format.hasAlpha = true;
  format.alphaAssociated = true;
  InputColor color = InputColor::fromIcc(icc, format);
  UprightWriter writer(int(width), int(height), kRemaining[orientation::normalized(fileOrientation)], color);
  writer.writeAll(reinterpret_cast<const uint8_t*>(raster.data()), size_t(width) * 4);
  DecodedImage out;
  out.image = writer.take();
  out.opaque = writer.opaque();
  out.profileName = color.profileDescription();
  out.colorModel = "RGB";
  return out;
}

}  // namespace

DecodedImage decodeTiff(std::span<const uint8_t> bytes) {
  MemoryFile file{bytes.data(), bytes.size(), 0, {}};
  TIFFOpenOptions* opts = TIFFOpenOptionsAlloc();
  TIFFOpenOptionsSetMaxSingleMemAlloc(opts, tmsize_t(1) << 30);
  TIFFOpenOptionsSetErrorHandlerExtR(opts, errorHandler, &file);
  TIFFOpenOptionsSetWarningHandlerExtR(opts, warningHandler, &file);
  std::unique_ptr<TIFF, TiffCloser> tiff(TIFFClientOpenExt("memory", "rm", &file, readProc, writeProc, seekProc,
                                                           closeProc, sizeProc, mapProc, unmapProc, opts));
  TIFFOpenOptionsFree(opts);
  if (!tiff) fail(file, "cannot open");
  TIFF* tif = tiff.get();

  uint32_t width = 0, height = 0;
  if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &width) || !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &height)) {
    fail(file, "no image size");
  }
  decode_limits::check(width, height, bytes.size());

  uint16_t bps = 1, spp = 1, sampleFormat = SAMPLEFORMAT_UINT, photometric = 0, planar = PLANARCONFIG_CONTIG;
  uint16_t compression = COMPRESSION_NONE, orientationTag = ORIENTATION_TOPLEFT, inkSet = INKSET_CMYK;
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &bps);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLEFORMAT, &sampleFormat);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
  TIFFGetFieldDefaulted(tif, TIFFTAG_COMPRESSION, &compression);
  TIFFGetFieldDefaulted(tif, TIFFTAG_ORIENTATION, &orientationTag);
  TIFFGetFieldDefaulted(tif, TIFFTAG_INKSET, &inkSet);
  if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &photometric)) {
    photometric = spp >= 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK;
  }
  if (spp < 1 || spp > 16) fail(file, "bad samples per pixel");

  std::vector<uint8_t> icc;
  uint32_t iccLength = 0;
  void* iccData = nullptr;
  if (TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccLength, &iccData) && iccData && iccLength > 0) {
    icc.assign(static_cast<uint8_t*>(iccData), static_cast<uint8_t*>(iccData) + iccLength);
  }

  SourceFormat format;
  bool supported = true;
  if (sampleFormat == SAMPLEFORMAT_IEEEFP && (bps == 64 || bps == 32 || bps == 16)) {
    format.type = bps == 64 ? SampleType::f64 : bps == 32 ? SampleType::f32 : SampleType::f16;
  } else if ((sampleFormat == SAMPLEFORMAT_UINT || sampleFormat == SAMPLEFORMAT_VOID) && (bps == 8 || bps == 16)) {
    format.type = bps == 8 ? SampleType::u8 : SampleType::u16;
    format.bitDepth = bps;
  } else {
    supported = false;
  }
  int colorChannels = 0;
  switch (photometric) {
    case PHOTOMETRIC_MINISBLACK:
    case PHOTOMETRIC_MINISWHITE:
      format.model = ColorModel::gray;
      format.inverted = photometric == PHOTOMETRIC_MINISWHITE;
      colorChannels = 1;
      break;
    case PHOTOMETRIC_RGB:
      format.model = ColorModel::rgb;
      colorChannels = 3;
      break;
    case PHOTOMETRIC_SEPARATED:
      format.model = ColorModel::cmyk;
      colorChannels = 4;
      supported = supported && inkSet == INKSET_CMYK;
      break;
    case PHOTOMETRIC_YCBCR:
      if (compression == COMPRESSION_JPEG && bps == 8 && planar == PLANARCONFIG_CONTIG) {
        TIFFSetField(tif, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
        format.model = ColorModel::rgb;
        colorChannels = 3;
      } else {
        supported = false;
      }
      break;
    case PHOTOMETRIC_PALETTE:
      supported = supported && bps == 8 && spp == 1 && format.type == SampleType::u8;
      break;
    default:
      supported = false;
  }
  if (photometric != PHOTOMETRIC_PALETTE && spp < colorChannels) supported = false;
  if (!supported) return readThroughRgba(tif, file, width, height, orientationTag, icc);

  // Alpha: the first extra sample, when it is declared as alpha.
  int alphaIndex = -1;
  if (photometric != PHOTOMETRIC_PALETTE && spp > colorChannels) {
    uint16_t extraCount = 0;
    uint16_t* extraTypes = nullptr;
    if (TIFFGetField(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extraTypes) && extraCount > 0 && extraTypes &&
        (extraTypes[0] == EXTRASAMPLE_ASSOCALPHA || extraTypes[0] == EXTRASAMPLE_UNASSALPHA)) {
      alphaIndex = colorChannels;
      format.hasAlpha = true;
      format.alphaAssociated = extraTypes[0] == EXTRASAMPLE_ASSOCALPHA;
    }
  }

  const size_t bytesPerSample = format.bytesPerSample();
  std::vector<uint8_t> samples =
      readInterleaved(tif, file, width, height, spp, bytesPerSample, planar == PLANARCONFIG_SEPARATE && spp > 1);

  if (photometric == PHOTOMETRIC_PALETTE) {
    uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
    if (!TIFFGetField(tif, TIFFTAG_COLORMAP, &red, &green, &blue) || !red || !green || !blue) {
      fail(file, "palette image without a colour map");
    }
    std::vector<uint8_t> rgb(size_t(width) * height * 6);
    auto* d = reinterpret_cast<uint16_t*>(rgb.data());
    for (size_t i = 0, n = size_t(width) * height; i < n; ++i) {
      uint8_t v = samples[i];
      d[i * 3] = red[v];
      d[i * 3 + 1] = green[v];
      d[i * 3 + 2] = blue[v];
    }
    samples = std::move(rgb);
    format = SourceFormat{};
    format.model = ColorModel::rgb;
    format.type = SampleType::u16;
    format.bitDepth = 16;
    spp = 3;
  }

  // Drop extra samples the conversion does not use (pack to colour + alpha).
  if (int(spp) != format.channels()) {
    const size_t inPixel = bytesPerSample * spp, outPixel = format.bytesPerPixel();
    const size_t n = size_t(width) * height;
    for (size_t i = 0; i < n; ++i) {
      uint8_t* d = samples.data() + i * outPixel;
      const uint8_t* s = samples.data() + i * inPixel;
      std::memmove(d, s, bytesPerSample * size_t(colorChannels));
      if (alphaIndex >= 0) {
        std::memmove(d + bytesPerSample * colorChannels, s + bytesPerSample * size_t(alphaIndex), bytesPerSample);
      }
    }
  }

  InputColor color = (format.isFloat() && icc.empty()) ? InputColor::workingSpace(format)
                                                       : InputColor::fromIcc(icc, format);
  UprightWriter writer(int(width), int(height), orientationTag, color);
  writer.writeAll(samples.data(), size_t(width) * format.bytesPerPixel());

  DecodedImage out;
  out.image = writer.take();
  out.opaque = writer.opaque();
  out.profileName = color.profileDescription();
  out.colorModel = format.model == ColorModel::gray ? "Gray" : format.model == ColorModel::cmyk ? "CMYK" : "RGB";
  return out;
}

}  // namespace vg
