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
#include <string_view>

#include "model/document.h"
#include "model/json.h"

#include "adjustment_checks.h"

using vg::fuzz::check;
using vg::fuzz::checkAdjustments;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const auto doc = vg::decodeEditDocument(text);
  if (!doc) return 0;

  checkAdjustments(doc->adjustments);
  if (doc->preFilterAdjustments) checkAdjustments(*doc->preFilterAdjustments);
  for (const auto& m : doc->masks) {
    checkAdjustments(m.adjustments);
    check(m.subtractIDs.size() == m.subtracts.size(), "subtract IDs parallel to subtracts");
  }
  check(doc->filterStrength >= 0 && doc->filterStrength <= 100, "filterStrength in range");
  check(doc->crop.quarterTurn >= 0 && doc->crop.quarterTurn <= 3, "quarterTurn in range");

  const std::string encoded = vg::encodeEditDocument(*doc);
  const auto again = vg::decodeEditDocument(encoded);
  check(again.has_value(), "encoding decodes");
  check(*again == *doc, "decode-encode-decode is stable");
  check(vg::hashValue(*again) == vg::hashValue(*doc), "equal documents hash alike");
  check(vg::encodeEditDocument(*again) == encoded, "encoding is stable");

  // The derived values must not trip on anything the decoder lets through.
  const auto blended = vg::interpolate(doc->adjustments, vg::GlobalAdjustments{}, 0.37);
  check(blended.hsl.bands.size() == vg::kHSLBandCount, "interpolation keeps 8 bands");
  for (vg::CurveChannel c : vg::kCurveChannels) {
    for (const auto& p : blended.curves[c].points) {
      check(std::isfinite(p.x) && std::isfinite(p.y), "blended curve is finite");
    }
  }
  check(vg::interpolate(doc->adjustments, blended, 0) == doc->adjustments, "t = 0 gives A");
  (void)vg::hashValue(vg::renderSignature(*doc));
  (void)vg::isNoEdit(*doc);
  return 0;
}
