// HistogramView: the four 64-bin histograms of the current preview (red,
// green and blue added in light, luminance as a grey veil), dark on the left
// ("直方图（左暗右亮）"), with the two clipping indicators on top: a triangle
// at each end that lights up when that end clips, and the indicator's text
// below the graph while it does ("阴影裁切 …", "高光裁切 …").
#pragma once

#include <QWidget>

#include "render/histogram.h"

class QLabel;

namespace vg::app {

class HistogramGraph;

class HistogramView : public QWidget {
  Q_OBJECT
 public:
  explicit HistogramView(QWidget* parent = nullptr);
  void setBins(const HistogramBins& bins);
  const HistogramBins& bins() const { return bins_; }
  // The indicator texts shown now (empty when that end does not clip).
  QString shadowText() const;
  QString highlightText() const;

 private:
  HistogramBins bins_;
  HistogramGraph* graph_;
  QLabel* shadow_;
  QLabel* highlight_;
};

}  // namespace vg::app
