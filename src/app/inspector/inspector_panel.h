// InspectorPanel: a scrolling column of collapsible sections whose controls
// are bound to fields of the document (field_binding.h).
//
// The panel never changes the document: a control's change is emitted as
// `edited(edit)`, a function the window hands to the session to apply (live,
// many times during a drag), and the end of the gesture as `finished(label)`,
// after which the window records one undo step under that label. refresh()
// shows a new document; a control being dragged keeps its own value so the
// pointer never fights an echo.
//
// Section fold states are reported with `sectionToggled(key, collapsed)` and
// restored with setCollapsedSections(); the keys are the session's
// `sectionCollapsed` keys.
#pragma once

#include <QScrollArea>
#include <map>
#include <vector>

#include "app/inspector/field_binding.h"

class QCheckBox;
class QVBoxLayout;

namespace vg::app {

class CollapsibleSection;
class SliderRow;

class InspectorPanel : public QScrollArea {
  Q_OBJECT
 public:
  explicit InspectorPanel(QWidget* parent = nullptr);

  virtual void refresh(const EditDocument& doc);
  void setCollapsedSections(const std::map<std::string, bool>& collapsed);

  CollapsibleSection* section(const QString& key) const;
  SliderRow* slider(const QString& key) const;
  QCheckBox* toggle(const QString& key) const;
  const std::vector<CollapsibleSection*>& sections() const { return sections_; }

 signals:
  void edited(const vg::app::DocumentEdit& edit);
  void finished(const QString& undoLabel);
  void sectionToggled(const QString& key, bool collapsed);

 protected:
  CollapsibleSection* addSection(const QString& key, const QString& title);
  // Adds a slider row; `groupHeadings` puts a small heading over a run of
  // rows that share a group label different from their own titles.
  SliderRow* addSlider(CollapsibleSection* section, BoundNumber binding);
  QCheckBox* addSwitch(CollapsibleSection* section, BoundSwitch binding);
  void addWidget(CollapsibleSection* section, QWidget* widget);
  QVBoxLayout* columnLayout() const { return column_; }
  // Call once all sections are added.
  void finishLayout();

 private:
  struct SliderEntry {
    SliderRow* row;
    BoundNumber binding;
  };
  struct SwitchEntry {
    QCheckBox* box;
    BoundSwitch binding;
  };
  QWidget* content_;
  QVBoxLayout* column_;
  std::vector<CollapsibleSection*> sections_;
  std::vector<SliderEntry> sliders_;
  std::vector<SwitchEntry> switches_;
  std::map<CollapsibleSection*, QString> lastGroup_;
};

}  // namespace vg::app
