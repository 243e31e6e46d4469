// The app tests' main: one QApplication on the offscreen platform for the
// whole run, with the settings and the data folder in a private temporary
// folder so no test reads or writes the user's own.
#include <QApplication>
#include <QSettings>
#include <QStandardPaths>
#include <gtest/gtest.h>

#include "support/test_support.h"

namespace {

QtMessageHandler standardHandler = nullptr;

// The offscreen platform says what it cannot do (window hints, raising) on
// every window; those lines are noise here.
void quietOffscreen(QtMsgType type, const QMessageLogContext& context, const QString& message) {
  if (message.startsWith(QStringLiteral("This plugin does not support"))) return;
  if (standardHandler) standardHandler(type, context, message);
}

}  // namespace

int main(int argc, char** argv) {
  standardHandler = qInstallMessageHandler(quietOffscreen);
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
