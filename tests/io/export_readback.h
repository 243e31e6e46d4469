// Test helpers: read exported files back with the format libraries directly,
// so the exporter's tests do not depend on the application's own decoders.
#pragma once

#include <cstddef>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include <jpeglib.h>
#include <libheif/heif.h>
#include <png.h>
#include <tiffio.h>

namespace vg::test {

struct ReadBack {
  int width = 0;
  int height = 0;
  int channels = 0;
  int bitDepth = 0;         // bits per sample as stored
  int tiffCompression = 0;  // TIFF only
  std::vector<uint8_t> icc;
  std::vector<uint16_t> samples;  // interleaved, as stored (8-bit values widened)
  double dpiX = 0, dpiY = 0;      // JFIF / pHYs / TIFF resolution, 0 when absent
  std::string exif;               // HEIC only: the Exif item payload
  std::string xmp;                // HEIC only

  uint16_t at(int x, int y, int c) const { return samples[(size_t(y) * width + x) * channels + c]; }
};

inline ReadBack readJpeg(const std::filesystem::path& path) {
  ReadBack out;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return out;
  jpeg_decompress_struct cinfo{};
  jpeg_error_mgr err{};
  cinfo.err = jpeg_std_error(&err);
  jpeg_create_decompress(&cinfo);
  jpeg_stdio_src(&cinfo, f);
  jpeg_save_markers(&cinfo, JPEG_APP0 + 2, 0xFFFF);
  jpeg_read_header(&cinfo, TRUE);
  JOCTET* icc = nullptr;
  unsigned iccLen = 0;
  if (jpeg_read_icc_profile(&cinfo, &icc, &iccLen)) {
    out.icc.assign(icc, icc + iccLen);
    std::free(icc);
  }
  if (cinfo.saw_JFIF_marker && cinfo.density_unit == 1) {
    out.dpiX = cinfo.X_density;
    out.dpiY = cinfo.Y_density;
  }
  cinfo.out_color_space = JCS_RGB;
  jpeg_start_decompress(&cinfo);
  out.width = int(cinfo.output_width);
  out.height = int(cinfo.output_height);
  out.channels = cinfo.output_components;
  out.bitDepth = cinfo.data_precision;
  std::vector<uint8_t> row(size_t(out.width) * out.channels);
  while (cinfo.output_scanline < cinfo.output_height) {
    JSAMPROW r = row.data();
    jpeg_read_scanlines(&cinfo, &r, 1);
    out.samples.insert(out.samples.end(), row.begin(), row.end());
  }
  jpeg_finish_decompress(&cinfo);
  jpeg_destroy_decompress(&cinfo);
  std::fclose(f);
  return out;
}

inline ReadBack readPng(const std::filesystem::path& path) {
  ReadBack out;
  std::FILE* f = std::fopen(path.c_str(), "rb");
  if (!f) return out;
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, f);
  png_read_info(png, info);
  out.width = int(png_get_image_width(png, info));
  out.height = int(png_get_image_height(png, info));
  out.bitDepth = png_get_bit_depth(png, info);
  out.channels = png_get_channels(png, info);
  png_charp name = nullptr;
  int compression = 0;
  png_bytep profile = nullptr;
  png_uint_32 profileLen = 0;
  if (png_get_iCCP(png, info, &name, &compression, &profile, &profileLen))
    out.icc.assign(profile, profile + profileLen);
  png_uint_32 rx = 0, ry = 0;
  int unit = 0;
  if (png_get_pHYs(png, info, &rx, &ry, &unit) && unit == PNG_RESOLUTION_METER) {
    out.dpiX = rx * 0.0254;
    out.dpiY = ry * 0.0254;
  }
  if (out.bitDepth == 16) png_set_swap(png);
  std::vector<uint8_t> row(png_get_rowbytes(png, info));
  for (int y = 0; y < out.height; ++y) {
    png_read_row(png, row.data(), nullptr);
    if (out.bitDepth == 16) {
      auto* s = reinterpret_cast<const uint16_t*>(row.data());
      out.samples.insert(out.samples.end(), s, s + size_t(out.width) * out.channels);
    } else {
      out.samples.insert(out.samples.end(), row.begin(), row.begin() + size_t(out.width) * out.channels);
    }
  }
  png_destroy_read_struct(&png, &info, nullptr);
  std::fclose(f);
  return out;
}

inline ReadBack readTiff(const std::filesystem::path& path) {
  ReadBack out;
  TIFF* tif = TIFFOpen(path.c_str(), "r");
  if (!tif) return out;
  uint32_t w = 0, h = 0;
  uint16_t bps = 0, spp = 0, comp = 0, unit = 0;
  TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &w);
  TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &h);
  TIFFGetField(tif, TIFFTAG_BITSPERSAMPLE, &bps);
  TIFFGetField(tif, TIFFTAG_SAMPLESPERPIXEL, &spp);
  TIFFGetField(tif, TIFFTAG_COMPRESSION, &comp);
  out.width = int(w);
  out.height = int(h);
  out.bitDepth = bps;
  out.channels = spp;
  out.tiffCompression = comp;
  uint32_t iccLen = 0;
  void* icc = nullptr;
  if (TIFFGetField(tif, TIFFTAG_ICCPROFILE, &iccLen, &icc))
    out.icc.assign(static_cast<uint8_t*>(icc), static_cast<uint8_t*>(icc) + iccLen);
  float xr = 0, yr = 0;
  if (TIFFGetField(tif, TIFFTAG_XRESOLUTION, &xr) && TIFFGetField(tif, TIFFTAG_YRESOLUTION, &yr) &&
      TIFFGetField(tif, TIFFTAG_RESOLUTIONUNIT, &unit) && unit == RESUNIT_INCH) {
    out.dpiX = xr;
    out.dpiY = yr;
  }
  std::vector<uint8_t> row(size_t(TIFFScanlineSize(tif)));
  for (uint32_t y = 0; y < h; ++y) {
    if (TIFFReadScanline(tif, row.data(), y, 0) < 0) break;
    if (bps == 16) {
      auto* s = reinterpret_cast<const uint16_t*>(row.data());
      out.samples.insert(out.samples.end(), s, s + size_t(w) * spp);
    } else {
      out.samples.insert(out.samples.end(), row.begin(), row.begin() + size_t(w) * spp);
    }
  }
  TIFFClose(tif);
  return out;
}

// HEIC: size, luma bit depth, ICC, Exif/XMP items and the decoded samples
// (8-bit RGB, or RGBA when the image has an alpha plane; enough for colour
// checks).
inline ReadBack readHeic(const std::filesystem::path& path) {
  ReadBack out;
  heif_context* ctx = heif_context_alloc();
  if (heif_context_read_from_file(ctx, path.c_str(), nullptr).code != heif_error_Ok) {
    heif_context_free(ctx);
    return out;
  }
  heif_image_handle* handle = nullptr;
  heif_context_get_primary_image_handle(ctx, &handle);
  out.width = heif_image_handle_get_width(handle);
  out.height = heif_image_handle_get_height(handle);
  out.bitDepth = heif_image_handle_get_luma_bits_per_pixel(handle);
  out.channels = heif_image_handle_has_alpha_channel(handle) ? 4 : 3;
  size_t iccLen = heif_image_handle_get_raw_color_profile_size(handle);
  if (iccLen > 0) {
    out.icc.resize(iccLen);
    heif_image_handle_get_raw_color_profile(handle, out.icc.data());
  }
  heif_item_id ids[8];
  int n = heif_image_handle_get_list_of_metadata_block_IDs(handle, nullptr, ids, 8);
  for (int i = 0; i < n; ++i) {
    std::string type = heif_image_handle_get_metadata_type(handle, ids[i]);
    std::string content = heif_image_handle_get_metadata_content_type(handle, ids[i]);
    std::string data(heif_image_handle_get_metadata_size(handle, ids[i]), '\0');
    heif_image_handle_get_metadata(handle, ids[i], data.data());
    if (type == "Exif") out.exif = data;
    else if (content == "application/rdf+xml") out.xmp = data;
  }
  heif_image* img = nullptr;
  const bool alpha = out.channels == 4;
  if (heif_decode_image(handle, &img, heif_colorspace_RGB,
                        alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB, nullptr).code ==
      heif_error_Ok) {
    int stride = 0;
    const uint8_t* p = heif_image_get_plane_readonly(img, heif_channel_interleaved, &stride);
    for (int y = 0; y < out.height; ++y)
      out.samples.insert(out.samples.end(), p + size_t(y) * stride,
                         p + size_t(y) * stride + size_t(out.width) * size_t(out.channels));
    heif_image_release(img);
  }
  heif_image_handle_release(handle);
  heif_context_free(ctx);
  return out;
}

}  // namespace vg::test
