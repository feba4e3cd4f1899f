// Where the HAL's real-time thread meets a block of ours.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>

#include "orvelle/platform/AudioHardware.h"

namespace orvelle::coreaudio {

/// What a callback is to do with its buffers beside calling its block.
struct CallbackSettings {
  IOBlock block;
  /// One bit for each of the device's input buffers that the block must not see.
  std::uint32_t droppedInputs = 0;
  /// Silent until `openPath`: somebody else still plays what arrives here.
  bool waitsForSound = false;
  /// Silent until `setFactors`: how loud it may be is not known yet.
  bool waitsForFactors = false;
};

/// One of a fixed number of places that are never freed. The HAL is given the number of an
/// occupation as client data, so that a call that comes after its end, whatever thread it was held
/// up on, finds nothing of its own.
///
/// `run` belongs to the real-time thread, everything else to any other.
class CallbackSlot {
 public:
  /// In each direction; what a device has beyond them is neither read nor written.
  static constexpr std::size_t mostBuffers = 32;

  struct Release {
    /// Waits for a call that is inside, then drops the block on this thread.
    void operator()(CallbackSlot* slot) const { slot->release(); }
  };
  using Handle = std::unique_ptr<CallbackSlot, Release>;

  /// Null when all places are taken.
  static Handle occupy(CallbackSettings settings);
  /// What the HAL is to call, with `clientData`.
  static OSStatus run(::AudioObjectID device, const ::AudioTimeStamp* now,
                      const ::AudioBufferList* input, const ::AudioTimeStamp* inputTime,
                      ::AudioBufferList* output, const ::AudioTimeStamp* outputTime,
                      void* clientData);
  [[nodiscard]] void* clientData() const;
  /// For another device: waits for a call that is inside; calls that know the former `clientData`
  /// find nothing from now on.
  void renumber(std::uint32_t droppedInputs);
  [[nodiscard]] std::uint32_t droppedInputs() const { return settings_.droppedInputs; }

  /// Calls since the beginning.
  [[nodiscard]] std::uint64_t callCount() const { return callCount_; }
  /// Whether anything but silence has arrived since the path was closed.
  [[nodiscard]] bool hasHeardSound() const { return hasHeardSound_; }
  [[nodiscard]] bool isPathOpen() const { return isPathOpen_; }
  void setPathOpen(bool isOpen);
  /// Factors for what the block writes, for the even and the odd channels of each buffer.
  void setFactors(float left, float right);
  /// Whether they are known.
  [[nodiscard]] bool hasFactors() const { return hasFactors_; }

 private:
  static constexpr std::size_t mostSlots = 128;
  using Buffers = std::array<AudioBuffer, mostBuffers>;

  void release();
  void shutOut();
  [[nodiscard]] std::uint64_t nextOccupation() const;
  void call(const ::AudioBufferList& input, const ::AudioBufferList& output);
  std::size_t takeInputs(const ::AudioBufferList& input);
  std::size_t takeOutputs(const ::AudioBufferList& output);
  void applyFactors(AudioBufferList output) const;

  static std::array<CallbackSlot, mostSlots>& slots();

  std::atomic<std::uint64_t> occupation_{0};  ///< 0: free, or being prepared
  std::atomic<int> inside_{0};
  std::atomic<std::uint64_t> callCount_{0};
  std::atomic<bool> hasHeardSound_{false};
  std::atomic<bool> isPathOpen_{true};
  std::atomic<float> left_{1.0F};
  std::atomic<float> right_{1.0F};
  std::atomic<bool> hasFactors_{true};
  static_assert(std::atomic<std::uint64_t>::is_always_lock_free &&
                std::atomic<float>::is_always_lock_free);

  bool isTaken_ = false;  // by `occupy`, under its lock
  CallbackSettings settings_;
  // The real-time thread's own.
  Buffers inputs_;
  Buffers outputs_;
};

}  // namespace orvelle::coreaudio
