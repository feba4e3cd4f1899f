#include "orvelle/DriverConflicts.h"

#include <system_error>

namespace orvelle {

std::vector<std::string> installedConflictDrivers(const std::filesystem::path& folder) {
  std::vector<std::string> installed;
  for (const std::string_view name : conflictDriverNames) {
    if (std::error_code untestable; std::filesystem::exists(folder / name, untestable)) {
      installed.emplace_back(name);
    }
  }
  return installed;
}

}  // namespace orvelle
