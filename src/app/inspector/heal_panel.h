// HealPanel: the heal tool's inspector: how healing works, the strokes made
// so far (each removable), "清除全部修复", and "修补计算中…" while a heal is
// being computed. Painting strokes happens on the canvas.
#pragma once

#include <QWidget>

#include "model/document.h"

class QLabel;
class QListWidget;
class QPushButton;

namespace vg::app {

class HealPanel : public QWidget {
  Q_OBJECT
 public:
  explicit HealPanel(QWidget* parent = nullptr);
  void refresh(const EditDocument& doc, bool healing);
  QListWidget* list() const { return list_; }

 signals:
  void strokeRemoved(size_t index);
  void allCleared();

 private:
  QLabel* busy_;
  QListWidget* list_;
  QPushButton* remove_;
  QPushButton* clear_;
};

}  // namespace vg::app
