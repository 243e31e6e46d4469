// Rules the inspector and the command table keep: curve point edits, the
// actions' letters, shortcuts and enabling.
#include <gtest/gtest.h>

#include <QKeySequence>
#include <cmath>
#include <set>

#include "app/actions.h"
#include "app/inspector/curve_editing.h"
#include "model/curve_function.h"

namespace vg::app {
namespace {

ToneCurve curveOf(std::vector<CurvePoint> points) {
  ToneCurve c;
  c.points = std::move(points);
  return c;
}

TEST(CurveEditing, AddMoveAndRemoveKeepTheCurveOrdered) {
  ToneCurve c = ToneCurve::identity();
  const auto i = addPoint(c, 0.5);
  ASSERT_TRUE(i);
  EXPECT_EQ(*i, 1u);
  EXPECT_NEAR(c.points[1].y, 0.5, 1e-9);  // on the curve that was there
  EXPECT_FALSE(addPoint(c, 0.505));       // too close to the new point
  ASSERT_TRUE(addPoint(c, 0.25, 0.4));
  EXPECT_EQ(c.points[1], (CurvePoint{0.25, 0.4}));

  // A dragged point stays between its neighbours and inside the graph.
  movePoint(c, 1, 0.9, 1.7);
  EXPECT_NEAR(c.points[1].x, 0.5 - kMinGap, 1e-12);
  EXPECT_EQ(c.points[1].y, 1.0);
  movePoint(c, 0, -3, -3);
  EXPECT_EQ(c.points[0], (CurvePoint{0, 0}));
  // The curve the renderer draws passes through every point.
  const CurveFunction f(c);
  for (const CurvePoint& p : c.points) EXPECT_NEAR(f(p.x), p.y, 1e-9);

  EXPECT_FALSE(removePoint(c, 0));
  EXPECT_FALSE(removePoint(c, c.points.size() - 1));
  EXPECT_TRUE(removePoint(c, 1));
  EXPECT_EQ(c.points.size(), 3u);
}

TEST(CurveEditing, TidyRepairsCurvesFromRecipes) {
  const ToneCurve messy = curveOf({{0.8, 0.9}, {NAN, 0.2}, {0.2, 0.3}, {0.205, 0.5}, {1.4, -2}});
  const ToneCurve tidy = tidyCurve(messy);
  ASSERT_EQ(tidy.points.size(), 3u);
  EXPECT_EQ(tidy.points[0], (CurvePoint{0.2, 0.3}));
  EXPECT_EQ(tidy.points[1], (CurvePoint{0.8, 0.9}));
  EXPECT_EQ(tidy.points[2], (CurvePoint{1.0, 0.0}));
  EXPECT_EQ(tidyCurve(curveOf({{0.5, 0.5}})), ToneCurve::identity());
  EXPECT_EQ(pointAt(tidy, 0.79, 0.91, 0.02), std::optional<size_t>(1));
  EXPECT_FALSE(pointAt(tidy, 0.5, 0.5, 0.02));
}

TEST(Actions, ToolLettersShortcutsAndRules) {
  // The tool bar's order and letters.
  std::string letters;
  std::set<std::string> shortcuts;
  for (const ActionSpec& a : actionTable()) {
    if (a.toolLetter) letters += a.toolLetter;
    const std::string key = a.toolLetter ? std::string(1, a.toolLetter) : std::string(a.shortcut);
    if (key.empty()) continue;
    EXPECT_FALSE(QKeySequence(QString::fromStdString(key)).isEmpty()) << key;
    EXPECT_TRUE(shortcuts.insert(key).second) << "shortcut used twice: " << key;
  }
  EXPECT_EQ(letters, "ACMHFY");
  EXPECT_EQ(actionSpec(ActionId::undo).shortcut, "Ctrl+Z");
  EXPECT_EQ(actionSpec(ActionId::redo).shortcut, "Ctrl+Shift+Z");
  EXPECT_EQ(actionSpec(ActionId::exportImage).shortcut, "Ctrl+E");
  EXPECT_EQ(actionSpec(ActionId::resetAll).text, "复位全部调整…");

  ActionState s{.editor = true};
  EXPECT_FALSE(isEnabled(actionSpec(ActionId::undo).rule, s));
  EXPECT_FALSE(isEnabled(actionSpec(ActionId::pasteAdjustments).rule, s));
  EXPECT_FALSE(isEnabled(actionSpec(ActionId::resetAll).rule, s));
  EXPECT_TRUE(isEnabled(actionSpec(ActionId::exportImage).rule, s));
  s.canUndo = s.canPaste = s.hasEdits = s.exporting = true;
  EXPECT_TRUE(isEnabled(actionSpec(ActionId::undo).rule, s));
  EXPECT_TRUE(isEnabled(actionSpec(ActionId::pasteAdjustments).rule, s));
  EXPECT_FALSE(isEnabled(actionSpec(ActionId::exportImage).rule, s));
  // Without an image only the application's own rows work.
  const ActionState welcome{};
  EXPECT_TRUE(isEnabled(actionSpec(ActionId::open).rule, welcome));
  EXPECT_FALSE(isEnabled(actionSpec(ActionId::toolCrop).rule, welcome));
}

}  // namespace
}  // namespace vg::app
