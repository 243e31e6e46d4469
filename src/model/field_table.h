// Field tables: everything said about a record's plain fields, said once.
//
// A table has one row per number, switch or text field of a record: its JSON
// key (the field's name), the member it lives in and, for numbers, the range
// decoding keeps it in, its default, the step a control offers and whether it
// is a hue. Every row also carries its Chinese texts: `title`, the caption of
// the field's control, and `label`, the name of the group the field belongs
// to. Fields that share a label sit under it as one heading, the title naming
// each within it; the label is also the name given to a change of the field
// (empty for the few fields that have none, whose titles then stand alone).
//
// Decoding, clamping, encoding, hashing, interpolation, change naming and the
// inspector panels all read these rows; nothing else lists these fields or
// repeats their ranges. Fields a table cannot describe (lists, optionals,
// nested records, integers with their own repair) stay with their record's
// code, which handles them after the table's fields.
//
// A table keeps two orders. Row order is the order the table was written in
// (for GlobalAdjustments a fixed order that decoding and change naming
// follow); declaration order, the order of the members in the struct, is the
// order of JSON keys and of hashing. The table works the second one out from
// member addresses once, when it is built, so it is never written down twice.
// Tables are built once, on first use, and are immutable and thread-safe.
#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <span>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "model/hashing.h"

namespace vg {

// The range rule of every number in a recipe: a non-finite value takes the
// fallback; then a value <= lo becomes lo (so -0 at a bound of 0 becomes +0)
// and a value > hi becomes hi.
inline double clampToRange(double v, double lo, double hi, double fallback) {
  if (!std::isfinite(v)) return fallback;
  if (v <= lo) return lo;
  if (v > hi) return hi;
  return v;
}

template <class Record>
struct NumberField {
  std::string_view key;
  double Record::*member;
  double min;
  double max;
  double defaultValue;
  double step;             // the finest step its slider or spin box offers
  std::string_view title;  // caption of its control
  std::string_view label;  // its group's name, also naming a change; may be empty
  bool hue = false;        // degrees on the colour circle: blends along the shorter arc

  bool labelled() const { return !label.empty(); }
  double clamp(double v) const { return clampToRange(v, min, max, defaultValue); }
};

template <class Record>
struct SwitchField {
  std::string_view key;
  bool Record::*member;
  bool defaultValue;
  std::string_view title;
  std::string_view label;
};

// Its default is the empty text.
template <class Record>
struct TextField {
  std::string_view key;
  std::string Record::*member;
  std::string_view title;
  std::string_view label;
};

template <class Record>
class FieldTable {
 public:
  using Number = NumberField<Record>;
  using Switch = SwitchField<Record>;
  using Text = TextField<Record>;
  // One row of any kind, for walks in declaration order.
  using AnyField = std::variant<const Number*, const Switch*, const Text*>;

  explicit FieldTable(std::vector<Number> numbers, std::vector<Switch> switches = {},
                      std::vector<Text> texts = {})
      : numbers_(std::move(numbers)), switches_(std::move(switches)), texts_(std::move(texts)) {
    const Record probe{};
    std::vector<std::pair<const void*, AnyField>> byAddress;
    for (const auto& f : numbers_) byAddress.emplace_back(&(probe.*f.member), &f);
    for (const auto& f : switches_) byAddress.emplace_back(&(probe.*f.member), &f);
    for (const auto& f : texts_) byAddress.emplace_back(&(probe.*f.member), &f);
    std::sort(byAddress.begin(), byAddress.end(), [](const auto& a, const auto& b) {
      return std::less<const void*>()(a.first, b.first);
    });
    for (const auto& [address, field] : byAddress) declared_.push_back(field);
  }
  FieldTable(const FieldTable&) = delete;  // rows point into the table
  FieldTable& operator=(const FieldTable&) = delete;

  // Rows in the order they were written.
  std::span<const Number> numbers() const { return numbers_; }
  std::span<const Switch> switches() const { return switches_; }
  std::span<const Text> texts() const { return texts_; }
  // Every row, in the order the members are declared.
  std::span<const AnyField> declared() const { return declared_; }

  const Number* findNumber(std::string_view key) const { return find(numbers_, key); }
  const Switch* findSwitch(std::string_view key) const { return find(switches_, key); }
  const Text* findText(std::string_view key) const { return find(texts_, key); }

 private:
  template <class Row>
  static const Row* find(const std::vector<Row>& rows, std::string_view key) {
    for (const Row& r : rows) {
      if (r.key == key) return &r;
    }
    return nullptr;
  }

  std::vector<Number> numbers_;
  std::vector<Switch> switches_;
  std::vector<Text> texts_;
  std::vector<AnyField> declared_;
};

// Every number of r brought into its row's range.
template <class Record>
void clampFields(const FieldTable<Record>& table, Record& r) {
  for (const auto& f : table.numbers()) r.*f.member = f.clamp(r.*f.member);
}

// Feeds every tabled field of r to h in declaration order.
template <class Record>
void hashFields(Hasher& h, const FieldTable<Record>& table, const Record& r) {
  for (const auto& field : table.declared()) {
    std::visit([&](const auto* f) { hashAppend(h, r.*f->member); }, field);
  }
}

}  // namespace vg
