#include "app/welcome_view.h"

#include <QDragEnterEvent>
#include <QDropEvent>
#include <QLabel>
#include <QListWidget>
#include <QMimeData>
#include <QPainter>
#include <QPushButton>
#include <QVBoxLayout>

#include "app/app_icon.h"
#include "app/canvas/canvas_picture.h"
#include "app/display_transform.h"
#include "app/file_drop.h"
#include "io/image_loader.h"

namespace vg::app {
namespace {

constexpr int kTile = 112;

}  // namespace

WelcomeView::WelcomeView(QWidget* parent) : QWidget(parent) {
  setAcceptDrops(true);
  setAutoFillBackground(true);
  auto* layout = new QVBoxLayout(this);
  layout->setContentsMargins(48, 40, 48, 32);
  layout->setSpacing(10);
  layout->addStretch(2);

  auto* icon = new QLabel(this);
  icon->setPixmap(appIcon().pixmap(96, 96));
  icon->setAlignment(Qt::AlignCenter);
  layout->addWidget(icon);
  auto* title = new QLabel(QStringLiteral("Verdantglass"), this);
  QFont big = title->font();
  big.setPointSizeF(big.pointSizeF() * 2.2);
  big.setWeight(QFont::Bold);
  title->setFont(big);
  title->setAlignment(Qt::AlignCenter);
  layout->addWidget(title);
  auto* subtitle = new QLabel(QStringLiteral("打开一张照片开始编辑，原图始终保持不变"), this);
  subtitle->setAlignment(Qt::AlignCenter);
  subtitle->setStyleSheet("color: palette(mid);");
  layout->addWidget(subtitle);

  layout->addSpacing(12);
  open_ = new QPushButton(QStringLiteral("打开图片…"), this);
  open_->setDefault(true);
  open_->setMinimumWidth(180);
  open_->setMinimumHeight(34);
  layout->addWidget(open_, 0, Qt::AlignHCenter);
  auto* hint = new QLabel(QStringLiteral("或将图片拖到此窗口 · JPEG、PNG、HEIC、TIFF 与相机 RAW"), this);
  hint->setAlignment(Qt::AlignCenter);
  hint->setStyleSheet("color: palette(mid);");
  layout->addWidget(hint);
  message_ = new QLabel(this);
  message_->setAlignment(Qt::AlignCenter);
  message_->setStyleSheet("color: #ff8a65;");
  message_->setWordWrap(true);
  message_->hide();
  layout->addWidget(message_);
  layout->addStretch(1);

  recentTitle_ = new QLabel(QStringLiteral("最近打开"), this);
  QFont section = recentTitle_->font();
  section.setWeight(QFont::Bold);
  recentTitle_->setFont(section);
  layout->addWidget(recentTitle_);
  recent_ = new QListWidget(this);
  recent_->setViewMode(QListView::IconMode);
  recent_->setFlow(QListView::LeftToRight);
  recent_->setWrapping(false);
  recent_->setIconSize(QSize(kTile, kTile));
  recent_->setGridSize(QSize(kTile + 28, kTile + 40));
  recent_->setFixedHeight(kTile + 64);
  recent_->setMovement(QListView::Static);
  recent_->setHorizontalScrollBarPolicy(Qt::ScrollBarAsNeeded);
  recent_->setTextElideMode(Qt::ElideMiddle);
  recent_->setFrameShape(QFrame::NoFrame);
  recent_->setUniformItemSizes(true);
  layout->addWidget(recent_);

  connect(open_, &QPushButton::clicked, this, &WelcomeView::openRequested);
  connect(recent_, &QListWidget::itemActivated, this, [this](QListWidgetItem* item) {
    setMessage({});
    emit filesOpened({std::filesystem::path(item->data(Qt::UserRole).toString().toStdString())});
  });
  setRecentImages({});
}

void WelcomeView::setRecentImages(const std::vector<std::filesystem::path>& images) {
  recent_->clear();
  for (const auto& image : images) {
    QPixmap blank(kTile, kTile);
    blank.fill(QColor(60, 60, 64));
    auto* item = new QListWidgetItem(QIcon(blank), QString::fromStdString(image.filename().string()), recent_);
    item->setData(Qt::UserRole, QString::fromStdString(image.string()));
    item->setToolTip(QString::fromStdString(image.string()));
    item->setSizeHint(QSize(kTile + 28, kTile + 40));
  }
  recentTitle_->setVisible(!images.empty());
  recent_->setVisible(!images.empty());
}

void WelcomeView::setThumbnail(const std::filesystem::path& image, const QImage& thumbnail) {
  if (thumbnail.isNull()) return;
  const QString key = QString::fromStdString(image.string());
  for (int i = 0; i < recent_->count(); ++i) {
    QListWidgetItem* item = recent_->item(i);
    if (item->data(Qt::UserRole).toString() != key) continue;
    // Centre the picture on a square tile so the grid stays even.
    QPixmap tile(kTile, kTile);
    tile.fill(Qt::transparent);
    QPainter p(&tile);
    const QImage scaled = thumbnail.scaled(kTile, kTile, Qt::KeepAspectRatio, Qt::SmoothTransformation);
    p.drawImage((kTile - scaled.width()) / 2, (kTile - scaled.height()) / 2, scaled);
    p.end();
    item->setIcon(QIcon(tile));
  }
}

void WelcomeView::setMessage(const QString& message) {
  message_->setText(message);
  message_->setVisible(!message.isEmpty());
}

QString WelcomeView::message() const { return message_->text(); }

void WelcomeView::dragEnterEvent(QDragEnterEvent* e) {
  if (!e->mimeData()->hasUrls()) return;
  e->acceptProposedAction();
  dragging_ = true;
  update();
}

void WelcomeView::dragLeaveEvent(QDragLeaveEvent*) {
  dragging_ = false;
  update();
}

void WelcomeView::dropEvent(QDropEvent* e) {
  dragging_ = false;
  update();
  const DroppedFiles files = sortDroppedUrls(e->mimeData()->urls());
  setMessage(refusalMessage(files));
  if (!files.images.empty()) {
    e->acceptProposedAction();
    emit filesOpened(files.images);
  }
}

void WelcomeView::paintEvent(QPaintEvent* e) {
  QWidget::paintEvent(e);
  if (!dragging_) return;
  QPainter p(this);
  p.setRenderHint(QPainter::Antialiasing);
  QPen pen(palette().color(QPalette::Highlight), 2, Qt::DashLine);
  p.setPen(pen);
  p.setBrush(Qt::NoBrush);
  p.drawRoundedRect(QRectF(rect()).adjusted(10, 10, -10, -10), 14, 14);
}

QImage makeThumbnail(const std::filesystem::path& image, int size, const DisplayTransform& display) {
  try {
    // The reduced decode: a 24 MP photo's thumbnail in a fraction of a full decode.
    const ImageLoader::Loaded loaded = ImageLoader::loadPreview(image, size);
    const auto small = ImageLoader::downscaled(loaded.image, size);
    const Rect b = small->bounds();
    return makeCanvasPicture(*small, display, {0, 0, double(b.width), double(b.height)}).image;
  } catch (...) {
    return {};
  }
}

}  // namespace vg::app
