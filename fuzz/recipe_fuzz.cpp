// Fuzz target for recipe decoding: arbitrary bytes as sidecar JSON text.
//
// Checks, beyond "no crash, no sanitizer report":
// - a decoded document keeps the decoder's invariants (8 HSL bands in every
//   GlobalAdjustments, as many subtract IDs as subtracts, values in range);
// - decode -> encode -> decode gives the same document, with the same hash
//   and the same encoding (repair happens once and completely);
// - interpolation, render signatures and the no-edit test run on it.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "model/document.h"
#include "model/json.h"

namespace {

void require(bool ok, const char* what) {
  if (!ok) {
    std::fprintf(stderr, "recipe invariant broken: %s\n", what);
    std::abort();
  }
}

void checkAdjustments(const vg::GlobalAdjustments& a) {
  require(a.hsl.bands.size() == vg::kHSLBandCount, "8 HSL bands");
  for (const auto& f : vg::scalarFields()) {
    const double v = a.*f.member;
    require(v >= f.min && v <= f.max, "scalar in range");
  }
  for (vg::CurveChannel c : vg::kCurveChannels) {
    for (const auto& p : a.curves[c].points) {
      require(p.x >= 0 && p.x <= 1 && p.y >= 0 && p.y <= 1, "curve point in 0...1");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto doc = vg::decodeEditDocument(text);
  if (!doc) return 0;

  checkAdjustments(doc->adjustments);
  if (doc->preFilterAdjustments) checkAdjustments(*doc->preFilterAdjustments);
  for (const auto& m : doc->masks) {
    checkAdjustments(m.adjustments);
    require(m.subtractIDs.size() == m.subtracts.size(), "subtract IDs parallel to subtracts");
  }
  require(doc->filterStrength >= 0 && doc->filterStrength <= 100, "filterStrength in range");
  require(doc->crop.quarterTurn >= 0 && doc->crop.quarterTurn <= 3, "quarterTurn in range");

  const std::string encoded = vg::encodeEditDocument(*doc);
  const auto again = vg::decodeEditDocument(encoded);
  require(again.has_value(), "encoding decodes");
  require(*again == *doc, "decode-encode-decode is stable");
  require(vg::hashValue(*again) == vg::hashValue(*doc), "equal documents hash alike");
  require(vg::encodeEditDocument(*again) == encoded, "encoding is stable");

  // The derived values must not trip on anything the decoder lets through.
  const auto blended = vg::interpolate(doc->adjustments, vg::GlobalAdjustments{}, 0.37);
  require(blended.hsl.bands.size() == vg::kHSLBandCount, "interpolation keeps 8 bands");
  for (vg::CurveChannel c : vg::kCurveChannels) {
    for (const auto& p : blended.curves[c].points) {
      require(std::isfinite(p.x) && std::isfinite(p.y), "blended curve is finite");
    }
  }
  require(vg::interpolate(doc->adjustments, blended, 0) == doc->adjustments, "t = 0 gives A");
  (void)vg::hashValue(vg::renderSignature(*doc));
  (void)vg::isNoEdit(*doc);
  return 0;
}
