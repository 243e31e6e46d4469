// The recipes the render and session benchmarks time, so both measure the
// same work.
// - pointRecipe: only point sliders (exposure, contrast, tone, white
//   balance, saturation, vibrance).
// - heavyRecipe: every global slider, curves, HSL, split toning, clarity,
//   texture, dehaze, sharpening with masking, vignette, grain and two masks
//   (radial and linear).
#pragma once

#include "model/document.h"

namespace vg::bench {

inline EditDocument pointRecipe(double exposure = 0.4) {
  EditDocument doc;
  GlobalAdjustments& a = doc.adjustments;
  a.exposure = exposure; a.contrast = 15; a.highlights = -25; a.shadows = 30; a.whites = 8; a.blacks = -6;
  a.temperature = 10; a.tint = 3; a.saturation = 12; a.vibrance = 20;
  return doc;
}

inline EditDocument heavyRecipe(double exposure = 0.4) {
  EditDocument doc = pointRecipe(exposure);
  GlobalAdjustments& a = doc.adjustments;
  a.texture = 20; a.clarity = 30; a.dehaze = 15; a.sharpen = 40; a.sharpenMasking = 30;
  a.denoise = 20; a.colorDenoise = 25; a.defringe = 20;
  a.vignetteAmount = 25; a.grainAmount = 15;
  a.curves.rgb.points = {{0, 0.02}, {0.4, 0.45}, {1, 1}};
  a.curves.red.points = {{0, 0}, {0.5, 0.52}, {1, 1}};
  a.hsl.bands[1].saturation = 20;
  a.hsl.bands[5].hue = -10;
  a.splitToning = {40, 20, 210, 25, 10};
  MaskLayer radial;
  radial.kind = RadialMaskGeometry{{0.4, 0.45}, 0.25, 0.2, 15, 60, false};
  radial.adjustments.exposure = 0.5;
  radial.adjustments.saturation = 10;
  MaskLayer linear;
  linear.kind = LinearMaskGeometry{{0.5, 0.3}, 5, 0.4, 50, false};
  linear.adjustments.exposure = -0.4;
  linear.adjustments.dehaze = 10;
  doc.masks = {radial, linear};
  return doc;
}

}  // namespace vg::bench
