// Hashing of recipe values. Every record has a `hashAppend(Hasher&, const T&)`
// overload that feeds its fields in declaration order; `hashValue(v)` and the
// std::hash specialisations are built on it, so equal values hash equally:
// - a floating-point zero of either sign is fed as +0 (0.0 == -0.0);
// - a list feeds its element count before its elements;
// - an optional feeds a presence flag (0 or 1) before its value;
// - a variant feeds its case index before the carried value.
// The hash is for in-process tables and caches only; it is not stable across
// versions and must never be written to disk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>
#include <string_view>
#include <vector>

namespace vg {

class Hasher {
 public:
  void addWord(std::uint64_t w) {
    state_ = (rotl(state_ ^ mix(w), 27) * 0x9E3779B97F4A7C15ull) + 0x632BE59BD9B4E019ull;
    ++words_;
  }
  void addDouble(double v) {
    if (v == 0.0) v = 0.0;  // -0 and +0 are equal, so they must hash alike
    std::uint64_t bits;
    std::memcpy(&bits, &v, sizeof bits);
    addWord(bits);
  }
  void addInt(std::int64_t v) { addWord(static_cast<std::uint64_t>(v)); }
  void addBool(bool v) { addWord(v ? 1 : 0); }
  void addCount(std::size_t n) { addWord(n); }
  void addBytes(const void* data, std::size_t size) {
    addCount(size);
    const auto* p = static_cast<const unsigned char*>(data);
    while (size >= 8) {
      std::uint64_t w;
      std::memcpy(&w, p, 8);
      addWord(w);
      p += 8;
      size -= 8;
    }
    if (size) {  // never hand memcpy a null pointer, even for zero bytes
      std::uint64_t w = 0;
      std::memcpy(&w, p, size);
      addWord(w);
    }
  }
  void addString(std::string_view s) { addBytes(s.data(), s.size()); }

  std::size_t finish() const { return static_cast<std::size_t>(mix(state_ ^ words_)); }

 private:
  static std::uint64_t rotl(std::uint64_t x, int r) { return (x << r) | (x >> (64 - r)); }
  static std::uint64_t mix(std::uint64_t z) {  // splitmix64 finaliser
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
  }
  std::uint64_t state_ = 0x243F6A8885A308D3ull;
  std::uint64_t words_ = 0;
};

inline void hashAppend(Hasher& h, double v) { h.addDouble(v); }
inline void hashAppend(Hasher& h, bool v) { h.addBool(v); }
inline void hashAppend(Hasher& h, int v) { h.addInt(v); }
inline void hashAppend(Hasher& h, std::int64_t v) { h.addInt(v); }
inline void hashAppend(Hasher& h, std::string_view v) { h.addString(v); }

template <class T>
void hashAppend(Hasher& h, const std::vector<T>& list) {
  h.addCount(list.size());
  for (const auto& e : list) hashAppend(h, e);
}

template <class T>
void hashAppend(Hasher& h, const std::optional<T>& v) {
  h.addBool(v.has_value());
  if (v) hashAppend(h, *v);
}

template <class T>
std::size_t hashValue(const T& v) {
  Hasher h;
  hashAppend(h, v);
  return h.finish();
}

}  // namespace vg

// std::hash for a recipe type, so it can key unordered containers directly.
#define VG_STD_HASH(Type)                                                      \
  template <>                                                                  \
  struct std::hash<Type> {                                                     \
    std::size_t operator()(const Type& v) const { return ::vg::hashValue(v); } \
  }
