// FilterPanel: the filter tool's inspector. The presets (built-in looks,
// then the photographer's own) with "无" to remove the applied one, the
// filter strength (from the document's field table) and the applied LUT with
// its strength. Intents only; the window hands each to the session.
#pragma once

#include <QWidget>
#include <vector>

#include "model/document.h"
#include "store/filter_preset.h"

class QLabel;
class QListWidget;
class QPushButton;

namespace vg::app {

class SliderRow;

class FilterPanel : public QWidget {
  Q_OBJECT
 public:
  explicit FilterPanel(QWidget* parent = nullptr);

  void setPresets(std::vector<FilterPreset> presets);
  void refresh(const EditDocument& doc);
  QListWidget* list() const { return list_; }
  SliderRow* strength() const { return strength_; }

 signals:
  void presetChosen(const vg::FilterPreset& preset, double strength);
  void presetRemoved();
  void strengthEdited(double strength);
  void strengthFinished(const QString& undoLabel);
  void lutStrengthEdited(double strength);
  void lutStrengthFinished(const QString& undoLabel);
  void lutRemoved();

 private:
  std::vector<FilterPreset> presets_;
  QListWidget* list_;
  SliderRow* strength_;
  QWidget* lutBox_;
  QLabel* lutName_;
  SliderRow* lutStrength_;
};

}  // namespace vg::app
