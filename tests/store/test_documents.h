// Distinct, non-trivial documents for the store tests: document(k) differs
// for every k and survives an encode/decode round trip unchanged.
#pragma once

#include <string>

#include "model/document.h"

namespace vg::test {

inline EditDocument numberedDocument(int k, int healPoints = 3) {
  EditDocument doc;
  doc.filterID = "preset-" + std::to_string(k);
  doc.filterStrength = double(k % 101);
  HealStroke stroke;
  stroke.size = 0.125;
  for (int i = 0; i < healPoints; ++i) stroke.points.push_back({0.001 * i, 0.5 + 0.25 * (k % 2)});
  doc.heals.push_back(stroke);
  return doc;
}

}  // namespace vg::test
