#include "app/inspector/mask_panel.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

#include "app/inspector/adjust_panel.h"

namespace vg::app {

MaskPanel::MaskPanel(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(8, 8, 8, 0);
  layout->setSpacing(6);
  auto* kinds = new QGridLayout;
  kinds->setSpacing(4);
  const std::pair<MaskKindCase, const char*> kNew[] = {{MaskKindCase::radial, "新建径向蒙版"},
                                                       {MaskKindCase::linear, "新建渐变蒙版"},
                                                       {MaskKindCase::brush, "新建画笔蒙版"},
                                                       {MaskKindCase::luminosity, "新建亮度蒙版"}};
  int i = 0;
  for (const auto& [kind, title] : kNew) {
    auto* b = new QPushButton(QString::fromUtf8(title), this);
    kinds->addWidget(b, i / 2, i % 2);
    ++i;
    connect(b, &QPushButton::clicked, this, [this, kind = kind] { emit maskAdded(kind); });
  }
  auto* colorRange = new QPushButton(QStringLiteral("新建颜色范围蒙版"), this);
  colorRange->setToolTip(QStringLiteral("点击要选择的颜色（Esc 取消）"));
  kinds->addWidget(colorRange, 2, 0, 1, 2);
  connect(colorRange, &QPushButton::clicked, this, [this] { emit colorSamplingRequested(std::nullopt); });
  layout->addLayout(kinds);
  list_ = new QListWidget(this);
  list_->setMaximumHeight(140);
  list_->setStyleSheet("QListWidget::item { padding: 4px; }");
  layout->addWidget(list_);
  auto* row = new QHBoxLayout;
  remove_ = new QPushButton(QStringLiteral("删除蒙版"), this);
  resample_ = new QPushButton(QStringLiteral("颜色范围取样"), this);
  resample_->setToolTip(QStringLiteral("点击要选择的颜色（Esc 取消）"));
  row->addWidget(remove_);
  row->addWidget(resample_);
  row->addStretch();
  layout->addLayout(row);
  empty_ = new QLabel(QStringLiteral("还没有蒙版：新建一个，只调整画面的一部分"), this);
  empty_->setWordWrap(true);
  empty_->setStyleSheet("color: #5f5f5f;");
  layout->addWidget(empty_);

  auto selected = selected_;
  adjust_ = new AdjustPanel(
      [selected](EditDocument& d) -> GlobalAdjustments* {
        if (!*selected) return nullptr;
        for (MaskLayer& m : d.masks)
          if (m.id == **selected) return &m.adjustments;
        return nullptr;
      },
      AdjustPanel::Options{.wholePicture = false}, this);
  layout->addWidget(adjust_, 1);

  connect(list_, &QListWidget::currentRowChanged, this, [this](int row) {
    emit maskSelected(row >= 0 && size_t(row) < ids_.size() ? std::optional<Uuid>(ids_[size_t(row)]) : std::nullopt);
  });
  connect(list_, &QListWidget::itemChanged, this, [this](QListWidgetItem* item) {
    const int row = list_->row(item);
    if (row < 0 || size_t(row) >= ids_.size()) return;
    const Uuid id = ids_[size_t(row)];
    const bool on = item->checkState() == Qt::Checked;
    emit maskEdited(
        [id, on](EditDocument& d) {
          for (MaskLayer& m : d.masks)
            if (m.id == id) m.enabled = on;
        },
        on ? QStringLiteral("启用蒙版") : QStringLiteral("停用蒙版"));
  });
  connect(remove_, &QPushButton::clicked, this, [this] {
    if (*selected_) emit maskRemoved(**selected_);
  });
  connect(resample_, &QPushButton::clicked, this, [this] {
    if (*selected_) emit colorSamplingRequested(*selected_);
  });
}

void MaskPanel::refresh(const EditDocument& doc, const std::optional<Uuid>& selected) {
  *selected_ = selected;
  {
    const QSignalBlocker block(list_);
    ids_.clear();
    list_->clear();
    for (const MaskLayer& m : doc.masks) {
      auto* item = new QListWidgetItem(QString::fromStdString(m.name), list_);
      item->setFlags(item->flags() | Qt::ItemIsUserCheckable);
      item->setCheckState(m.enabled ? Qt::Checked : Qt::Unchecked);
      if (selected == m.id) list_->setCurrentItem(item);
      ids_.push_back(m.id);
    }
  }
  const bool has = selected && std::find(ids_.begin(), ids_.end(), *selected) != ids_.end();
  remove_->setEnabled(has);
  bool colorRangeSelected = false;
  for (const MaskLayer& m : doc.masks)
    if (selected == m.id) colorRangeSelected = kindCase(m.kind) == MaskKindCase::colorRange;
  resample_->setVisible(colorRangeSelected);
  list_->setVisible(!doc.masks.empty());
  remove_->setVisible(!doc.masks.empty());
  empty_->setVisible(doc.masks.empty());
  adjust_->setVisible(has);
  adjust_->refresh(doc);
}

}  // namespace vg::app
