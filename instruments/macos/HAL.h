// The HAL, as plainly as it can be asked.
#pragma once

#include <CoreAudio/CoreAudio.h>

#include <atomic>
#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace report {

inline AudioObjectPropertyAddress address(
    AudioObjectPropertySelector selector,
    AudioObjectPropertyScope scope = kAudioObjectPropertyScopeGlobal,
    AudioObjectPropertyElement element = kAudioObjectPropertyElementMain) {
  return {selector, scope, element};
}

/// A property that no object has: 'none'.
inline constexpr AudioObjectPropertySelector kNoSuchSelector = 0x6E6F6E65;

/// What a property or a qualifier takes that is an object of Core Foundation.
inline constexpr UInt32 kReferenceSize = sizeof(void*);

template <class Value>
struct Answer {
  OSStatus status = kAudioHardwareUnspecifiedError;
  UInt32 byteSize = 0;
  Value value{};
};

/// A value of a fixed size. Of objects of Core Foundation, the caller owns what it gets.
template <class Value>
Answer<Value> ask(AudioObjectID object, const AudioObjectPropertyAddress& property) {
  Answer<Value> answer;
  answer.byteSize = sizeof(Value);  // NOLINT(bugprone-sizeof-expression): references, too
  answer.status =
      AudioObjectGetPropertyData(object, &property, 0, nullptr, &answer.byteSize, &answer.value);
  return answer;
}

/// Empty when the HAL does not tell.
std::vector<AudioObjectID> askList(AudioObjectID object,
                                   const AudioObjectPropertyAddress& property);
/// Empty when the HAL does not tell.
std::string askText(AudioObjectID object, const AudioObjectPropertyAddress& property);
UInt32 channelCount(AudioObjectID device, AudioObjectPropertyScope scope);
AudioObjectID deviceWithUID(const std::string& uid);
bool isListed(AudioObjectID device);
/// 0 where there is none.
AudioObjectID defaultOutput();

/// The seconds until `condition` held; absent when it did not within `atMost`.
std::optional<double> secondsUntil(const std::function<bool()>& condition, double atMost);
/// "after 3 ms", or that it did not happen.
std::string afterText(const std::optional<double>& seconds);
void pause(double seconds);

/// A uid that no other aggregate has.
std::string freshUID();

/// A private aggregate of one device, one tap, or both, which ends with this. Its UID names
/// neither.
class PrivateAggregate {
 public:
  PrivateAggregate(const std::string& deviceUID, const std::string& tapUID)
      : PrivateAggregate(deviceUID, tapUID, freshUID()) {}
  PrivateAggregate(const std::string& deviceUID, const std::string& tapUID,
                   std::string aggregateUID);
  PrivateAggregate(const PrivateAggregate&) = delete;
  PrivateAggregate& operator=(const PrivateAggregate&) = delete;
  ~PrivateAggregate() { destroy(); }

  OSStatus destroy();

  OSStatus status = kAudioHardwareUnspecifiedError;  ///< of its creation
  AudioObjectID id = kAudioObjectUnknown;
  const std::string uid;
};

/// A callback on a device: notes what it is given, and plays silence, or a faint tone.
class Callback {
 public:
  explicit Callback(AudioObjectID device, float toneLevel = 0.0F);
  Callback(const Callback&) = delete;
  Callback& operator=(const Callback&) = delete;
  ~Callback();

  OSStatus start();
  OSStatus stop();
  OSStatus destroy();

  OSStatus createStatus = kAudioHardwareUnspecifiedError;
  std::atomic<int> calls = 0;
  std::atomic<float> inputPeak = 0.0F;
  std::atomic<UInt32> inputBuffers = 0;
  std::atomic<UInt32> outputBuffers = 0;
  std::atomic<UInt32> frames = 0;
  std::atomic<bool> runsOnCallersThread = false;

  [[nodiscard]] AudioDeviceIOProcID procID() const { return procID_; }

 private:
  static OSStatus serve(AudioObjectID device, const AudioTimeStamp* now,
                        const AudioBufferList* input, const AudioTimeStamp* inputTime,
                        AudioBufferList* output, const AudioTimeStamp* outputTime,
                        void* clientData);
  void play(AudioBufferList& output);

  const AudioObjectID device_;
  const float toneLevel_;
  const std::thread::id caller_ = std::this_thread::get_id();
  AudioDeviceIOProcID procID_ = nullptr;
  int phase_ = 0;
};

}  // namespace report
