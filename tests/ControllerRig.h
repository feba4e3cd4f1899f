// A desk for the controller: devices, programs, settings and services in memory, and virtual time.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <ostream>
#include <string>
#include <thread>

#include "orvelle/AudioController.h"
#include "orvelle/platform/simulated/KnownApplications.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/MemoryUserDefaults.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "orvelle/platform/simulated/RecordingHostServices.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "orvelle/platform/simulated/VirtualWorker.h"

/// For the test framework.
inline void PrintTo(const QString& text, std::ostream* stream) {
  *stream << '"' << text.toStdString() << '"';
}

namespace orvelle {

inline const std::string kLoopback = "OrvelleAudioDevice_UID";
inline const std::string kSpeakers = "speakers";
inline constexpr float kSource = 0.1F;
/// What a volume of 0.5 makes of a sample.
inline constexpr float kHalfVolume = 0.125F;

class ControllerRig : public testing::Test {
 protected:
  ControllerRig() {
    hardware.plug(stereoOutput(kSpeakers, kAudioDeviceTransportTypeBuiltIn, 0.5F));
    hardware.plug(loopbackDevice(kLoopback));
    ProcessDescription description;
    description.pid = 100;
    description.bundleID = "com.example.player";
    description.signal = [](std::int64_t, std::uint32_t) { return kSource; };
    player = hardware.launch(description);
    makeController();
  }

  ~ControllerRig() override {
    hardware.beforeChange = nullptr;
    hardware.clearFaults();
    if (controller) {
      controller->shutdown();
    }
    EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount() + hardware.tapCount(), 0U);
    EXPECT_NE(hardware.defaultOutputUID(), kLoopback);
  }

  void makeController() {
    controller = std::make_unique<AudioController>(
        ControllerHost{{hardware, queue, worker, console}, worker, defaults, services, names});
    queue.runUntilIdle();
  }

  void switchOn() {
    controller->toggle();
    queue.advance(0.2);
    ASSERT_TRUE(controller->isOn());
  }

  /// The next start waits in a call that changes something, as on an audio system that hangs: in
  /// the first one, or after `skip` of them. The main thread's calls go through.
  void hangNextStartFor(double seconds, int skip = 0) {
    const auto main = std::this_thread::get_id();
    hardware.beforeChange = [this, seconds, skip, main]() mutable {
      if (std::this_thread::get_id() != main && skip-- == 0) {
        worker.sleep(seconds);
      }
      return true;
    };
  }

  /// What the output's listener gets.
  float heard(const std::string& uid = kSpeakers) {
    hardware.runCycle(64);
    return hardware.heardPeak(uid);
  }

  float volume(const std::string& uid) {
    return HAL(hardware).outputVolume(hardware.id(uid)).value_or(-1.0F);
  }

  /// Whether a call has asked for exactly this since the log was cleared.
  [[nodiscard]] bool wasAsked(const std::string& text) const {
    const auto texts = hardware.logTexts();
    return std::ranges::find(texts, text) != texts.end();
  }

  /// Nothing of the boost is left in the system.
  void expectOff() {
    EXPECT_FALSE(controller->isOn() || controller->boostArmed() || controller->startInProgress());
    EXPECT_EQ(hardware.aggregateCount() + hardware.ioProcCount(), 0U);
    EXPECT_NE(hardware.defaultOutputUID(), kLoopback);
    EXPECT_EQ(volume(kSpeakers), 0.5F);
    EXPECT_TRUE(services.activities.empty());
    EXPECT_EQ(controller->level(), 0.0F);
  }

  ManualQueue queue;
  VirtualWorker worker{queue};
  SimulatedHardware hardware{queue};
  AudioObjectID player = kAudioObjectUnknown;
  RecordingConsole console;
  MemoryUserDefaults defaults;
  RecordingHostServices services;
  KnownApplications names;
  std::unique_ptr<AudioController> controller;
};

}  // namespace orvelle
