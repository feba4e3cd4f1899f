// A registry of applications that a test fills.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "orvelle/platform/ApplicationNames.h"

namespace orvelle {

class KnownApplications final : public ApplicationNames {
 public:
  [[nodiscard]] std::optional<std::string> localizedName(
      std::int32_t pid, const std::string& bundleID) const override {
    askedPIDs.push_back(pid);
    const auto found = names.find(bundleID);
    return found == names.end() ? std::nullopt : std::optional(found->second);
  }

  std::map<std::string, std::string> names;     ///< by bundle identifier
  mutable std::vector<std::int32_t> askedPIDs;  ///< in the order of the questions
};

}  // namespace orvelle
