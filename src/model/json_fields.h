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
#include <string_view>
#include <vector>

#include "model/field_table.h"

namespace vg::jsonfields {

using Json = nlohmann::json;

// The value under key, or nullptr when obj is not an object, the key is
// absent or its value is null.
inline const Json* member(const Json& obj, std::string_view key) {
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

inline std::optional<double> readNumber(const Json& obj, std::string_view key) {
  const Json* m = member(obj, key);
  return m ? asNumber(*m) : std::nullopt;
}

inline std::optional<std::int64_t> readInteger(const Json& obj, std::string_view key) {
  const Json* m = member(obj, key);
  return m ? asInteger(*m) : std::nullopt;
}

inline std::optional<bool> readBool(const Json& obj, std::string_view key) {
  const Json* m = member(obj, key);
  if (!m || !m->is_boolean()) return std::nullopt;
  return m->get<bool>();
}

inline std::optional<std::string> readString(const Json& obj, std::string_view key) {
  const Json* m = member(obj, key);
  if (!m || !m->is_string()) return std::nullopt;
  return m->get<std::string>();
}

// Read, default, clamp: a ranged number field outside any table.
inline double readClamped(const Json& obj, std::string_view key, double lo, double hi,
                          double fallback) {
  return clampToRange(readNumber(obj, key).value_or(fallback), lo, hi, fallback);
}

// A list decoded as a whole: nullopt when v is not an array or when any one
// element fails to decode, so that the caller falls back to the list's
// default at its own level instead of keeping a list with holes in it.
template <class T, class Decode>
std::optional<std::vector<T>> decodeList(const Json& v, Decode decode) {
  if (!v.is_array()) return std::nullopt;
  std::vector<T> out;
  out.reserve(v.size());
  for (const Json& e : v) {
    std::optional<T> element = decode(e);
    if (!element) return std::nullopt;
    out.push_back(std::move(*element));
  }
  return out;
}

// The list under key decoded as a whole, or `fallback` when the key is
// absent, null, or its value does not decode as a whole.
template <class T, class Decode>
std::vector<T> readList(const Json& obj, std::string_view key, Decode decode,
                        std::vector<T> fallback = {}) {
  const Json* m = member(obj, key);
  if (!m) return fallback;
  return decodeList<T>(*m, decode).value_or(std::move(fallback));
}

// Every tabled field of r from obj: a value that decodes as the field's type
// is stored, anything else gives the field's default; numbers are then
// clamped into their ranges (non-finite ones back to their defaults).
template <class Record>
void readFields(const Json& obj, const FieldTable<Record>& table, Record& r) {
  for (const auto& f : table.numbers()) {
    r.*f.member = f.clamp(readNumber(obj, f.key).value_or(f.defaultValue));
  }
  for (const auto& f : table.switches()) {
    r.*f.member = readBool(obj, f.key).value_or(f.defaultValue);
  }
  for (const auto& f : table.texts()) r.*f.member = readString(obj, f.key).value_or("");
}

// A default record with its tabled fields read from obj.
template <class Record>
Record readFields(const Json& obj, const FieldTable<Record>& table) {
  Record r{};
  readFields(obj, table, r);
  return r;
}

// Every tabled field of r into o, in declaration order.
template <class Record>
void writeFields(nlohmann::ordered_json& o, const FieldTable<Record>& table, const Record& r) {
  for (const auto& field : table.declared()) {
    std::visit([&](const auto* f) { o[std::string(f->key)] = r.*f->member; }, field);
  }
}

// A number field without a range: only non-finite values are repaired.
inline double readFinite(const Json& obj, std::string_view key, double fallback) {
  const double v = readNumber(obj, key).value_or(fallback);
  return std::isfinite(v) ? v : fallback;
}

}  // namespace vg::jsonfields
