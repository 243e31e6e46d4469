// vg_bin_dng: a small Bayer DNG made from a camera RAW, for tests that need
// a real sensor's tones without a multi-megabyte file.
//
//   vg_bin_dng RAW OUT.dng K
//
// The visible area's 2 x 2 mosaic cells are binned K x K: each output sample
// is the mean of the K x K samples of its colour (linear, so the picture's
// tones and colours are kept, only its detail and noise shrink). The DNG
// carries the mosaic pattern, black and white level, the camera's colour
// matrix (LibRaw's, as ColorMatrix1 under D65) and its as-shot white balance.
// tests/data/raw/canon-powershot-s40-CRW_0101.binned8.dng was made with K = 8.
#include <libraw/libraw.h>
#include <tiffio.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <vector>

int main(int argc, char** argv) {
  if (argc != 4 || std::atoi(argv[3]) < 1) {
    std::fprintf(stderr, "usage: vg_bin_dng RAW OUT.dng K\n");
    return 2;
  }
  const int k = std::atoi(argv[3]);
  LibRaw raw;
  if (raw.open_file(argv[1]) != LIBRAW_SUCCESS || raw.unpack() != LIBRAW_SUCCESS || raw.raw2image() != LIBRAW_SUCCESS ||
      raw.imgdata.idata.filters < 1000) {
    std::fprintf(stderr, "vg_bin_dng: %s is not a Bayer RAW LibRaw can read\n", argv[1]);
    return 1;
  }
  const auto& color = raw.imgdata.color;
  const int W = raw.imgdata.sizes.iwidth, H = raw.imgdata.sizes.iheight;
  const int ow = W / (2 * k) * 2, oh = H / (2 * k) * 2;
  std::vector<uint16_t> out(size_t(ow) * oh);
  for (int oy = 0; oy < oh; ++oy)
    for (int ox = 0; ox < ow; ++ox) {
      double sum = 0;
      for (int j = 0; j < k; ++j)
        for (int i = 0; i < k; ++i) {
          const int y = ((oy >> 1) * k + j) * 2 + (oy & 1), x = ((ox >> 1) * k + i) * 2 + (ox & 1);
          sum += raw.imgdata.image[size_t(y) * W + x][raw.COLOR(y, x)];
        }
      out[size_t(oy) * ow + ox] = uint16_t(std::lround(sum / (k * k)));
    }

  TIFF* tif = TIFFOpen(argv[2], "w");
  if (!tif) return 1;
  const uint8_t dngVersion[4] = {1, 4, 0, 0}, backward[4] = {1, 1, 0, 0};
  const uint16_t cfaDim[2] = {2, 2};
  uint8_t pattern[4];
  for (int r = 0; r < 2; ++r)
    for (int c = 0; c < 2; ++c) pattern[r * 2 + c] = uint8_t(raw.COLOR(r, c) == 3 ? 1 : raw.COLOR(r, c));
  float matrix[9];
  for (int r = 0; r < 3; ++r)
    for (int c = 0; c < 3; ++c) matrix[r * 3 + c] = color.cam_xyz[r][c];
  const float neutral[3] = {color.cam_mul[1] / color.cam_mul[0], 1.0f, color.cam_mul[1] / color.cam_mul[2]};
  const float black = float(color.black + color.cblack[0]);
  const uint32_t white = color.maximum;
  TIFFSetField(tif, TIFFTAG_SUBFILETYPE, 0);
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, uint32_t(ow));
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, uint32_t(oh));
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, 16);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, COMPRESSION_NONE);
  TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, 32803);  // colour filter array
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_ORIENTATION, 1);
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, uint32_t(oh));
  TIFFSetField(tif, TIFFTAG_MAKE, raw.imgdata.idata.make);
  TIFFSetField(tif, TIFFTAG_MODEL, raw.imgdata.idata.model);
  TIFFSetField(tif, TIFFTAG_DNGVERSION, dngVersion);
  TIFFSetField(tif, TIFFTAG_DNGBACKWARDVERSION, backward);
  TIFFSetField(tif, TIFFTAG_UNIQUECAMERAMODEL, raw.imgdata.idata.model);
  TIFFSetField(tif, TIFFTAG_CFAREPEATPATTERNDIM, cfaDim);
  TIFFSetField(tif, TIFFTAG_CFAPATTERN, 4, pattern);
  TIFFSetField(tif, TIFFTAG_COLORMATRIX1, 9, matrix);
  TIFFSetField(tif, TIFFTAG_CALIBRATIONILLUMINANT1, 21);  // D65
  TIFFSetField(tif, TIFFTAG_ASSHOTNEUTRAL, 3, neutral);
  TIFFSetField(tif, TIFFTAG_BLACKLEVEL, 1, &black);
  TIFFSetField(tif, TIFFTAG_WHITELEVEL, 1, &white);
  bool ok = true;
  for (int y = 0; y < oh && ok; ++y) ok = TIFFWriteScanline(tif, &out[size_t(y) * ow], uint32_t(y), 0) == 1;
  TIFFClose(tif);
  std::printf("%s: %d x %d\n", argv[2], ow, oh);
  return ok ? 0 : 1;
}
