#include "app/inspector/collapsible_section.h"

#include <QToolButton>
#include <QVBoxLayout>

namespace vg::app {

CollapsibleSection::CollapsibleSection(QString key, const QString& title, QWidget* parent)
    : QWidget(parent), key_(std::move(key)) {
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  header_ = new QToolButton(this);
  header_->setText(title);
  header_->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  header_->setArrowType(Qt::DownArrow);
  header_->setAutoRaise(true);
  header_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
  // Weight through the font, not a style sheet: only then is bold synthesised
  // for Chinese faces that have no bold of their own.
  QFont bold = header_->font();
  bold.setWeight(QFont::Bold);
  header_->setFont(bold);
  header_->setStyleSheet("QToolButton { padding: 6px 4px; text-align: left; }");
  header_->setAccessibleName(title);
  layout->addWidget(header_);
  body_ = new QWidget(this);
  content_ = new QVBoxLayout(body_);
  content_->setContentsMargins(10, 2, 6, 10);
  content_->setSpacing(4);
  layout->addWidget(body_);
  connect(header_, &QToolButton::clicked, this, [this] {
    setCollapsed(!collapsed_);
    emit collapsedChanged(key_, collapsed_);
  });
}

void CollapsibleSection::setCollapsed(bool collapsed) {
  collapsed_ = collapsed;
  header_->setArrowType(collapsed ? Qt::RightArrow : Qt::DownArrow);
  body_->setVisible(!collapsed);
}

}  // namespace vg::app
