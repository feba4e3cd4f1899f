#import <AppKit/NSRunningApplication.h>
#import <Foundation/Foundation.h>

#include "orvelle/platform/ApplicationNames.h"

namespace orvelle {

namespace {

/// AppKit is loaded only for those who ask: a command that lists devices has no use for a library
/// that draws.
Class runningApplications() {
  [[NSBundle bundleWithPath:@"/System/Library/Frameworks/AppKit.framework"] load];
  return NSClassFromString(@"NSRunningApplication");
}

/// Names by process id, as the Dock shows them. Programs that are no applications have none.
class MacApplicationNames final : public ApplicationNames {
 public:
  [[nodiscard]] std::optional<std::string> localizedName(
      std::int32_t pid, const std::string& /*bundleID*/) const override {
    if (pid < 1) {
      return std::nullopt;
    }
    @autoreleasepool {
      NSRunningApplication* const application =
          [runningApplications() runningApplicationWithProcessIdentifier:pid];
      const char* const name = application.localizedName.UTF8String;
      return name != nullptr && *name != '\0' ? std::optional<std::string>(name) : std::nullopt;
    }
  }
};

}  // namespace

std::unique_ptr<ApplicationNames> openApplicationNames() {
  return std::make_unique<MacApplicationNames>();
}

}  // namespace orvelle
