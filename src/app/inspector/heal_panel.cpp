#include "app/inspector/heal_panel.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace vg::app {

HealPanel::HealPanel(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(12, 10, 12, 10);
  layout->setSpacing(8);
  auto* help = new QLabel(
      QStringLiteral("在画布涂抹要消除的对象（路人、杂物、皮肤瑕疵），松开即自动修补，可反复叠加。"
                     "修补采用周边纹理匹配，适合背景相对一致的区域"),
      this);
  help->setWordWrap(true);
  layout->addWidget(help);
  busy_ = new QLabel(QStringLiteral("修补计算中…"), this);
  busy_->setStyleSheet("color: #b36b00;");
  busy_->hide();
  layout->addWidget(busy_);
  list_ = new QListWidget(this);
  list_->setStyleSheet("QListWidget::item { padding: 4px; }");
  layout->addWidget(list_, 1);
  auto* buttons = new QHBoxLayout;
  remove_ = new QPushButton(QStringLiteral("移除所选"), this);
  clear_ = new QPushButton(QStringLiteral("清除全部修复"), this);
  buttons->addWidget(remove_);
  buttons->addWidget(clear_);
  layout->addLayout(buttons);
  connect(remove_, &QPushButton::clicked, this, [this] {
    if (list_->currentRow() >= 0) emit strokeRemoved(size_t(list_->currentRow()));
  });
  connect(list_, &QListWidget::currentRowChanged, this, [this](int row) { remove_->setEnabled(row >= 0); });
  connect(clear_, &QPushButton::clicked, this, &HealPanel::allCleared);
}

void HealPanel::refresh(const EditDocument& doc, bool healing) {
  busy_->setVisible(healing);
  if (list_->count() != int(doc.heals.size())) {
    const QSignalBlocker block(list_);
    list_->clear();
    for (size_t i = 0; i < doc.heals.size(); ++i)
      list_->addItem(QStringLiteral("修复笔触 %1 · %2 个点").arg(i + 1).arg(doc.heals[i].points.size()));
  }
  remove_->setEnabled(list_->currentRow() >= 0);
  clear_->setEnabled(!doc.heals.empty());
}

}  // namespace vg::app
