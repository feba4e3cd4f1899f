// A world for the boost engine: speakers, a loopback, a program that plays a constant, and ears
// that tell when an output becomes louder than it may be.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "orvelle/BoostEngine.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "tests/HardwareDoor.h"

namespace orvelle {

inline const std::string kLoopback = "OrvelleAudioDevice_UID";
inline const std::string kSpeakers = "speakers";
inline const std::string kHeadphones = "headphones";
/// What the program plays: every sample of it, so that one cycle's peak is its level.
inline constexpr float kSource = 0.1F;

class BoostRig {
 public:
  BoostRig() {
    hardware.plug(stereoOutput(kSpeakers, kAudioDeviceTransportTypeBuiltIn, 0.5F));
    hardware.plug(loopbackDevice(kLoopback));
    ProcessDescription player;
    player.signal = [](std::int64_t, std::uint32_t) { return kSource; };
    program = hardware.launch(player);
    queue.runUntilIdle();
  }

  /// The engine's end still makes calls; a test's hook may be gone by then.
  ~BoostRig() { hardware.afterChange = nullptr; }
  BoostRig(const BoostRig&) = delete;
  BoostRig& operator=(const BoostRig&) = delete;

  void start() const { engine->start(kLoopback, kSpeakers); }

  /// The text of the error that starting gives; empty when it works.
  std::string startError(const std::string& loopbackUID = kLoopback,
                         const std::string& outputUID = kSpeakers) const {
    try {
      engine->start(loopbackUID, outputUID);
    } catch (const EngineError& error) {
      return error.what();
    }
    return "";
  }

  /// What the caller of a failed start does to have the system back.
  void putRight() {
    engine->removeDefaultGuard();
    engine->teardownAggregate();
    engine->stop(true);
    queue.runUntilIdle();
  }

  /// What an output's listener gets from one cycle.
  float heard(const std::string& uid) {
    hardware.runCycle(8);
    return hardware.heardPeak(uid);
  }

  float volume(const std::string& uid) const {
    return hal.outputVolume(hardware.id(uid)).value_or(-1.0F);
  }

  /// Calls that asked for exactly this.
  std::ptrdiff_t timesAsked(const std::string& text) const {
    return std::ranges::count(hardware.logTexts(), text);
  }

  /// Place in the log of the last call that asked for exactly this; -1 when nobody did.
  std::ptrdiff_t placeOf(const std::string& text) const {
    const auto texts = hardware.logTexts();
    const auto found = std::ranges::find(texts.rbegin(), texts.rend(), text);
    return texts.rend() - found - 1;
  }

  ManualQueue queue;
  SimulatedHardware hardware{queue};
  AudioObjectID program = kAudioObjectUnknown;
  /// What the code under test works through.
  std::unique_ptr<AudioHardware> door = openDoor(hardware, queue);
  RecordingConsole console;
  HAL hal{hardware};
  EngineHost host{*door, queue, queue, console};
  std::unique_ptr<BoostEngine> engine = std::make_unique<BoostEngine>(host);
};

}  // namespace orvelle
