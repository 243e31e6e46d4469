// CropPanel: the crop tool's inspector. The straightening slider (its range,
// step and caption from the crop field table), quarter turns both ways, the
// two flips as seen on screen, automatic straightening, and the buttons that
// keep (Enter) or cancel (Esc) the crop session. Intents only: the window
// hands each to the session.
#pragma once

#include <QWidget>

#include "model/document.h"

class QPushButton;

namespace vg::app {

class SliderRow;

class CropPanel : public QWidget {
  Q_OBJECT
 public:
  explicit CropPanel(QWidget* parent = nullptr);
  void refresh(const EditDocument& doc, bool detectingHorizon);
  SliderRow* angle() const { return angle_; }
  QPushButton* autoStraightenButton() const { return auto_; }

 signals:
  void angleEdited(double degrees);
  void angleFinished(const QString& undoLabel);
  void rotate(bool clockwise);
  void flip(bool horizontal);
  void autoStraighten();
  void done();
  void cancel();

 private:
  SliderRow* angle_;
  QPushButton* auto_;
};

}  // namespace vg::app
