// The commands of the application, declared once: text, shortcut, tool
// letter, menu, and the rule that enables each. Menus, tool bar and key
// handling are all built from this table; nothing else spells a shortcut.
//
// An ActionSet makes one QAction per row for a window and refreshes their
// enabled and checked states from an ActionState, a plain snapshot of what
// the window's session allows (so the rules are tested without a window).
#pragma once

#include <QKeySequence>
#include <QObject>
#include <array>
#include <map>
#include <span>
#include <string_view>

class QAction;
class QActionGroup;
class QMenuBar;
class QWidget;

namespace vg::app {

enum class ActionId {
  open, closeWindow, exportImage, quit,
  undo, redo, copyAdjustments, pasteAdjustments, resetAll,
  rotateLeft, rotateRight,
  fit, actualSize, zoomIn, zoomOut, showOriginal, splitCompare, displayProfile,
  toolAdjust, toolCrop, toolMask, toolHeal, toolFilter, toolHistory,
  about,
};

enum class MenuId { file, edit, image, view, tools, help };

// What decides whether a row is enabled.
enum class EnableRule {
  always,        // also in the welcome window
  editor,        // any editor window
  canUndo,
  canRedo,
  canPaste,      // copied adjustments are waiting
  notExporting,  // an editor window without a running export
  hasEdits,      // the document differs from the one the image opened with
  never,         // an information line (the display profile)
};

struct ActionSpec {
  ActionId id;
  MenuId menu;
  std::string_view text;
  std::string_view shortcut;  // portable key text ("Ctrl+Shift+Z"); empty for none
  char toolLetter;            // the tool's single-key shortcut, 0 for other rows
  bool checkable;
  bool separatorBefore;
  EnableRule rule;
};

std::span<const ActionSpec> actionTable();
const ActionSpec& actionSpec(ActionId id);
std::string_view menuTitle(MenuId menu);

struct ActionState {
  bool editor = false;
  bool canUndo = false;
  bool canRedo = false;
  bool canPaste = false;
  bool exporting = false;
  bool hasEdits = false;
};

bool isEnabled(EnableRule rule, const ActionState& state);

class ActionSet : public QObject {
  Q_OBJECT
 public:
  // `editor` false builds only the rows a window without an image offers.
  ActionSet(QWidget* window, bool editor);

  QAction* action(ActionId id) const;
  // Fills the menu bar in table order (menus in MenuId order).
  void populate(QMenuBar* bar) const;
  void refresh(const ActionState& state);

 signals:
  void triggered(vg::app::ActionId id);

 private:
  std::map<ActionId, QAction*> actions_;
  QActionGroup* tools_ = nullptr;
};

}  // namespace vg::app
