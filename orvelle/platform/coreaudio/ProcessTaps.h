// Process taps: when they begin to mute, and in which order they end.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "orvelle/platform/AudioHardware.h"
#include "orvelle/platform/coreaudio/ObjectIDs.h"

namespace orvelle::coreaudio {

/// Without the user's permission to record, taps are made and deliver zeros, and a muting one mutes
/// all the same: the application would fall silent for no reason that anybody could see. So every
/// tap begins unmuted, and mutes as it was asked to once sound has come through it; until then its
/// callback is silent (`CallbackSlot`), so that the application is never heard twice either.
///
/// Any thread but the real-time one. No lock is held across a call of the HAL.
class ProcessTaps {
 public:
  explicit ProcessTaps(ObjectIDs& ids) : ids_(ids) {}
  ProcessTaps(const ProcessTaps&) = delete;
  ProcessTaps& operator=(const ProcessTaps&) = delete;
  ~ProcessTaps();

  OSStatus create(const TapDescription& description, AudioObjectID& tap);
  /// The application is on its normal path again. While an aggregate still has the tap, the HAL
  /// keeps it until that has gone.
  OSStatus destroy(AudioObjectID tap);

  /// For an aggregate that is about to be made with the tap of this (our) uid, until `release`:
  /// the uid that the HAL knows it by. Empty where there is none.
  std::string acquire(const std::string& uid);
  void release(const std::string& uid);
  /// Whether what the tap delivers is still to be heard on the normal path.
  [[nodiscard]] bool waitsForSound(const std::string& uid) const;
  /// Sound has come through: mutes as the description says. False where that was refused, or the
  /// tap has been destroyed meanwhile.
  bool beginToMute(const std::string& uid);
  /// The uid that the HAL knows it by now; empty where there is none, or none any more.
  [[nodiscard]] std::string halUID(const std::string& uid) const;
  /// Makes taps again that the HAL has lost by a restart, as far as their processes are listed
  /// again: each under its id, and unmuted at first.
  void renew();
  /// The uid of the tap with this id, empty for none.
  [[nodiscard]] std::string uid(AudioObjectID tap) const;

 private:
  struct Tap {
    TapDescription description;
    std::vector<std::int32_t> pids;          // what is left of its processes after a restart
    AudioObjectID id = kAudioObjectUnknown;  // ours
    std::string halUID;
    int users = 0;
    bool isMuting = false;
    bool isDestroyed = false;
  };

  Tap* find(const std::string& uid);
  [[nodiscard]] std::vector<Tap> lost() const;

  ObjectIDs& ids_;
  mutable std::mutex mutex_;
  std::map<std::string, Tap> taps_;  // by our uid
};

}  // namespace orvelle::coreaudio
