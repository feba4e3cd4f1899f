#include "orvelle/platform/coreaudio/TapLoudness.h"

#include <array>
#include <cmath>
#include <set>
#include <vector>

#include "orvelle/platform/coreaudio/PropertyCodec.h"

namespace orvelle::coreaudio {

namespace {

/// From a look that left doubt until the next. Nothing else may happen that would ask again.
constexpr double kLookAgainSeconds = 0.1;

constexpr std::array<std::uint32_t, 3> kElements = {kAudioObjectPropertyElementMain, 1, 2};

constexpr PropertyAddress outputAddress(std::uint32_t selector, std::uint32_t element) {
  return {selector, kAudioObjectPropertyScopeOutput, element};
}

/// A series of questions. A failure that says anything else than that there is no such property
/// leaves the whole in doubt: taken for an answer, it would make somebody louder.
class Questions {
 public:
  template <class Value>
  std::optional<Value> ask(AudioObjectID object, const PropertyAddress& address) {
    PropertyValue value;
    const OSStatus status = readValue(object, address, value);
    const auto* answer = std::get_if<Value>(&value);
    isInDoubt_ = isInDoubt_ || (answer == nullptr && status != kAudioHardwareUnknownPropertyError);
    return answer == nullptr ? std::nullopt : std::optional(*answer);
  }

  [[nodiscard]] bool isInDoubt() const { return isInDoubt_; }

 private:
  bool isInDoubt_ = false;
};

/// The factor that the driver applies to a channel: that of its own control, else of the main one.
/// 1 without any. The HAL tells it in decibels; where it does not, the scalar is taken for one of
/// the cubic scale, which is never too loud.
float volumeFactor(Questions& questions, AudioObjectID device, std::uint32_t channel) {
  for (const std::uint32_t element : {channel, kAudioObjectPropertyElementMain}) {
    const auto scalar =
        questions.ask<float>(device, outputAddress(kAudioDevicePropertyVolumeScalar, element));
    if (!scalar) {
      continue;
    }
    // Leaves no doubt, whatever comes of it: a driver may never answer this one.
    PropertyValue answer;
    readValue(device, outputAddress(::kAudioDevicePropertyVolumeDecibels, element), answer);
    const auto* decibels = std::get_if<float>(&answer);
    if (*scalar == 0.0F || decibels == nullptr) {
      return *scalar * *scalar * *scalar;
    }
    return std::pow(10.0F, *decibels / 20.0F);
  }
  return 1.0F;
}

bool isMuted(Questions& questions, AudioObjectID device) {
  const auto flag = questions.ask<std::uint32_t>(
      device, outputAddress(kAudioDevicePropertyMute, kAudioObjectPropertyElementMain));
  return flag.value_or(0) != 0;
}

}  // namespace

void TapLoudness::update() {
  const std::uint64_t ticket = ++lastTicket_;
  std::vector<std::pair<AudioObjectID, Factors>> found;
  for (const AudioObjectID reader : aggregates_.tapReaders()) {
    if (const auto factors = factorsAt(reader)) {
      found.emplace_back(reader, *factors);
    } else {
      lookAgainSoon();
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
  bool isInDoubt = false;
  for (const AudioObjectID reader : aggregates_.tapReaders()) {
    wanted.emplace(kAudioObjectSystemObject,
                   PropertyAddress{kAudioHardwarePropertyDefaultOutputDevice});
    // A loopback may come or go, and so may the reader's own master.
    wanted.emplace(kAudioObjectSystemObject, PropertyAddress{kAudioHardwarePropertyDevices});
    const auto found = governor(reader);
    isInDoubt = isInDoubt || !found;
    const AudioObjectID loopback = found.value_or(kAudioObjectUnknown);
    if (loopback != kAudioObjectUnknown) {
      wanted.emplace(loopback,
                     outputAddress(kAudioDevicePropertyMute, kAudioObjectPropertyElementMain));
      for (const std::uint32_t element : kElements) {
        wanted.emplace(loopback, outputAddress(kAudioDevicePropertyVolumeScalar, element));
      }
    }
  }
  std::erase_if(watched_, [&](const auto& watched) {
    const bool isUnwanted = !isInDoubt && !wanted.contains(watched.first);
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
  if (isInDoubt) {
    lookAgainSoon();  // for what to listen to
  }
  update();
}

void TapLoudness::lookAgainSoon() {
  if (isLookPending_.exchange(true)) {
    return;
  }
  queue_.post([this, weak = std::weak_ptr(life_)] {
    if (weak.expired()) {
      return;
    }
    queue_.postAfter(kLookAgainSeconds, [this, weak] {
      if (!weak.expired()) {
        isLookPending_ = false;
        follow();
      }
    });
  });
}

/// The loopback that governs what a reader plays, 0 for none. Absent when it cannot be told.
std::optional<AudioObjectID> TapLoudness::governor(AudioObjectID reader) const {
  const auto loopback = defaultLoopback();
  const AudioObjectID governor =
      governingLoopback(aggregates_.outline(reader), aggregates_.outlines(), loopback.value_or(0));
  return loopback || governor != kAudioObjectUnknown ? std::optional(governor) : std::nullopt;
}

/// As `governor`.
std::optional<AudioObjectID> TapLoudness::defaultLoopback() const {
  Questions questions;
  const auto device = questions.ask<std::uint32_t>(kAudioObjectSystemObject,
                                                   {kAudioHardwarePropertyDefaultOutputDevice});
  if (!device) {
    return std::nullopt;
  }
  const auto found = *device == kAudioObjectUnknown ? false : isLoopback(*device);
  if (!found) {
    return std::nullopt;
  }
  return *found ? ids_.ours(*device) : kAudioObjectUnknown;
}

/// Absent when it cannot be told: what held before holds on.
std::optional<TapLoudness::Factors> TapLoudness::factorsAt(AudioObjectID reader) const {
  const auto loopback = governor(reader);
  if (!loopback) {
    return std::nullopt;
  }
  if (*loopback == kAudioObjectUnknown) {
    return Factors{};
  }
  const AudioObjectID hal = ids_.hal(*loopback);
  if (hal == kAudioObjectUnknown) {
    return std::nullopt;
  }
  Questions questions;
  const Factors factors = isMuted(questions, hal) ? Factors{0.0F, 0.0F}
                                                  : Factors{volumeFactor(questions, hal, 1),
                                                            volumeFactor(questions, hal, 2)};
  return questions.isInDoubt() ? std::nullopt : std::optional(factors);
}

}  // namespace orvelle::coreaudio
