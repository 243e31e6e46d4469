// Small readers shared by the recipe decoders (internal to model/).
//
// Each reader looks up one key of a JSON object and returns nullopt when the
// key is absent, null, or holds a value of another type; the decoders then
// fall back to the field's default. `clampField` is the one range rule.
#pragma once

#include <nlohmann/json.hpp>

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

namespace vg::jsonfields {

using Json = nlohmann::json;

// The value under key, or nullptr when obj is not an object, the key is
// absent or its value is null.
inline const Json* member(const Json& obj, const char* key) {
  if (!obj.is_object()) return nullptr;
  auto it = obj.find(key);
  if (it == obj.end() || it->is_null()) return nullptr;
  return &*it;
}

inline std::optional<double> asNumber(const Json& v) {
  if (!v.is_number()) return std::nullopt;
  return v.get<double>();
}

// Whole numbers only: JSON integers that fit, and floats with no fraction.
inline std::optional<std::int64_t> asInteger(const Json& v) {
  if (v.is_number_unsigned()) {
    const auto u = v.get<std::uint64_t>();
    if (u > std::uint64_t(INT64_MAX)) return std::nullopt;
    return std::int64_t(u);
  }
  if (v.is_number_integer()) return v.get<std::int64_t>();
  if (v.is_number_float()) {
    const double d = v.get<double>();
    // 2^63 is the first double outside int64; -2^63 itself fits.
    if (!std::isfinite(d) || std::trunc(d) != d || d >= 9223372036854775808.0 ||
        d < -9223372036854775808.0) {
      return std::nullopt;
    }
    return std::int64_t(d);
  }
  return std::nullopt;
}

inline std::optional<double> readNumber(const Json& obj, const char* key) {
  const Json* m = member(obj, key);
  return m ? asNumber(*m) : std::nullopt;
}

inline std::optional<std::int64_t> readInteger(const Json& obj, const char* key) {
  const Json* m = member(obj, key);
  return m ? asInteger(*m) : std::nullopt;
}

inline std::optional<bool> readBool(const Json& obj, const char* key) {
  const Json* m = member(obj, key);
  if (!m || !m->is_boolean()) return std::nullopt;
  return m->get<bool>();
}

inline std::optional<std::string> readString(const Json& obj, const char* key) {
  const Json* m = member(obj, key);
  if (!m || !m->is_string()) return std::nullopt;
  return m->get<std::string>();
}

// Non-finite values take the default; then a value <= lo becomes lo and a
// value > hi becomes hi (so -0 at a lower bound of 0 becomes +0).
inline double clampField(double v, double lo, double hi, double fallback) {
  if (!std::isfinite(v)) return fallback;
  if (v <= lo) return lo;
  if (v > hi) return hi;
  return v;
}

// Read, default, clamp: the common case of a ranged number field.
inline double readClamped(const Json& obj, const char* key, double lo, double hi,
                          double fallback) {
  return clampField(readNumber(obj, key).value_or(fallback), lo, hi, fallback);
}

// A number field without a range: only non-finite values are repaired.
inline double readFinite(const Json& obj, const char* key, double fallback) {
  const double v = readNumber(obj, key).value_or(fallback);
  return std::isfinite(v) ? v : fallback;
}

}  // namespace vg::jsonfields
