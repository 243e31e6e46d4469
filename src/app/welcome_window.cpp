#include "app/welcome_window.h"

#include <QCloseEvent>
#include <QMenuBar>

#include "app/app_icon.h"
#include "app/welcome_view.h"

namespace vg::app {

WelcomeWindow::WelcomeWindow(QWidget* parent) : QMainWindow(parent) {
  setWindowTitle(QStringLiteral("Verdantglass"));
  setWindowIcon(appIcon());
  view_ = new WelcomeView(this);
  setCentralWidget(view_);
  actions_ = new ActionSet(this, false);
  actions_->populate(menuBar());
  resize(860, 600);
}

void WelcomeWindow::closeEvent(QCloseEvent* e) {
  // Closing the welcome window is quitting; the application decides.
  e->ignore();
  emit closeRequested();
}

}  // namespace vg::app
