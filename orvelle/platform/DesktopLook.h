// How a desktop wants its small windows to look, beyond what Qt tells.
#pragma once

#include <memory>

class QWindow;

namespace orvelle {

/// Main thread. No call waits for a program other than the display server.
class DesktopLook {
 public:
  DesktopLook() = default;
  DesktopLook(const DesktopLook&) = delete;
  DesktopLook& operator=(const DesktopLook&) = delete;
  virtual ~DesktopLook() = default;

  /// Whether the user wants things not to move of themselves. Known some milliseconds after this
  /// has been made.
  [[nodiscard]] virtual bool wantsReducedMotion() const = 0;
  /// Whether a window can let shine through what is behind it.
  [[nodiscard]] virtual bool hasTranslucency() const = 0;
  /// Whether the desktop's panel is dark, so that an icon there has to be light.
  [[nodiscard]] virtual bool isPanelDark() const = 0;
  /// Whether icons there may be wider than high.
  [[nodiscard]] virtual bool takesWideIcons() const = 0;
  /// Whether windows are best painted without the graphics processor.
  [[nodiscard]] virtual bool paintsOnProcessor() const = 0;
  /// No entry for `window` in the task bar, where a desktop has to be asked for that. While it is
  /// hidden.
  virtual void keepOutOfTaskBar(QWindow& window) const = 0;
};

/// The one of the platform that this build is for, whose folder defines it. Needs Qt's application
/// object.
std::unique_ptr<DesktopLook> openDesktopLook();

}  // namespace orvelle
