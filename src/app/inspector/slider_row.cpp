#include "app/inspector/slider_row.h"

#include "app/inspector/track_slider.h"

#include <QAbstractSpinBox>
#include <QDoubleSpinBox>
#include <QEvent>
#include <QGridLayout>
#include <QLabel>
#include <QSignalBlocker>
#include <QSlider>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>

namespace vg::app {

SliderRow::SliderRow(SliderSpec spec, QWidget* parent)
    : QWidget(parent), spec_(std::move(spec)), value_(spec_.defaultValue) {
  auto* grid = new QGridLayout(this);
  grid->setContentsMargins(0, 2, 0, 2);
  grid->setHorizontalSpacing(6);
  grid->setVerticalSpacing(0);
  label_ = new QLabel(spec_.label, this);
  label_->setToolTip(tr("点按两下复位"));
  label_->installEventFilter(this);
  box_ = new QDoubleSpinBox(this);
  box_->setButtonSymbols(QAbstractSpinBox::NoButtons);
  box_->setFrame(false);
  box_->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
  box_->setDecimals(spec_.decimals);
  box_->setRange(spec_.min, spec_.max);
  box_->setSingleStep(spec_.step);
  box_->setKeyboardTracking(false);
  box_->setFixedWidth(56);
  box_->setAccessibleName(spec_.label);
  slider_ = new TrackSlider(this);
  slider_->setRange(0, std::max(1, int(std::lround((spec_.max - spec_.min) / spec_.step))));
  slider_->setOrigin(toPosition(spec_.defaultValue));
  slider_->setTrack(spec_.track);
  slider_->setFocusPolicy(Qt::StrongFocus);
  slider_->setAccessibleName(spec_.label);
  slider_->installEventFilter(this);
  grid->addWidget(label_, 0, 0);
  grid->addWidget(box_, 0, 1);
  grid->addWidget(slider_, 1, 0, 1, 2);
  grid->setColumnStretch(0, 1);
  setValue(spec_.defaultValue);

  connect(slider_, &QSlider::valueChanged, this, [this](int position) {
    value_ = fromPosition(position);
    {
      const QSignalBlocker block(box_);
      box_->setValue(value_);
    }
    emit edited(value_);
    // Keyboard steps and clicks on the groove are whole edits.
    if (!slider_->isSliderDown()) emit finished();
  });
  connect(slider_, &QSlider::sliderReleased, this, &SliderRow::finished);
  connect(box_, &QDoubleSpinBox::valueChanged, this, [this](double v) {
    value_ = std::clamp(v, spec_.min, spec_.max);
    {
      const QSignalBlocker block(slider_);
      slider_->setValue(toPosition(value_));
    }
    emit edited(value_);
    emit finished();
  });
}

int SliderRow::toPosition(double value) const {
  return int(std::lround((std::clamp(value, spec_.min, spec_.max) - spec_.min) / spec_.step));
}

double SliderRow::fromPosition(int position) const {
  // Snap to the step grid, written back exactly at the ends.
  if (position <= slider_->minimum()) return spec_.min;
  if (position >= slider_->maximum()) return spec_.max;
  const double v = spec_.min + position * spec_.step;
  const double scale = std::pow(10.0, spec_.decimals + 2);
  return std::round(v * scale) / scale;
}

void SliderRow::setValue(double value) {
  value_ = value;
  const QSignalBlocker a(slider_), b(box_);
  slider_->setValue(toPosition(value));
  box_->setValue(value);
}

QSlider* SliderRow::slider() const { return slider_; }

bool SliderRow::dragging() const { return slider_->isSliderDown(); }

void SliderRow::resetToDefault() {
  setValue(spec_.defaultValue);
  emit edited(spec_.defaultValue);
  emit finished();
}

bool SliderRow::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::MouseButtonDblClick && (watched == slider_ || watched == label_)) {
    resetToDefault();
    return true;
  }
  if (event->type() == QEvent::Wheel && watched == slider_ && !slider_->hasFocus()) {
    event->ignore();
    return true;  // the surrounding scroll area scrolls instead
  }
  return QWidget::eventFilter(watched, event);
}

}  // namespace vg::app
