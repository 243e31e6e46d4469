#include <gtest/gtest.h>

#include <tiffio.h>

#include <cstring>
#include <functional>

#include "io/load_error.h"
#include "io/tiff_decoder.h"
#include "io_test_files.h"
#include "render/srgb.h"
#include "support/test_support.h"

namespace vg {
namespace {

std::vector<uint8_t> bytesOf(const std::filesystem::path& p) {
  std::string s = test::readFile(p);
  return {s.begin(), s.end()};
}

struct TiffSpec {
  int width = 4, height = 3, spp = 3, bps = 8;
  int sampleFormat = SAMPLEFORMAT_UINT;
  int photometric = PHOTOMETRIC_RGB;
  int compression = COMPRESSION_NONE;
  int planar = PLANARCONFIG_CONTIG;
  int orientation = ORIENTATION_TOPLEFT;
  int tile = 0;  // tile side, 0 for strips
  std::vector<uint16_t> extraSamples;
  std::function<void(TIFF*)> extraTags;
};

// Writes `data` (interleaved samples, host order) in the layout of `spec`.
void writeTiff(const std::filesystem::path& path, const TiffSpec& s, const void* data) {
  TIFF* t = TIFFOpen(path.c_str(), "w");
  ASSERT_NE(t, nullptr);
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, s.width);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, s.height);
  TIFFSetField(t, TIFFTAG_SAMPLESPERPIXEL, s.spp);
  TIFFSetField(t, TIFFTAG_BITSPERSAMPLE, s.bps);
  TIFFSetField(t, TIFFTAG_SAMPLEFORMAT, s.sampleFormat);
  TIFFSetField(t, TIFFTAG_PHOTOMETRIC, s.photometric);
  TIFFSetField(t, TIFFTAG_COMPRESSION, s.compression);
  TIFFSetField(t, TIFFTAG_PLANARCONFIG, s.planar);
  TIFFSetField(t, TIFFTAG_ORIENTATION, s.orientation);
  if (!s.extraSamples.empty()) TIFFSetField(t, TIFFTAG_EXTRASAMPLES, uint16_t(s.extraSamples.size()), s.extraSamples.data());
  if (s.extraTags) s.extraTags(t);
  const size_t bytesPerSample = size_t(s.bps) / 8;
  const size_t pixelBytes = bytesPerSample * s.spp;
  const auto* src = static_cast<const uint8_t*>(data);
  const int planes = s.planar == PLANARCONFIG_SEPARATE ? s.spp : 1;
  const size_t chunkPixel = planes > 1 ? bytesPerSample : pixelBytes;
  auto sampleAt = [&](int x, int y, int plane, uint8_t* out) {
    const uint8_t* p = src + (size_t(y) * s.width + x) * pixelBytes;
    if (planes > 1) std::memcpy(out, p + plane * bytesPerSample, bytesPerSample);
    else std::memcpy(out, p, pixelBytes);
  };
  if (s.tile) {
    TIFFSetField(t, TIFFTAG_TILEWIDTH, s.tile);
    TIFFSetField(t, TIFFTAG_TILELENGTH, s.tile);
    std::vector<uint8_t> tile(size_t(s.tile) * s.tile * chunkPixel);
    for (int plane = 0; plane < planes; ++plane)
      for (int ty = 0; ty < s.height; ty += s.tile)
        for (int tx = 0; tx < s.width; tx += s.tile) {
          std::fill(tile.begin(), tile.end(), 0);
          for (int y = ty; y < std::min(s.height, ty + s.tile); ++y)
            for (int x = tx; x < std::min(s.width, tx + s.tile); ++x)
              sampleAt(x, y, plane, tile.data() + (size_t(y - ty) * s.tile + (x - tx)) * chunkPixel);
          TIFFWriteTile(t, tile.data(), tx, ty, 0, uint16_t(plane));
        }
  } else {
    TIFFSetField(t, TIFFTAG_ROWSPERSTRIP, 2);
    std::vector<uint8_t> row(size_t(s.width) * chunkPixel);
    for (int plane = 0; plane < planes; ++plane)
      for (int y = 0; y < s.height; ++y) {
        for (int x = 0; x < s.width; ++x) sampleAt(x, y, plane, row.data() + x * chunkPixel);
        std::vector<uint8_t> copy = row;  // the predictor overwrites what it is given
        TIFFWriteScanline(t, copy.data(), y, uint16_t(plane));
      }
  }
  TIFFClose(t);
}

TEST(TiffDecoder, FloatWithoutProfileIsWorkingSpaceDataAsIs) {
  test::TempDir dir;
  TiffSpec s;
  s.width = 2, s.height = 1, s.bps = 32, s.sampleFormat = SAMPLEFORMAT_IEEEFP;
  const float px[6] = {-0.5f, 0.25f, 3.75f, 1.0f, 0.0f, 0.018f};
  writeTiff(dir / "f.tif", s, px);
  auto d = decodeTiff(bytesOf(dir / "f.tif"));
  for (int i = 0; i < 6; ++i) EXPECT_EQ(d.image.at(i / 3, 0)[i % 3], px[i]) << i;
  EXPECT_EQ(d.image.at(1, 0)[3], 1.0f);
}

TEST(TiffDecoder, LayoutsAndCompressionsAgree) {
  test::TempDir dir;
  const int W = 37, H = 21;  // not a multiple of the tile or strip size
  std::vector<uint16_t> px(size_t(W) * H * 3);
  for (size_t i = 0; i < px.size(); ++i) px[i] = uint16_t((i * 2654435761u) >> 16);
  TiffSpec base;
  base.width = W, base.height = H, base.bps = 16;
  writeTiff(dir / "plain.tif", base, px.data());
  auto reference = decodeTiff(bytesOf(dir / "plain.tif"));
  ASSERT_EQ(reference.image.width(), W);
  EXPECT_NEAR(reference.image.at(3, 2)[1], srgb::decode(px[(2 * W + 3) * 3 + 1] / 65535.0f), 2e-6);

  struct Variant {
    const char* name;
    std::function<void(TiffSpec&)> change;
  };
  std::vector<Variant> variants = {
      {"lzw+predictor", [](TiffSpec& s) {
         s.compression = COMPRESSION_LZW;
         s.extraTags = [](TIFF* t) { TIFFSetField(t, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL); };
       }},
      {"deflate tiles", [](TiffSpec& s) { s.compression = COMPRESSION_ADOBE_DEFLATE, s.tile = 16; }},
      {"planar strips", [](TiffSpec& s) { s.planar = PLANARCONFIG_SEPARATE; }},
      {"planar tiles", [](TiffSpec& s) { s.planar = PLANARCONFIG_SEPARATE, s.tile = 16, s.compression = COMPRESSION_PACKBITS; }},
  };
  for (auto& v : variants) {
    TiffSpec s = base;
    v.change(s);
    writeTiff(dir / "v.tif", s, px.data());
    auto d = decodeTiff(bytesOf(dir / "v.tif"));
    EXPECT_EQ(test::maxDifference(d.image, reference.image), 0.0) << v.name;
  }
}

TEST(TiffDecoder, OrientationTagTurnsTheImage) {
  test::TempDir dir;
  TiffSpec s;
  s.width = 3, s.height = 2, s.orientation = ORIENTATION_RIGHTTOP;  // 6
  std::vector<uint8_t> px(18, 0);
  px[0] = 255;  // stored top-left is red
  writeTiff(dir / "o.tif", s, px.data());
  auto d = decodeTiff(bytesOf(dir / "o.tif"));
  ASSERT_EQ(d.image.width(), 2);
  ASSERT_EQ(d.image.height(), 3);
  EXPECT_EQ(d.image.at(1, 0)[0], 1.0f);  // after a clockwise turn: top-right
}

TEST(TiffDecoder, GreyPaletteAlphaAndMinIsWhite) {
  test::TempDir dir;
  // Min-is-white: 0 is white.
  TiffSpec grey;
  grey.width = 2, grey.height = 1, grey.spp = 1, grey.photometric = PHOTOMETRIC_MINISWHITE;
  const uint8_t g[2] = {0, 255};
  writeTiff(dir / "w.tif", grey, g);
  auto w = decodeTiff(bytesOf(dir / "w.tif"));
  EXPECT_EQ(w.colorModel, "Gray");
  EXPECT_FLOAT_EQ(w.image.at(0, 0)[0], 1.0f);
  EXPECT_FLOAT_EQ(w.image.at(1, 0)[0], 0.0f);

  // Palette: index 1 is pure green.
  TiffSpec pal;
  pal.width = 2, pal.height = 1, pal.spp = 1, pal.photometric = PHOTOMETRIC_PALETTE;
  static uint16_t red[256] = {}, green[256] = {}, blue[256] = {};
  green[1] = 65535;
  pal.extraTags = [](TIFF* t) { TIFFSetField(t, TIFFTAG_COLORMAP, red, green, blue); };
  const uint8_t idx[2] = {0, 1};
  writeTiff(dir / "p.tif", pal, idx);
  auto p = decodeTiff(bytesOf(dir / "p.tif"));
  EXPECT_FLOAT_EQ(p.image.at(1, 0)[1], 1.0f);
  EXPECT_FLOAT_EQ(p.image.at(1, 0)[0], 0.0f);
  EXPECT_FLOAT_EQ(p.image.at(0, 0)[1], 0.0f);

  // Unassociated alpha is premultiplied; an unspecified extra sample is not alpha.
  TiffSpec rgba;
  rgba.width = 1, rgba.height = 1, rgba.spp = 4, rgba.extraSamples = {EXTRASAMPLE_UNASSALPHA};
  const uint8_t a[4] = {255, 255, 255, 51};
  writeTiff(dir / "a.tif", rgba, a);
  auto ad = decodeTiff(bytesOf(dir / "a.tif"));
  EXPECT_NEAR(ad.image.at(0, 0)[0], 0.2f, 1e-6);
  EXPECT_NEAR(ad.image.at(0, 0)[3], 0.2f, 1e-6);
  EXPECT_FALSE(ad.opaque);
  rgba.extraSamples = {EXTRASAMPLE_UNSPECIFIED};
  writeTiff(dir / "u.tif", rgba, a);
  auto ud = decodeTiff(bytesOf(dir / "u.tif"));
  EXPECT_FLOAT_EQ(ud.image.at(0, 0)[0], 1.0f);
  EXPECT_FLOAT_EQ(ud.image.at(0, 0)[3], 1.0f);
  EXPECT_TRUE(ud.opaque);
}

TEST(TiffDecoder, SharedFiles) {
  // The same still stored as 16-bit strips with a predictor and as 8-bit
  // tiles: its 16-bit values are the 8-bit ones times 257.
  auto sixteen = decodeTiff(bytesOf(test::dataPath("tiff/video-001-16bit.tiff")));
  auto tiled = decodeTiff(bytesOf(test::dataPath("tiff/video-001-tile-64x64.tiff")));
  ASSERT_EQ(sixteen.image.width(), 150);
  ASSERT_EQ(sixteen.image.height(), 103);
  EXPECT_LT(test::maxDifference(sixteen.image, tiled.image), 1e-5);

  auto board = decodeTiff(bytesOf(test::dataPath("tiff/chessboard_GRAY_U16.tif")));
  EXPECT_EQ(board.colorModel, "Gray");
  EXPECT_EQ(board.image.width(), 200);

  // Two pages of 64-bit float planes: the first page is read.
  auto multi = decodeTiff(bytesOf(test::dataPath("tiff/multipage_rgb.tif")));
  EXPECT_EQ(multi.image.width(), 10);
  EXPECT_EQ(multi.image.height(), 10);
}

TEST(TiffDecoder, DamagedAndHostileFilesFail) {
  std::vector<uint8_t> whole = bytesOf(test::dataPath("tiff/video-001-16bit.tiff"));
  std::vector<uint8_t> head(whole.begin(), whole.begin() + long(whole.size() / 2));
  try {
    decodeTiff(head);  // the directory is at the end: nothing to read
    ADD_FAILURE() << "a truncated TIFF decoded";
  } catch (const DecodeError&) {
  }
  test::TempDir dir;
  TiffSpec huge;
  huge.width = 60000, huge.height = 60000, huge.spp = 1, huge.photometric = PHOTOMETRIC_MINISBLACK;
  // Only the header matters: write a 1-row image and patch its size.
  TiffSpec small = huge;
  small.width = 1, small.height = 1;
  const uint8_t px[1] = {0};
  writeTiff(dir / "h.tif", small, px);
  TIFF* t = TIFFOpen((dir / "h.tif").c_str(), "r+");
  ASSERT_NE(t, nullptr);
  TIFFSetField(t, TIFFTAG_IMAGEWIDTH, 60000);
  TIFFSetField(t, TIFFTAG_IMAGELENGTH, 60000);
  TIFFRewriteDirectory(t);
  TIFFClose(t);
  EXPECT_THROW(decodeTiff(bytesOf(dir / "h.tif")), DecodeError);
  EXPECT_THROW(decodeTiff(std::vector<uint8_t>{'I', 'I', 42, 0}), DecodeError);
}

}  // namespace
}  // namespace vg
