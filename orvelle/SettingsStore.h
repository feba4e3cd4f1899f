// The three entries that this program keeps in the user's defaults.
#pragma once

#include <optional>

#include "orvelle/DeviceSettings.h"
#include "orvelle/platform/UserDefaults.h"

namespace orvelle {

/// Reads and writes at once, with no state of its own. An entry that is there but cannot be decoded
/// counts as absent, and the store is put aside before anything is written over it. Main thread.
class SettingsStore {
 public:
  static constexpr const char* storeKey = "deviceSettings.v1";
  static constexpr const char* userPresetsKey = "userPresets.v1";
  static constexpr const char* idleStandbyKey = "idleStandby.v1";

  explicit SettingsStore(UserDefaults& defaults) : defaults_(defaults) {}

  [[nodiscard]] std::optional<DeviceStore> loadStore();
  void saveStore(const DeviceStore& store);

  [[nodiscard]] std::optional<UserPresets> loadUserPresets();
  void saveUserPresets(const UserPresets& presets);

  /// False when it was never written.
  [[nodiscard]] bool loadIdleStandby();
  void saveIdleStandby(bool isEnabled);

 private:
  UserDefaults& defaults_;
};

}  // namespace orvelle
