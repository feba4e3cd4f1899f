#include "orvelle/SettingsStore.h"

#include <string_view>

namespace orvelle {

namespace {

template <class Value>
std::optional<Value> load(UserDefaults& defaults, const char* key,
                          std::optional<Value> (*decode)(std::string_view json)) {
  const auto json = defaults.data(key);
  auto value = json ? decode(*json) : std::nullopt;
  if (json && !value) {
    defaults.keepDamagedCopy(key);
  }
  return value;
}

void save(UserDefaults& defaults, const char* key, const std::optional<std::string>& json) {
  if (json) {
    defaults.setData(key, *json);
  }
}

}  // namespace

std::optional<DeviceStore> SettingsStore::loadStore() {
  return load(defaults_, storeKey, decodeDeviceStore);
}

void SettingsStore::saveStore(const DeviceStore& store) {
  save(defaults_, storeKey, encodeDeviceStore(store));
}

std::optional<UserPresets> SettingsStore::loadUserPresets() {
  return load(defaults_, userPresetsKey, decodeUserPresets);
}

void SettingsStore::saveUserPresets(const UserPresets& presets) {
  save(defaults_, userPresetsKey, encodeUserPresets(presets));
}

bool SettingsStore::loadIdleStandby() {
  return defaults_.boolean(idleStandbyKey);
}

void SettingsStore::saveIdleStandby(bool isEnabled) {
  defaults_.setBoolean(idleStandbyKey, isEnabled);
}

}  // namespace orvelle
