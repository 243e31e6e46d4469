// AdjustPanel: the inspector of the adjust tool, generated from the model's
// field tables. Top to bottom: the automatic adjustment button (a click runs
// the chosen style, its menu chooses another and runs it); the histogram with its clipping
// indicators; light; colour (with the white-balance picker); presence;
// detail; effects; black and white; curves; HSL; split toning; and for the
// whole picture lens correction and, for camera RAW files, RAW development
// (decoder version, settings).
//
// The same panel edits a mask's local adjustments: it is built over a
// function that finds the GlobalAdjustments to edit in a document, and
// without the whole-picture sections (histogram, lens, RAW) when asked.
#pragma once

#include <QStringList>
#include <span>
#include <string_view>

#include "app/inspector/inspector_panel.h"
#include "io/image_loader.h"
#include "session/auto_mode.h"

class QButtonGroup;
class QComboBox;
class QToolButton;

namespace vg::app {

class CurvesEditor;
class HistogramView;

// Which fields of GlobalAdjustments each slider section shows, in order.
struct AdjustSectionLayout {
  std::string_view key;
  std::string_view title;
  std::span<const std::string_view> fields;
};
std::span<const AdjustSectionLayout> adjustSectionLayout();

class AdjustPanel : public InspectorPanel {
  Q_OBJECT
 public:
  struct Options {
    bool wholePicture = true;  // histogram, lens correction and RAW sections
  };
  AdjustPanel(RecordIn<GlobalAdjustments> target, Options options, QWidget* parent = nullptr);

  void refresh(const EditDocument& doc) override;
  // RAW files: the decoder versions on offer ("最新" first); empty hides the section.
  void setRawDecoderOptions(const std::vector<ImageLoader::RAWDecoderOption>& options);
  HistogramView* histogram() const { return histogram_; }
  CurvesEditor* curves() const { return curves_; }
  QToolButton* whiteBalancePicker() const { return picker_; }
  QComboBox* decoderMenu() const { return decoder_; }
  QToolButton* autoAdjustButton() const { return auto_; }
  AutoMode autoMode() const { return autoMode_; }
  // While an automatic adjustment runs the button waits.
  void setAutoAdjusting(bool busy);
  // Shows the HSL sliders of one property (hue, saturation, luminance).
  void showHslProperty(int index);

 signals:
  void whiteBalanceSamplingRequested();
  void autoAdjustRequested(vg::AutoMode mode);

 private:
  void chooseAutoMode(AutoMode mode);

  RecordIn<GlobalAdjustments> target_;
  QToolButton* auto_ = nullptr;
  AutoMode autoMode_ = AutoMode::balanced;
  HistogramView* histogram_ = nullptr;
  CurvesEditor* curves_ = nullptr;
  QToolButton* picker_ = nullptr;
  QButtonGroup* hslProperties_ = nullptr;
  std::vector<std::vector<QWidget*>> hslRows_;  // per property, its 8 band rows
  CollapsibleSection* raw_ = nullptr;
  QComboBox* decoder_ = nullptr;
  std::vector<ImageLoader::RAWDecoderOption> decoderOptions_;
};

}  // namespace vg::app
