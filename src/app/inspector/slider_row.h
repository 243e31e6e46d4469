// SliderRow: one numeric setting as a labelled slider with its value.
//
// The range, default, step and label come from the model's field tables
// through a SliderSpec; the row repeats none of them. Editing emits intents:
// `edited(value)` for every change while the user drags (the window commits
// each to the session, so the canvas follows live) and `finished()` once the
// gesture ends (the window then records one undo step). A double click on the
// slider or its label sets the default and finishes at once. Typed values and
// arrow keys are single edits that finish immediately. The wheel moves the
// slider only when it has keyboard focus, so scrolling the inspector never
// changes a value by accident.
#pragma once

#include <QColor>
#include <QString>
#include <QWidget>
#include <vector>

class QLabel;
class QSlider;

namespace vg::app {
class TrackSlider;
}
class QDoubleSpinBox;

namespace vg::app {

struct SliderSpec {
  QString key;      // stable identifier (the field's JSON key, dotted for nested records)
  QString label;    // the slider's own label
  QString undoLabel;  // the undo step's label (the field's group label)
  double min = 0;
  double max = 100;
  double defaultValue = 0;
  double step = 1;
  int decimals = 0;
  std::vector<QColor> track;  // a colour track (track_slider.h); empty for the plain one
};

class SliderRow : public QWidget {
  Q_OBJECT
 public:
  SliderRow(SliderSpec spec, QWidget* parent = nullptr);

  const SliderSpec& spec() const { return spec_; }
  // Shows `value` without emitting anything (the document changed elsewhere).
  void setValue(double value);
  double value() const { return value_; }
  QSlider* slider() const;
  // True between the press and the release of a drag.
  bool dragging() const;

 signals:
  void edited(double value);
  void finished();

 protected:
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  int toPosition(double value) const;
  double fromPosition(int position) const;
  void resetToDefault();

  SliderSpec spec_;
  double value_;
  QLabel* label_;
  TrackSlider* slider_;
  QDoubleSpinBox* box_;
};

}  // namespace vg::app
