#import <AppKit/AppKit.h>

#include "orvelle/platform/DesktopLook.h"

namespace orvelle {

namespace {

/// Colours, light and dark and the accent, come to the panel through Qt's palette.
class MacDesktopLook final : public DesktopLook {
 public:
  [[nodiscard]] bool wantsReducedMotion() const override {
    return NSWorkspace.sharedWorkspace.accessibilityDisplayShouldReduceMotion;
  }
  [[nodiscard]] bool hasTranslucency() const override { return true; }
  /// The menu bar colours the icon itself: of a template image it takes the alpha alone.
  [[nodiscard]] bool isPanelDark() const override { return false; }
  [[nodiscard]] bool takesWideIcons() const override { return true; }
  /// Every window there is drawn by the graphics processor in the end.
  [[nodiscard]] bool paintsOnProcessor() const override { return false; }
  /// The bundle says that this application has no place in the Dock.
  void keepOutOfTaskBar(QWindow& /*window*/) const override {}
};

}  // namespace

std::unique_ptr<DesktopLook> openDesktopLook() {
  return std::make_unique<MacDesktopLook>();
}

}  // namespace orvelle
