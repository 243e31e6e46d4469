// BandSource: an image produced in horizontal bands on demand, so that a
// consumer (the exporter) never needs the whole picture in memory at once.
//
// - The image covers Rect{0, 0, width(), height()}.
// - renderBand(rect) returns the pixels of rect (which lies inside the image;
//   a consumer asks for full-width bands, top to bottom, but any rect inside
//   must work) as an Image whose bounds() equal rect.
// - haloRows() says how much a band reads beyond itself, so consumers can
//   choose bands tall enough that the overlap stays cheap.
// - opaque() is true when every pixel has alpha 1, so an encoder may leave the
//   alpha channel out. It is known before the first band is rendered.
// - Called from one thread at a time; an implementation may render each band
//   with many threads.
#pragma once

#include "render/image.h"
#include "render/rect.h"

namespace vg {

class BandSource {
 public:
  virtual ~BandSource() = default;
  virtual int width() const = 0;
  virtual int height() const = 0;
  virtual bool opaque() const = 0;
  virtual Image renderBand(const Rect& rect) = 0;
  // Rows above and below a band that producing it reads (neighbourhood
  // stages): every band costs its height plus twice this, so a consumer
  // makes its bands several times taller than the halo.
  virtual int haloRows() const { return 0; }
};

// A BandSource over a whole image already in memory (which must outlive it).
// Band coordinates are relative to the image's own origin.
class ImageBandSource final : public BandSource {
 public:
  explicit ImageBandSource(const Image& image);
  int width() const override { return image_.width(); }
  int height() const override { return image_.height(); }
  bool opaque() const override { return opaque_; }
  Image renderBand(const Rect& rect) override;

 private:
  const Image& image_;
  bool opaque_ = true;
};

}  // namespace vg
