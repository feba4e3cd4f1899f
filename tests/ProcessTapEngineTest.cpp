// One application's own volume, in a world with two programs, two outputs, and ears at both.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "orvelle/AppAudio.h"
#include "orvelle/platform/simulated/ManualQueue.h"
#include "orvelle/platform/simulated/RecordingConsole.h"
#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "tests/HardwareDoor.h"

namespace orvelle {

namespace {

const std::string kSpeakers = "speakers";
const std::string kHeadphones = "headphones";
constexpr float kTapped = 0.25F;  // what the program plays that is tapped
constexpr float kOther = 0.125F;  // what the other one plays

class TapRig {
 public:
  TapRig() {
    hardware.plug(stereoOutput(kSpeakers, kAudioDeviceTransportTypeBuiltIn, 1.0F));
    hardware.plug(stereoOutput(kHeadphones, kAudioDeviceTransportTypeUSB, 1.0F));
    tapped = behindDoor(launch(kTapped), hardware, *door);
    other = launch(kOther);
  }

  [[nodiscard]] std::string startError(const std::string& outputUID = kHeadphones) const {
    try {
      engine->start(tapped, outputUID);
    } catch (const EngineError& error) {
      return error.what();
    }
    return "";
  }

  /// A back end may wait for the first sound before it takes the program off its normal path.
  void letSoundThrough() {
    hardware.runCycle(4);
    queue.advance(0.1);
  }

  float heard(const std::string& uid) {
    hardware.runCycle(4);
    const std::vector<float> samples = hardware.heard(uid);
    EXPECT_EQ(std::set(samples.begin(), samples.end()).size(), 1U) << "channels or frames differ";
    return samples.at(0);
  }

  /// What a listener of both outputs gets while nothing is tapped.
  void expectNormalPath() {
    EXPECT_EQ(heard(kSpeakers), kTapped + kOther);
    EXPECT_EQ(heard(kHeadphones), 0.0F);
  }

  [[nodiscard]] std::size_t leftBehind() const {
    return hardware.tapCount() + hardware.aggregateCount() + hardware.ioProcCount();
  }

  ManualQueue queue;
  SimulatedHardware hardware{queue};
  std::unique_ptr<AudioHardware> door = openDoor(hardware, queue);
  RecordingConsole console;
  EngineHost host{*door, queue, queue, console};
  std::unique_ptr<ProcessTapEngine> engine = std::make_unique<ProcessTapEngine>(host);
  AudioObjectID tapped = kAudioObjectUnknown;
  AudioObjectID other = kAudioObjectUnknown;

 private:
  AudioObjectID launch(float level) {
    ProcessDescription program;
    program.signal = [level](std::int64_t /*frame*/, std::uint32_t /*channel*/) { return level; };
    return hardware.launch(program);
  }
};

class ProcessTapEngineTest : public TapRig, public testing::Test {};

}  // namespace

// Fault: the program is heard twice or not at all, another one changes, the volume is not followed,
// the second start taps twice, or stop leaves the program silent or the meter running.
TEST_F(ProcessTapEngineTest, OneProgramIsHeardThroughTheEngineAlone) {
  expectNormalPath();
  engine->volume = 2.0F;
  for (int start = 0; start < 2; ++start) {
    EXPECT_EQ(startError(), "");
  }
  EXPECT_TRUE(engine->isRunning());
  letSoundThrough();
  EXPECT_FLOAT_EQ(heard(kHeadphones), std::tanh(2.0F * kTapped));
  EXPECT_EQ(heard(kSpeakers), kOther);
  engine->volume = 1.0F;
  EXPECT_EQ(heard(kHeadphones), kTapped);
  engine->volume = 0.0F;
  EXPECT_EQ(heard(kHeadphones), 0.0F);
  EXPECT_EQ(heard(kSpeakers), kOther);
  queue.advance(1.0);
  engine->stop();
  EXPECT_FALSE(engine->isRunning());
  EXPECT_EQ(leftBehind(), 0U);
  expectNormalPath();
  queue.advance(5.0);
  EXPECT_EQ(console.lines, (std::vector<std::string>{"  tap format: 48000 Hz, 2 ch, flags 0x9",
                                                     "  in:    6 cb/s  peak 0.250 ▮▮▮▮▮"}));
}

// Fault: a tap that is made for nothing, and an empty uid that finds a device whose uid cannot be
// read.
TEST_F(ProcessTapEngineTest, UnknownOutputFailsBeforeAnyTap) {
  EXPECT_EQ(startError("typo"), "Audio device not found: typo");
  hardware.inject({.kind = CallKind::getPropertyData, .selector = kAudioDevicePropertyDeviceUID});
  EXPECT_EQ(startError(""), "Audio device not found: ");
  EXPECT_TRUE(hardware.log().empty());
  engine->stop();
  EXPECT_TRUE(hardware.log().empty()) << "stop of an engine that does not run";
}

// Fault: a failing step is told as another, what it has left behind piles up when the start is
// repeated, or a tap's format that cannot be read stops the start.
TEST_F(ProcessTapEngineTest, EachStepNamesItsFailure) {
  for (const auto& [kind, text] : std::vector<std::pair<CallKind, std::string>>{
           {CallKind::createProcessTap, "CreateProcessTap (recording permission?) failed"},
           {CallKind::createAggregateDevice, "CreateAggregateDevice(tap) failed"},
           {CallKind::createIOProcID, "CreateIOProcID failed"},
           {CallKind::startDevice, "AudioDeviceStart failed"}}) {
    hardware.clearFaults();
    hardware.inject({.kind = kind, .status = -50});
    EXPECT_EQ(startError(), text + " (OSStatus -50)");
    EXPECT_FALSE(engine->isRunning());
    EXPECT_LE(hardware.tapCount(), 1U);
  }
  hardware.clearFaults();
  hardware.inject({.kind = CallKind::getPropertyData, .selector = kAudioTapPropertyFormat});
  EXPECT_EQ(startError(), "");
  EXPECT_EQ(leftBehind(), 3U) << "one tap, one aggregate, one callback";
  EXPECT_EQ(console.lines.back(), "  tap format: <could not read>");
}

// Fault: a callback that reaches an engine which is gone, or an end that waits for ever.
TEST_F(ProcessTapEngineTest, MayEndWhileCyclesRun) {
  ASSERT_EQ(startError(), "");
  std::atomic<bool> isOver = false;
  std::thread cycles([&] {
    while (!isOver) {
      hardware.runCycle(4);
    }
  });
  while (hardware.callbackCount() < 100) {
    std::this_thread::yield();
  }
  engine.reset();
  const std::uint64_t atTheEnd = hardware.callbackCount();
  while (hardware.callbackCount() < atTheEnd + 100) {
    std::this_thread::yield();
  }
  isOver = true;
  cycles.join();
  EXPECT_EQ(heard(kHeadphones), 0.0F);
}

// Per-application volume

// Fault: an application tapped before its volume was ever touched, a second start, a tap that ends
// at 1.0, or a list that is not told or told the former volume.
TEST_F(ProcessTapEngineTest, EntryTapsWhenItsVolumeFirstMoves) {
  int questions = 0;
  AppAudio entry(7, tapped, "Player", host, [&questions] {
    ++questions;
    return kHeadphones;
  });
  std::vector<double> told;
  entry.onVolumeChanged = [&] { told.push_back(entry.volume()); };
  entry.setVolume(1.0);
  EXPECT_FALSE(entry.engine.isRunning());
  for (const double volume : {1.5, 0.5, 1.0}) {
    entry.setVolume(volume);
    EXPECT_TRUE(entry.engine.isRunning());
    EXPECT_EQ(entry.engine.volume, static_cast<float>(volume));
  }
  EXPECT_EQ(told, (std::vector{1.0, 1.5, 0.5, 1.0}));
  EXPECT_EQ(questions, 1);
  EXPECT_EQ(hardware.tapCount(), 1U);
  letSoundThrough();
  EXPECT_EQ(heard(kHeadphones), kTapped);
  entry.engine.stop();
}

// Fault: a volume that is lost when there is nothing to play to or the start fails, an application
// left half tapped, or no further attempt at the next change.
TEST_F(ProcessTapEngineTest, EntryKeepsItsVolumeUntilATapStarts) {
  std::optional<std::string> output;
  AppAudio entry(7, tapped, "Player", host, [&output] { return output; });
  entry.setVolume(1.5);
  EXPECT_TRUE(hardware.log().empty());
  output = kHeadphones;
  hardware.inject({.kind = CallKind::startDevice});
  entry.setVolume(2.0);
  EXPECT_EQ(entry.volume(), 2.0);
  EXPECT_FALSE(entry.engine.isRunning());
  EXPECT_EQ(leftBehind(), 0U);
  hardware.clearFaults();
  entry.setVolume(2.0);
  letSoundThrough();
  EXPECT_FLOAT_EQ(heard(kHeadphones), std::tanh(2.0F * kTapped));
  entry.engine.stop();
}

}  // namespace orvelle
