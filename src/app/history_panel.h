// HistoryPanel: the undo steps of the window's session, oldest at the top,
// each with its label and time; the current step is selected and steps after
// it (the redo branch) are dimmed. Clicking a step asks to jump there.
#pragma once

#include <QWidget>
#include <optional>
#include <vector>

#include "model/uuid.h"
#include "store/history_engine.h"

class QTreeWidget;

namespace vg::app {

class HistoryPanel : public QWidget {
  Q_OBJECT
 public:
  explicit HistoryPanel(QWidget* parent = nullptr);

  void setEntries(const std::vector<HistoryEntry>& entries, int64_t currentIndex);
  QTreeWidget* list() const { return list_; }

 signals:
  void jumpRequested(const vg::Uuid& entry);

 private:
  QTreeWidget* list_;
  std::vector<Uuid> ids_;
};

}  // namespace vg::app
