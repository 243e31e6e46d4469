// The bridge between the float working image and the healer's 8-bit bitmap.
//
// encodeHealBitmap: each pixel of the image (premultiplied, linear) becomes
// straight (un-premultiplied) colour encoded with the sRGB curve and rounded
// to the nearest of the 256 codes, alpha = round(255 a); values are clamped to
// 0...1 first, NaN counts as 0. Healing compares and copies texture in this
// perceptual encoding, where the shadows get as many codes as the highlights.
// Bitmap pixel (0, 0) is the image's top-left pixel, wherever its bounds start.
//
// writeBackHealed: only pixels the healer changed are touched, so everything
// else keeps its full float precision (over-white values included). Among the
// pixels marked in `mayHaveChanged` (one bit per bitmap pixel, laid out like
// the healer's forbidden set: the heal stage marks every dab's disc), a pixel
// whose bitmap bytes differ from the encoding of its current float value is
// replaced by the decoded bitmap pixel, premultiplied again. Each pixel is
// looked at once however many dabs cover it. Because decoding a code and
// encoding it again gives the same code, writing back twice changes nothing.
#pragma once

#include <cstdint>

#include "render/healer.h"
#include "render/image.h"
#include "render/rect.h"

namespace vg {

// The 8-bit sRGB code nearest to a linear value (clamped to 0...1).
uint8_t encodeSrgb8(float linear);
// The linear value of an 8-bit sRGB code.
float decodeSrgb8(uint8_t code);

// Straight sRGB-encoded RGBA bytes of one premultiplied linear pixel.
void encodeHealPixel(const float* premultiplied, uint8_t* out);

Healer::Bitmap encodeHealBitmap(const Image& image);
void writeBackHealed(const Healer::Bitmap& bitmap, Image& image, const Healer::ForbiddenMask& mayHaveChanged);

}  // namespace vg
