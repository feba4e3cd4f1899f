#include "orvelle/platform/coreaudio/TapLoudness.h"

#include <array>
#include <cmath>
#include <set>
#include <vector>

#include "orvelle/platform/coreaudio/PropertyCodec.h"

namespace orvelle::coreaudio {

namespace {

constexpr std::array<std::uint32_t, 3> kElements = {kAudioObjectPropertyElementMain, 1, 2};

constexpr PropertyAddress outputAddress(std::uint32_t selector, std::uint32_t element) {
  return {selector, kAudioObjectPropertyScopeOutput, element};
}

std::optional<float> readFloat(AudioObjectID object, const PropertyAddress& address) {
  PropertyValue value;
  readValue(object, address, value);
  const auto* number = std::get_if<float>(&value);
  return number == nullptr ? std::nullopt : std::optional(*number);
}

/// The factor that the driver applies to a channel: that of its own control, else of the main one.
/// 1 without any. The HAL tells it in decibels; where it does not, the scalar is taken for one of
/// the cubic scale, which is never too loud.
float volumeFactor(AudioObjectID device, std::uint32_t channel) {
  for (const std::uint32_t element : {channel, kAudioObjectPropertyElementMain}) {
    const auto scalar = readFloat(device, outputAddress(kAudioDevicePropertyVolumeScalar, element));
    if (!scalar) {
      continue;
    }
    const auto decibels =
        readFloat(device, outputAddress(::kAudioDevicePropertyVolumeDecibels, element));
    if (*scalar == 0.0F || !decibels) {
      return *scalar * *scalar * *scalar;
    }
    return std::pow(10.0F, *decibels / 20.0F);
  }
  return 1.0F;
}

bool isMuted(AudioObjectID device) {
  PropertyValue value;
  readValue(device, outputAddress(kAudioDevicePropertyMute, kAudioObjectPropertyElementMain),
            value);
  const auto* flag = std::get_if<std::uint32_t>(&value);
  return flag != nullptr && *flag != 0;
}

}  // namespace

void TapLoudness::update() {
  const std::uint64_t ticket = ++lastTicket_;
  std::vector<std::pair<AudioObjectID, Factors>> found;
  for (const AudioObjectID reader : aggregates_.tapReaders()) {
    if (const auto factors = factorsAt(reader)) {
      found.emplace_back(reader, *factors);
    }
  }
  const std::lock_guard lock(mutex_);
  if (ticket < appliedTicket_) {
    return;
  }
  appliedTicket_ = ticket;
  for (const auto& [reader, factors] : found) {
    procs_.setFactors(reader, factors.left, factors.right);
  }
}

void TapLoudness::follow() {
  std::set<Property> wanted;
  for (const AudioObjectID reader : aggregates_.tapReaders()) {
    wanted.emplace(kAudioObjectSystemObject,
                   PropertyAddress{kAudioHardwarePropertyDefaultOutputDevice});
    // A loopback may come or go, and so may the reader's own master.
    wanted.emplace(kAudioObjectSystemObject, PropertyAddress{kAudioHardwarePropertyDevices});
    if (const AudioObjectID loopback = governor(reader); loopback != kAudioObjectUnknown) {
      wanted.emplace(loopback,
                     outputAddress(kAudioDevicePropertyMute, kAudioObjectPropertyElementMain));
      for (const std::uint32_t element : kElements) {
        wanted.emplace(loopback, outputAddress(kAudioDevicePropertyVolumeScalar, element));
      }
    }
  }
  std::erase_if(watched_, [&](const auto& watched) {
    const bool isUnwanted = !wanted.contains(watched.first);
    if (isUnwanted) {
      listeners_.unwatch(watched.second);
    }
    return isUnwanted;
  });
  for (const Property& property : wanted) {
    HALListeners::WatchID watch = 0;
    if (!watched_.contains(property) &&
        listeners_.watch(property.first, property.second, watch) == kAudioHardwareNoError) {
      watched_[property] = watch;
    }
  }
  update();
}

/// The loopback that governs what a reader plays; 0 for none.
AudioObjectID TapLoudness::governor(AudioObjectID reader) const {
  return governingLoopback(aggregates_.outline(reader), aggregates_.outlines(), defaultLoopback());
}

AudioObjectID TapLoudness::defaultLoopback() const {
  PropertyValue value;
  readValue(kAudioObjectSystemObject, {kAudioHardwarePropertyDefaultOutputDevice}, value);
  const auto* device = std::get_if<std::uint32_t>(&value);
  return device != nullptr && isLoopback(*device) ? ids_.ours(*device) : kAudioObjectUnknown;
}

/// Absent when it cannot be told: what held before holds on.
std::optional<TapLoudness::Factors> TapLoudness::factorsAt(AudioObjectID reader) const {
  const AudioObjectID loopback = governor(reader);
  if (loopback == kAudioObjectUnknown) {
    return Factors{};
  }
  const AudioObjectID hal = ids_.hal(loopback);
  if (hal == kAudioObjectUnknown) {
    return std::nullopt;
  }
  return isMuted(hal) ? Factors{0.0F, 0.0F} : Factors{volumeFactor(hal, 1), volumeFactor(hal, 2)};
}

}  // namespace orvelle::coreaudio
