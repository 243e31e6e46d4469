// WelcomeView: the window shown when no image is open. It offers the open
// dialog (filtered to the supported types), takes dropped files anywhere on
// it, and lists the recently opened images with small thumbnails (made in
// the background; a file that cannot be read keeps a plain tile).
//
// Like every widget it only emits intents; the application opens the files.
#pragma once

#include <QHash>
#include <QImage>
#include <QWidget>
#include <filesystem>
#include <vector>

class QLabel;
class QListWidget;
class QListWidgetItem;
class QPushButton;

namespace vg::app {

class WelcomeView : public QWidget {
  Q_OBJECT
 public:
  explicit WelcomeView(QWidget* parent = nullptr);

  void setRecentImages(const std::vector<std::filesystem::path>& images);
  // The thumbnail of a recent image, once it has been made.
  void setThumbnail(const std::filesystem::path& image, const QImage& thumbnail);
  // A line under the buttons (a refused drop, a failed open); empty hides it.
  void setMessage(const QString& message);
  QString message() const;
  QListWidget* recentList() const { return recent_; }
  QPushButton* openButton() const { return open_; }

 signals:
  void openRequested();
  void filesOpened(const std::vector<std::filesystem::path>& images);
  void clearRecentRequested();

 protected:
  void dragEnterEvent(QDragEnterEvent*) override;
  void dragLeaveEvent(QDragLeaveEvent*) override;
  void dropEvent(QDropEvent*) override;
  void paintEvent(QPaintEvent*) override;

 private:
  QPushButton* open_;
  QLabel* message_;
  QLabel* recentTitle_;
  QListWidget* recent_;
  bool dragging_ = false;
};

class DisplayTransform;

// A thumbnail of an image file, its longer side `size`, in display pixels
// (read on the calling thread: run it on the pool). Null when the file
// cannot be decoded.
QImage makeThumbnail(const std::filesystem::path& image, int size, const DisplayTransform& display);

}  // namespace vg::app
