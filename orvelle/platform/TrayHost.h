// The place for icons in a desktop's panel.
#pragma once

#include <functional>
#include <memory>

namespace orvelle {

/// Whether some program of the desktop shows tray icons. It may come late, go, and come back. Main
/// thread.
class TrayHost {
 public:
  TrayHost() = default;
  TrayHost(const TrayHost&) = delete;
  TrayHost& operator=(const TrayHost&) = delete;
  virtual ~TrayHost() = default;

  /// Whether an icon that is put up now will be seen.
  [[nodiscard]] virtual bool isPresent() const = 0;

  /// Called after each change of `isPresent`. May be empty.
  std::function<void()> onChange;
};

/// The one of the platform that this build is for, whose folder defines it. Needs Qt's application
/// object. May say for some milliseconds that there is none before it has asked.
std::unique_ptr<TrayHost> openTrayHost();

}  // namespace orvelle
