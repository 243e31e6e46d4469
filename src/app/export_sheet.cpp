#include "app/export_sheet.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>
#include <QSlider>
#include <QSpinBox>
#include <QVBoxLayout>
#include <cmath>

#include "io/image_formats.h"

namespace vg::app {
namespace {

namespace fs = std::filesystem;

QString text(std::string_view s) { return QString::fromUtf8(s.data(), qsizetype(s.size())); }

constexpr ExportFormat kFormats[] = {ExportFormat::jpeg, ExportFormat::heic, ExportFormat::png, ExportFormat::tiff};
constexpr ExportColorSpace kSpaces[] = {ExportColorSpace::srgb, ExportColorSpace::displayP3, ExportColorSpace::adobeRGB};
constexpr OutputSharpening kSharpening[] = {OutputSharpening::off, OutputSharpening::screen, OutputSharpening::matte,
                                            OutputSharpening::glossy};
constexpr TIFFCompression kTiff[] = {TIFFCompression::none, TIFFCompression::lzw, TIFFCompression::zip};

template <typename T, size_t N>
int indexOf(const T (&values)[N], T v) {
  for (size_t i = 0; i < N; ++i)
    if (values[i] == v) return int(i);
  return 0;
}

QString qualityText(int percent) {
  // "质量（%@%%）": the percent sign is doubled in the format string.
  return QStringLiteral("质量（%1%）").arg(percent);
}

}  // namespace

fs::path destinationForFormat(const fs::path& chosen, ExportFormat format) {
  fs::path out = chosen;
  const std::string ext = lowerExtension(chosen);
  const auto named = exportFormatForExtension(ext);
  if (ext.empty()) out += "." + std::string(defaultExtension(format));
  else if (named && *named != format) out.replace_extension(defaultExtension(format));
  return out;
}

fs::path suggestedDestination(const fs::path& source, const fs::path& folder, ExportFormat format) {
  return folder / (source.stem().string() + "-已编辑." + std::string(defaultExtension(format)));
}

ExportSheet::DestinationChooser ExportSheet::fileDialogChooser() {
  return [](QWidget* parent, const fs::path& suggested, ExportFormat format) -> std::optional<fs::path> {
    const QString ext = text(defaultExtension(format));
    const QString filter = QStringLiteral("%1 (*.%2)").arg(text(storedValue(format)), ext);
    const QString chosen = QFileDialog::getSaveFileName(parent, QStringLiteral("导出"),
                                                        QString::fromStdString(suggested.string()), filter);
    if (chosen.isEmpty()) return std::nullopt;
    return fs::path(chosen.toStdString());
  };
}

ExportSheet::ExportSheet(fs::path source, ExportSheetValues initial, QWidget* parent)
    : QDialog(parent), source_(std::move(source)), startFolder_(source_.parent_path()), chooser_(fileDialogChooser()) {
  setWindowTitle(QStringLiteral("导出"));
  setWindowModality(Qt::WindowModal);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(22, 18, 22, 16);
  layout->setSpacing(10);
  auto* heading = new QLabel(QStringLiteral("导出“%1”").arg(QString::fromStdString(source_.filename().string())), this);
  QFont hf = heading->font();
  hf.setPointSizeF(hf.pointSizeF() * 1.2);
  hf.setWeight(QFont::Bold);
  heading->setFont(hf);
  layout->addWidget(heading);

  auto* form = new QFormLayout;
  form->setLabelAlignment(Qt::AlignRight | Qt::AlignVCenter);
  form->setHorizontalSpacing(14);
  form->setVerticalSpacing(8);
  format_ = new QComboBox(this);
  for (ExportFormat f : kFormats) format_->addItem(text(storedValue(f)));
  form->addRow(QStringLiteral("格式"), format_);

  quality_ = new QSlider(Qt::Horizontal, this);
  quality_->setRange(0, 100);
  qualityLabel_ = new QLabel(this);
  form->addRow(qualityLabel_, quality_);
  tiff_ = new QComboBox(this);
  for (TIFFCompression c : kTiff) tiff_->addItem(text(label(c)));
  tiffLabel_ = new QLabel(QStringLiteral("TIFF 压缩"), this);
  form->addRow(tiffLabel_, tiff_);

  colorSpace_ = new QComboBox(this);
  for (ExportColorSpace c : kSpaces) colorSpace_->addItem(text(storedValue(c)));
  form->addRow(QStringLiteral("色彩空间"), colorSpace_);

  auto* sizeRow = new QHBoxLayout;
  useLongEdge_ = new QCheckBox(QStringLiteral("限制长边"), this);
  longEdge_ = new QSpinBox(this);
  longEdge_->setRange(1, 1'000'000);
  longEdge_->setSuffix(QStringLiteral(" 像素"));
  longEdge_->setMinimumWidth(110);
  sizeRow->addWidget(useLongEdge_);
  sizeRow->addWidget(longEdge_);
  sizeRow->addStretch();
  form->addRow(QStringLiteral("尺寸"), sizeRow);

  sharpening_ = new QComboBox(this);
  for (OutputSharpening s : kSharpening) sharpening_->addItem(text(label(s)));
  form->addRow(QStringLiteral("输出锐化"), sharpening_);
  layout->addLayout(form);

  auto* privacy = new QLabel(QStringLiteral("元数据与隐私"), this);
  QFont pf = privacy->font();
  pf.setWeight(QFont::Bold);
  privacy->setFont(pf);
  layout->addSpacing(4);
  layout->addWidget(privacy);
  metadata_ = new QCheckBox(QStringLiteral("保留拍摄信息（EXIF / IPTC）"), this);
  location_ = new QCheckBox(QStringLiteral("包含定位信息"), this);
  layout->addWidget(metadata_);
  layout->addWidget(location_);
  auto* note = new QLabel(QStringLiteral("默认移除 GPS 与常见 IPTC 位置字段"), this);
  note->setStyleSheet("color: palette(mid);");
  layout->addWidget(note);

  auto* buttons = new QDialogButtonBox(this);
  export_ = buttons->addButton(QStringLiteral("选择位置并导出…"), QDialogButtonBox::AcceptRole);
  export_->setDefault(true);
  buttons->addButton(QStringLiteral("取消"), QDialogButtonBox::RejectRole);
  layout->addSpacing(6);
  layout->addWidget(buttons);

  format_->setCurrentIndex(indexOf(kFormats, initial.format));
  quality_->setValue(int(std::lround(initial.quality * 100)));
  tiff_->setCurrentIndex(indexOf(kTiff, initial.tiffCompression));
  colorSpace_->setCurrentIndex(indexOf(kSpaces, initial.colorSpace));
  useLongEdge_->setChecked(initial.useLongEdge);
  longEdge_->setValue(int(initial.longEdge));
  sharpening_->setCurrentIndex(indexOf(kSharpening, initial.outputSharpening));
  metadata_->setChecked(initial.includeMetadata);
  location_->setChecked(initial.includeLocation);

  connect(format_, &QComboBox::currentIndexChanged, this, &ExportSheet::updateVisibility);
  connect(quality_, &QSlider::valueChanged, this, [this](int v) { qualityLabel_->setText(qualityText(v)); });
  connect(useLongEdge_, &QCheckBox::toggled, longEdge_, &QSpinBox::setEnabled);
  connect(metadata_, &QCheckBox::toggled, location_, &QCheckBox::setEnabled);
  connect(buttons, &QDialogButtonBox::accepted, this, &ExportSheet::chooseAndExport);
  connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
  qualityLabel_->setText(qualityText(quality_->value()));
  longEdge_->setEnabled(initial.useLongEdge);
  location_->setEnabled(initial.includeMetadata);
  updateVisibility();
  setMinimumWidth(420);
}

ExportSheetValues ExportSheet::values() const {
  ExportSheetValues v;
  v.format = kFormats[std::max(0, format_->currentIndex())];
  v.quality = quality_->value() / 100.0;
  v.tiffCompression = kTiff[std::max(0, tiff_->currentIndex())];
  v.colorSpace = kSpaces[std::max(0, colorSpace_->currentIndex())];
  v.useLongEdge = useLongEdge_->isChecked();
  v.longEdge = longEdge_->value();
  v.outputSharpening = kSharpening[std::max(0, sharpening_->currentIndex())];
  v.includeMetadata = metadata_->isChecked();
  v.includeLocation = location_->isChecked();
  return v;
}

void ExportSheet::updateVisibility() {
  const ExportFormat f = kFormats[std::max(0, format_->currentIndex())];
  const bool lossy = f == ExportFormat::jpeg || f == ExportFormat::heic;
  qualityLabel_->setVisible(lossy);
  quality_->setVisible(lossy);
  tiffLabel_->setVisible(f == ExportFormat::tiff);
  tiff_->setVisible(f == ExportFormat::tiff);
  adjustSize();
}

void ExportSheet::chooseAndExport() {
  const ExportSheetValues v = values();
  const auto chosen = chooser_(this, suggestedDestination(source_, startFolder_, v.format), v.format);
  if (!chosen) return;  // the sheet stays open
  emit exportRequested(destinationForFormat(*chosen, v.format), v);
  accept();
}

}  // namespace vg::app
