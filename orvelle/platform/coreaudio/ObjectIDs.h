// The ids under which the layers above know the HAL's objects.
#pragma once

#include <map>
#include <mutex>

#include "orvelle/platform/AudioTypes.h"

namespace orvelle::coreaudio {

/// An audio server that begins anew may give the ids of former objects to others. The layers above
/// would go on with them, and raise the volume of a device that nobody meant. So they see numbers
/// of ours, of which none is used twice: after a restart all of them name nothing any more, which
/// looks as if every device had been unplugged and plugged in again.
///
/// Any thread but the real-time one. Makes no call of the HAL.
class ObjectIDs {
 public:
  /// Our number for an object of the HAL. 0 and the system object are the same on both sides.
  AudioObjectID ours(AudioObjectID hal);
  /// The HAL's id behind our number; 0 where there is none.
  [[nodiscard]] AudioObjectID hal(AudioObjectID ours) const;
  /// The audio server has begun anew.
  void forgetAll();
  /// Our number names nothing until it is bound again.
  void forget(AudioObjectID ours);
  /// Lets a number that is known above name another object.
  void rebind(AudioObjectID ours, AudioObjectID hal);

 private:
  mutable std::mutex mutex_;
  AudioObjectID last_ = kAudioObjectSystemObject;
  std::map<AudioObjectID, AudioObjectID> oursByHAL_;
  std::map<AudioObjectID, AudioObjectID> halByOurs_;
};

}  // namespace orvelle::coreaudio
