#include "orvelle/platform/TrayHost.h"

namespace orvelle {

namespace {

/// The menu bar is always there.
class MacTrayHost final : public TrayHost {
 public:
  [[nodiscard]] bool isPresent() const override { return true; }
};

}  // namespace

std::unique_ptr<TrayHost> openTrayHost() {
  return std::make_unique<MacTrayHost>();
}

}  // namespace orvelle
