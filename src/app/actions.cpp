#include "app/actions.h"

#include <QAction>
#include <QActionGroup>
#include <QMenu>
#include <QMenuBar>
#include <QWidget>
#include <stdexcept>

namespace vg::app {
namespace {

using enum ActionId;
using M = MenuId;
using R = EnableRule;

constexpr ActionSpec kActions[] = {
    {open, M::file, "打开…", "Ctrl+O", 0, false, false, R::always},
    {exportImage, M::file, "导出…", "Ctrl+E", 0, false, true, R::notExporting},
    {closeWindow, M::file, "关闭窗口", "Ctrl+W", 0, false, true, R::editor},
    {quit, M::file, "退出", "Ctrl+Q", 0, false, false, R::always},

    {undo, M::edit, "撤销", "Ctrl+Z", 0, false, false, R::canUndo},
    {redo, M::edit, "重做", "Ctrl+Shift+Z", 0, false, false, R::canRedo},
    {copyAdjustments, M::edit, "拷贝调整参数", "Ctrl+Shift+C", 0, false, true, R::editor},
    {pasteAdjustments, M::edit, "粘贴调整参数", "Ctrl+Shift+V", 0, false, false, R::canPaste},
    {resetAll, M::edit, "复位全部调整…", "", 0, false, true, R::hasEdits},

    {rotateLeft, M::image, "逆时针旋转 90°", "Ctrl+[", 0, false, false, R::editor},
    {rotateRight, M::image, "顺时针旋转 90°", "Ctrl+]", 0, false, false, R::editor},

    {fit, M::view, "适合窗口", "Ctrl+0", 0, false, false, R::editor},
    {actualSize, M::view, "实际大小（100%）", "Ctrl+1", 0, false, false, R::editor},
    {zoomIn, M::view, "放大", "Ctrl+=", 0, false, false, R::editor},
    {zoomOut, M::view, "缩小", "Ctrl+-", 0, false, false, R::editor},
    // The \ key itself is read by the window (hold, double tap); the menu
    // row switches the same state.
    {showOriginal, M::view, "显示原图", "", 0, true, true, R::editor},
    {splitCompare, M::view, "分屏对比", "Ctrl+\\", 0, true, false, R::editor},
    {displayProfile, M::view, "显示器配置文件", "", 0, false, true, R::never},

    {toolAdjust, M::tools, "调整", "", 'A', true, false, R::editor},
    {toolCrop, M::tools, "裁剪", "", 'C', true, false, R::editor},
    {toolMask, M::tools, "蒙版", "", 'M', true, false, R::editor},
    {toolHeal, M::tools, "修复", "", 'H', true, false, R::editor},
    {toolFilter, M::tools, "滤镜", "", 'F', true, false, R::editor},
    {toolHistory, M::tools, "历史", "", 'Y', true, false, R::editor},

    {about, M::help, "关于 Verdantglass", "", 0, false, false, R::always},
};

}  // namespace

std::span<const ActionSpec> actionTable() { return kActions; }

const ActionSpec& actionSpec(ActionId id) {
  for (const ActionSpec& spec : kActions)
    if (spec.id == id) return spec;
  throw std::logic_error("action without a row");
}

std::string_view menuTitle(MenuId menu) {
  switch (menu) {
    case M::file: return "文件";
    case M::edit: return "编辑";
    case M::image: return "图像";
    case M::view: return "视图";
    case M::tools: return "工具";
    case M::help: return "帮助";
  }
  return {};
}

bool isEnabled(EnableRule rule, const ActionState& s) {
  switch (rule) {
    case R::always: return true;
    case R::editor: return s.editor;
    case R::canUndo: return s.editor && s.canUndo;
    case R::canRedo: return s.editor && s.canRedo;
    case R::canPaste: return s.editor && s.canPaste;
    case R::notExporting: return s.editor && !s.exporting;
    case R::hasEdits: return s.editor && s.hasEdits;
    case R::never: return false;
  }
  return false;
}

ActionSet::ActionSet(QWidget* window, bool editor) : QObject(window) {
  for (const ActionSpec& spec : kActions) {
    if (!editor && spec.rule != R::always) continue;
    auto* action = new QAction(QString::fromUtf8(spec.text.data(), qsizetype(spec.text.size())), window);
    if (!spec.shortcut.empty()) {
      action->setShortcut(QKeySequence(QString::fromLatin1(spec.shortcut.data(), qsizetype(spec.shortcut.size()))));
    } else if (spec.toolLetter) {
      action->setShortcut(QKeySequence(QString(QChar(spec.toolLetter))));
      action->setToolTip(QStringLiteral("%1（%2）").arg(action->text()).arg(QChar(spec.toolLetter)));
    }
    if (spec.id == quit) action->setMenuRole(QAction::QuitRole);
    action->setCheckable(spec.checkable);
    action->setShortcutContext(Qt::WindowShortcut);
    if (spec.toolLetter) {
      if (!tools_) {
        tools_ = new QActionGroup(this);
        tools_->setExclusive(true);
      }
      tools_->addAction(action);
    }
    window->addAction(action);  // shortcuts work without a visible menu bar
    const ActionId id = spec.id;
    connect(action, &QAction::triggered, this, [this, id] { emit triggered(id); });
    actions_[id] = action;
  }
  refresh(ActionState{.editor = editor});
}

QAction* ActionSet::action(ActionId id) const {
  auto it = actions_.find(id);
  return it == actions_.end() ? nullptr : it->second;
}

void ActionSet::populate(QMenuBar* bar) const {
  for (MenuId m : {M::file, M::edit, M::image, M::view, M::tools, M::help}) {
    QMenu* menu = nullptr;
    for (const ActionSpec& spec : kActions) {
      QAction* a = action(spec.id);
      if (spec.menu != m || !a) continue;
      if (!menu) menu = bar->addMenu(QString::fromUtf8(menuTitle(m).data(), qsizetype(menuTitle(m).size())));
      if (spec.separatorBefore && !menu->isEmpty()) menu->addSeparator();
      menu->addAction(a);
    }
  }
}

void ActionSet::refresh(const ActionState& state) {
  for (const ActionSpec& spec : kActions)
    if (QAction* a = action(spec.id)) a->setEnabled(isEnabled(spec.rule, state));
}

}  // namespace vg::app
