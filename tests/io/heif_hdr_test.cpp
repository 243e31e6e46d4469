// HDR HEIF files (nclx with the PQ or HLG transfer and BT.2020 primaries),
// encoded here with libheif, decoded through the loader's HEIF path.
// Expected values come from the published curves at chosen luminances, not
// from the decoder's own tables.
#include <gtest/gtest.h>

#include <libheif/heif.h>

#include <cmath>
#include <memory>
#include <stdexcept>
#include <vector>

#include "io/heif_decoder.h"
#include "io/input_color.h"

namespace vg {
namespace {

constexpr int kWidth = 96, kHeight = 32;  // three 32 × 32 patches

struct Rgb10 {
  uint16_t r, g, b;
};

heif_error collect(heif_context*, const void* data, size_t size, void* userdata) {
  auto* out = static_cast<std::vector<uint8_t>*>(userdata);
  const auto* bytes = static_cast<const uint8_t*>(data);
  out->insert(out->end(), bytes, bytes + size);
  return {heif_error_Ok, heif_suberror_Unspecified, "ok"};
}

void ok(heif_error e) {
  if (e.code != heif_error_Ok) throw std::runtime_error(e.message ? e.message : "libheif error");
}

// A 10-bit HEIC of three flat patches, tagged BT.2020 primaries and matrix
// with the given transfer.
std::vector<uint8_t> encodeHdr(heif_transfer_characteristics transfer, const Rgb10 (&patches)[3]) {
  heif_image* image = nullptr;
  ok(heif_image_create(kWidth, kHeight, heif_colorspace_RGB, heif_chroma_interleaved_RRGGBB_LE, &image));
  std::unique_ptr<heif_image, decltype(&heif_image_release)> imageGuard(image, heif_image_release);
  ok(heif_image_add_plane(image, heif_channel_interleaved, kWidth, kHeight, 10));
  int stride = 0;
  uint8_t* plane = heif_image_get_plane(image, heif_channel_interleaved, &stride);
  for (int y = 0; y < kHeight; ++y) {
    auto* row = reinterpret_cast<uint16_t*>(plane + size_t(y) * size_t(stride));
    for (int x = 0; x < kWidth; ++x) {
      const Rgb10& p = patches[x / 32];
      row[x * 3] = p.r, row[x * 3 + 1] = p.g, row[x * 3 + 2] = p.b;
    }
  }
  heif_color_profile_nclx* nclx = heif_nclx_color_profile_alloc();
  std::unique_ptr<heif_color_profile_nclx, decltype(&heif_nclx_color_profile_free)> nclxGuard(
      nclx, heif_nclx_color_profile_free);
  ok(heif_nclx_color_profile_set_color_primaries(nclx, heif_color_primaries_ITU_R_BT_2020_2_and_2100_0));
  ok(heif_nclx_color_profile_set_transfer_characteristics(nclx, transfer));
  ok(heif_nclx_color_profile_set_matrix_coefficients(nclx, heif_matrix_coefficients_ITU_R_BT_2020_2_non_constant_luminance));
  nclx->full_range_flag = 1;
  ok(heif_image_set_nclx_color_profile(image, nclx));

  heif_context* context = heif_context_alloc();
  std::unique_ptr<heif_context, decltype(&heif_context_free)> contextGuard(context, heif_context_free);
  heif_encoder* encoder = nullptr;
  ok(heif_context_get_encoder_for_format(context, heif_compression_HEVC, &encoder));
  std::unique_ptr<heif_encoder, decltype(&heif_encoder_release)> encoderGuard(encoder, heif_encoder_release);
  heif_encoder_set_lossy_quality(encoder, 95);
  heif_encoder_set_parameter_string(encoder, "preset", "ultrafast");
  heif_encoder_set_parameter_string(encoder, "chroma", "444");
  heif_encoding_options* options = heif_encoding_options_alloc();
  options->output_nclx_profile = nclx;
  options->macOS_compatibility_workaround_no_nclx_profile = 0;  // else no colr box is written
  heif_error encoded = heif_context_encode_image(context, image, encoder, options, nullptr);
  heif_encoding_options_free(options);
  ok(encoded);
  std::vector<uint8_t> bytes;
  heif_writer writer{};
  writer.writer_api_version = 1;
  writer.write = collect;
  ok(heif_context_write(context, &writer, &bytes));
  return bytes;
}

// Signal (0...1) of the PQ curve for an absolute luminance, from ST 2084.
double pqSignal(double nits) {
  const double m1 = 2610.0 / 16384.0, m2 = 2523.0 / 4096.0 * 128.0;
  const double c1 = 3424.0 / 4096.0, c2 = 2413.0 / 4096.0 * 32.0, c3 = 2392.0 / 4096.0 * 32.0;
  double y = std::pow(nits / 10000.0, m1);
  return std::pow((c1 + c2 * y) / (1.0 + c3 * y), m2);
}

uint16_t code10(double signal) { return uint16_t(std::lround(signal * 1023.0)); }

const float* centre(const Image& image, int patch) { return image.at(patch * 32 + 16, 16); }

// Relative error, as lossy 10-bit coding moves a code value or two.
void expectNear(float actual, double expected, double tolerance, const char* what) {
  EXPECT_NEAR(actual / expected, 1.0, tolerance) << what << ": " << actual << " vs " << expected;
}

TEST(HeifHdr, PqKeepsAbsoluteLuminanceWithReferenceWhiteAtOne) {
  const uint16_t white = code10(pqSignal(203)), bright = code10(pqSignal(1000));
  const uint16_t green = code10(pqSignal(100));
  HeifDecoded d = decodeHeif(encodeHdr(heif_transfer_characteristic_ITU_R_BT_2100_0_PQ,
                                       {{white, white, white}, {bright, bright, bright}, {0, green, 0}}));
  EXPECT_EQ(d.decoded.profileName, "Rec. 2100 PQ");
  for (int c = 0; c < 3; ++c) {
    expectNear(centre(d.decoded.image, 0)[c], 1.0, 0.03, "203 cd/m² grey");
    expectNear(centre(d.decoded.image, 1)[c], 1000.0 / 203.0, 0.03, "1000 cd/m² grey");
  }
  // BT.2020 green at 100 cd/m² in linear Rec.709: Y = 0.678 × 100 / 203; it
  // lies outside the Rec.709 gamut, so red and blue go negative.
  const float* g = centre(d.decoded.image, 2);
  double y = 0.2126 * g[0] + 0.7152 * g[1] + 0.0722 * g[2];
  expectNear(float(y), 0.6780 * 100.0 / 203.0, 0.05, "BT.2020 green luminance");
  EXPECT_LT(g[0], -0.05f);
  EXPECT_LT(g[2], -0.005f);
}

TEST(HeifHdr, HlgBecomesDisplayLightOfAThousandNitDisplay) {
  // 75 % HLG is HDR reference white on a 1000 cd/m² display; full signal is
  // its peak; 50 % is scene light 1/12, shown at 1000 × (1/12)^1.2 cd/m².
  HeifDecoded d = decodeHeif(encodeHdr(heif_transfer_characteristic_ITU_R_BT_2100_0_HLG,
                                       {{767, 767, 767}, {1023, 1023, 1023}, {512, 512, 512}}));
  EXPECT_EQ(d.decoded.profileName, "Rec. 2100 HLG");
  for (int c = 0; c < 3; ++c) {
    expectNear(centre(d.decoded.image, 0)[c], 1.0, 0.03, "75 % grey");
    expectNear(centre(d.decoded.image, 1)[c], 1000.0 / 203.0, 0.03, "peak white");
    expectNear(centre(d.decoded.image, 2)[c], 1000.0 * std::pow(1.0 / 12.0, 1.2) / 203.0, 0.03, "50 % grey");
  }
}

// The system gamma acts on luminance, not on each channel: a saturated
// colour comes out as its scene light times one gain, so it keeps its hue.
// A per-channel gamma would brighten the strong channel more than the weak.
TEST(HeifHdr, HlgSystemGammaKeepsTheHue) {
  SourceFormat f;
  f.type = SampleType::u16;
  f.bitDepth = 10;
  InputColor::Primaries bt2020{0.708, 0.292, 0.170, 0.797, 0.131, 0.046, 0.3127, 0.3290};
  InputColor hlg = InputColor::fromPrimaries(bt2020, InputColor::Transfer::hlg, f);
  InputColor linear = InputColor::fromPrimaries(bt2020, InputColor::Transfer::linear, f);
  // BT.2100 HLG OETF: scene light -> signal.
  auto signal = [](double e) {
    return e <= 1.0 / 12.0 ? std::sqrt(3.0 * e) : 0.17883277 * std::log(12.0 * e - 0.28466892) + 0.55991073;
  };
  uint16_t plain[3] = {511, 102, 20};  // scene light 0.5, 0.1, 0.02 as linear codes
  double scene[3];
  uint16_t coded[3];
  for (int c = 0; c < 3; ++c) scene[c] = plain[c] / 1023.0, coded[c] = code10(signal(scene[c]));
  float h[4], l[4];
  hlg.convert(reinterpret_cast<const uint8_t*>(coded), 1, h);
  linear.convert(reinterpret_cast<const uint8_t*>(plain), 1, l);
  // Scene luminance of these BT.2020 values, and the OOTF gain it gets.
  double ys = 0.2627 * scene[0] + 0.6780 * scene[1] + 0.0593 * scene[2];
  double gain = 1000.0 / 203.0 * std::pow(ys, 0.2);
  for (int c = 0; c < 3; ++c) EXPECT_NEAR(h[c], l[c] * gain, 0.03 * std::fabs(l[c] * gain) + 1e-3) << c;
}

}  // namespace
}  // namespace vg
