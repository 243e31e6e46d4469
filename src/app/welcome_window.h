// WelcomeWindow: the main window that holds the welcome view, with the
// application's menus (open, quit, about) from the actions table.
#pragma once

#include <QMainWindow>

#include "app/actions.h"

namespace vg::app {

class WelcomeView;

class WelcomeWindow : public QMainWindow {
  Q_OBJECT
 public:
  explicit WelcomeWindow(QWidget* parent = nullptr);
  WelcomeView* view() const { return view_; }
  ActionSet* actions() const { return actions_; }

 signals:
  void closeRequested();

 protected:
  void closeEvent(QCloseEvent* e) override;

 private:
  WelcomeView* view_;
  ActionSet* actions_;
};

}  // namespace vg::app
