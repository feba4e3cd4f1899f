#include <CoreAudio/CoreAudio.h>
#include <unistd.h>

#include <cstdio>
#include <string>

#include "instruments/macos/HAL.h"
#include "instruments/macos/Questions.h"
#include "orvelle/platform/coreaudio/CapturePermission.h"
#include "orvelle/platform/coreaudio/TapDescription.h"

namespace report {

namespace {

/// -60 dBFS: enough to be told from silence, too little to be noticed should it be heard after all.
constexpr float kFaint = 0.001F;
/// A person has to read the system's question, and answer it.
constexpr double kAnswerSeconds = 20.0;

/// 0 where the HAL does not know this process.
AudioObjectID ownProcess() {
  for (const AudioObjectID process :
       askList(kAudioObjectSystemObject, address(kAudioHardwarePropertyProcessObjectList))) {
    if (ask<pid_t>(process, address(kAudioProcessPropertyPID)).value == getpid()) {
      return process;
    }
  }
  return kAudioObjectUnknown;
}

void tellProcesses(Report& report) {
  const auto processes =
      askList(kAudioObjectSystemObject, address(kAudioHardwarePropertyProcessObjectList));
  int named = 0;
  int playing = 0;
  for (const AudioObjectID process : processes) {
    named += askText(process, address(kAudioProcessPropertyBundleID)).empty() ? 0 : 1;
    playing +=
        ask<UInt32>(process, address(kAudioProcessPropertyIsRunningOutput)).value != 0 ? 1 : 0;
  }
  report.check("process-list", !processes.empty(),
               std::to_string(processes.size()) + " processes, " + std::to_string(named) +
                   " with a bundle identifier, " + std::to_string(playing) + " playing");
}

void checkFormat(Report& report, AudioObjectID tap) {
  const auto format = ask<AudioStreamBasicDescription>(tap, address(kAudioTapPropertyFormat));
  report.check("tap-is-stereo", format.status == 0 && format.value.mChannelsPerFrame == 2,
               codeText(format.status) + ", " + std::to_string(format.value.mChannelsPerFrame) +
                   " channels at " + std::to_string(static_cast<long>(format.value.mSampleRate)) +
                   " Hz");
}

/// Plays into the tap, which keeps it from being heard, and reads what comes out.
void checkSound(Report& report, const PrivateAggregate& aggregate) {
  Callback reader(aggregate.id);
  Callback player(defaultOutput(), kFaint);
  const OSStatus started = reader.start();
  report.check("tap-start", started == 0, codeText(started));
  const auto called = secondsUntil([&] { return reader.calls > 0; }, kAnswerSeconds);
  report.check("tap-callback", called.has_value(), afterText(called));
  report.check(
      "playing-is-told",
      player.start() == 0 && secondsUntil(
                                 [] {
                                   return ask<UInt32>(ownProcess(),
                                                      address(kAudioProcessPropertyIsRunningOutput))
                                              .value != 0;
                                 },
                                 2.0)
                                 .has_value(),
      "of this process");
  const auto sound = secondsUntil([&] { return reader.inputPeak > 0.0F; }, kAnswerSeconds);
  report.check("tap-delivers-sound", sound.has_value(),
               afterText(sound) + (sound ? "" : ": zeros, as without the permission"));
  report.tell("buffers of the tap's aggregate", std::to_string(reader.inputBuffers) + " in, " +
                                                    std::to_string(reader.outputBuffers) + " out");
}

std::string permissionText() {
  switch (orvelle::coreaudio::microphonePermission()) {
    case orvelle::CapturePermission::granted:
      return "granted";
    case orvelle::CapturePermission::undecided:
      return "not decided yet";
    case orvelle::CapturePermission::refused:
      return "refused";
  }
}

std::string installedLoopback() {
  for (const char* uid : {"OrvelleAudioDevice_UID", "BlackHole2ch_UID"}) {
    if (deviceWithUID(uid) != kAudioObjectUnknown) {
      return uid;
    }
  }
  return "";
}

}  // namespace

void askTaps(Report& report) {
  report.section("Processes and taps (macOS may ask for a permission now)");
  tellProcesses(report);
  const AudioObjectID own = ownProcess();
  const std::string output = askText(defaultOutput(), address(kAudioDevicePropertyDeviceUID));
  report.check("own-process-is-known", own != kAudioObjectUnknown, std::to_string(own));
  if (own == kAudioObjectUnknown || output.empty()) {
    report.skip("taps", "no process object or no default output");
    return;
  }
  AudioObjectID tap = kAudioObjectUnknown;
  std::string uid;
  const OSStatus created =
      orvelle::coreaudio::createTap({own}, true, orvelle::TapMuteBehavior::muted, tap, uid);
  report.check("tap-created", created == 0, codeText(created));
  if (created != 0) {
    return;
  }
  checkFormat(report, tap);
  {
    PrivateAggregate aggregate(output, uid);
    report.check("tap-aggregate-created", aggregate.status == 0, codeText(aggregate.status));
    const auto complete = secondsUntil(
        [&] {
          return channelCount(aggregate.id, kAudioObjectPropertyScopeInput) >
                 channelCount(defaultOutput(), kAudioObjectPropertyScopeInput);
        },
        2.0);
    report.check("tap-stream-before-start", complete.has_value(), afterText(complete));
    checkSound(report, aggregate);
    const OSStatus changed =
        orvelle::coreaudio::setTapMuteBehavior(tap, orvelle::TapMuteBehavior::mutedWhenTapped);
    report.check("tap-mute-can-change", changed == 0, codeText(changed));
    const OSStatus destroyed = aggregate.destroy();
    report.check("tap-aggregate-destroyed", destroyed == 0, codeText(destroyed));
  }
  const OSStatus destroyed = orvelle::coreaudio::destroyTap(tap);
  report.check("tap-destroyed", destroyed == 0, codeText(destroyed));
}

void askLoopback(Report& report) {
  constexpr AudioObjectPropertySelector isRunningSomewhere = 0x676F6E65;  // gone
  report.section("Loopback device (macOS may ask for a permission now)");
  report.tell("microphone-permission", permissionText());
  const AudioObjectID loopback = deviceWithUID(installedLoopback());
  if (loopback == kAudioObjectUnknown) {
    report.skip("loopback-readable", "none is installed");
    return;
  }
  if (loopback == defaultOutput() ||
      ask<UInt32>(loopback, address(isRunningSomewhere)).value != 0) {
    report.skip("loopback-readable", "it is in use");
    return;
  }
  Callback both(loopback, kFaint);
  const OSStatus started = both.start();
  const auto sound = secondsUntil([&] { return both.inputPeak > 0.0F; }, kAnswerSeconds);
  report.check("loopback-readable", started == 0 && sound.has_value(),
               codeText(started) + ", what was played came back " + afterText(sound) +
                   (sound ? "" : ": zeros, as without the permission"));
}

}  // namespace report
