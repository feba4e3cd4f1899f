// The parts of the controller that remember: settings per device, equaliser, width, presets.
#include <algorithm>
#include <array>
#include <cmath>

#include "orvelle/AudioController.h"
#include "orvelle/EQPreset.h"

namespace orvelle {

// Settings per device

void AudioController::loadSettings() {
  userPresets_ = settings_.loadUserPresets().value_or(UserPresets());
  store_ = settings_.loadStore().value_or(DeviceStore());
  if (const auto output = DeviceRouter::preferredOutput(hal_)) {
    currentDeviceUID_ = output->uid;
  }
  if (const auto found = store_.find(currentDeviceUID_); found != store_.end()) {
    apply(found->second);
  }
  loaded_ = true;
}

void AudioController::switchToDevice(const std::string& uid) {
  if (uid.empty() || uid == currentDeviceUID_) {
    return;
  }
  if (!currentDeviceUID_.empty()) {
    store_[currentDeviceUID_] = currentSettings();
  }
  currentDeviceUID_ = uid;
  if (const auto found = store_.find(uid); found != store_.end()) {
    apply(found->second);
  }
  store_[uid] = currentSettings();
  settings_.saveStore(store_);
}

/// Width before its switch, so that the right one is heard from the first moment.
void AudioController::apply(const DeviceSettings& settings) {
  isApplying_ = true;
  setBoost(settings.boost);
  setSpatialWidth(settings.spatialWidth);
  const std::vector<double> gainsDb = settings.customGains.value_or(std::vector<double>());
  setCustomGains(QList<double>(gainsDb.begin(), gainsDb.end()));
  setEqSelection(QString::fromStdString(settings.eqPreset));
  setEqEnabled(settings.eqEnabled);
  setSpatialEnabled(settings.spatialEnabled);
  isApplying_ = false;
}

DeviceSettings AudioController::currentSettings() const {
  return {boost_,          eqEnabled_,    eqSelection_,
          spatialEnabled_, spatialWidth_, std::vector(customGains_.begin(), customGains_.end())};
}

void AudioController::persist() {
  if (loaded_ && !isApplying_ && !currentDeviceUID_.empty()) {
    store_[currentDeviceUID_] = currentSettings();
    settings_.saveStore(store_);
  }
}

// Boost and width

void AudioController::setBoost(double boost) {
  const Change change(*this);
  if (std::isfinite(boost)) {
    boost_ = boost;
    engine_.gain = static_cast<float>(boost);
    persist();
  }
  announce(&AudioController::boostChanged);
}

void AudioController::setSpatialEnabled(bool isEnabled) {
  const Change change(*this);
  spatialEnabled_ = isEnabled;
  applySpatialWidth();
  persist();
  announce(&AudioController::spatialEnabledChanged);
}

void AudioController::setSpatialWidth(double width) {
  const Change change(*this);
  if (std::isfinite(width)) {
    spatialWidth_ = width;
    applySpatialWidth();
    persist();
  }
  announce(&AudioController::spatialWidthChanged);
}

void AudioController::applySpatialWidth() {
  engine_.spatialWidth = spatialEnabled_ ? static_cast<float>(spatialWidth_) : 1.0F;
}

// Equaliser

bool AudioController::isEditingBands() const {
  return isEditable(eqSelection_, userPresets_);
}

QList<double> AudioController::customGains() const {
  return {customGains_.begin(), customGains_.end()};
}

QVariantMap AudioController::userPresets() const {
  QVariantMap presets;
  for (const auto& [name, gainsDb] : userPresets_) {
    presets.insert(QString::fromStdString(name),
                   QVariant::fromValue(QList<double>(gainsDb.begin(), gainsDb.end())));
  }
  return presets;
}

void AudioController::setEqEnabled(bool isEnabled) {
  const Change change(*this);
  eqEnabled_ = isEnabled;
  engine_.equalizer.isEnabled = isEnabled;
  persist();
  announce(&AudioController::eqEnabledChanged);
}

void AudioController::setEqSelection(const QString& selection) {
  const Change change(*this);
  eqSelection_ = selection.toStdString();
  // The bands of a user preset become the ones that are edited; the preset stays as it was saved.
  if (const auto preset = userPresets_.find(eqSelection_); preset != userPresets_.end()) {
    customGains_ = bandGains(preset->second);
    announce(&AudioController::customGainsChanged);
  }
  applyCurrentEQ();
  persist();
  announceSelection();
}

void AudioController::announceSelection() {
  announce(&AudioController::eqSelectionChanged);
  announce(&AudioController::isEditingBandsChanged);
}

void AudioController::setCustomGains(const QList<double>& gainsDb) {
  const Change change(*this);
  customGains_ = bandGains(gainsDb);
  if (isEditingBands()) {
    applyCurrentEQ();
  }
  persist();
  announce(&AudioController::customGainsChanged);
}

void AudioController::applyCurrentEQ() {
  std::array<float, kEQBands> gainsDb{};
  std::ranges::transform(selectedGains(eqSelection_, customGains_, userPresets_), gainsDb.begin(),
                         [](double gain) { return static_cast<float>(gain); });
  engine_.equalizer.setGains(gainsDb);
}

// User presets

void AudioController::saveUserPreset(const QString& named) {
  const std::string name = named.trimmed().toStdString();
  if (name.empty()) {
    return;
  }
  const Change change(*this);
  userPresets_[name] = std::vector(customGains_.begin(), customGains_.end());
  settings_.saveUserPresets(userPresets_);
  announce(&AudioController::userPresetsChanged);
  eqSelection_ = name;
  applyCurrentEQ();
  persist();
  announceSelection();
}

void AudioController::deleteUserPreset(const QString& name) {
  const Change change(*this);
  userPresets_.erase(name.toStdString());
  settings_.saveUserPresets(userPresets_);
  announce(&AudioController::userPresetsChanged);
  if (eqSelection_ == name.toStdString()) {
    setEqSelection(QString::fromUtf8(rawValue(EQPreset::custom)));
  }
}

}  // namespace orvelle
