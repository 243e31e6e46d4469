#include "app/history_panel.h"

#include <QDateTime>
#include <QLabel>
#include <QHeaderView>
#include <QTreeWidget>
#include <QSignalBlocker>
#include <QVBoxLayout>
#include <chrono>

namespace vg::app {

HistoryPanel::HistoryPanel(QWidget* parent) : QWidget(parent) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 8, 0, 0);
  auto* title = new QLabel(QStringLiteral("历史"), this);
  QFont f = title->font();
  f.setWeight(QFont::Bold);
  title->setFont(f);
  title->setContentsMargins(12, 0, 0, 4);
  layout->addWidget(title);
  list_ = new QTreeWidget(this);
  list_->setColumnCount(2);
  list_->setHeaderHidden(true);
  list_->setRootIsDecorated(false);
  list_->setSelectionMode(QAbstractItemView::SingleSelection);
  list_->header()->setStretchLastSection(false);
  list_->header()->setSectionResizeMode(0, QHeaderView::Stretch);
  list_->header()->setSectionResizeMode(1, QHeaderView::ResizeToContents);
  list_->setAccessibleName(QStringLiteral("历史"));
  list_->setFrameShape(QFrame::NoFrame);
  list_->setStyleSheet("QTreeWidget::item { padding: 5px 6px; }");
  layout->addWidget(list_);
  connect(list_, &QTreeWidget::itemClicked, this, [this](QTreeWidgetItem* item, int) {
    const int row = list_->indexOfTopLevelItem(item);
    if (row >= 0 && size_t(row) < ids_.size()) emit jumpRequested(ids_[size_t(row)]);
  });
}

void HistoryPanel::setEntries(const std::vector<HistoryEntry>& entries, int64_t currentIndex) {
  const QSignalBlocker block(list_);
  list_->clear();
  ids_.clear();
  for (size_t i = 0; i < entries.size(); ++i) {
    const HistoryEntry& e = entries[i];
    const auto ms = std::chrono::duration_cast<std::chrono::milliseconds>(e.date.time_since_epoch()).count();
    const QString time = QDateTime::fromMSecsSinceEpoch(ms).toString(QStringLiteral("HH:mm:ss"));
    auto* item = new QTreeWidgetItem(list_, {QString::fromStdString(e.label), time});
    item->setTextAlignment(1, Qt::AlignRight | Qt::AlignVCenter);
    if (int64_t(i) > currentIndex)
      for (int c = 0; c < 2; ++c) item->setForeground(c, palette().color(QPalette::Disabled, QPalette::Text));
    ids_.push_back(e.id);
  }
  if (currentIndex >= 0 && currentIndex < list_->topLevelItemCount()) {
    list_->setCurrentItem(list_->topLevelItem(int(currentIndex)));
    list_->scrollToItem(list_->topLevelItem(int(currentIndex)));
  }
}

}  // namespace vg::app
