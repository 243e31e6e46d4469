#include <QApplication>

#include "app/welcome_view.h"

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  vg::app::WelcomeView view;
  view.show();
  return app.exec();
}
