#include "app/inspector/filter_panel.h"

#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include "app/inspector/field_binding.h"
#include "app/inspector/slider_row.h"

namespace vg::app {
namespace {

QLabel* heading(const QString& text, QWidget* parent) {
  auto* label = new QLabel(text, parent);
  QFont f = label->font();
  f.setWeight(QFont::Bold);
  label->setFont(f);
  return label;
}

}  // namespace

FilterPanel::FilterPanel(QWidget* parent) : QWidget(parent) {
  const auto& strengthField = numberRow(documentFields(), "filterStrength");
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(12, 10, 12, 10);
  layout->setSpacing(8);
  layout->addWidget(heading(qtext(strengthField.label), this));
  list_ = new QListWidget(this);
  list_->setMinimumHeight(220);
  list_->setStyleSheet("QListWidget::item { padding: 5px 4px; }");
  layout->addWidget(list_, 1);
  strength_ = new SliderRow(sliderSpec(strengthField), this);
  strength_->setEnabled(false);
  layout->addWidget(strength_);

  lutBox_ = new QWidget(this);
  auto* lut = new QVBoxLayout(lutBox_);
  lut->setContentsMargins(0, 8, 0, 0);
  const auto& lutStrength = numberRow(appliedLUTFields(), "strength");
  lut->addWidget(heading(qtext(lutStrength.label), lutBox_));
  lutName_ = new QLabel(lutBox_);
  lut->addWidget(lutName_);
  lutStrength_ = new SliderRow(sliderSpec(lutStrength, "lut."), lutBox_);
  lut->addWidget(lutStrength_);
  auto* removeLut = new QPushButton(QStringLiteral("移除 LUT"), lutBox_);
  lut->addWidget(removeLut, 0, Qt::AlignLeft);
  lutBox_->hide();
  layout->addWidget(lutBox_);

  connect(list_, &QListWidget::currentRowChanged, this, [this](int row) {
    if (row <= 0) {
      if (row == 0) emit presetRemoved();
      return;
    }
    emit presetChosen(presets_[size_t(row - 1)], strength_->value());
  });
  connect(strength_, &SliderRow::edited, this, &FilterPanel::strengthEdited);
  connect(strength_, &SliderRow::finished, this,
          [this] { emit strengthFinished(QStringLiteral("%1%2").arg(strength_->spec().undoLabel, strength_->spec().label)); });
  connect(lutStrength_, &SliderRow::edited, this, &FilterPanel::lutStrengthEdited);
  connect(lutStrength_, &SliderRow::finished, this, [this] {
    emit lutStrengthFinished(QStringLiteral("%1 %2").arg(lutStrength_->spec().undoLabel, lutStrength_->spec().label));
  });
  connect(removeLut, &QPushButton::clicked, this, &FilterPanel::lutRemoved);
}

void FilterPanel::setPresets(std::vector<FilterPreset> presets) {
  presets_ = std::move(presets);
  const QSignalBlocker block(list_);
  list_->clear();
  list_->addItem(QStringLiteral("无"));
  for (const FilterPreset& p : presets_) list_->addItem(QString::fromStdString(p.name));
}

void FilterPanel::refresh(const EditDocument& doc) {
  int row = 0;
  if (doc.filterID)
    for (size_t i = 0; i < presets_.size(); ++i)
      if (presets_[i].id == *doc.filterID) row = int(i) + 1;
  {
    const QSignalBlocker block(list_);
    list_->setCurrentRow(row);
  }
  strength_->setEnabled(doc.filterID.has_value());
  if (!strength_->dragging()) strength_->setValue(doc.filterStrength);
  lutBox_->setVisible(doc.lut.has_value());
  if (doc.lut) {
    lutName_->setText(QString::fromStdString(doc.lut->name.empty() ? doc.lut->filename : doc.lut->name));
    if (!lutStrength_->dragging()) lutStrength_->setValue(doc.lut->strength);
  }
}

}  // namespace vg::app
