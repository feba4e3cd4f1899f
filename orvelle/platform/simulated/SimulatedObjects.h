// The objects of a simulated world as its own sources see them.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "orvelle/platform/simulated/SimulatedHardware.h"

namespace orvelle {

struct SimulatedHardware::Device {
  AudioObjectID id = kAudioObjectUnknown;
  DeviceDescription description;

  // Aggregates only. Ids, not uids: a member that returns is another device, and only the master
  // of an aggregate with taps is taken again.
  bool isAggregate = false;
  std::vector<AudioObjectID> members;
  AudioObjectID master = kAudioObjectUnknown;
  std::string masterUID;
  std::vector<AudioObjectID> taps;

  // Sound of the cycle in hand, interleaved over all output channels.
  std::vector<float> mix;      // what was played into it
  std::vector<float> arrived;  // loopbacks: what its inputs deliver
  std::vector<float> carried;  // loopbacks: what callbacks played into it, one cycle late
  std::vector<float> heard;

  [[nodiscard]] std::uint32_t outputChannels() const {
    std::uint32_t channels = 0;
    for (const std::uint32_t bufferChannels : description.outputBuffers) {
      channels += bufferChannels;
    }
    return channels;
  }
};

struct SimulatedHardware::Process {
  AudioObjectID id = kAudioObjectUnknown;
  ProcessDescription description;
};

struct SimulatedHardware::Tap {
  AudioObjectID id = kAudioObjectUnknown;
  TapDescription description;
};

/// A registered callback. The cycle's thread holds it for the length of a call, so destruction
/// waits for the call and then drops the block itself.
struct SimulatedHardware::IOProc {
  AudioDeviceIOProcID id = 0;
  AudioObjectID device = kAudioObjectUnknown;
  std::atomic<bool> isStarted{false};

  /// False when it was stopped or retired meanwhile.
  bool call(AudioBufferList input, AudioBufferList output) {
    const std::lock_guard lock(running_);
    if (!isStarted || !block_) {
      return false;
    }
    block_(input, output);
    return true;
  }

  void setBlock(IOBlock block) { block_ = std::move(block); }

  void waitForCall() { const std::lock_guard lock(running_); }

  void retire() {
    const std::lock_guard lock(running_);
    isStarted = false;
    block_ = nullptr;
  }

 private:
  std::mutex running_;
  IOBlock block_;
};

/// A callback with the samples that it is going to see.
struct SimulatedHardware::PendingCallback {
  std::shared_ptr<IOProc> proc;
  std::vector<std::vector<float>> inputSamples;
  std::vector<std::vector<float>> outputSamples;
  std::vector<AudioBuffer> inputs;
  std::vector<AudioBuffer> outputs;
};

}  // namespace orvelle
