// MaskPanel: the mask tool's inspector. New masks of the kinds drawn on the
// canvas (radial, linear, brush, luminance), the mask list (select, switch on
// and off, delete) and, for the selected mask, its local adjustments with the
// same generated sections as the whole picture (adjust_panel.h). Intents
// only; the window hands each to the session.
#pragma once

#include <QWidget>
#include <memory>
#include <optional>

#include "app/inspector/field_binding.h"
#include "model/document.h"

class QLabel;
class QListWidget;
class QPushButton;

namespace vg::app {

class AdjustPanel;

class MaskPanel : public QWidget {
  Q_OBJECT
 public:
  explicit MaskPanel(QWidget* parent = nullptr);
  void refresh(const EditDocument& doc, const std::optional<Uuid>& selected);
  AdjustPanel* adjustments() const { return adjust_; }
  QListWidget* list() const { return list_; }

 signals:
  void maskAdded(vg::MaskKindCase kind);
  void maskSelected(const std::optional<vg::Uuid>& id);
  void maskRemoved(const vg::Uuid& id);
  // Arms colour sampling: for a new colour-range mask (no id) or to take the
  // selected colour-range mask's colour again.
  void colorSamplingRequested(const std::optional<vg::Uuid>& id);
  // A change of the document (enable switch) to commit with its undo label.
  void maskEdited(const vg::app::DocumentEdit& edit, const QString& undoLabel);

 private:
  std::shared_ptr<std::optional<Uuid>> selected_ = std::make_shared<std::optional<Uuid>>();
  std::vector<Uuid> ids_;
  QListWidget* list_;
  QPushButton* remove_;
  QPushButton* resample_;
  QLabel* empty_;
  AdjustPanel* adjust_;
};

}  // namespace vg::app
