// ExportSheet: the single-image export dialog. It shows every export option,
// starting from the stored "export.*" settings (export_settings.h) and
// storing them again when the user exports; "选择位置并导出…" asks for the
// destination and hands it, with the options, to the window, which starts
// the export in the session and closes the sheet. The export itself runs in
// the background: the window stays usable and shows its phase.
#pragma once

#include <QDialog>
#include <filesystem>
#include <functional>
#include <optional>

#include "app/export_settings.h"

class QButtonGroup;
class QCheckBox;
class QComboBox;
class QLabel;
class QPushButton;
class QSlider;
class QSpinBox;

namespace vg::app {

// The file a chosen name becomes for a format: the format's extension is
// appended when the name has none, and replaces one that names another
// export format ("a.png" exported as JPEG becomes "a.jpg"); other
// extensions are kept as typed (".jpeg" for JPEG stays).
std::filesystem::path destinationForFormat(const std::filesystem::path& chosen, ExportFormat format);
// "<stem>-已编辑.<ext>" beside the folder given.
std::filesystem::path suggestedDestination(const std::filesystem::path& source, const std::filesystem::path& folder,
                                           ExportFormat format);

class ExportSheet : public QDialog {
  Q_OBJECT
 public:
  // Asks the user for the destination, starting from a suggestion; nothing
  // when cancelled. Replaceable (tests answer without a file dialog).
  using DestinationChooser =
      std::function<std::optional<std::filesystem::path>(QWidget* parent, const std::filesystem::path& suggested,
                                                         ExportFormat format)>;

  ExportSheet(std::filesystem::path source, ExportSheetValues initial, QWidget* parent = nullptr);

  ExportSheetValues values() const;
  void setDestinationChooser(DestinationChooser chooser) { chooser_ = std::move(chooser); }
  // The folder the save dialog starts in.
  void setStartFolder(std::filesystem::path folder) { startFolder_ = std::move(folder); }
  QPushButton* exportButton() const { return export_; }
  QComboBox* formatBox() const { return format_; }

  static DestinationChooser fileDialogChooser();

 signals:
  void exportRequested(const std::filesystem::path& destination, const vg::app::ExportSheetValues& values);

 private:
  void updateVisibility();
  void chooseAndExport();

  std::filesystem::path source_;
  std::filesystem::path startFolder_;
  DestinationChooser chooser_;
  QComboBox* format_;
  QLabel* qualityLabel_;
  QSlider* quality_;
  QLabel* tiffLabel_;
  QComboBox* tiff_;
  QComboBox* colorSpace_;
  QCheckBox* useLongEdge_;
  QSpinBox* longEdge_;
  QComboBox* sharpening_;
  QCheckBox* metadata_;
  QCheckBox* location_;
  QPushButton* export_;
};

}  // namespace vg::app
