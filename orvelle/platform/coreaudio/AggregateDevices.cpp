#include "orvelle/platform/coreaudio/AggregateDevices.h"

#include <algorithm>
#include <set>
#include <utility>

#include "orvelle/platform/coreaudio/AggregateDictionary.h"
#include "orvelle/platform/coreaudio/PropertyCodec.h"
#include "orvelle/platform/coreaudio/Waiting.h"

namespace orvelle::coreaudio {

namespace {

/// Fresh aggregates were reported to answer "unknown property" for some hundred milliseconds, and
/// to have no streams for longer still.
constexpr double kReadySeconds = 2.0;
/// An application's own volume is started once, above. What fails once in passing is tried again
/// here; the boost, which tries again by itself, is left alone.
constexpr int kTapStartAttempts = 2;

bool namesTwice(const AggregateDescription& description) {
  std::set<std::string> uids;
  return !std::ranges::all_of(description.subdevices, [&uids](const SubDevice& member) {
    return uids.insert(member.uid).second;
  });
}

}  // namespace

AggregateDevices::~AggregateDevices() {
  while (!aggregates_.empty()) {
    destroy(aggregates_.begin()->first);
  }
}

// Making and unmaking

OSStatus AggregateDevices::create(const AggregateDescription& description,
                                  AudioObjectID& aggregate) {
  if (namesTwice(description)) {
    return kAudioHardwareIllegalOperationError;  // a device that is its own input feeds back
  }
  for (const SubDevice& member : description.subdevices) {
    // The HAL makes an aggregate of what is not there, too, and leaves it out.
    if (deviceWithUID(member.uid) == kAudioObjectUnknown) {
      return kAudioHardwareBadDeviceError;
    }
  }
  std::vector<std::string> tapUIDs;
  if (!acquireTaps(description, tapUIDs)) {
    return kAudioHardwareBadObjectError;
  }
  AudioObjectID hal = kAudioObjectUnknown;
  const AggregateLayout layout = layoutOf(description);
  const OSStatus status = make(description, layout, tapUIDs, hal);
  if (status != kAudioHardwareNoError) {
    releaseTaps(description);
    return status;
  }
  auto made =
      std::make_shared<const Aggregate>(Aggregate{description, layout, ids_.ours(layout.loopback)});
  aggregate = ids_.ours(hal);
  const std::lock_guard lock(mutex_);
  aggregates_[aggregate] = std::move(made);
  return status;
}

OSStatus AggregateDevices::make(const AggregateDescription& description,
                                const AggregateLayout& layout,
                                const std::vector<std::string>& tapUIDs, AudioObjectID& hal) {
  const Owned<CFDictionaryRef> dictionary = aggregateDictionary(description, tapUIDs);
  {
    const std::lock_guard lock(mutex_);
    ++beingCreated_;
  }
  OSStatus status = AudioHardwareCreateAggregateDevice(dictionary.get(), &hal);
  {
    const std::lock_guard lock(mutex_);
    --beingCreated_;
    if (status == kAudioHardwareNoError) {
      own_[hal] = false;
    }
  }
  if (status != kAudioHardwareNoError) {
    return status;
  }
  if (!waitUntil(clock_, kReadySeconds, [&] { return isReady(hal, description, layout); })) {
    unmake(hal);
    status = kAudioHardwareNotReadyError;
  }
  return status;
}

OSStatus AggregateDevices::destroy(AudioObjectID aggregate) {
  std::shared_ptr<const Aggregate> destroyed;
  {
    const std::lock_guard lock(mutex_);
    const auto found = aggregates_.find(aggregate);
    if (found == aggregates_.end()) {
      return kAudioHardwareBadObjectError;
    }
    destroyed = found->second;
    aggregates_.erase(found);
  }
  procs_.destroyAllOf(aggregate);
  const AudioObjectID hal = ids_.hal(aggregate);
  const OSStatus status = hal == kAudioObjectUnknown ? kAudioHardwareNoError : unmake(hal);
  releaseTaps(destroyed->description);
  return status;
}

OSStatus AggregateDevices::unmake(AudioObjectID hal) {
  const OSStatus status = AudioHardwareDestroyAggregateDevice(hal);
  const std::lock_guard lock(mutex_);
  if (const auto found = own_.find(hal); found != own_.end()) {
    found->second = true;
  }
  return status;
}

bool AggregateDevices::acquireTaps(const AggregateDescription& description,
                                   std::vector<std::string>& uids) {
  for (const SubTap& tap : description.taps) {
    const std::string halUID = taps_.acquire(tap.uid);
    if (halUID.empty()) {
      AggregateDescription acquired = description;
      acquired.taps.resize(uids.size());
      releaseTaps(acquired);
      return false;
    }
    uids.push_back(halUID);
  }
  return true;
}

void AggregateDevices::releaseTaps(const AggregateDescription& description) {
  for (const SubTap& tap : description.taps) {
    taps_.release(tap.uid);
  }
}

// Callbacks

OSStatus AggregateDevices::createIOProc(AudioObjectID device, IOBlock block,
                                        AudioDeviceIOProcID& procID) {
  CallbackSettings settings;
  settings.block = std::move(block);
  const auto aggregate = find(device);
  if (aggregate) {
    const auto& taps = aggregate->description.taps;
    settings.droppedInputs = aggregate->layout.droppedInputs;
    settings.waitsForSound = std::ranges::any_of(
        taps, [this](const SubTap& tap) { return taps_.waitsForSound(tap.uid); });
  }
  return procs_.create(device, std::move(settings), procID);
}

OSStatus AggregateDevices::startIOProc(AudioObjectID device, AudioDeviceIOProcID procID) {
  const auto aggregate = find(device);
  const bool readsTaps = aggregate && !aggregate->description.taps.empty();
  return procs_.start(device, procID, readsTaps ? kTapStartAttempts : 1);
}

// Questions

std::shared_ptr<const AggregateDevices::Aggregate> AggregateDevices::find(
    AudioObjectID aggregate) const {
  const std::lock_guard lock(mutex_);
  const auto found = aggregates_.find(aggregate);
  return found == aggregates_.end() ? nullptr : found->second;
}

void AggregateDevices::removeOwn(std::vector<AudioObjectID>& halDevices) {
  const std::lock_guard lock(mutex_);
  std::erase_if(own_, [&halDevices](const auto& own) {
    return own.second && std::ranges::find(halDevices, own.first) == halDevices.end();
  });
  std::erase_if(halDevices, [this](AudioObjectID hal) { return own_.contains(hal); });
}

bool AggregateDevices::isCreating() const {
  const std::lock_guard lock(mutex_);
  return beingCreated_ > 0;
}

std::vector<AudioObjectID> AggregateDevices::tapReaders() const {
  std::vector<AudioObjectID> readers;
  const std::lock_guard lock(mutex_);
  for (const auto& [id, aggregate] : aggregates_) {
    if (!aggregate->description.taps.empty()) {
      readers.push_back(id);
    }
  }
  return readers;
}

AggregateOutline AggregateDevices::outlineOf(AudioObjectID id, const Aggregate& aggregate) const {
  return {aggregate.description.master, aggregate.loopback, !aggregate.description.taps.empty(),
          procs_.isStarted(id)};
}

AggregateOutline AggregateDevices::outline(AudioObjectID aggregate) const {
  const auto found = find(aggregate);
  return found ? outlineOf(aggregate, *found) : AggregateOutline{};
}

std::vector<AggregateOutline> AggregateDevices::outlines() const {
  std::vector<AggregateOutline> all;
  const std::lock_guard lock(mutex_);
  for (const auto& [id, aggregate] : aggregates_) {
    all.push_back(outlineOf(id, *aggregate));
  }
  return all;
}

// Taps

bool AggregateDevices::muteTaps(AudioObjectID aggregate) {
  const auto reader = find(aggregate);
  return reader && std::ranges::all_of(reader->description.taps, [this](const SubTap& tap) {
           return taps_.beginToMute(tap.uid);
         });
}

void AggregateDevices::silenceReaders(const std::string& tapUID) {
  for (const AudioObjectID id : tapReaders()) {
    const auto reader = find(id);
    if (reader && std::ranges::find(reader->description.taps, tapUID, &SubTap::uid) !=
                      reader->description.taps.end()) {
      procs_.closePaths(id);
    }
  }
}

// What goes and comes back

void AggregateDevices::forgetAll() {
  const std::lock_guard lock(mutex_);
  own_.clear();
}

/// What becomes of an aggregate without its master, and whether the master is taken again when it
/// returns, is said nowhere. Without one there is nothing to know.
void AggregateDevices::renewTapReaders() {
  taps_.renew();
  for (const AudioObjectID id : tapReaders()) {
    const auto reader = find(id);
    if (!reader) {
      continue;
    }
    const bool hasMaster = deviceWithUID(reader->description.master) != kAudioObjectUnknown;
    const bool isMade = ids_.hal(id) != kAudioObjectUnknown;
    if (isMade && !hasMaster) {
      suspend(id);
    } else if (!isMade && hasMaster) {
      renew(id, *reader);
    }
  }
}

void AggregateDevices::suspend(AudioObjectID id) {
  procs_.suspend(id);
  unmake(ids_.hal(id));
  ids_.forget(id);
}

void AggregateDevices::renew(AudioObjectID id, const Aggregate& reader) {
  std::vector<std::string> tapUIDs;
  bool waitsForSound = false;
  for (const SubTap& tap : reader.description.taps) {
    tapUIDs.push_back(taps_.halUID(tap.uid));
    waitsForSound = waitsForSound || taps_.waitsForSound(tap.uid);
  }
  AudioObjectID hal = kAudioObjectUnknown;
  if (std::ranges::find(tapUIDs, std::string()) != tapUIDs.end() ||
      make(reader.description, reader.layout, tapUIDs, hal) != kAudioHardwareNoError) {
    return;
  }
  ids_.rebind(id, hal);
  if (waitsForSound) {
    procs_.closePaths(id);
  }
  procs_.renew(id);
}

}  // namespace orvelle::coreaudio
