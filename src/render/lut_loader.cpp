#include "render/lut_loader.h"

#include <charconv>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <fstream>
#include <locale.h>
#include <sstream>
#include <system_error>

namespace vg {

namespace {

LUTError formatError(std::string message) { return LUTError{LUTError::Kind::invalidFormat, std::move(message)}; }

// ---------------------------------------------------------------- text decoding

// Strict UTF-8: no overlong forms, no surrogates, nothing above U+10FFFF.
bool isValidUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const auto c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      ++i;
      continue;
    }
    int len;
    uint32_t cp;
    if ((c & 0xE0) == 0xC0) {
      len = 2;
      cp = c & 0x1F;
    } else if ((c & 0xF0) == 0xE0) {
      len = 3;
      cp = c & 0x0F;
    } else if ((c & 0xF8) == 0xF0) {
      len = 4;
      cp = c & 0x07;
    } else {
      return false;
    }
    if (i + size_t(len) > s.size()) return false;
    for (int k = 1; k < len; ++k) {
      const auto cc = static_cast<unsigned char>(s[i + size_t(k)]);
      if ((cc & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (cc & 0x3F);
    }
    if ((len == 2 && cp < 0x80) || (len == 3 && cp < 0x800) || (len == 4 && cp < 0x10000)) return false;
    if (cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += size_t(len);
  }
  return true;
}

std::string latin1ToUtf8(std::string_view s) {
  std::string out;
  out.reserve(s.size() * 2);
  for (char ch : s) {
    const auto c = static_cast<unsigned char>(ch);
    if (c < 0x80) {
      out.push_back(char(c));
    } else {
      out.push_back(char(0xC0 | (c >> 6)));
      out.push_back(char(0x80 | (c & 0x3F)));
    }
  }
  return out;
}

// ---------------------------------------------------------------- white space

// Length in bytes of the Unicode white-space character at s[i], or 0.
size_t whiteSpaceAt(std::string_view s, size_t i) {
  const auto c = static_cast<unsigned char>(s[i]);
  if (c == ' ' || (c >= 0x09 && c <= 0x0D)) return 1;
  if (c < 0x80) return 0;
  auto byte = [&](size_t k) { return i + k < s.size() ? static_cast<unsigned char>(s[i + k]) : 0u; };
  if (c == 0xC2 && (byte(1) == 0x85 || byte(1) == 0xA0)) return 2;  // U+0085, U+00A0
  if (c == 0xE1 && byte(1) == 0x9A && byte(2) == 0x80) return 3;    // U+1680
  if (c == 0xE2 && byte(1) == 0x80) {
    const unsigned d = byte(2);
    if ((d >= 0x80 && d <= 0x8A) || d == 0xA8 || d == 0xA9 || d == 0xAF) return 3;  // U+2000-200A, 2028, 2029, 202F
  }
  if (c == 0xE2 && byte(1) == 0x81 && byte(2) == 0x9F) return 3;  // U+205F
  if (c == 0xE3 && byte(1) == 0x80 && byte(2) == 0x80) return 3;  // U+3000
  return 0;
}

// Length of the white-space character ending just before s[end], or 0.
size_t whiteSpaceBefore(std::string_view s, size_t end) {
  for (size_t len = 1; len <= 3 && len <= end; ++len) {
    if (whiteSpaceAt(s, end - len) == len) return len;
  }
  return 0;
}

std::string_view trim(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e) {
    size_t n = whiteSpaceAt(s, b);
    if (!n) break;
    b += n;
  }
  while (e > b) {
    size_t n = whiteSpaceBefore(s, e);
    if (!n) break;
    e -= n;
  }
  return s.substr(b, e - b);
}

std::vector<std::string_view> tokens(std::string_view s) {
  std::vector<std::string_view> out;
  size_t i = 0;
  while (i < s.size()) {
    if (size_t n = whiteSpaceAt(s, i)) {
      i += n;
      continue;
    }
    size_t j = i;
    while (j < s.size() && !whiteSpaceAt(s, j)) ++j;
    out.push_back(s.substr(i, j - i));
    i = j;
  }
  return out;
}

bool startsWith(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }

// ---------------------------------------------------------------- numbers

// A whole token read as a float the way strtof does in the C locale; false
// when it is not a number or not finite.
bool parseFiniteFloat(std::string_view token, float& out) {
  if (token.empty() || token.size() > 512) return false;
  static const locale_t cLocale = newlocale(LC_ALL_MASK, "C", locale_t(0));
  const auto first = static_cast<unsigned char>(token[0]);
  if (first <= ' ') return false;  // strtof would skip leading spaces; a token has none
  std::string text(token);
  char* end = nullptr;
  const float v = strtof_l(text.c_str(), &end, cLocale);
  if (end != text.c_str() + text.size()) return false;
  if (!std::isfinite(v)) return false;
  out = v;
  return true;
}

// An integer with an optional sign and nothing else.
bool parseInteger(std::string_view s, long long& out) {
  if (!s.empty() && s[0] == '+') s.remove_prefix(1);
  if (s.empty() || s[0] == '+') return false;
  auto [ptr, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return ec == std::errc() && ptr == s.data() + s.size();
}

}  // namespace

bool ParsedLUT::hasDefaultDomain() const {
  return domainMin == std::array<float, 3>{0, 0, 0} && domainMax == std::array<float, 3>{1, 1, 1};
}

std::string LUTError::description() const {
  if (kind == Kind::invalidFormat) return "LUT 文件格式错误：" + message;
  return message;
}

LUTResult LUTLoader::parse(std::string_view bytes) {
  std::string converted;
  std::string_view all = bytes;
  if (!isValidUtf8(bytes)) all = converted = latin1ToUtf8(bytes);
  if (startsWith(all, "\xEF\xBB\xBF")) all.remove_prefix(3);

  ParsedLUT lut;
  int size = 0;  // 0 until a valid LUT_3D_SIZE
  size_t expected = 0;
  std::vector<float> values;
  bool sawData = false;

  size_t pos = 0;
  while (pos <= all.size()) {
    size_t nl = all.find('\n', pos);
    if (nl == std::string_view::npos) nl = all.size();
    std::string_view raw = all.substr(pos, nl - pos);
    pos = nl + 1;
    // CR LF pairs become LF: the CR before this LF goes.
    if (!raw.empty() && raw.back() == '\r' && nl < all.size()) raw.remove_suffix(1);

    std::string_view line = trim(raw);
    if (line.empty() || line[0] == '#') continue;
    if (startsWith(line, "TITLE")) {
      lut.title = std::string(trim(line.substr(5)));
      continue;
    }
    if (size_t hash = line.find('#'); hash != std::string_view::npos) line = trim(line.substr(0, hash));
    if (line.empty()) continue;

    if (startsWith(line, "LUT_1D_SIZE")) return formatError("暂不支持 1D LUT");
    if (startsWith(line, "LUT_3D_SIZE")) {
      long long n = 0;
      if (!parseInteger(trim(line.substr(11)), n) || n < 2 || n > 128 || size != 0 || sawData) {
        return formatError("LUT_3D_SIZE 必须为 2…128，且只能声明一次");
      }
      size = int(n);
      expected = size_t(size) * size_t(size) * size_t(size) * 3;
      values.reserve(expected);
      continue;
    }
    const bool isMin = startsWith(line, "DOMAIN_MIN");
    if (isMin || startsWith(line, "DOMAIN_MAX")) {
      const char* keyword = isMin ? "DOMAIN_MIN" : "DOMAIN_MAX";
      auto parts = tokens(line.substr(10));
      std::array<float, 3> v{};
      bool ok = parts.size() == 3;
      for (size_t i = 0; ok && i < 3; ++i) ok = parseFiniteFloat(parts[i], v[i]);
      if (!ok) return formatError(std::string(keyword) + " 行需要 3 个数值");
      (isMin ? lut.domainMin : lut.domainMax) = v;
      continue;
    }

    auto parts = tokens(line);
    if (size == 0 || parts.size() != 3) return formatError("数据行需要 3 个数值，且须先声明 LUT_3D_SIZE");
    float v[3];
    for (size_t i = 0; i < 3; ++i) {
      if (!parseFiniteFloat(parts[i], v[i])) return formatError("无法解析有限数值「" + std::string(parts[i]) + "」");
    }
    if (values.size() + 3 > expected) return formatError("数值数量超过 LUT_3D_SIZE 声明");
    values.insert(values.end(), v, v + 3);
    sawData = true;
  }

  if (size == 0) return formatError("缺少有效的 LUT_3D_SIZE");
  if (values.size() < expected) {
    return formatError("数值数量不足（需要 " + std::to_string(expected) + " 个，实际 " + std::to_string(values.size()) +
                       " 个）");
  }
  for (int c = 0; c < 3; ++c) {
    const float lo = lut.domainMin[size_t(c)], hi = lut.domainMax[size_t(c)];
    const float diff = hi - lo;
    if (!(lo < hi) || !std::isfinite(diff) || !std::isfinite(1.0f / diff)) {
      return formatError("DOMAIN_MAX 必须大于 DOMAIN_MIN");
    }
  }

  lut.size = size;
  lut.data.resize(values.size() / 3 * 4);
  for (size_t i = 0, n = values.size() / 3; i < n; ++i) {
    lut.data[i * 4 + 0] = values[i * 3 + 0];
    lut.data[i * 4 + 1] = values[i * 3 + 1];
    lut.data[i * 4 + 2] = values[i * 3 + 2];
    lut.data[i * 4 + 3] = 1.0f;
  }
  return lut;
}

LUTResult LUTLoader::load(const std::filesystem::path& path) {
  const std::string name = path.filename().string();
  std::error_code ec;
  const auto bytes = std::filesystem::file_size(path, ec);
  if (ec) return LUTError{LUTError::Kind::unreadable, "无法读取「" + name + "」：" + ec.message()};
  if (bytes > kMaxFileBytes) return formatError("文件超过 256 MB 上限");
  std::ifstream in(path, std::ios::binary);
  if (!in) return LUTError{LUTError::Kind::unreadable, "无法读取「" + name + "」"};
  std::string data(size_t(bytes), '\0');
  in.read(data.data(), std::streamsize(bytes));
  data.resize(size_t(in.gcount()));
  if (in.bad()) return LUTError{LUTError::Kind::unreadable, "无法读取「" + name + "」"};
  return parse(data);
}

}  // namespace vg
