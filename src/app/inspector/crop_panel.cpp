#include "app/inspector/crop_panel.h"

#include <QGridLayout>
#include <QLabel>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/inspector/field_binding.h"
#include "app/inspector/slider_row.h"

namespace vg::app {

CropPanel::CropPanel(QWidget* parent) : QWidget(parent) {
  const auto& table = cropFields();
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(12, 10, 12, 10);
  layout->setSpacing(8);
  auto* title = new QLabel(qtext(table.numbers().front().label), this);
  QFont f = title->font();
  f.setWeight(QFont::Bold);
  title->setFont(f);
  layout->addWidget(title);

  SliderSpec spec = sliderSpec(numberRow(table, "angle"), "crop.");
  spec.undoLabel = QStringLiteral("拉直");
  angle_ = new SliderRow(spec, this);
  layout->addWidget(angle_);
  connect(angle_, &SliderRow::edited, this, &CropPanel::angleEdited);
  connect(angle_, &SliderRow::finished, this, [this, label = spec.undoLabel] { emit angleFinished(label); });

  auto_ = new QPushButton(QStringLiteral("自动拉直"), this);
  layout->addWidget(auto_);
  connect(auto_, &QPushButton::clicked, this, &CropPanel::autoStraighten);

  auto* grid = new QGridLayout;
  grid->setSpacing(6);
  auto* ccw = new QPushButton(QStringLiteral("逆时针旋转 90°"), this);
  auto* cw = new QPushButton(QStringLiteral("顺时针旋转 90°"), this);
  auto* flipH = new QPushButton(qtext(switchRow(table, "flipHorizontal").title), this);
  auto* flipV = new QPushButton(qtext(switchRow(table, "flipVertical").title), this);
  grid->addWidget(ccw, 0, 0);
  grid->addWidget(cw, 0, 1);
  grid->addWidget(flipH, 1, 0);
  grid->addWidget(flipV, 1, 1);
  layout->addLayout(grid);
  connect(ccw, &QPushButton::clicked, this, [this] { emit rotate(false); });
  connect(cw, &QPushButton::clicked, this, [this] { emit rotate(true); });
  connect(flipH, &QPushButton::clicked, this, [this] { emit flip(true); });
  connect(flipV, &QPushButton::clicked, this, [this] { emit flip(false); });

  layout->addSpacing(6);
  auto* buttons = new QHBoxLayout;
  auto* cancel = new QPushButton(QStringLiteral("取消"), this);
  cancel->setToolTip(QStringLiteral("Esc"));
  auto* done = new QPushButton(QStringLiteral("完成"), this);
  done->setToolTip(QStringLiteral("Enter"));
  done->setDefault(true);
  buttons->addWidget(cancel);
  buttons->addWidget(done);
  layout->addLayout(buttons);
  connect(cancel, &QPushButton::clicked, this, &CropPanel::cancel);
  connect(done, &QPushButton::clicked, this, &CropPanel::done);
  layout->addStretch(1);
}

void CropPanel::refresh(const EditDocument& doc, bool detectingHorizon) {
  if (!angle_->dragging() && angle_->value() != doc.crop.angle) angle_->setValue(doc.crop.angle);
  auto_->setEnabled(!detectingHorizon);
  auto_->setText(detectingHorizon ? QStringLiteral("正在检测地平线…") : QStringLiteral("自动拉直"));
}

}  // namespace vg::app
