// A tap on one process, read and played into an output: what the tests of taps share.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <utility>

#include "orvelle/platform/AudioHardware.h"

namespace orvelle {

/// Every one of them asks for the same aggregate uid. All calls are expected to succeed. Without a
/// name given, the tap has that of its process.
class TapPlayer {
 public:
  TapPlayer(AudioHardware& hardware, AudioObjectID process, const std::string& outputUID,
            float volume, const std::string& name = "")
      : hardware_(hardware) {
    TapDescription tap;
    tap.processes = {process};
    tap.uuid = name.empty() ? "contract.tap." + std::to_string(process) : name;
    tap.muteBehavior = TapMuteBehavior::mutedWhenTapped;
    EXPECT_EQ(hardware.createProcessTap(tap, tap_), 0);
    AggregateDescription aggregate;
    aggregate.name = "Contract Tap";
    aggregate.uid = "contract.aggregate";
    aggregate.subdevices = {{outputUID, false}};
    aggregate.master = outputUID;
    aggregate.taps = {{tap.uuid, true}};
    EXPECT_EQ(hardware.createAggregateDevice(aggregate, aggregate_), 0);
    const auto play = [this, volume](AudioBufferList input, AudioBufferList output) {
      inputBuffers = input.size();
      const auto* from = static_cast<const float*>(input[0].mData);
      auto* to = static_cast<float*>(output[0].mData);
      const std::uint32_t bytes = std::min(input[0].mDataByteSize, output[0].mDataByteSize);
      std::transform(from, from + bytes / sizeof(float), to,
                     [volume](float sample) { return volume * sample; });
    };
    EXPECT_EQ(hardware.createIOProcID(aggregate_, play, proc_), 0);
  }
  TapPlayer(const TapPlayer&) = delete;
  TapPlayer& operator=(const TapPlayer&) = delete;
  ~TapPlayer() {
    EXPECT_EQ(hardware_.destroyIOProcID(aggregate_, proc_), 0);
    EXPECT_EQ(hardware_.destroyAggregateDevice(aggregate_), 0);
    if (tap_ != kAudioObjectUnknown) {
      destroyTap();
    }
  }

  void start() { EXPECT_EQ(hardware_.startDevice(aggregate_, proc_), 0); }
  void stop() { EXPECT_EQ(hardware_.stopDevice(aggregate_, proc_), 0); }
  void destroyTap() {
    EXPECT_EQ(hardware_.destroyProcessTap(tap_), 0);
    EXPECT_NE(hardware_.destroyProcessTap(std::exchange(tap_, kAudioObjectUnknown)), 0);
  }

  [[nodiscard]] AudioObjectID tap() const { return tap_; }

  std::atomic<std::size_t> inputBuffers{0};

 private:
  AudioHardware& hardware_;
  AudioObjectID tap_ = kAudioObjectUnknown;
  AudioObjectID aggregate_ = kAudioObjectUnknown;
  AudioDeviceIOProcID proc_ = 0;
};

}  // namespace orvelle
