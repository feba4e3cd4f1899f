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
/// here, and outputs that are slow to run (Bluetooth, HDMI) are given their time; the boost tries
/// again by itself.
constexpr IOProcs::Patience kTapStart{2, 1.0};
constexpr IOProcs::Patience kStart{1, 0.2};

bool namesTwice(const AggregateDescription& description) {
  std::set<std::string> uids;
  return !std::ranges::all_of(description.subdevices, [&uids](const SubDevice& member) {
    return uids.insert(member.uid).second;
  });
}

std::vector<AudioObjectID> listedDevices() {
  PropertyValue value;
  readValue(kAudioObjectSystemObject, {kAudioHardwarePropertyDevices}, value);
  const auto* listed = std::get_if<std::vector<AudioObjectID>>(&value);
  return listed == nullptr ? std::vector<AudioObjectID>{} : *listed;
}

/// Empty where it does not answer.
std::string uidOf(AudioObjectID halDevice) {
  PropertyValue value;
  readValue(halDevice, {kAudioDevicePropertyDeviceUID}, value);
  const auto* uid = std::get_if<std::string>(&value);
  return uid == nullptr ? std::string() : *uid;
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
  if (layout.isOutOfReach) {
    return kAudioHardwareBadDeviceError;
  }
  const Owned<CFDictionaryRef> dictionary = aggregateDictionary(description, tapUIDs);
  Creation creation{description.uid, listedDevices()};
  std::list<Creation>::iterator place;
  {
    const std::lock_guard lock(mutex_);
    place = creations_.insert(creations_.end(), std::move(creation));
  }
  const OSStatus status = AudioHardwareCreateAggregateDevice(dictionary.get(), &hal);
  {
    const std::lock_guard lock(mutex_);
    creations_.erase(place);
    if (status == kAudioHardwareNoError) {
      own_[hal] = false;
    }
  }
  if (status != kAudioHardwareNoError) {
    return status;
  }
  // The stream of a tap may show only when it is read, or allowed to be: it is not insisted on.
  if (!waitUntil(clock_, kReadySeconds, [&] { return isComplete(hal, description, layout); }) &&
      !isReady(hal, description, layout)) {
    unmake(hal);
    return kAudioHardwareNotReadyError;
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
    settings.waitsForFactors = !taps.empty();
  }
  return procs_.create(device, std::move(settings), procID);
}

OSStatus AggregateDevices::startIOProc(AudioObjectID device, AudioDeviceIOProcID procID) {
  const auto aggregate = find(device);
  const bool readsTaps = aggregate && !aggregate->description.taps.empty();
  return procs_.start(device, procID, readsTaps ? kTapStart : kStart);
}

// Questions

std::shared_ptr<const AggregateDevices::Aggregate> AggregateDevices::find(
    AudioObjectID aggregate) const {
  const std::lock_guard lock(mutex_);
  const auto found = aggregates_.find(aggregate);
  return found == aggregates_.end() ? nullptr : found->second;
}

/// False where it has been destroyed meanwhile.
bool AggregateDevices::replace(AudioObjectID id, Aggregate aggregate) {
  const std::lock_guard lock(mutex_);
  const auto found = aggregates_.find(id);
  if (found == aggregates_.end()) {
    return false;
  }
  found->second = std::make_shared<const Aggregate>(std::move(aggregate));
  return true;
}

void AggregateDevices::removeOwn(std::vector<AudioObjectID>& halDevices) {
  removeThoseBeingCreated(halDevices);
  const std::lock_guard lock(mutex_);
  std::erase_if(own_, [&halDevices](const auto& own) {
    return own.second && std::ranges::find(halDevices, own.first) == halDevices.end();
  });
  std::erase_if(halDevices, [this](AudioObjectID hal) { return own_.contains(hal); });
}

/// They are listed before anybody knows their ids. What cannot say who it is yet may be one.
void AggregateDevices::removeThoseBeingCreated(std::vector<AudioObjectID>& halDevices) const {
  std::list<Creation> creations;
  {
    const std::lock_guard lock(mutex_);
    creations = creations_;
  }
  std::erase_if(halDevices, [&creations](AudioObjectID hal) {
    return std::ranges::any_of(creations, [hal](const Creation& creation) {
      if (std::ranges::find(creation.listedBefore, hal) != creation.listedBefore.end()) {
        return false;
      }
      const std::string uid = uidOf(hal);
      return uid.empty() || uid == creation.uid;
    });
  });
}

bool AggregateDevices::isCreating() const {
  const std::lock_guard lock(mutex_);
  return !creations_.empty();
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
  failedRenewals_.clear();
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
    const AudioObjectID master = deviceWithUID(reader->description.master);
    const bool isMade = ids_.hal(id) != kAudioObjectUnknown;
    if (master == kAudioObjectUnknown) {
      failedRenewals_.erase(id);
      if (isMade) {
        suspend(id);
      }
    } else if (!isMade) {
      renewUnlessInVain(id, *reader, master);
    }
  }
}

/// An attempt that fails changes the device list twice itself. Repeated for that, it would hold up
/// the main thread for ever.
void AggregateDevices::renewUnlessInVain(AudioObjectID id, const Aggregate& reader,
                                         AudioObjectID master) {
  Surroundings now{master, listedDevices()};
  removeOwn(now.devices);
  const auto failed = failedRenewals_.find(id);
  if (failed != failedRenewals_.end() && failed->second == now) {
    return;
  }
  failedRenewals_.erase(id);
  if (!renew(id, reader)) {
    failedRenewals_[id] = std::move(now);
  }
}

void AggregateDevices::suspend(AudioObjectID id) {
  procs_.suspend(id);
  unmake(ids_.hal(id));
  ids_.forget(id);
}

/// False where the attempt failed; true, too, where there was none because a tap has not returned.
bool AggregateDevices::renew(AudioObjectID id, const Aggregate& reader) {
  std::vector<std::string> tapUIDs;
  bool waitsForSound = false;
  for (const SubTap& tap : reader.description.taps) {
    tapUIDs.push_back(taps_.halUID(tap.uid));
    waitsForSound = waitsForSound || taps_.waitsForSound(tap.uid);
  }
  if (std::ranges::find(tapUIDs, std::string()) != tapUIDs.end()) {
    return true;
  }
  // An output may return with other streams.
  const AggregateLayout layout = layoutOf(reader.description);
  AudioObjectID hal = kAudioObjectUnknown;
  if (make(reader.description, layout, tapUIDs, hal) != kAudioHardwareNoError) {
    return false;
  }
  ids_.rebind(id, hal);
  if (!replace(id, {reader.description, layout, ids_.ours(layout.loopback)})) {
    unmake(hal);
    ids_.forget(id);
    return true;
  }
  if (waitsForSound) {
    procs_.closePaths(id);
  }
  if (!procs_.renew(id, layout.droppedInputs, kTapStart)) {
    suspend(id);
    return false;
  }
  return true;
}

}  // namespace orvelle::coreaudio
