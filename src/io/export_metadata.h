// ExportMetadata: the metadata policy of an export, as one object that every
// encoder applies the same way.
//
// fromSource() reads the source photograph's Exif, IPTC and XMP with Exiv2 and
// keeps what still describes the exported pixels:
// - TIFF (IFD0) tags: copied, except those about the stored image itself —
//   orientation (written pixels are upright), width, height, resolution (set
//   anew below), strips/tiles, compression, sample layout, colour encoding
//   (white point, primaries, transfer, YCbCr) and embedded profile/thumbnail.
// - Exif: copied without PixelXDimension, PixelYDimension, ColorSpace and the
//   MakerNote (nor any decoded maker-note group, thumbnail or interop IFD).
// - GPS: copied only with includeLocation.
// - IPTC: copied; without includeLocation, City, SubLocation, ProvinceState,
//   CountryCode and CountryName are removed first.
// - XMP: copied with the same rules (tiff:Orientation and sizes dropped;
//   without includeLocation the exif:GPS* properties, photoshop:City/State/
//   Country, Iptc4xmpCore:Location/CountryCode and the Iptc4xmpExt
//   LocationCreated/LocationShown structures are removed).
// - Resolution: when the source has positive finite DPI (Exif X/YResolution,
//   else the JFIF density or PNG pHYs), it is kept, scaled by the factor the
//   long edge shrinks the source by (output long edge / source long edge, never
//   above 1, so the printed size stays the same), rounded, at least 1.
// A source that cannot be opened or parsed yields empty metadata, not an error.
//
// Applying it: JPEG, PNG and TIFF files get it written into the encoded file
// with writeInto(); HEIC gets exifBlock() and xmpPacket() through the container
// (IPTC travels inside the XMP there, as HEIF has no IPTC item).
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace vg {

class ExportMetadata {
 public:
  ExportMetadata();
  ~ExportMetadata();
  ExportMetadata(ExportMetadata&&) noexcept;
  ExportMetadata& operator=(ExportMetadata&&) noexcept;

  static ExportMetadata fromSource(const std::filesystem::path& source, bool includeLocation,
                                   std::optional<int64_t> longEdge);

  bool empty() const;
  std::optional<double> dpiX() const;
  std::optional<double> dpiY() const;

  // Writes the metadata into an encoded JPEG, PNG or TIFF file, keeping its
  // own structure and ICC profile. Throws ExportError code 3 on failure.
  void writeInto(const std::filesystem::path& file) const;

  // Exif as a TIFF-structure block ("II*\0" ...), empty when there is none.
  std::string exifBlock() const;
  // XMP packet including the IPTC fields, empty when there is none.
  std::string xmpPacket() const;

  // The kept keys ("Exif.Photo.FNumber", "Iptc.Application2.Caption", ...),
  // for logging and inspection.
  std::vector<std::string> keys() const;

 private:
  struct Data;
  std::unique_ptr<Data> d_;
};

}  // namespace vg
