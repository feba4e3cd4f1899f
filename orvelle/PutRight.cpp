#include "orvelle/PutRight.h"

#include <algorithm>
#include <string>
#include <vector>

#include "orvelle/HAL.h"
#include "orvelle/OutputRanking.h"

namespace orvelle {

namespace {

constexpr float kRaisedVolume = 1.0F;
/// A call that fails in passing must not leave an output loud.
constexpr int kAttempts = 3;

/// An output without a volume has been touched by us only if it was muted. One channel is enough:
/// we may have come no further.
bool standsAsWeLeftIt(const HAL& hal, AudioObjectID output, const OutputLevel& former) {
  return former.volume ? hal.hasOutputVolumeOnAnyElement(output, kRaisedVolume)
                       : former.mute.value_or(false) && !hal.outputMute(output).value_or(true);
}

/// Whether the output has its former level again, or one that the user has given it. Asked more
/// than once: what cannot be read looks like something that was changed.
bool lower(const HAL& hal, const std::string& uid, const OutputLevel& former) {
  bool isSeen = false;
  bool isRaised = false;
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const auto output = hal.device(uid);
    isSeen = isSeen || output.has_value();
    isRaised = isRaised || (output && standsAsWeLeftIt(hal, output->id, former));
    if (output && isRaised && setOutputLevel(hal, output->id, former)) {
      return true;
    }
  }
  return isSeen && !isRaised;
}

bool isOwed(const UndoRecords& records, const std::string& uid) {
  return std::ranges::any_of(
      records, [&](const auto& entry) { return entry.second.raisedOutputs.contains(uid); });
}

/// The output from before, or else the best; never one that stands at full volume.
std::optional<AudioDeviceInfo> outputForDefault(const HAL& hal, const std::string& formerUID,
                                                const UndoRecords& loud) {
  std::vector<AudioDeviceInfo> outputs = hal.realOutputs();
  std::erase_if(outputs,
                [&](const auto& output) { return output.uid.empty() || isOwed(loud, output.uid); });
  const auto former = std::ranges::find(outputs, formerUID, &AudioDeviceInfo::uid);
  return former != outputs.end() ? std::optional(*former) : bestOutput(outputs);
}

/// Whether the default output is none of ours any more.
bool putDefaultBack(const HAL& hal, const UndoRecord::DefaultOutput& owed,
                    const UndoRecords& loud) {
  const auto isStillOurs = [&] {
    return hal.string(hal.defaultOutput(), kAudioDevicePropertyDeviceUID) == owed.taken;
  };
  for (int attempt = 0; attempt < kAttempts; ++attempt) {
    const auto output = isStillOurs() ? outputForDefault(hal, owed.former, loud) : std::nullopt;
    if (output) {
      hal.setDefaultOutput(output->id);
    }
  }
  return !isStillOurs();
}

}  // namespace

UndoRecords lowerOutputs(AudioHardware& hardware, const UndoRecords& records) {
  const HAL hal(hardware);
  UndoRecords left;
  for (const auto& [owner, record] : records) {
    for (const auto& [uid, former] : record.raisedOutputs) {
      if (!lower(hal, uid, former)) {
        left[owner].raisedOutputs[uid] = former;
      }
    }
  }
  return left;
}

UndoRecords restoreRouting(AudioHardware& hardware, const UndoRecords& records,
                           const UndoRecords& loud) {
  hardware.releaseAbandoned();
  const HAL hal(hardware);
  UndoRecords left = loud;
  for (const auto& [owner, record] : records) {
    if (record.defaultOutput && !putDefaultBack(hal, *record.defaultOutput, loud)) {
      left[owner].defaultOutput = record.defaultOutput;
    }
  }
  return left;
}

UndoRecords putRight(AudioHardware& hardware, const UndoRecords& records) {
  return restoreRouting(hardware, records, lowerOutputs(hardware, records));
}

}  // namespace orvelle
