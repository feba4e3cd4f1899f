// Boost and tap on the CoreAudio back end, in a world with speakers, a loopback and a program that
// plays a constant.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <vector>

#include "orvelle/BoostEngine.h"
#include "orvelle/ProcessTapEngine.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "tests/HardwareDoor.h"
#include "tests/coreaudio/StandInDoor.h"

namespace orvelle {

inline const std::string kSpeakers = "speakers";
inline const std::string kHeadset = "headset";
inline const std::string kLoopback = "OrvelleAudioDevice_UID";
inline constexpr float kPlayed = 0.25F;
inline constexpr PropertyAddress kDevices{kAudioHardwarePropertyDevices};

class CoreAudioHardwareTest : public testing::Test {
 protected:
  CoreAudioHardwareTest() {
    world.plug(stereoOutput(kSpeakers, kAudioDeviceTransportTypeBuiltIn, 0.5F));
    world.plug(loopbackDevice(kLoopback));
    ProcessDescription program;
    program.pid = 7;
    program.signal = [](std::int64_t, std::uint32_t) { return kPlayed; };
    player = world.launch(program);
  }

  [[nodiscard]] coreaudio::Adversity& adversity() const { return door->standIn().adversity; }

  /// What the output's listener gets of one cycle.
  float heard(const std::string& uid) {
    world.runCycle(8);
    return world.heardPeak(uid);
  }

  void boost(const std::string& outputUID = kSpeakers) { engine.start(kLoopback, outputUID); }

  void tapPlayer(float volume = 1.0F, const std::string& outputUID = kSpeakers) {
    tap.volume = volume;
    tap.start(behindDoor(player, world, *door), outputUID);
  }

  /// Cycles and the main queue, as they go on in life.
  void live(double seconds) {
    const double end = queue.now() + seconds;
    while (queue.now() < end) {
      world.runCycle(8);
      queue.advance(0.01);
    }
  }

  OSStatus makeAggregate(AudioObjectID& aggregate) const {
    AggregateDescription description;
    description.name = "Aggregate";
    description.uid = "aggregate";
    description.subdevices = {{kSpeakers, false}, {kLoopback, true}};
    description.master = kSpeakers;
    return door->createAggregateDevice(description, aggregate);
  }

  [[nodiscard]] std::vector<std::string> listedUIDs() const {
    std::vector<std::string> uids;
    for (const AudioDeviceInfo& device : HAL(*door).allDevices()) {
      uids.push_back(device.uid);
    }
    return uids;
  }

  /// Of a line of the world's log: whether it tells of a new aggregate.
  static bool isCreation(const std::string& text) { return text.starts_with("create private"); }

  [[nodiscard]] std::ptrdiff_t aggregatesMade() const {
    return std::ranges::count_if(world.logTexts(), isCreation);
  }

  [[nodiscard]] std::ptrdiff_t timesAsked(const std::string& text) const {
    return std::ranges::count(world.logTexts(), text);
  }

  ManualQueue queue;
  SimulatedHardware world{queue};
  std::unique_ptr<StandInDoor> door = openStandInDoor(world, queue, {});
  RecordingConsole console;
  EngineHost host{*door, queue, queue, console};
  BoostEngine engine{host};
  ProcessTapEngine tap{host};
  AudioObjectID player = kAudioObjectUnknown;
};

}  // namespace orvelle
