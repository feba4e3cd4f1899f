#include <CoreAudio/CoreAudio.h>

#include <array>
#include <string>

#include "instruments/macos/HAL.h"
#include "instruments/macos/Questions.h"

namespace report {

namespace {

constexpr AudioObjectID kNoSuchObject = 0x7FFFFFF0;

void checkErrors(Report& report, AudioObjectID device) {
  const auto unknown = ask<UInt32>(device, address(kNoSuchSelector));
  report.check("unknown-property", unknown.status == kAudioHardwareUnknownPropertyError,
               codeText(unknown.status));
  const auto small = ask<std::uint8_t>(device, address(kAudioDevicePropertyNominalSampleRate));
  report.check("small-buffer", small.status == kAudioHardwareBadPropertySizeError,
               codeText(small.status));
  const auto object = ask<UInt32>(kNoSuchObject, address(kAudioObjectPropertyName));
  report.check("unknown-object", object.status == kAudioHardwareBadObjectError,
               codeText(object.status));
  report.check("unknown-uid", deviceWithUID("app.orvelle.nobody") == kAudioObjectUnknown,
               std::to_string(deviceWithUID("app.orvelle.nobody")));
}

std::string settableText(AudioObjectID device, const AudioObjectPropertyAddress& property) {
  if (AudioObjectHasProperty(device, &property) == 0) {
    return "none";
  }
  Boolean isSettable = 0;
  const OSStatus status = AudioObjectIsPropertySettable(device, &property, &isSettable);
  return status != 0 ? codeText(status) : (isSettable != 0 ? "settable" : "fixed");
}

/// Volume and mute of the whole device, and of its first two channels.
std::string elementsText(AudioObjectID device, AudioObjectPropertySelector selector) {
  std::string text;
  for (const AudioObjectPropertyElement element : {0U, 1U, 2U}) {
    const auto property = address(selector, kAudioObjectPropertyScopeOutput, element);
    text += (text.empty() ? "" : ", ") + settableText(device, property);
  }
  return text;
}

void describe(Report& report, AudioObjectID device, bool isDefault) {
  const auto transport = ask<UInt32>(device, address(kAudioDevicePropertyTransportType));
  const auto rate = ask<Float64>(device, address(kAudioDevicePropertyNominalSampleRate));
  const auto running = ask<UInt32>(device, address(kAudioDevicePropertyDeviceIsRunning));
  report.tell(isDefault ? "default output" : "device",
              codeText(transport.value) + ", " +
                  std::to_string(channelCount(device, kAudioObjectPropertyScopeInput)) + " in, " +
                  std::to_string(channelCount(device, kAudioObjectPropertyScopeOutput)) + " out, " +
                  std::to_string(static_cast<long>(rate.value)) + " Hz, running here " +
                  std::to_string(running.value) + "; volume " +
                  elementsText(device, kAudioDevicePropertyVolumeScalar) + "; mute " +
                  elementsText(device, kAudioDevicePropertyMute));
}

}  // namespace

void askDevices(Report& report) {
  report.section("Devices (all, first and second channel of volume and mute)");
  const auto devices = askList(kAudioObjectSystemObject, address(kAudioHardwarePropertyDevices));
  report.check("device-list", !devices.empty(), std::to_string(devices.size()) + " devices");
  if (devices.empty()) {
    return;
  }
  checkErrors(report, devices.front());
  bool uidsLeadBack = true;
  for (const AudioObjectID device : devices) {
    describe(report, device, device == defaultOutput());
    const std::string uid = askText(device, address(kAudioDevicePropertyDeviceUID));
    uidsLeadBack = uidsLeadBack && deviceWithUID(uid) == device;
  }
  report.check("uid-to-device", uidsLeadBack, "for all of them");
}

}  // namespace report
