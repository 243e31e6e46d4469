// LZFSE fuzz target. The input is read two ways:
// - as a stream to decode: its first 3 bytes give the expected output size
//   (little-endian, 20 bits: up to 1 MiB), the rest is the stream; decoding must fail
//   cleanly or fill exactly that many bytes;
// - as data to compress: encoding the whole input and decoding the result
//   must give the input back.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <span>
#include <vector>

#include "codec/lzfse.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::span<const uint8_t> input(data, size);
  if (size >= 3) {
    const size_t expected = size_t(data[0]) | size_t(data[1]) << 8 | size_t(data[2] & 0x0F) << 16;
    const vg::LzfseDecoded decoded = vg::decodeLzfse(input.subspan(3), expected);
    if (decoded.ok() != (decoded.bytes.size() == expected && !decoded.error)) std::abort();
    if (!decoded.ok() && !decoded.bytes.empty()) std::abort();
  }
  const std::vector<uint8_t> stream = vg::encodeLzfse(input);
  const vg::LzfseDecoded back = vg::decodeLzfse(stream, size);
  if (!back.ok() || back.bytes.size() != size) std::abort();
  if (size > 0 && std::memcmp(back.bytes.data(), data, size) != 0) std::abort();
  return 0;
}
