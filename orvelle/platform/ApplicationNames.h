// What the desktop knows of running applications.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace orvelle {

/// The platform's registry of applications. Main thread.
class ApplicationNames {
 public:
  ApplicationNames() = default;
  ApplicationNames(const ApplicationNames&) = delete;
  ApplicationNames& operator=(const ApplicationNames&) = delete;
  virtual ~ApplicationNames() = default;

  /// The application's name in the user's language, never empty; absent when the registry does not
  /// know it. A platform looks it up by what it has: the process id (1 or more) or the bundle
  /// identifier (may be empty).
  [[nodiscard]] virtual std::optional<std::string> localizedName(
      std::int32_t pid, const std::string& bundleID) const = 0;
};

/// The registry of the platform that this build is for, whose folder defines it.
std::unique_ptr<ApplicationNames> openApplicationNames();

}  // namespace orvelle
