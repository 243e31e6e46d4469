#include "app/inspector/adjust_panel.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QSignalBlocker>
#include <QToolButton>
#include <QVBoxLayout>
#include <cmath>

#include "app/inspector/collapsible_section.h"
#include "app/inspector/curves_editor.h"
#include "app/inspector/histogram_view.h"
#include "app/inspector/slider_row.h"

namespace vg::app {
namespace {

constexpr std::string_view kLight[] = {"exposure", "contrast", "highlights", "shadows", "whites", "blacks"};
constexpr std::string_view kColor[] = {"temperature", "tint", "saturation", "vibrance"};
constexpr std::string_view kPresence[] = {"texture", "clarity", "dehaze"};
constexpr std::string_view kDetail[] = {"sharpen", "sharpenRadius", "sharpenDetail", "sharpenMasking",
                                        "denoise", "colorDenoise",  "defringe"};
constexpr std::string_view kEffects[] = {"vignetteAmount", "vignetteMidpoint", "vignetteFeather", "grainAmount",
                                         "grainSize"};
constexpr std::string_view kMonochrome[] = {"monochromeRed", "monochromeGreen", "monochromeBlue"};

constexpr AdjustSectionLayout kLayout[] = {
    {"light", "光线", kLight},         {"color", "颜色", kColor},        {"presence", "质感", kPresence},
    {"detail", "细节", kDetail},       {"effects", "效果", kEffects},    {"monochrome", "黑白", kMonochrome},
};

// Colour tracks that show what a slider does to the picture.
QColor hue(double degrees, int s = 230, int v = 235) {
  return QColor::fromHsv((int(std::lround(degrees)) % 360 + 360) % 360, s, v);
}

std::vector<QColor> trackFor(std::string_view key) {
  if (key == "temperature") return {QColor(0x3d, 0x7b, 0xd9), QColor(0xe8, 0xc5, 0x3a)};
  if (key == "tint") return {QColor(0x3f, 0xa3, 0x4d), QColor(0xc2, 0x3f, 0xb5)};
  return {};
}

// The hue at the centre of each HSL band, degrees.
double bandHue(HSLBandKind band) {
  constexpr double kHues[] = {0, 30, 60, 120, 180, 240, 270, 300};
  return kHues[size_t(band)];
}

std::vector<QColor> hslTrack(std::string_view property, HSLBandKind band) {
  const double h = bandHue(band);
  if (property == "hue") return {hue(h - 40), hue(h), hue(h + 40)};
  if (property == "saturation") return {hue(h, 0, 200), hue(h)};
  return {hue(h, 255, 40), hue(h), hue(h, 60, 255)};
}

std::vector<QColor> rainbow() {
  std::vector<QColor> out;
  for (int d = 0; d <= 360; d += 60) out.push_back(hue(d));
  return out;
}

// The record pieces a panel reaches from its adjustments.
RecordIn<HSLBand> bandIn(RecordIn<GlobalAdjustments> target, size_t band) {
  return [target, band](EditDocument& d) -> HSLBand* {
    GlobalAdjustments* a = target(d);
    return a && band < a->hsl.bands.size() ? &a->hsl.bands[band] : nullptr;
  };
}

}  // namespace

std::span<const AdjustSectionLayout> adjustSectionLayout() { return kLayout; }

AdjustPanel::AdjustPanel(RecordIn<GlobalAdjustments> target, Options options, QWidget* parent)
    : InspectorPanel(parent), target_(std::move(target)) {
  const auto& table = adjustmentFields();
  if (options.wholePicture) {
    // In a row with the sections' content margins, so it lines up with them.
    auto* autoRow = new QWidget(this);
    auto* autoLayout = new QHBoxLayout(autoRow);
    autoLayout->setContentsMargins(10, 4, 6, 2);
    auto_ = new QToolButton(autoRow);
    autoLayout->addWidget(auto_);
    auto_->setPopupMode(QToolButton::MenuButtonPopup);
    auto_->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Fixed);
    auto_->setToolTip(qtext(kAutoModeChooserTitle));
    auto* menu = new QMenu(auto_);
    menu->addSection(qtext(kAutoModeChooserTitle));
    for (const AutoModeInfo& m : autoModes()) {
      // The description sits in the menu's second column.
      QAction* a = menu->addAction(qtext(m.label) + QLatin1Char('\t') + qtext(m.description));
      connect(a, &QAction::triggered, this, [this, mode = m.mode] {
        chooseAutoMode(mode);
        emit autoAdjustRequested(mode);
      });
    }
    auto_->setMenu(menu);
    connect(auto_, &QToolButton::clicked, this, [this] { emit autoAdjustRequested(autoMode_); });
    columnLayout()->addWidget(autoRow);
    chooseAutoMode(AutoMode::balanced);

    CollapsibleSection* s = addSection("histogram", QStringLiteral("直方图"));
    histogram_ = new HistogramView(s->contentWidget());
    addWidget(s, histogram_);
  }
  for (const AdjustSectionLayout& layout : kLayout) {
    CollapsibleSection* s = addSection(qtext(layout.key), qtext(layout.title));
    if (layout.key == "monochrome") addSwitch(s, bindSwitch(switchRow(table, "monochrome"), target_));
    for (std::string_view key : layout.fields) {
      BoundNumber b = bindNumber(numberRow(table, key), target_);
      b.spec.track = trackFor(key);
      addSlider(s, std::move(b));
    }
    if (layout.key == "color") {
      // The white-balance picker sits on the colour section's header line.
      picker_ = new QToolButton(s->header());
      picker_->setText(QStringLiteral("白平衡吸管"));
      picker_->setToolTip(QStringLiteral("点击画面中的中性灰或白色区域（Esc 取消）"));
      picker_->setAutoRaise(true);
      auto* headerLayout = new QHBoxLayout(s->header());
      headerLayout->setContentsMargins(0, 0, 4, 0);
      headerLayout->addStretch();
      headerLayout->addWidget(picker_);
      connect(picker_, &QToolButton::clicked, this, &AdjustPanel::whiteBalanceSamplingRequested);
    }
  }

  // Curves.
  {
    CollapsibleSection* s = addSection("curves", QStringLiteral("曲线"));
    curves_ = new CurvesEditor(s->contentWidget());
    addWidget(s, curves_);
    connect(curves_, &CurvesEditor::edited, this, [this](const CurveSet& curves) {
      emit edited([target = target_, curves](EditDocument& d) {
        if (GlobalAdjustments* a = target(d)) a->curves = curves;
      });
    });
    connect(curves_, &CurvesEditor::finished, this, [this] { emit finished(QStringLiteral("曲线")); });
  }

  // HSL: one property at a time, eight bands each.
  {
    const auto& fields = hslBandFields();
    CollapsibleSection* s = addSection("hsl", qtext(fields.numbers().front().label));
    auto* switcher = new QWidget(s->contentWidget());
    auto* row = new QHBoxLayout(switcher);
    row->setContentsMargins(0, 0, 0, 4);
    row->setSpacing(2);
    hslProperties_ = new QButtonGroup(this);
    int index = 0;
    for (const auto& f : fields.numbers()) {
      auto* b = new QToolButton(switcher);
      b->setText(qtext(f.title));
      b->setCheckable(true);
      b->setAutoRaise(true);
      hslProperties_->addButton(b, index++);
      row->addWidget(b);
    }
    row->addStretch();
    addWidget(s, switcher);
    for (const auto& f : fields.numbers()) {
      std::vector<QWidget*> rows;
      for (const HSLBandName& band : hslBandNames()) {
        BoundNumber b = bindNumber(f, bandIn(target_, size_t(band.kind)), "hsl." + qtext(band.key) + ".");
        b.spec.label = qtext(band.title);
        b.spec.track = hslTrack(f.key, band.kind);
        rows.push_back(addSlider(s, std::move(b)));
      }
      hslRows_.push_back(std::move(rows));
    }
    connect(hslProperties_, &QButtonGroup::idClicked, this, &AdjustPanel::showHslProperty);
    showHslProperty(0);
  }

  // Split toning.
  {
    const auto& fields = splitToningFields();
    CollapsibleSection* s = addSection("splitToning", qtext(fields.numbers().front().label));
    RecordIn<SplitToning> in = [target = target_](EditDocument& d) -> SplitToning* {
      GlobalAdjustments* a = target(d);
      return a ? &a->splitToning : nullptr;
    };
    for (const auto& f : fields.numbers()) {
      BoundNumber b = bindNumber(f, in, "splitToning.");
      if (f.hue) b.spec.track = rainbow();
      addSlider(s, std::move(b));
    }
  }

  if (options.wholePicture) {
    const auto& lens = lensCorrectionFields();
    CollapsibleSection* s = addSection("lens", qtext(lens.numbers().front().label));
    RecordIn<LensCorrectionSettings> lensIn = [](EditDocument& d) { return &d.lens; };
    for (const auto& f : lens.numbers()) addSlider(s, bindNumber(f, lensIn, "lens."));

    const auto& raw = rawDevelopFields();
    raw_ = addSection("raw", qtext(raw.numbers().front().label));
    RecordIn<RAWDevelopSettings> rawIn = [](EditDocument& d) { return &d.raw; };
    auto* decoderRow = new QWidget(raw_->contentWidget());
    auto* dl = new QHBoxLayout(decoderRow);
    dl->setContentsMargins(0, 0, 0, 4);
    dl->addWidget(new QLabel(qtext(raw.texts().front().title), decoderRow));
    decoder_ = new QComboBox(decoderRow);
    dl->addWidget(decoder_, 1);
    addWidget(raw_, decoderRow);
    connect(decoder_, &QComboBox::activated, this, [this](int i) {
      if (i < 0 || size_t(i) >= decoderOptions_.size()) return;
      const std::string id = decoderOptions_[size_t(i)].id;
      emit edited([id](EditDocument& d) { d.raw.decoderVersion = id; });
      emit finished(qtext(rawDevelopFields().texts().front().label));
    });
    for (const auto& f : raw.numbers()) addSlider(raw_, bindNumber(f, rawIn, "raw."));
    for (const auto& f : raw.switches()) addSwitch(raw_, bindSwitch(f, rawIn, "raw."));
    raw_->hide();
  }
  finishLayout();
}

void AdjustPanel::chooseAutoMode(AutoMode mode) {
  autoMode_ = mode;
  auto_->setText(QString::fromStdString(autoAdjustButtonTitle(mode)));
}

void AdjustPanel::setAutoAdjusting(bool busy) {
  if (auto_) auto_->setEnabled(!busy);
}

void AdjustPanel::showHslProperty(int index) {
  if (auto* b = hslProperties_->button(index)) b->setChecked(true);
  for (size_t p = 0; p < hslRows_.size(); ++p)
    for (QWidget* w : hslRows_[p]) w->setVisible(int(p) == index);
}

void AdjustPanel::setRawDecoderOptions(const std::vector<ImageLoader::RAWDecoderOption>& options) {
  if (!raw_) return;
  decoderOptions_ = options;
  const QSignalBlocker block(decoder_);
  decoder_->clear();
  for (const auto& o : options) decoder_->addItem(QString::fromStdString(o.title));
  raw_->setVisible(!options.empty());
}

void AdjustPanel::refresh(const EditDocument& doc) {
  InspectorPanel::refresh(doc);
  if (const GlobalAdjustments* a = target_(const_cast<EditDocument&>(doc))) curves_->setCurves(a->curves);
  if (decoder_ && !decoderOptions_.empty()) {
    // A recipe naming a version this build no longer offers develops with the newest.
    int index = 0;
    for (size_t i = 0; i < decoderOptions_.size(); ++i)
      if (decoderOptions_[i].id == doc.raw.decoderVersion) index = int(i);
    const QSignalBlocker block(decoder_);
    decoder_->setCurrentIndex(index);
  }
}

}  // namespace vg::app
