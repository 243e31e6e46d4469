// CurvesEditor: the four tone curves (RGB master, red, green, blue) on a
// square graph. Click on the graph to add a point, drag a point to move it,
// double-click a point (or drag it off the graph sideways) to remove it; the
// two outermost points stay. The other channels' curves are drawn faintly
// behind the one being edited.
//
// Emits `edited` with the whole curve set while a point moves (the window
// commits it live) and `finished` once per gesture (one undo step).
#pragma once

#include <QWidget>
#include <optional>

#include "model/adjustments.h"

class QButtonGroup;

namespace vg::app {

class CurveGraph;

class CurvesEditor : public QWidget {
  Q_OBJECT
 public:
  explicit CurvesEditor(QWidget* parent = nullptr);

  // Shows the document's curves (ignored while a point is being dragged).
  void setCurves(const CurveSet& curves);
  const CurveSet& curves() const { return curves_; }
  CurveChannel channel() const { return channel_; }
  void setChannel(CurveChannel channel);
  CurveGraph* graph() const { return graph_; }

 signals:
  void edited(const vg::CurveSet& curves);
  void finished();

 private:
  friend class CurveGraph;
  CurveSet curves_;
  CurveChannel channel_ = CurveChannel::rgb;
  CurveGraph* graph_;
  QButtonGroup* channels_;
};

class CurveGraph : public QWidget {
 public:
  explicit CurveGraph(CurvesEditor* editor);
  // Graph area in widget coordinates, and conversions.
  QRectF plotRect() const;
  QPointF toWidget(double x, double y) const;
  std::pair<double, double> toCurve(QPointF p) const;
  bool dragging() const { return dragged_.has_value(); }

 protected:
  void paintEvent(QPaintEvent*) override;
  void mousePressEvent(QMouseEvent*) override;
  void mouseMoveEvent(QMouseEvent*) override;
  void mouseReleaseEvent(QMouseEvent*) override;
  void mouseDoubleClickEvent(QMouseEvent*) override;

 private:
  ToneCurve& current();
  CurvesEditor* editor_;
  std::optional<size_t> dragged_;
  bool moved_ = false;
  bool removedByDrag_ = false;
};

}  // namespace vg::app
