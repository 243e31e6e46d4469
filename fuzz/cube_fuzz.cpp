// The .cube parser on arbitrary bytes: it must either reject with one of its
// messages or return a table that keeps every promise of ParsedLUT, and such
// a table must apply to pixels without producing NaN from finite input.
#include <cmath>
#include <cstdint>
#include <string_view>

#include "render/lut_loader.h"

#include "fuzz_check.h"

using vg::fuzz::check;

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view bytes(reinterpret_cast<const char*>(data), size);
  vg::LUTResult result = vg::LUTLoader::parse(bytes);
  if (const auto* error = std::get_if<vg::LUTError>(&result)) {
    check(!error->message.empty());
    check(error->kind == vg::LUTError::Kind::invalidFormat);
    return 0;
  }
  const auto& lut = std::get<vg::ParsedLUT>(result);
  check(lut.size >= 2 && lut.size <= 128);
  const size_t n = size_t(lut.size);
  check(lut.data.size() == n * n * n * 4);
  for (size_t i = 0; i < lut.data.size(); ++i) {
    check(std::isfinite(lut.data[i]));
    if (i % 4 == 3) check(lut.data[i] == 1.0f);
  }
  for (int c = 0; c < 3; ++c) check(lut.domainMin[size_t(c)] < lut.domainMax[size_t(c)]);

  vg::Image img(vg::Rect{-1, 2, 5, 2});
  const float values[] = {0.0f, 0.5f, 1.0f, 2.0f, -0.25f, 0.18f, 0.99f, 1e-4f, 0.7f, 0.3f};
  for (int y = 2; y < 4; ++y)
    for (int x = -1; x < 4; ++x)
      for (int c = 0; c < 4; ++c) img.at(x, y)[c] = c == 3 ? (x == 0 ? 0.5f : 1.0f) : values[size_t(x + 1 + y + c) % 10];
  vg::Image out = vg::LUTLoader::apply(lut, img);
  for (int y = 2; y < 4; ++y)
    for (int x = -1; x < 4; ++x)
      for (int c = 0; c < 4; ++c) check(!std::isnan(out.at(x, y)[c]));
  return 0;
}
