#include "orvelle/platform/qt/QtWindowList.h"

#include <QGuiApplication>
#include <QWindow>
#include <algorithm>

namespace orvelle {

namespace {

/// Menus and tooltips borrow the keyboard from the window that they belong to. What the window
/// manager does not know, as Qt's own window for an icon in an X11 tray, is never given it.
bool canBecomeKey(const QWindow& window) {
  return window.type() != Qt::Popup && window.type() != Qt::ToolTip &&
         !(window.flags() & (Qt::WindowDoesNotAcceptFocus | Qt::BypassWindowManagerHint));
}

}  // namespace

bool QtWindowList::anyWindow(const std::function<bool(const WindowInfo&)>& condition) const {
  // Shared with Qt, not copied; a list of the top-level windows alone would be made anew. Without
  // their frames: asking for those may wait for the window manager.
  const QWindowList windows = QGuiApplication::allWindows();
  return std::ranges::any_of(windows, [&](const QWindow* window) {
    return window->isTopLevel() &&
           condition({window->isVisible(), canBecomeKey(*window),
                      static_cast<double>(window->width()), static_cast<double>(window->height())});
  });
}

}  // namespace orvelle
