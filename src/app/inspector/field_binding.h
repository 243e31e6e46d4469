// Field bindings: a row of a model field table (model/field_table.h) tied to
// the record inside a document that it edits. The inspector builds its
// sliders and switches from these; the table gives range, default, step,
// caption and the group label that names the undo step, so no panel repeats
// any of them.
//
// `record` finds the record in a document (the global adjustments, a mask's
// adjustments, one HSL band, the crop ...) and returns null when it is not
// there any more (a deleted mask): the binding then reads nothing and
// changes nothing.
#pragma once

#include <QString>
#include <cmath>
#include <functional>
#include <optional>

#include "app/inspector/slider_row.h"
#include "model/document.h"
#include "model/field_table.h"

namespace vg::app {

using DocumentEdit = std::function<void(EditDocument&)>;

struct BoundNumber {
  SliderSpec spec;
  std::function<std::optional<double>(const EditDocument&)> get;
  // The edit that sets the value (clamped into the field's range).
  std::function<DocumentEdit(double)> set;
};

struct BoundSwitch {
  QString key;
  QString title;
  QString undoLabel;
  std::function<std::optional<bool>(const EditDocument&)> get;
  std::function<DocumentEdit(bool)> set;
};

inline QString qtext(std::string_view s) { return QString::fromUtf8(s.data(), qsizetype(s.size())); }

// Decimal places that show one step ("0.01" -> 2).
inline int decimalsForStep(double step) {
  return step >= 1 ? 0 : std::max(0, int(std::ceil(-std::log10(step) - 1e-9)));
}

template <class R>
using RecordIn = std::function<R*(EditDocument&)>;

template <class R>
SliderSpec sliderSpec(const NumberField<R>& f, const QString& keyPrefix = {}) {
  SliderSpec s;
  s.key = keyPrefix + qtext(f.key);
  s.label = qtext(f.title);
  s.undoLabel = qtext(f.labelled() ? f.label : f.title);
  s.min = f.min;
  s.max = f.max;
  s.defaultValue = f.defaultValue;
  s.step = f.step > 0 ? f.step : 1;
  s.decimals = decimalsForStep(s.step);
  return s;
}

template <class R>
BoundNumber bindNumber(const NumberField<R>& f, RecordIn<R> record, const QString& keyPrefix = {}) {
  BoundNumber b;
  b.spec = sliderSpec(f, keyPrefix);
  b.get = [record, member = f.member](const EditDocument& doc) -> std::optional<double> {
    const R* r = record(const_cast<EditDocument&>(doc));
    return r ? std::optional<double>(r->*member) : std::nullopt;
  };
  b.set = [record, field = &f](double v) -> DocumentEdit {
    return [record, field, v](EditDocument& doc) {
      if (R* r = record(doc)) r->*(field->member) = field->clamp(v);
    };
  };
  return b;
}

template <class R>
BoundSwitch bindSwitch(const SwitchField<R>& f, RecordIn<R> record, const QString& keyPrefix = {}) {
  BoundSwitch b;
  b.key = keyPrefix + qtext(f.key);
  b.title = qtext(f.title);
  b.undoLabel = qtext(f.label.empty() ? f.title : f.label);
  b.get = [record, member = f.member](const EditDocument& doc) -> std::optional<bool> {
    const R* r = record(const_cast<EditDocument&>(doc));
    return r ? std::optional<bool>(r->*member) : std::nullopt;
  };
  b.set = [record, member = f.member](bool on) -> DocumentEdit {
    return [record, member, on](EditDocument& doc) {
      if (R* r = record(doc)) r->*member = on;
    };
  };
  return b;
}

// The row of `table` named `key`; a missing row is a programming error.
template <class R>
const NumberField<R>& numberRow(const FieldTable<R>& table, std::string_view key) {
  const NumberField<R>* f = table.findNumber(key);
  if (!f) throw std::logic_error("no field " + std::string(key));
  return *f;
}

template <class R>
const SwitchField<R>& switchRow(const FieldTable<R>& table, std::string_view key) {
  const SwitchField<R>* f = table.findSwitch(key);
  if (!f) throw std::logic_error("no switch " + std::string(key));
  return *f;
}

}  // namespace vg::app
