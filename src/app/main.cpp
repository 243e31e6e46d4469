// verdantglass [FILE...]: the desktop application. Each file opens in its own
// editor window; without files the welcome window shows.
#include <QApplication>
#include <QCommandLineParser>
#include <cstring>
#include <filesystem>
#include <memory>
#include <vector>

#include "app/app_icon.h"
#include "app/application.h"

namespace {

// --help and --version answer without a display.
bool asksForTextOnly(int argc, char** argv) {
  for (int i = 1; i < argc; ++i) {
    for (const char* flag : {"-h", "--help", "--help-all", "-v", "--version"})
      if (std::strcmp(argv[i], flag) == 0) return true;
  }
  return false;
}

void describe(QCommandLineParser& parser) {
  parser.setApplicationDescription(QStringLiteral("Verdantglass: a non-destructive photo editor."));
  parser.addHelpOption();
  parser.addVersionOption();
  parser.addPositionalArgument(QStringLiteral("files"), QStringLiteral("Images to open, each in its own window."),
                               QStringLiteral("[FILE...]"));
}

void name() {
  QCoreApplication::setOrganizationName(QStringLiteral("Verdantglass"));
  QCoreApplication::setApplicationName(QStringLiteral("Verdantglass"));
  QCoreApplication::setApplicationVersion(QStringLiteral(VG_VERSION));
}

}  // namespace

int main(int argc, char** argv) {
  if (asksForTextOnly(argc, argv)) {
    QCoreApplication core(argc, argv);
    name();
    QCommandLineParser parser;
    describe(parser);
    parser.process(core);  // prints and exits
    return 0;
  }
  QApplication qt(argc, argv);
  name();
  QGuiApplication::setDesktopFileName(QStringLiteral("verdantglass"));
  QApplication::setWindowIcon(vg::app::appIcon());
  QCommandLineParser parser;
  describe(parser);
  parser.process(qt);

  std::vector<std::filesystem::path> files;
  for (const QString& f : parser.positionalArguments()) files.emplace_back(f.toStdString());
  vg::app::Application app;
  app.start(files);
  return qt.exec();
}
