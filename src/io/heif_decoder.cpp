#include "io/heif_decoder.h"

#include <libheif/heif.h>

#include <cstring>
#include <algorithm>
#include <memory>
#include <optional>
#include <string>

#include "io/decode_limits.h"
#include "io/input_color.h"
#include "io/load_error.h"
#include "io/upright_writer.h"

namespace vg {
namespace {

constexpr int kMaxSide = 32768;

struct ContextDeleter {
  void operator()(heif_context* c) const { heif_context_free(c); }
};
struct HandleDeleter {
  void operator()(heif_image_handle* h) const { heif_image_handle_release(h); }
};
struct ImageDeleter {
  void operator()(heif_image* i) const { heif_image_release(i); }
};
struct OptionsDeleter {
  void operator()(heif_decoding_options* o) const { heif_decoding_options_free(o); }
};
struct NclxDeleter {
  void operator()(heif_color_profile_nclx* n) const { heif_nclx_color_profile_free(n); }
};

void check(const heif_error& e, const char* what) {
  if (e.code != heif_error_Ok) throw DecodeError(std::string("HEIF: ") + what + ": " + (e.message ? e.message : ""));
}

struct Opened {
  std::unique_ptr<heif_context, ContextDeleter> context;
  std::unique_ptr<heif_image_handle, HandleDeleter> handle;
};

Opened openPrimary(std::span<const uint8_t> bytes) {
  Opened o;
  o.context.reset(heif_context_alloc());
  if (!o.context) throw DecodeError("HEIF: out of memory");
  heif_context_set_maximum_image_size_limit(o.context.get(), kMaxSide);
  check(heif_context_read_from_memory_without_copy(o.context.get(), bytes.data(), bytes.size(), nullptr),
        "cannot read the container");
  heif_image_handle* handle = nullptr;
  check(heif_context_get_primary_image_handle(o.context.get(), &handle), "no primary image");
  o.handle.reset(handle);
  return o;
}

std::vector<uint8_t> exifOf(heif_image_handle* handle) {
  heif_item_id id = 0;
  if (heif_image_handle_get_list_of_metadata_block_IDs(handle, "Exif", &id, 1) < 1) return {};
  size_t size = heif_image_handle_get_metadata_size(handle, id);
  if (size < 4 || size > (64u << 20)) return {};
  std::vector<uint8_t> block(size);
  if (heif_image_handle_get_metadata(handle, id, block.data()).code != heif_error_Ok) return {};
  // The block starts with the big-endian offset of the TIFF header.
  uint32_t offset = (uint32_t(block[0]) << 24) | (uint32_t(block[1]) << 16) | (uint32_t(block[2]) << 8) | block[3];
  if (offset > size - 4) return {};
  block.erase(block.begin(), block.begin() + 4 + offset);
  return block;
}

InputColor::Transfer transferOf(heif_transfer_characteristics t) {
  switch (t) {
    case heif_transfer_characteristic_ITU_R_BT_709_5:
    case heif_transfer_characteristic_ITU_R_BT_601_6:
    case heif_transfer_characteristic_ITU_R_BT_2020_2_10bit:
    case heif_transfer_characteristic_ITU_R_BT_2020_2_12bit:
      return InputColor::Transfer::bt709;
    case heif_transfer_characteristic_ITU_R_BT_470_6_System_M:
      return InputColor::Transfer::gamma22;
    case heif_transfer_characteristic_linear:
      return InputColor::Transfer::linear;
    case heif_transfer_characteristic_ITU_R_BT_2100_0_PQ:
      return InputColor::Transfer::pq;
    case heif_transfer_characteristic_ITU_R_BT_2100_0_HLG:
      return InputColor::Transfer::hlg;
    default:
      return InputColor::Transfer::srgb;
  }
}

// The colour conversion a handle's own profile asks for (nothing when it
// has no usable one) and the colour-space label it gives.
struct HandleColor {
  std::optional<InputColor> color;
  std::string label;
};

HandleColor colorOf(heif_image_handle* handle, const SourceFormat& format) {
  HandleColor out;
  switch (heif_image_handle_get_color_profile_type(handle)) {
    case heif_color_profile_type_prof:
    case heif_color_profile_type_rICC: {
      size_t size = heif_image_handle_get_raw_color_profile_size(handle);
      std::vector<uint8_t> icc(size);
      if (size > 0 && heif_image_handle_get_raw_color_profile(handle, icc.data()).code == heif_error_Ok) {
        out.color.emplace(InputColor::fromIcc(icc, format));
      }
      break;
    }
    case heif_color_profile_type_nclx: {
      heif_color_profile_nclx* nclx = nullptr;
      const heif_error found = heif_image_handle_get_nclx_color_profile(handle, &nclx);
      // libheif may hand over a profile together with an error (primaries it
      // does not know): it is ours to free either way.
      std::unique_ptr<heif_color_profile_nclx, NclxDeleter> guard(nclx);
      if (found.code == heif_error_Ok && nclx) {
        InputColor::Primaries p{nclx->color_primary_red_x,   nclx->color_primary_red_y,
                                nclx->color_primary_green_x, nclx->color_primary_green_y,
                                nclx->color_primary_blue_x,  nclx->color_primary_blue_y,
                                nclx->color_primary_white_x, nclx->color_primary_white_y};
        bool valid = p.redY > 0 && p.greenY > 0 && p.blueY > 0 && p.whiteY > 0;
        if (valid) {
          const InputColor::Transfer transfer = transferOf(nclx->transfer_characteristics);
          out.color.emplace(InputColor::fromPrimaries(p, transfer, format));
          if (nclx->color_primaries == heif_color_primaries_SMPTE_EG_432_1) out.label = "Display P3";
          if (nclx->color_primaries == heif_color_primaries_ITU_R_BT_2020_2_and_2100_0) {
            out.label = transfer == InputColor::Transfer::pq    ? "Rec. 2100 PQ"
                        : transfer == InputColor::Transfer::hlg ? "Rec. 2100 HLG"
                                                                 : "Rec. 2020";
          }
        }
      }
      break;
    }
    default:
      break;
  }
  if (out.label.empty() && out.color) out.label = out.color->profileDescription();
  return out;
}

// The smallest thumbnail of the primary image whose longer side reaches
// minLongSide and stays below fullSide (a "thumbnail" as large as the
// image saves nothing), or nothing.
std::unique_ptr<heif_image_handle, HandleDeleter> thumbnailFor(heif_image_handle* primary, double minLongSide,
                                                               int fullSide) {
  std::unique_ptr<heif_image_handle, HandleDeleter> best;
  if (!(minLongSide > 0)) return best;
  const int count = heif_image_handle_get_number_of_thumbnails(primary);
  if (count <= 0) return best;
  std::vector<heif_item_id> ids(static_cast<size_t>(count));
  const int listed = heif_image_handle_get_list_of_thumbnail_IDs(primary, ids.data(), count);
  int bestSide = 0;
  for (int i = 0; i < listed; ++i) {
    heif_image_handle* thumb = nullptr;
    if (heif_image_handle_get_thumbnail(primary, ids[size_t(i)], &thumb).code != heif_error_Ok || !thumb) continue;
    std::unique_ptr<heif_image_handle, HandleDeleter> owned(thumb);
    const int side = std::max(heif_image_handle_get_width(thumb), heif_image_handle_get_height(thumb));
    if (double(side) >= minLongSide && side < fullSide && (!best || side < bestSide)) {
      best = std::move(owned);
      bestSide = side;
    }
  }
  return best;
}

// The pixels of one image handle as libheif decodes them, with how to read them.
struct Pixels {
  std::unique_ptr<heif_image, ImageDeleter> image;
  const uint8_t* plane = nullptr;
  int stride = 0;
  int width = 0;
  int height = 0;
  SourceFormat format;
};

Pixels decodePixels(heif_image_handle* handle, size_t fileSize) {
  decode_limits::check(heif_image_handle_get_width(handle), heif_image_handle_get_height(handle), fileSize);
  const bool alpha = heif_image_handle_has_alpha_channel(handle) != 0;
  const int lumaBits = heif_image_handle_get_luma_bits_per_pixel(handle);
  const bool deep = lumaBits > 8;
  const heif_chroma chroma = deep ? (alpha ? heif_chroma_interleaved_RRGGBBAA_LE : heif_chroma_interleaved_RRGGBB_LE)
                                  : (alpha ? heif_chroma_interleaved_RGBA : heif_chroma_interleaved_RGB);
  std::unique_ptr<heif_decoding_options, OptionsDeleter> options(heif_decoding_options_alloc());
  heif_image* raw = nullptr;
  check(heif_decode_image(handle, &raw, heif_colorspace_RGB, chroma, options.get()), "cannot decode");
  Pixels p;
  p.image.reset(raw);

  p.width = heif_image_get_width(raw, heif_channel_interleaved);
  p.height = heif_image_get_height(raw, heif_channel_interleaved);
  decode_limits::check(p.width, p.height, fileSize);
  p.plane = heif_image_get_plane_readonly(raw, heif_channel_interleaved, &p.stride);
  if (!p.plane || p.stride <= 0) throw DecodeError("HEIF: decoded image has no pixels");

  p.format.model = ColorModel::rgb;
  p.format.hasAlpha = alpha;
  p.format.alphaAssociated = alpha && heif_image_is_premultiplied_alpha(raw);
  if (deep) {
    int bits = heif_image_get_bits_per_pixel_range(raw, heif_channel_interleaved);
    p.format.type = SampleType::u16;
    p.format.bitDepth = std::clamp(bits, 9, 16);
  }
  if (size_t(p.stride) < p.format.bytesPerPixel() * size_t(p.width)) throw DecodeError("HEIF: short rows");
  return p;
}

}  // namespace

std::vector<uint8_t> heifExifBlock(std::span<const uint8_t> bytes) {
  Opened o = openPrimary(bytes);
  return exifOf(o.handle.get());
}

HeifDecoded decodeHeif(std::span<const uint8_t> bytes, double minLongSide) {
  Opened o = openPrimary(bytes);
  heif_image_handle* primary = o.handle.get();
  const int declaredWidth = heif_image_handle_get_width(primary);
  const int declaredHeight = heif_image_handle_get_height(primary);
  decode_limits::check(declaredWidth, declaredHeight, bytes.size());
  const int declaredSide = std::max(declaredWidth, declaredHeight);
  // A big enough thumbnail stands in for the primary image; everything but
  // the pixels (colour-space label, size, Exif) is still the primary's. One
  // that does not decode, or decodes no smaller than the primary says it
  // is, is passed over for the primary.
  auto thumbnail = thumbnailFor(primary, minLongSide, declaredSide);
  std::optional<Pixels> pixels;
  if (thumbnail) {
    try {
      pixels = decodePixels(thumbnail.get(), bytes.size());
    } catch (const DecodeError&) {
    }
    if (!pixels || std::max(pixels->width, pixels->height) >= declaredSide) {
      pixels.reset();
      thumbnail.reset();
    }
  }
  if (!pixels) pixels = decodePixels(primary, bytes.size());
  const SourceFormat& format = pixels->format;

  HandleColor primaryColor = colorOf(primary, format);
  std::optional<InputColor> color;
  if (thumbnail) color = colorOf(thumbnail.get(), format).color;  // a thumbnail's own profile, when it has one
  if (!color) color = std::move(primaryColor.color);
  if (!color) color.emplace(InputColor::fromIcc({}, format));

  HeifDecoded out;
  UprightWriter writer(pixels->width, pixels->height, 1, *color);
  writer.writeAll(pixels->plane, size_t(pixels->stride));
  out.decoded.image = writer.take();
  out.decoded.opaque = writer.opaque();
  out.decoded.profileName = primaryColor.label;
  out.decoded.colorModel = "RGB";
  // The primary's coded size wins over a header that disagrees with it.
  out.decoded.fullWidth = thumbnail ? declaredWidth : pixels->width;
  out.decoded.fullHeight = thumbnail ? declaredHeight : pixels->height;
  out.exif = exifOf(primary);
  return out;
}

}  // namespace vg
