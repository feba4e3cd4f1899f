// The desktop's menu entries as the registry of applications.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "orvelle/platform/ApplicationNames.h"

namespace orvelle {

/// Finds an application's name in the desktop entry that carries its bundle identifier. Reads that
/// one file at each question and keeps nothing, so that it costs nothing at start and sees what is
/// installed meanwhile.
class DesktopApplications final : public ApplicationNames {
 public:
  /// `locale` is the language of messages in POSIX form: "de_AT.UTF-8", "sr@latin", "C".
  explicit DesktopApplications(const std::string& locale);

  [[nodiscard]] std::optional<std::string> localizedName(
      std::int32_t pid, const std::string& bundleID) const override;

 private:
  /// Locales of an entry that suit the user, the best first; the last, empty one is the default.
  std::vector<std::string> locales_;
};

}  // namespace orvelle
