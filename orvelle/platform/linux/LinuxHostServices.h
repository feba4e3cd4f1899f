// The services of a Linux desktop.
#pragma once

#include <QThreadPool>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "orvelle/platform/HostServices.h"
#include "orvelle/platform/WindowList.h"
#include "orvelle/platform/linux/AutostartEntry.h"

namespace orvelle {

/// Start at login by an autostart entry for the program "orvelle", staying awake by the login
/// manager. Needs a QCoreApplication.
class LinuxHostServices final : public HostServices {
 public:
  /// `windows` outlives this.
  explicit LinuxHostServices(const WindowList& windows);

  bool isLoginItemEnabled() override;
  std::optional<std::string> registerLoginItem() override;
  std::optional<std::string> unregisterLoginItem() override;
  std::unique_ptr<ProcessActivity> beginActivity(const std::string& reason) override;
  void playAlertSound() override;
  bool anyWindow(const std::function<bool(const WindowInfo&)>& condition) override;

 private:
  const WindowList& windows_;
  AutostartEntry autostart_;
  QThreadPool busWorker_;  ///< its end waits for the answer to a question that has been asked
};

}  // namespace orvelle
