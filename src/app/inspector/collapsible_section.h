// CollapsibleSection: one foldable group of the inspector, a header line
// (arrow and title) over its content. Clicking the header folds or unfolds
// it and reports the new state under the section's key, which the window
// keeps in the session's section map, so the fold state survives tool
// changes and is the same for every panel that shows the section.
#pragma once

#include <QString>
#include <QWidget>

class QToolButton;
class QVBoxLayout;

namespace vg::app {

class CollapsibleSection : public QWidget {
  Q_OBJECT
 public:
  CollapsibleSection(QString key, const QString& title, QWidget* parent = nullptr);

  const QString& key() const { return key_; }
  QVBoxLayout* contentLayout() const { return content_; }
  QWidget* contentWidget() const { return body_; }
  void setCollapsed(bool collapsed);
  bool collapsed() const { return collapsed_; }
  QToolButton* header() const { return header_; }

 signals:
  void collapsedChanged(const QString& key, bool collapsed);

 private:
  QString key_;
  bool collapsed_ = false;
  QToolButton* header_;
  QWidget* body_;
  QVBoxLayout* content_;
};

}  // namespace vg::app
