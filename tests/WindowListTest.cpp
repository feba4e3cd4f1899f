#include <gtest/gtest.h>

#include <QGuiApplication>
#include <QRasterWindow>
#include <array>
#include <string>

#include "orvelle/platform/qt/QtWindowList.h"
#include "tests/RealTimeSentinel.h"

namespace orvelle::test {
namespace {

bool isPanel(const WindowInfo& window) {
  return window.isVisible && window.canBecomeKey && window.width <= 420.0 && window.height <= 700.0;
}

// Fault: a window that is taken for the panel, or a panel that is not found, so that its meter
// stands still; and memory asked for at every tick of a meter that nobody sees.
TEST(WindowListTest, FindsThePanel) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  int argumentCount = 1;
  std::string name = "test";
  std::array<char*, 2> arguments = {name.data(), nullptr};
  const QGuiApplication application(argumentCount, arguments.data());
  const QtWindowList windows;
  const std::function<bool(const WindowInfo&)> condition = isPanel;
  EXPECT_FALSE(windows.anyWindow(condition));

  QRasterWindow large;
  large.resize(800, 600);
  large.show();
  QRasterWindow child(&large);
  child.resize(100, 100);
  child.show();
  QRasterWindow panel;
  panel.resize(300, 620);
  EXPECT_FALSE(windows.anyWindow(condition)) << "not shown yet";
  panel.show();
  EXPECT_TRUE(windows.anyWindow(condition));
  for (const Qt::WindowFlags flags : {Qt::WindowFlags(Qt::Popup), Qt::WindowFlags(Qt::ToolTip),
                                      Qt::Tool | Qt::WindowDoesNotAcceptFocus,
                                      Qt::FramelessWindowHint | Qt::BypassWindowManagerHint}) {
    panel.setFlags(flags);
    EXPECT_FALSE(windows.anyWindow(condition)) << "borrows the keyboard, or takes none: " << flags;
  }
  panel.setFlags(Qt::Tool | Qt::FramelessWindowHint);
  bool isFound = false;
  EXPECT_EQ(RealTimeSentinel::watch([&] { isFound = windows.anyWindow(condition); }).allocations,
            0);
  EXPECT_TRUE(isFound);
}

}  // namespace
}  // namespace orvelle::test
