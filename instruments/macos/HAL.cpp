#include "instruments/macos/HAL.h"

#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "instruments/macos/Report.h"
#include "orvelle/platform/coreaudio/CoreFoundationValues.h"

namespace report {

namespace {

using orvelle::coreaudio::DictionaryBuilder;
using orvelle::coreaudio::makeString;
using orvelle::coreaudio::Owned;
using orvelle::coreaudio::textOf;

std::vector<Owned<CFDictionaryRef>> listOf(const char* key, const std::string& uid) {
  std::vector<Owned<CFDictionaryRef>> list;
  if (!uid.empty()) {
    DictionaryBuilder member;
    member.add(key, uid);
    list.push_back(member.build());
  }
  return list;
}

float peakOf(const AudioBufferList& input) {
  float peak = 0.0F;
  for (UInt32 index = 0; index < input.mNumberBuffers; ++index) {
    const AudioBuffer& buffer = input.mBuffers[index];
    const auto* const samples = static_cast<const float*>(buffer.mData);
    const std::size_t count = samples == nullptr ? 0 : buffer.mDataByteSize / sizeof(float);
    for (std::size_t sample = 0; sample < count; ++sample) {
      peak = std::max(peak, std::abs(samples[sample]));
    }
  }
  return peak;
}

}  // namespace

std::vector<AudioObjectID> askList(AudioObjectID object,
                                   const AudioObjectPropertyAddress& property) {
  UInt32 byteSize = 0;
  if (AudioObjectGetPropertyDataSize(object, &property, 0, nullptr, &byteSize) != 0) {
    return {};
  }
  std::vector<AudioObjectID> list(byteSize / sizeof(AudioObjectID));
  if (AudioObjectGetPropertyData(object, &property, 0, nullptr, &byteSize, list.data()) != 0) {
    return {};
  }
  list.resize(byteSize / sizeof(AudioObjectID));
  return list;
}

std::string askText(AudioObjectID object, const AudioObjectPropertyAddress& property) {
  const auto answer = ask<CFStringRef>(object, property);
  return answer.status == 0 ? textOf(Owned(answer.value).get()) : "";
}

UInt32 channelCount(AudioObjectID device, AudioObjectPropertyScope scope) {
  const auto property = address(kAudioDevicePropertyStreamConfiguration, scope);
  UInt32 byteSize = 0;
  if (AudioObjectGetPropertyDataSize(device, &property, 0, nullptr, &byteSize) != 0) {
    return 0;
  }
  std::vector<std::uint64_t> storage(byteSize / sizeof(std::uint64_t) + 1);  // aligned for the list
  auto* const list = reinterpret_cast<AudioBufferList*>(storage.data());
  if (AudioObjectGetPropertyData(device, &property, 0, nullptr, &byteSize, list) != 0) {
    return 0;
  }
  UInt32 channels = 0;
  for (UInt32 index = 0; index < list->mNumberBuffers; ++index) {
    channels += list->mBuffers[index].mNumberChannels;
  }
  return channels;
}

AudioObjectID deviceWithUID(const std::string& uid) {
  const auto property = address(kAudioHardwarePropertyTranslateUIDToDevice);
  const Owned<CFStringRef> text = makeString(uid);
  CFStringRef qualifier = text.get();
  AudioObjectID device = kAudioObjectUnknown;
  UInt32 byteSize = sizeof device;
  AudioObjectGetPropertyData(kAudioObjectSystemObject, &property, kReferenceSize,
                             static_cast<const void*>(&qualifier), &byteSize, &device);
  return device;
}

bool isListed(AudioObjectID device) {
  const auto devices = askList(kAudioObjectSystemObject, address(kAudioHardwarePropertyDevices));
  return std::ranges::find(devices, device) != devices.end();
}

AudioObjectID defaultOutput() {
  return ask<AudioObjectID>(kAudioObjectSystemObject,
                            address(kAudioHardwarePropertyDefaultOutputDevice))
      .value;
}

std::optional<double> secondsUntil(const std::function<bool()>& condition, double atMost) {
  using Clock = std::chrono::steady_clock;
  const Clock::time_point start = Clock::now();
  for (;;) {
    const bool holds = condition();
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    if (holds) {
      return seconds;
    }
    if (seconds >= atMost) {
      return std::nullopt;
    }
    pause(0.001);
  }
}

std::string afterText(const std::optional<double>& seconds) {
  return seconds ? "after " + milliseconds(*seconds) : "not while we waited";
}

void pause(double seconds) {
  std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

std::string freshUID() {
  static int number = 0;
  return "app.orvelle.report." + std::to_string(getpid()) + "." + std::to_string(++number);
}

PrivateAggregate::PrivateAggregate(const std::string& deviceUID, const std::string& tapUID,
                                   std::string aggregateUID)
    : uid(std::move(aggregateUID)) {
  DictionaryBuilder description;
  description.add(kAudioAggregateDeviceUIDKey, uid);
  description.add(kAudioAggregateDeviceNameKey, std::string("Orvelle report"));
  description.add(kAudioAggregateDeviceIsPrivateKey, true);
  if (!deviceUID.empty()) {
    description.add(kAudioAggregateDeviceMainSubDeviceKey, deviceUID);
  }
  description.add(kAudioAggregateDeviceSubDeviceListKey, listOf(kAudioSubDeviceUIDKey, deviceUID));
  if (!tapUID.empty()) {
    description.add(kAudioAggregateDeviceTapListKey, listOf(kAudioSubTapUIDKey, tapUID));
    description.add(kAudioAggregateDeviceTapAutoStartKey, true);
  }
  status = AudioHardwareCreateAggregateDevice(description.build().get(), &id);
}

OSStatus PrivateAggregate::destroy() {
  const AudioObjectID former = std::exchange(id, kAudioObjectUnknown);
  return former == kAudioObjectUnknown ? kAudioHardwareNoError
                                       : AudioHardwareDestroyAggregateDevice(former);
}

Callback::Callback(AudioObjectID device, float toneLevel) : device_(device), toneLevel_(toneLevel) {
  createStatus = AudioDeviceCreateIOProcID(device, &Callback::serve, this, &procID_);
}

Callback::~Callback() {
  stop();
  destroy();
  pause(0.05);  // should one still be running, against the HAL's promise
}

/// Without a callback, the HAL would start the device all the same.
OSStatus Callback::start() {
  return procID_ == nullptr ? createStatus : AudioDeviceStart(device_, procID_);
}

OSStatus Callback::stop() {
  return procID_ == nullptr ? kAudioHardwareNoError : AudioDeviceStop(device_, procID_);
}

OSStatus Callback::destroy() {
  AudioDeviceIOProcID const former = std::exchange(procID_, nullptr);
  return former == nullptr ? kAudioHardwareNoError : AudioDeviceDestroyIOProcID(device_, former);
}

OSStatus Callback::serve(AudioObjectID /*device*/, const AudioTimeStamp* /*now*/,
                         const AudioBufferList* input, const AudioTimeStamp* /*inputTime*/,
                         AudioBufferList* output, const AudioTimeStamp* /*outputTime*/,
                         void* clientData) {
  auto& self = *static_cast<Callback*>(clientData);
  if (input != nullptr) {
    self.inputBuffers = input->mNumberBuffers;
    self.inputPeak = std::max(self.inputPeak.load(), peakOf(*input));
  }
  if (output != nullptr) {
    self.outputBuffers = output->mNumberBuffers;
    self.play(*output);
  }
  self.runsOnCallersThread = std::this_thread::get_id() == self.caller_;
  ++self.calls;
  return kAudioHardwareNoError;
}

void Callback::play(AudioBufferList& output) {
  constexpr int period = 48;
  const int startPhase = phase_;
  for (UInt32 index = 0; index < output.mNumberBuffers; ++index) {
    AudioBuffer& buffer = output.mBuffers[index];
    auto* const samples = static_cast<float*>(buffer.mData);
    const UInt32 channels = std::max<UInt32>(buffer.mNumberChannels, 1);
    const UInt32 count =
        samples == nullptr ? 0
                           : buffer.mDataByteSize / (channels * static_cast<UInt32>(sizeof(float)));
    frames = count;
    int phase = startPhase;
    for (UInt32 frame = 0; frame < count; ++frame, phase = (phase + 1) % period) {
      const float angle = 2.0F * std::numbers::pi_v<float> * static_cast<float>(phase) / period;
      std::fill_n(samples + frame * channels, channels, toneLevel_ * std::sin(angle));
    }
    phase_ = phase;
  }
}

}  // namespace report
