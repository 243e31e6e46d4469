// The app tests' main: one QApplication on the offscreen platform for the
// whole run, with the settings and the data folder in a private temporary
// folder so no test reads or writes the user's own.
#include <QApplication>
#include <QSettings>
#include <QStandardPaths>
#include <gtest/gtest.h>

#include "support/test_support.h"

int main(int argc, char** argv) {
  if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM")) qputenv("QT_QPA_PLATFORM", "offscreen");
  vg::test::TempDir home;
  qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((home.path() / "config").string()));
  qputenv("VERDANTGLASS_DATA_DIR", QByteArray::fromStdString((home.path() / "data").string()));
  QApplication app(argc, argv);
  QCoreApplication::setOrganizationName("VerdantglassTests");
  QCoreApplication::setApplicationName("VerdantglassTests");
  ::testing::InitGoogleTest(&argc, argv);
  return RUN_ALL_TESTS();
}
