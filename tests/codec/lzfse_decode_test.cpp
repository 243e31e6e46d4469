// Decoding the reference vectors (streams written by the format's reference
// encoder, plus hand-made streams covering what that encoder never writes),
// and rejecting the invalid ones.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "codec/lzfse.h"
#include "lzfse_test_util.h"

namespace vg {
namespace {

using test::Bytes;
using test::readBytes;

struct Vector {
  std::string name;
  std::string group;
  size_t rawBytes = 0;
};

// Valid vectors of MANIFEST.tsv (groups "reference" and "synthetic").
std::vector<Vector> validVectors() {
  std::istringstream in(test::readFile(test::dataPath("lzfse/MANIFEST.tsv")));
  std::vector<Vector> out;
  std::string line;
  std::getline(in, line);  // column names
  while (std::getline(in, line)) {
    std::vector<std::string> cols;
    std::istringstream row(line);
    std::string col;
    while (std::getline(row, col, '\t')) cols.push_back(col);
    if (cols.size() < 5 || cols[1] == "invalid") continue;
    out.push_back({cols[0], cols[1], size_t(std::stoull(cols[4]))});
  }
  return out;
}

// The raster a vector decodes to: stored, or generated from its recipe for
// the two large ones.
Bytes expectedRaw(const std::string& name) {
  if (name == "shapes_2048x1536") return test::shapesMask();
  if (name == "gradient_1024x768") return test::gradientMask(1024, 768);
  return readBytes("lzfse/" + name + ".raw");
}

TEST(LzfseDecode, EveryValidVectorReproducesItsRasterExactly) {
  const auto vectors = validVectors();
  ASSERT_EQ(vectors.size(), 15u);  // 12 reference + 3 synthetic
  for (const auto& v : vectors) {
    SCOPED_TRACE(v.name);
    const Bytes stream = readBytes("lzfse/" + v.name + ".lzfse");
    const Bytes raw = expectedRaw(v.name);
    ASSERT_EQ(raw.size(), v.rawBytes);
    const LzfseDecoded decoded = decodeLzfse(stream, raw.size());
    ASSERT_TRUE(decoded.ok()) << describe(*decoded.error);
    ASSERT_EQ(decoded.bytes.size(), raw.size());
    EXPECT_TRUE(decoded.bytes == raw);

    // The same through the caller's buffer.
    Bytes buffer(raw.size(), 0xAB);
    EXPECT_EQ(decodeLzfseInto(stream, buffer), std::nullopt);
    EXPECT_TRUE(buffer == raw);
  }
}

TEST(LzfseDecode, InvalidVectorsFailWithTheirOwnError) {
  struct Case {
    const char* name;
    size_t declared;  // the output size the stream's headers claim
    LzfseError error;
  };
  const Case cases[] = {
      {"invalid_bad_magic", 4096, LzfseError::badMagic},
      {"invalid_lzfse_distance_too_far", 6, LzfseError::badDistance},
      {"invalid_lzfse_freq_sum", 4096, LzfseError::badTable},
      {"invalid_lzfse_literal_overrun", 8, LzfseError::literalOverrun},
      {"invalid_lzfse_repeat_first", 8, LzfseError::badDistance},
      {"invalid_lzfse_state_range", 4096, LzfseError::badTable},
      {"invalid_lzvn_distance_too_far", 5, LzfseError::badDistance},
      {"invalid_lzvn_match_without_distance", 5, LzfseError::badDistance},
      {"invalid_lzvn_size_mismatch", 12, LzfseError::blockSizeMismatch},
      {"invalid_lzvn_undefined_opcode", 5, LzfseError::badOpcode},
      {"invalid_truncated_mid_block", 262144, LzfseError::truncated},
      {"invalid_truncated_no_end", 4000, LzfseError::truncated},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const Bytes stream = readBytes(std::string("lzfse/") + c.name + ".lzfse");
    const LzfseDecoded decoded = decodeLzfse(stream, c.declared);
    ASSERT_FALSE(decoded.ok());
    EXPECT_EQ(*decoded.error, c.error) << describe(*decoded.error);
    EXPECT_TRUE(decoded.bytes.empty());
  }
}

TEST(LzfseDecode, OutputSizeMustMatchTheCallersExactly) {
  const Bytes stream = readBytes("lzfse/disc_512x512.lzfse");
  const size_t size = 512 * 512;
  EXPECT_EQ(decodeLzfse(stream, size - 1).error, LzfseError::outputOverflow);
  EXPECT_EQ(decodeLzfse(stream, size + 1).error, LzfseError::outputMismatch);
  EXPECT_EQ(decodeLzfse(stream, 0).error, LzfseError::outputOverflow);

  // A caller's buffer one byte short is never written past.
  Bytes buffer(size, 0);
  EXPECT_EQ(decodeLzfseInto(stream, std::span<uint8_t>(buffer).first(size - 1)),
            LzfseError::outputOverflow);

  // Multi-block: the second of four blocks pushes past a short buffer.
  const Bytes speckle = readBytes("lzfse/speckle_512x512.lzfse");
  EXPECT_EQ(decodeLzfse(speckle, 100000).error, LzfseError::outputOverflow);
}

TEST(LzfseDecode, EmptyStreamsAndTrailingBytes) {
  const Bytes endOnly = {'b', 'v', 'x', '$'};
  EXPECT_TRUE(decodeLzfse(endOnly, 0).ok());
  EXPECT_EQ(decodeLzfse(endOnly, 1).error, LzfseError::outputMismatch);
  EXPECT_EQ(decodeLzfse({}, 0).error, LzfseError::truncated);

  // Bytes after the end block are ignored (synth_trailing_bytes carries 14).
  Bytes stream = readBytes("lzfse/tiny_1x1.lzfse");
  stream.insert(stream.end(), {'b', 'v', 'x', '3', 0xFF, 0xFF});
  const LzfseDecoded decoded = decodeLzfse(stream, 1);
  ASSERT_TRUE(decoded.ok());
  EXPECT_EQ(decoded.bytes, Bytes{0xFF});
}

}  // namespace
}  // namespace vg
