#import <AppKit/AppKit.h>
#import <ServiceManagement/ServiceManagement.h>

#include "orvelle/platform/HostServices.h"
#include "orvelle/platform/WindowList.h"

namespace orvelle {

namespace {

/// Also keeps the system from slowing this program's timers down while nobody looks at it.
class MacActivity final : public ProcessActivity {
 public:
  explicit MacActivity(const std::string& reason)
      : token_([NSProcessInfo.processInfo beginActivityWithOptions:NSActivityUserInitiated
                                                            reason:@(reason.c_str())]) {}
  ~MacActivity() override { [NSProcessInfo.processInfo endActivity:token_]; }

 private:
  id<NSObject> token_;
};

std::string describe(NSError* error) {
  const char* const text = error.localizedDescription.UTF8String;
  return text == nullptr ? "the system gives no reason" : text;
}

/// Start at login by the service for the main application: the bundle that this program lies in.
/// Outside of one it cannot be registered, and the system says so.
class MacHostServices final : public HostServices {
 public:
  explicit MacHostServices(const WindowList& windows) : windows_(windows) {}

  bool isLoginItemEnabled() override {
    return SMAppService.mainAppService.status == SMAppServiceStatusEnabled;
  }

  std::optional<std::string> registerLoginItem() override {
    NSError* error = nil;
    if ([SMAppService.mainAppService registerAndReturnError:&error]) {
      return std::nullopt;
    }
    return describe(error);
  }

  std::optional<std::string> unregisterLoginItem() override {
    NSError* error = nil;
    // The system takes it for a failure when nothing was registered.
    if ([SMAppService.mainAppService unregisterAndReturnError:&error] ||
        error.code == kSMErrorJobNotFound) {
      return std::nullopt;
    }
    return describe(error);
  }

  std::unique_ptr<ProcessActivity> beginActivity(const std::string& reason) override {
    return std::make_unique<MacActivity>(reason);
  }

  void playAlertSound() override { NSBeep(); }

  bool anyWindow(const std::function<bool(const WindowInfo&)>& condition) override {
    return windows_.anyWindow(condition);
  }

 private:
  const WindowList& windows_;
};

}  // namespace

std::unique_ptr<HostServices> openHostServices(const WindowList& windows) {
  return std::make_unique<MacHostServices>(windows);
}

}  // namespace orvelle
