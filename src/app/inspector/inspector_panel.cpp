#include "app/inspector/inspector_panel.h"

#include <QCheckBox>
#include <QLabel>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>

#include "app/inspector/collapsible_section.h"
#include "app/inspector/slider_row.h"

namespace vg::app {

InspectorPanel::InspectorPanel(QWidget* parent) : QScrollArea(parent) {
  setWidgetResizable(true);
  setFrameShape(QFrame::NoFrame);
  setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
  content_ = new QWidget(this);
  column_ = new QVBoxLayout(content_);
  column_->setContentsMargins(8, 4, 8, 8);
  column_->setSpacing(2);
  setWidget(content_);
}

CollapsibleSection* InspectorPanel::addSection(const QString& key, const QString& title) {
  auto* s = new CollapsibleSection(key, title, content_);
  column_->addWidget(s);
  sections_.push_back(s);
  connect(s, &CollapsibleSection::collapsedChanged, this, &InspectorPanel::sectionToggled);
  return s;
}

SliderRow* InspectorPanel::addSlider(CollapsibleSection* section, BoundNumber binding) {
  // A run of rows sharing a group label gets the label as a heading once
  // ("锐化" over 数量, 半径, 细节, 蒙版).
  const QString group = binding.spec.undoLabel;
  QString& last = lastGroup_[section];
  if (group != binding.spec.label && group != last && group != section->header()->text()) {
    auto* heading = new QLabel(group, section->contentWidget());
    QFont f = heading->font();
    f.setWeight(QFont::Bold);
    heading->setFont(f);
    heading->setStyleSheet("color: #5f5f5f; margin-top: 4px;");
    section->contentLayout()->addWidget(heading);
  }
  last = group;
  auto* row = new SliderRow(binding.spec, section->contentWidget());
  section->contentLayout()->addWidget(row);
  const auto set = binding.set;
  connect(row, &SliderRow::edited, this, [this, set](double v) { emit edited(set(v)); });
  connect(row, &SliderRow::finished, this, [this, label = binding.spec.undoLabel] { emit finished(label); });
  sliders_.push_back({row, std::move(binding)});
  return row;
}

QCheckBox* InspectorPanel::addSwitch(CollapsibleSection* section, BoundSwitch binding) {
  auto* box = new QCheckBox(binding.title, section->contentWidget());
  box->setAccessibleName(binding.title);
  section->contentLayout()->addWidget(box);
  lastGroup_[section].clear();
  const auto set = binding.set;
  connect(box, &QCheckBox::toggled, this, [this, set, label = binding.undoLabel](bool on) {
    emit edited(set(on));
    emit finished(label);
  });
  switches_.push_back({box, std::move(binding)});
  return box;
}

void InspectorPanel::addWidget(CollapsibleSection* section, QWidget* widget) {
  section->contentLayout()->addWidget(widget);
  lastGroup_[section].clear();
}

void InspectorPanel::finishLayout() { column_->addStretch(1); }

void InspectorPanel::refresh(const EditDocument& doc) {
  for (const SliderEntry& e : sliders_) {
    const auto v = e.binding.get(doc);
    e.row->setEnabled(v.has_value());
    if (v && !e.row->dragging() && *v != e.row->value()) e.row->setValue(*v);
  }
  for (const SwitchEntry& e : switches_) {
    const auto v = e.binding.get(doc);
    e.box->setEnabled(v.has_value());
    if (v && *v != e.box->isChecked()) {
      const QSignalBlocker block(e.box);
      e.box->setChecked(*v);
    }
  }
}

void InspectorPanel::setCollapsedSections(const std::map<std::string, bool>& collapsed) {
  for (CollapsibleSection* s : sections_) {
    auto it = collapsed.find(s->key().toStdString());
    s->setCollapsed(it != collapsed.end() && it->second);
  }
}

CollapsibleSection* InspectorPanel::section(const QString& key) const {
  for (CollapsibleSection* s : sections_)
    if (s->key() == key) return s;
  return nullptr;
}

SliderRow* InspectorPanel::slider(const QString& key) const {
  for (const SliderEntry& e : sliders_)
    if (e.binding.spec.key == key) return e.row;
  return nullptr;
}

QCheckBox* InspectorPanel::toggle(const QString& key) const {
  for (const SwitchEntry& e : switches_)
    if (e.binding.key == key) return e.box;
  return nullptr;
}

}  // namespace vg::app
