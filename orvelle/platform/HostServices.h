// What a desktop offers a program besides sound: start at login, staying awake, an alert, windows.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace orvelle {

/// Something the user would not like the computer to fall asleep over. Ends with its life.
class ProcessActivity {
 public:
  ProcessActivity() = default;
  ProcessActivity(const ProcessActivity&) = delete;
  ProcessActivity& operator=(const ProcessActivity&) = delete;
  virtual ~ProcessActivity() = default;
};

/// One window of this program, sizes in device-independent pixels.
struct WindowInfo {
  bool isVisible = false;
  bool canBecomeKey = false;  ///< takes keyboard input
  double width = 0.0;
  double height = 0.0;
};

/// Services of the desktop session. None of them throws or waits for another process. Main thread.
class HostServices {
 public:
  HostServices() = default;
  HostServices(const HostServices&) = delete;
  HostServices& operator=(const HostServices&) = delete;
  virtual ~HostServices() = default;

  /// Whether the desktop starts this program when the user logs in.
  [[nodiscard]] virtual bool isLoginItemEnabled() = 0;
  /// Absent on success, else a text for the user.
  [[nodiscard]] virtual std::optional<std::string> registerLoginItem() = 0;
  /// Absent on success, also where nothing was registered; else a text for the user.
  [[nodiscard]] virtual std::optional<std::string> unregisterLoginItem() = 0;

  /// Keeps the system from falling asleep of itself while the result lives; `reason` is shown to
  /// users who ask what keeps their computer awake. Never null; without effect where the system has
  /// no such service.
  [[nodiscard]] virtual std::unique_ptr<ProcessActivity> beginActivity(
      const std::string& reason) = 0;

  virtual void playAlertSound() = 0;

  /// Whether some window of this program satisfies `condition`. Allocates nothing.
  [[nodiscard]] virtual bool anyWindow(const std::function<bool(const WindowInfo&)>& condition) = 0;
};

class WindowList;

/// Those of the platform that this build is for, whose folder defines it. `windows` outlives them.
std::unique_ptr<HostServices> openHostServices(const WindowList& windows);

}  // namespace orvelle
