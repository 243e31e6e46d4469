// ToastView: the short message drawn over the bottom of the canvas, with the
// symbol and colour of its kind (success: check mark, green; info: "i",
// accent colour; warning: triangle, orange; error: octagon, red) and an
// optional action button. It fades in over 0.25 s (ease-out) and is announced
// to assistive technology (an accessibility alert carrying the text).
//
// It only shows what it is given: when a toast appears and goes is decided
// by the session (its display-time rule); the window mirrors that here.
#pragma once

#include <QString>
#include <QWidget>
#include <functional>

class QPushButton;
class QGraphicsOpacityEffect;
class QPropertyAnimation;

namespace vg::app {

enum class ToastKind { success, info, warning, error };

class ToastView : public QWidget {
  Q_OBJECT
 public:
  explicit ToastView(QWidget* parent);

  void showToast(const QString& text, ToastKind kind, const QString& actionTitle = {},
                 std::function<void()> action = {});
  void dismiss();

  QString text() const { return text_; }
  ToastKind kind() const { return kind_; }
  // Keeps the toast centred near the bottom of its parent.
  void reposition();

 protected:
  void paintEvent(QPaintEvent*) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  QString text_;
  ToastKind kind_ = ToastKind::info;
  std::function<void()> action_;
  QPushButton* button_;
  QGraphicsOpacityEffect* opacity_;
  QPropertyAnimation* fade_;
};

}  // namespace vg::app
