#include "orvelle/platform/linux/LinuxHostServices.h"

#include "orvelle/platform/Process.h"
#include "orvelle/platform/linux/AlertSound.h"
#include "orvelle/platform/linux/IdleInhibitor.h"

namespace orvelle {

LinuxHostServices::LinuxHostServices(const WindowList& windows)
    : windows_(windows), autostart_(packageProgram("orvelle")) {
  // The login manager is asked one question at a time.
  busWorker_.setMaxThreadCount(1);
}

bool LinuxHostServices::isLoginItemEnabled() {
  return autostart_.isEnabled();
}

std::optional<std::string> LinuxHostServices::registerLoginItem() {
  return autostart_.enable();
}

std::optional<std::string> LinuxHostServices::unregisterLoginItem() {
  return autostart_.disable();
}

std::unique_ptr<ProcessActivity> LinuxHostServices::beginActivity(const std::string& reason) {
  return std::make_unique<IdleInhibitor>(busWorker_, reason);
}

void LinuxHostServices::playAlertSound() {
  playAlert();
}

bool LinuxHostServices::anyWindow(const std::function<bool(const WindowInfo&)>& condition) {
  return windows_.anyWindow(condition);
}

std::unique_ptr<HostServices> openHostServices(const WindowList& windows) {
  return std::make_unique<LinuxHostServices>(windows);
}

}  // namespace orvelle
