// The .cube loader: accepted forms, every rejection with its exact message,
// the file-size limit, encodings; then applying a LUT.
#include <gtest/gtest.h>

#include <cmath>
#include <algorithm>
#include <limits>
#include <cstring>
#include <bit>
#include <filesystem>
#include <random>
#include <string>

#include "render/lut_loader.h"
#include "render/parallel.h"
#include "render/srgb.h"
#include "every_target.h"
#include "support/test_support.h"

namespace vg {
namespace {

// An identity cube of edge n in file order (red fastest), with a header.
std::string identityCube(int n, std::string header = "", std::string eol = "\n") {
  std::string s = header + "LUT_3D_SIZE " + std::to_string(n) + eol;
  for (int b = 0; b < n; ++b)
    for (int g = 0; g < n; ++g)
      for (int r = 0; r < n; ++r) {
        auto v = [&](int i) { return std::to_string(float(i) / float(n - 1)); };
        s += v(r) + " " + v(g) + " " + v(b) + eol;
      }
  return s;
}

std::string errorOf(std::string_view text) {
  LUTResult r = LUTLoader::parse(text);
  const auto* e = std::get_if<LUTError>(&r);
  return e ? e->message : "(accepted)";
}

// A copy, not a reference: callers pass the parser's temporary result, which
// dies at the end of their statement.
ParsedLUT ok(const LUTResult& r) {
  if (const auto* e = std::get_if<LUTError>(&r)) ADD_FAILURE() << "rejected: " << e->message;
  const auto* lut = std::get_if<ParsedLUT>(&r);
  return lut ? *lut : ParsedLUT{};
}

TEST(LUTParse, AcceptsATypicalFile) {
  std::string text =
      "# made by hand\n"
      "TITLE \"Warm fade\"  \n"
      "\n"
      "LUT_3D_SIZE 2   # two entries per side\n"
      "DOMAIN_MIN 0 0 0\n"
      "DOMAIN_MAX 1 1 1\n"
      "0 0 0\n1 0 0\n0 1 0\n1 1 0\n"
      "0 0 1  # blue\n1 0 1\n0 1 1\n1.5 -0.25 1e0\n";
  LUTResult r = LUTLoader::parse(text);
  const ParsedLUT& lut = ok(r);
  EXPECT_EQ(lut.title, "\"Warm fade\"");
  EXPECT_EQ(lut.size, 2);
  ASSERT_EQ(lut.data.size(), 32u);
  // Red varies fastest; alpha is 1; values outside 0...1 stand.
  EXPECT_EQ(std::vector<float>(lut.data.begin() + 4, lut.data.begin() + 8), (std::vector<float>{1, 0, 0, 1}));
  EXPECT_EQ(std::vector<float>(lut.data.end() - 4, lut.data.end()), (std::vector<float>{1.5f, -0.25f, 1, 1}));
  EXPECT_TRUE(lut.hasDefaultDomain());
}

TEST(LUTParse, LineEndingsCommentsAndWhiteSpace) {
  const std::string lf = identityCube(3, "TITLE x\n");
  const ParsedLUT& a = ok(LUTLoader::parse(lf));
  const ParsedLUT& b = ok(LUTLoader::parse(identityCube(3, "TITLE x\r\n", "\r\n")));
  EXPECT_EQ(a, b);
  // Tabs, non-breaking and ideographic spaces separate numbers too.
  std::string spaced = "LUT_3D_SIZE\t2\n";
  for (int i = 0; i < 8; ++i) spaced += "0\xC2\xA0" "0.5\t\xE3\x80\x80" "1\n";
  EXPECT_EQ(ok(LUTLoader::parse(spaced)).size, 2);
  // A byte-order mark does not hide the first keyword.
  EXPECT_EQ(ok(LUTLoader::parse("\xEF\xBB\xBF" + identityCube(2))).size, 2);
  // A sign on the size and exponent forms of numbers are numbers.
  std::string signedSize = "LUT_3D_SIZE +2\n";
  for (int i = 0; i < 8; ++i) signedSize += "1e-1 +0.5 .25\n";
  EXPECT_FLOAT_EQ(ok(LUTLoader::parse(signedSize)).data[0], 0.1f);
}

TEST(LUTParse, NotUtf8IsReadAsLatin1) {
  std::string text = "TITLE Caf\xE9 cr\xE8me\n" + identityCube(2);
  EXPECT_EQ(ok(LUTLoader::parse(text)).title, "Caf\xC3\xA9 cr\xC3\xA8me");
  // Latin-1 0xA0 is a no-break space, hence white space.
  std::string nbsp = "LUT_3D_SIZE 2\n";
  for (int i = 0; i < 8; ++i) nbsp += "0\xA0" "1 1\n";
  EXPECT_EQ(ok(LUTLoader::parse(nbsp)).data[1], 1.0f);
}

TEST(LUTParse, SizeLimitsAndRepeats) {
  const std::string sizeMessage = "LUT_3D_SIZE 必须为 2…128，且只能声明一次";
  EXPECT_EQ(errorOf("LUT_3D_SIZE 1\n0 0 0\n"), sizeMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE 129\n"), sizeMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE -2\n"), sizeMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2.0\n"), sizeMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE 99999999999999999999\n"), sizeMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE\n"), sizeMessage);
  // 128 is accepted: the file then fails only on its missing values.
  EXPECT_EQ(errorOf("LUT_3D_SIZE 128\n0 0 0\n"), "数值数量不足（需要 6291456 个，实际 3 个）");
  // Declared twice, even with the same value, or after data.
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\nLUT_3D_SIZE 2\n"), sizeMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\n0 0 0\nLUT_3D_SIZE 3\n"), sizeMessage);
  EXPECT_EQ(errorOf("LUT_1D_SIZE 1024\n"), "暂不支持 1D LUT");
}

TEST(LUTParse, DataLineRejections) {
  const std::string dataMessage = "数据行需要 3 个数值，且须先声明 LUT_3D_SIZE";
  EXPECT_EQ(errorOf("0 0 0\nLUT_3D_SIZE 2\n"), dataMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\n0 0\n"), dataMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\n0 0 0 0\n"), dataMessage);
  // Keywords this reader does not know are data lines like any other.
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\nLUT_3D_INPUT_RANGE 0 1\n"), "无法解析有限数值「LUT_3D_INPUT_RANGE」");
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\nLUT_3D_INPUT_RANGE 0 1 2\n"), dataMessage);
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\n0 nan 0\n"), "无法解析有限数值「nan」");
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\n0 0 inf\n"), "无法解析有限数值「inf」");
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\n0 0 1e39\n"), "无法解析有限数值「1e39」");
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\n0 0,5 0\n"), "无法解析有限数值「0,5」");
  EXPECT_EQ(errorOf("LUT_3D_SIZE 2\n0 1 zwei\n"), "无法解析有限数值「zwei」");
  EXPECT_EQ(errorOf(identityCube(2) + "0 0 0\n"), "数值数量超过 LUT_3D_SIZE 声明");
  std::string seven = "LUT_3D_SIZE 2\n";
  for (int i = 0; i < 7; ++i) seven += "0 0 0\n";
  EXPECT_EQ(errorOf(seven), "数值数量不足（需要 24 个，实际 21 个）");
  EXPECT_EQ(errorOf(""), "缺少有效的 LUT_3D_SIZE");
  EXPECT_EQ(errorOf("# only a comment\nTITLE t\n"), "缺少有效的 LUT_3D_SIZE");
}

TEST(LUTParse, Domains) {
  EXPECT_EQ(errorOf("DOMAIN_MIN 0 0\n" + identityCube(2)), "DOMAIN_MIN 行需要 3 个数值");
  EXPECT_EQ(errorOf("DOMAIN_MAX 1 1 1 1\n" + identityCube(2)), "DOMAIN_MAX 行需要 3 个数值");
  EXPECT_EQ(errorOf("DOMAIN_MAX 1 x 1\n" + identityCube(2)), "DOMAIN_MAX 行需要 3 个数值");
  EXPECT_EQ(errorOf("DOMAIN_MIN 0 0 0\nDOMAIN_MAX 1 0 1\n" + identityCube(2)), "DOMAIN_MAX 必须大于 DOMAIN_MIN");
  EXPECT_EQ(errorOf("DOMAIN_MIN -3e38 0 0\nDOMAIN_MAX 3e38 1 1\n" + identityCube(2)), "DOMAIN_MAX 必须大于 DOMAIN_MIN");
  EXPECT_EQ(errorOf("DOMAIN_MIN 0 0 0\nDOMAIN_MAX 1e-45 1 1\n" + identityCube(2)), "DOMAIN_MAX 必须大于 DOMAIN_MIN");
  const ParsedLUT& lut = ok(LUTLoader::parse("DOMAIN_MIN -0.5 0 0\nDOMAIN_MAX 2 1 1\n" + identityCube(2)));
  EXPECT_FALSE(lut.hasDefaultDomain());
  EXPECT_EQ(lut.domainMin[0], -0.5f);
  EXPECT_EQ(lut.domainMax[0], 2.0f);
}

TEST(LUTError, UserFacingDescription) {
  EXPECT_EQ((LUTError{LUTError::Kind::invalidFormat, "暂不支持 1D LUT"}).description(), "LUT 文件格式错误：暂不支持 1D LUT");
}

TEST(LUTLoad, FileSizeLimitAndUnreadableFiles) {
  test::TempDir dir;
  test::writeFile(dir / "crlf.cube", identityCube(2, "", "\r\n"));
  EXPECT_EQ(ok(LUTLoader::load(dir / "crlf.cube")).size, 2);

  // One byte over the limit is refused before anything is read (sparse file).
  const auto big = dir / "big.cube";
  test::writeFile(big, "");
  std::filesystem::resize_file(big, LUTLoader::kMaxFileBytes + 1);
  LUTResult over = LUTLoader::load(big);
  ASSERT_TRUE(std::holds_alternative<LUTError>(over));
  EXPECT_EQ(std::get<LUTError>(over).message, "文件超过 256 MB 上限");
  // Exactly the limit passes the size check and fails as text instead.
  std::filesystem::resize_file(big, LUTLoader::kMaxFileBytes);
  LUTResult exact = LUTLoader::load(big);
  ASSERT_TRUE(std::holds_alternative<LUTError>(exact));
  EXPECT_EQ(std::get<LUTError>(exact).message, "数据行需要 3 个数值，且须先声明 LUT_3D_SIZE");
  std::filesystem::remove(big);

  LUTResult missing = LUTLoader::load(dir / "missing.cube");
  ASSERT_TRUE(std::holds_alternative<LUTError>(missing));
  EXPECT_EQ(std::get<LUTError>(missing).kind, LUTError::Kind::unreadable);
  EXPECT_NE(std::get<LUTError>(missing).message.find("missing.cube"), std::string::npos);
}

// ------------------------------------------------------------------ applying

Image imageOf(std::initializer_list<std::array<float, 4>> pixels) {
  Image img(Rect{3, -2, int(pixels.size()), 1});
  int i = 0;
  for (const auto& p : pixels) std::copy(p.begin(), p.end(), img.at(3 + i++, -2));
  return img;
}

TEST(LUTApply, IdentityCubeKeepsColoursAndClampsToTheCube) {
  const ParsedLUT lut = std::get<ParsedLUT>(LUTLoader::parse(identityCube(5)));
  Image in = imageOf({{0.0f, 0.18f, 1.0f, 1}, {0.5f, 0.02f, 0.9f, 1}, {1.7f, -0.3f, NAN, 1}, {0.1f, 0.2f, 0.3f, 0.5f}});
  Image out = LUTLoader::apply(lut, in);
  for (int i = 0; i < 2; ++i)
    for (int c = 0; c < 4; ++c) EXPECT_NEAR(out.at(3 + i, -2)[c], in.at(3 + i, -2)[c], 2e-6f);
  // Inputs are clamped to the cube: above 1 gives 1, below 0 and NaN give 0.
  EXPECT_NEAR(out.at(5, -2)[0], 1.0f, 1e-6f);
  EXPECT_EQ(out.at(5, -2)[1], 0.0f);
  EXPECT_EQ(out.at(5, -2)[2], 0.0f);
  // Premultiplied colour comes back premultiplied with its alpha.
  EXPECT_NEAR(out.at(6, -2)[2], 0.3f, 2e-6f);
  EXPECT_EQ(out.at(6, -2)[3], 0.5f);
}

TEST(LUTApply, LooksUpInTheSrgbEncodingWithTheDomainRemap) {
  // A cube that inverts: output = 1 - input, in the sRGB encoding.
  std::string text = "DOMAIN_MIN 0 0 0\nDOMAIN_MAX 2 1 1\nLUT_3D_SIZE 2\n";
  for (int b = 0; b < 2; ++b)
    for (int g = 0; g < 2; ++g)
      for (int r = 0; r < 2; ++r) text += std::to_string(1 - r) + " " + std::to_string(1 - g) + " " + std::to_string(1 - b) + "\n";
  const ParsedLUT lut = std::get<ParsedLUT>(LUTLoader::parse(text));
  Image out = LUTLoader::apply(lut, imageOf({{0.2f, 0.2f, 0.2f, 1}}));
  const float e = srgb::encode(0.2f);
  EXPECT_NEAR(out.at(3, -2)[0], srgb::decode(1 - e / 2), 1e-5f);  // red domain 0...2
  EXPECT_NEAR(out.at(3, -2)[1], srgb::decode(1 - e), 1e-5f);
}

TEST(LUTApply, FastPathAgreesWithReference) {
  std::mt19937 rng(4);
  std::uniform_real_distribution<float> u(0, 1);
  std::string text = "DOMAIN_MIN -0.1 0 0.05\nDOMAIN_MAX 1.2 1 0.9\nLUT_3D_SIZE 17\n";
  for (int i = 0; i < 17 * 17 * 17; ++i) text += std::to_string(u(rng)) + " " + std::to_string(u(rng)) + " " + std::to_string(u(rng)) + "\n";
  const ParsedLUT lut = std::get<ParsedLUT>(LUTLoader::parse(text));
  const PreparedLUT p = prepareLUT(lut);
  for (int n : {1, 5, 16, 37}) {
    std::vector<float> px(size_t(n) * 4);
    for (size_t i = 0; i < px.size(); ++i) px[i] = i % 4 == 3 ? (i % 8 == 3 ? 1.0f : 0.6f) : u(rng);
    std::vector<float> a = px, b = px;
    lutApply(p, kernels::KernelRow{a.data(), nullptr, n, 0, 0});
    lutApplyReference(p, kernels::KernelRow{b.data(), nullptr, n, 0, 0});
    for (size_t i = 0; i < px.size(); ++i) ASSERT_NEAR(a[i], b[i], 1e-5f) << i;
  }
}

TEST(LUTApply, HugeEntriesGiveInfinityNotNaN) {
  // Entries may be any finite float; one near the float limit decodes to +inf
  // on both paths (found by fuzzing: the fast path once produced NaN).
  std::string text = "LUT_3D_SIZE 2\n";
  for (int i = 0; i < 8; ++i) text += i == 7 ? "8.9e36 1e20 0.5\n" : "0 0 0\n";
  const ParsedLUT lut = std::get<ParsedLUT>(LUTLoader::parse(text));
  const PreparedLUT p = prepareLUT(lut);
  std::vector<float> px = {1, 1, 1, 1, 0.99f, 0.99f, 0.99f, 0.5f, 0.7f, 0.9f, 1.0f, 1.0f};
  std::vector<float> ref = px;
  lutApply(p, kernels::KernelRow{px.data(), nullptr, 3, 0, 0});
  lutApplyReference(p, kernels::KernelRow{ref.data(), nullptr, 3, 0, 0});
  for (size_t i = 0; i < px.size(); ++i) {
    EXPECT_FALSE(std::isnan(px[i])) << i;
    EXPECT_FALSE(std::isnan(ref[i])) << i;
  }
  EXPECT_EQ(px[0], HUGE_VALF);
  EXPECT_EQ(ref[0], HUGE_VALF);
  EXPECT_EQ(px[1], ref[1]);
}

// A random cube with the given domain whose entries lie in lo...hi.
ParsedLUT randomCube(uint32_t seed, int n, std::string domain, float lo, float hi) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(lo, hi);
  std::string text = domain + "LUT_3D_SIZE " + std::to_string(n) + "\n";
  for (int i = 0; i < n * n * n; ++i) text += std::to_string(u(rng)) + " " + std::to_string(u(rng)) + " " + std::to_string(u(rng)) + "\n";
  return std::get<ParsedLUT>(LUTLoader::parse(text));
}

// Largest difference of the fast path from the reference over px, relative to
// max(floor, |reference|); alpha must come back untouched.
float worstRelativeDifference(const PreparedLUT& p, const std::vector<float>& px, float floor = 1.0f) {
  std::vector<float> fast = px, ref = px;
  const int n = int(px.size() / 4);
  lutApply(p, kernels::KernelRow{fast.data(), nullptr, n, 0, 0});
  lutApplyReference(p, kernels::KernelRow{ref.data(), nullptr, n, 0, 0});
  float worst = 0;
  for (size_t i = 0; i < px.size(); ++i) {
    if (i % 4 == 3) {
      EXPECT_EQ(std::bit_cast<uint32_t>(fast[i]), std::bit_cast<uint32_t>(px[i])) << i;
      continue;
    }
    worst = std::max(worst, std::fabs(fast[i] - ref[i]) / std::max(floor, std::fabs(ref[i])));
  }
  return worst;
}

std::vector<float> randomPixels(uint32_t seed, int n, float lo, float hi) {
  std::mt19937 rng(seed);
  std::uniform_real_distribution<float> u(lo, hi);
  std::vector<float> px(size_t(n) * 4);
  for (size_t i = 0; i < px.size(); ++i) px[i] = i % 4 == 3 ? std::array{1.0f, 0.6f, 1.0f, 0.0f}[i / 4 % 4] : u(rng);
  return px;
}

// Every instruction set Highway compiled (not only the one this processor
// picks) against the reference: 0...1 data within 1e-5 everywhere the encoding
// has a different formula (the linear toe, the power's octaves), dark cube
// entries (the decoding's linear toe) within a small relative error, and so
// far domains and huge entries, which take the power's wide-range fallback.
TEST(LUTApply, EveryCompiledInstructionSetAgreesWithReference) {
  const ParsedLUT unit = randomCube(1, 17, "", 0.0f, 1.0f);
  const ParsedLUT darkCube = randomCube(11, 9, "", 0.0f, 0.045f);  // decodes on the linear toe
  const ParsedLUT wide = randomCube(2, 9, "DOMAIN_MIN -2 0 0.5\nDOMAIN_MAX 300 1e6 3\n", -0.5f, 4000.0f);
  std::vector<float> unitPx = randomPixels(3, 203, 0.0f, 1.0f);
  std::vector<float> dark = randomPixels(4, 67, 0.0f, 0.01f);    // around the linear toe
  std::vector<float> wideIn = randomPixels(5, 67, -5.0f, 1e7f);  // beyond every octave table
  test::onEveryTarget([&] {
    EXPECT_LE(worstRelativeDifference(prepareLUT(unit), unitPx), 1e-5f);
    EXPECT_LE(worstRelativeDifference(prepareLUT(unit), dark), 1e-5f);
    EXPECT_LE(worstRelativeDifference(prepareLUT(darkCube), unitPx, 1e-3f), 1e-4f);
    EXPECT_LE(worstRelativeDifference(prepareLUT(wide), unitPx), 1e-4f);
    EXPECT_LE(worstRelativeDifference(prepareLUT(wide), wideIn), 1e-4f);
  });
}

TEST(LUTApply, HostilePixelsGiveFiniteColoursOnEveryInstructionSet) {
  const float inf = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  const float specials[] = {nan, inf, -inf, -0.0f, 1e30f, -1e30f, 1e-40f, -3.0f, 2.5f};
  std::vector<float> px;
  for (float c : specials)
    for (float a : {1.0f, 0.5f, 1e-40f, 0.0f, nan}) px.insert(px.end(), {c, 0.5f, specials[size_t(px.size()) % 9], a});
  const ParsedLUT luts[] = {randomCube(6, 5, "", 0.0f, 1.0f), randomCube(7, 4, "DOMAIN_MIN -1 0 0\nDOMAIN_MAX 2 5 1\n", 0.0f, 1.0f)};
  test::onEveryTarget([&] {
    for (const ParsedLUT& lut : luts) {
      std::vector<float> out = px;
      lutApply(prepareLUT(lut), kernels::KernelRow{out.data(), nullptr, int(out.size() / 4), 0, 0});
      for (size_t i = 0; i < out.size(); ++i) {
        if (i % 4 == 3) continue;
        // Opaque or clear: a colour of the cube (0...1); partly transparent: times alpha.
        ASSERT_TRUE(out[i] >= 0.0f && out[i] <= 1.0f) << "element " << i << " is " << out[i];
      }
    }
  });
}

TEST(LUTApply, ResultDoesNotDependOnPositionOrThreads) {
  const ParsedLUT lut = randomCube(8, 33, "", 0.0f, 1.0f);
  const PreparedLUT p = prepareLUT(lut);
  // The same pixel in a full vector and in a row's short tail.
  std::vector<float> row = randomPixels(9, 37, 0.0f, 1.0f);
  std::vector<float> single(row.end() - 4, row.end());
  lutApply(p, kernels::KernelRow{row.data(), nullptr, 37, 0, 0});
  lutApply(p, kernels::KernelRow{single.data(), nullptr, 1, 36, 0});
  EXPECT_EQ(std::memcmp(single.data(), row.data() + 36 * 4, 16), 0);
  Image img(Rect{0, 0, 301, 40});
  std::vector<float> values = randomPixels(10, 301 * 40, 0.0f, 1.0f);
  for (int y = 0; y < 40; ++y) std::copy_n(values.data() + size_t(y) * 301 * 4, 301 * 4, img.row(y));
  auto applyWith = [&](int threads) {
    ScopedThreadLimit limit(threads);
    return LUTLoader::apply(lut, img);
  };
  const Image one = applyWith(1), two = applyWith(2);
  for (int y = 0; y < 40; ++y) ASSERT_EQ(std::memcmp(one.row(y), two.row(y), 301 * 16), 0) << "row " << y;
}

}  // namespace
}  // namespace vg
