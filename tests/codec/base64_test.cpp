#include <gtest/gtest.h>

#include <random>

#include "codec/base64.h"

namespace vg::codec {
namespace {

std::vector<std::uint8_t> bytes(std::string_view s) { return {s.begin(), s.end()}; }

TEST(Base64, KnownVectors) {
  // RFC 4648 section 10.
  const std::pair<const char*, const char*> vectors[] = {
      {"", ""},         {"f", "Zg=="},         {"fo", "Zm8="},        {"foo", "Zm9v"},
      {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"}};
  for (const auto& [plain, encoded] : vectors) {
    EXPECT_EQ(base64Encode(bytes(plain)), encoded);
    EXPECT_EQ(base64Decode(encoded), bytes(plain)) << encoded;
  }
  EXPECT_EQ(base64Encode(std::vector<std::uint8_t>{0xFB, 0xFF}), "+/8=");
}

TEST(Base64, AcceptsMissingPaddingOnly) {
  EXPECT_EQ(base64Decode("Zg"), bytes("f"));
  EXPECT_EQ(base64Decode("Zm8"), bytes("fo"));
  for (const char* bad : {"Z", "Zg=", "Zm9v=", "Zg===", "Zm 9v", "Zm9v\n", "Zm-v", "Z=g=",
                          "Zh==" /* stray low bits */, "=", "===="}) {
    EXPECT_FALSE(base64Decode(bad)) << bad;
  }
}

TEST(Base64, RandomBytesRoundTrip) {
  std::mt19937 rng(7);
  for (int n = 0; n < 200; ++n) {
    std::vector<std::uint8_t> data(n);
    for (auto& b : data) b = static_cast<std::uint8_t>(rng());
    const std::string text = base64Encode(data);
    EXPECT_EQ(text.size() % 4, 0u);
    EXPECT_EQ(base64Decode(text), data) << n;
  }
}

}  // namespace
}  // namespace vg::codec
