#include "orvelle/platform/pipewire/AggregateDevices.h"

#include <algorithm>
#include <set>
#include <string_view>
#include <utility>

namespace orvelle::pipewire {

namespace {

constexpr double kLinkSeconds = 0.5;

const SubDevice* inputMember(const AggregateDescription& description) {
  const auto found = std::ranges::find_if(description.subdevices, [&](const SubDevice& member) {
    return member.uid != description.master;
  });
  return found == description.subdevices.end() ? nullptr : &*found;
}

}  // namespace

AggregateDevices::~AggregateDevices() {
  for (auto& [id, aggregate] : aggregates_) {
    for (auto& [procID, proc] : aggregate.procs) {
      proc.isStarted = false;
    }
  }
  updateTaps();
}

OSStatus AggregateDevices::create(const AggregateDescription& description,
                                  AudioObjectID& aggregate) {
  std::set<std::string_view> uids;
  for (const SubDevice& member : description.subdevices) {
    // A device that is its own input would feed back.
    if (!uids.insert(member.uid).second) {
      return kAudioHardwareIllegalOperationError;
    }
  }
  const bool hasInput = inputMember(description) != nullptr;
  if (!uids.contains(description.master) || (hasInput && isAnotherInstanceRunning(description))) {
    return kAudioHardwareIllegalOperationError;
  }
  if (description.taps.size() + (hasInput ? 1 : 0) > 1) {
    return kAudioHardwareUnsupportedOperationError;  // a stream has one input
  }
  if (!description.taps.empty() && taps_.nodeName(description.taps.front().uid).empty()) {
    return kAudioHardwareBadObjectError;
  }
  aggregate = nextID_();
  aggregates_[aggregate].description = description;
  return kAudioHardwareNoError;
}

/// Two instances would share one loopback and take its volume, and the full volume of the other's
/// output, for what they have to put back; and whoever stops first leaves the other on a raised
/// output without a loopback.
bool AggregateDevices::isAnotherInstanceRunning(const AggregateDescription& description) const {
  return std::ranges::any_of(session_.nodes(), [&](const Node* node) {
    return node->name().starts_with(kBoostPrefix) && node->name() != description.uid;
  });
}

std::string AggregateDevices::inputOf(const AggregateDescription& description) const {
  if (!description.taps.empty()) {
    return taps_.nodeName(description.taps.front().uid);
  }
  const SubDevice* member = inputMember(description);
  return member == nullptr ? std::string{} : member->uid;
}

OSStatus AggregateDevices::destroy(AudioObjectID aggregate) {
  const auto found = aggregates_.find(aggregate);
  if (found == aggregates_.end()) {
    return kAudioHardwareBadObjectError;
  }
  for (auto& [procID, proc] : found->second.procs) {
    end(found->second.description, proc);
  }
  aggregates_.erase(aggregate);
  return kAudioHardwareNoError;
}

OSStatus AggregateDevices::createIOProc(AudioObjectID aggregate, IOBlock block,
                                        AudioDeviceIOProcID& procID) {
  const auto found = aggregates_.find(aggregate);
  if (found == aggregates_.end()) {
    return kAudioHardwareBadDeviceError;
  }
  if (!block) {
    return kAudioHardwareIllegalOperationError;
  }
  procID = ++lastProcID_;
  found->second.procs[procID].block = std::move(block);
  return kAudioHardwareNoError;
}

OSStatus AggregateDevices::destroyIOProc(AudioObjectID aggregate, AudioDeviceIOProcID procID) {
  Proc* proc = find(aggregate, procID);
  if (proc == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  end(aggregates_.at(aggregate).description, *proc);
  aggregates_.at(aggregate).procs.erase(procID);
  return kAudioHardwareNoError;
}

OSStatus AggregateDevices::start(AudioObjectID aggregate, AudioDeviceIOProcID procID) {
  Proc* proc = find(aggregate, procID);
  if (proc == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  if (proc->isStarted) {
    return kAudioHardwareNoError;
  }
  const AggregateDescription& description = aggregates_.at(aggregate).description;
  if (!areMembersThere(description)) {
    return kAudioHardwareBadDeviceError;
  }
  // The proc cannot go away meanwhile: its owner is the one who waits here. The stream is put in
  // place first, so that what the session announces finds it.
  proc->stream = makeStream(description, *proc);
  const auto isLinked = [&] { return proc->stream != nullptr && proc->stream->isLinked(); };
  if (!session_.waitUntil(isLinked, kLinkSeconds)) {
    const auto ended = std::move(proc->stream);
    return kAudioHardwareNotReadyError;
  }
  proc->isStarted = true;
  updateTaps();
  for (const SubTap& tap : description.taps) {
    taps_.waitForStreams(tap.uid);
  }
  return kAudioHardwareNoError;
}

bool AggregateDevices::areMembersThere(const AggregateDescription& description) const {
  const std::string input = inputOf(description);
  return session_.nodeNamed(description.master) != nullptr &&
         (input.empty() || session_.nodeNamed(input) != nullptr);
}

/// Null when the session refuses it.
std::unique_ptr<GraphStream> AggregateDevices::makeStream(const AggregateDescription& description,
                                                          const Proc& proc) {
  auto stream =
      std::make_unique<GraphStream>(session_,
                                    GraphStreamSettings{description.uid, description.name,
                                                        inputOf(description), description.master},
                                    proc.block);
  if (!stream->isConnected()) {
    return nullptr;
  }
  followLoudness(description, *stream);
  return stream;
}

OSStatus AggregateDevices::stop(AudioObjectID aggregate, AudioDeviceIOProcID procID) {
  Proc* proc = find(aggregate, procID);
  if (proc == nullptr) {
    return kAudioHardwareBadObjectError;
  }
  if (!proc->isStarted) {
    return kAudioHardwareNotRunningError;
  }
  end(aggregates_.at(aggregate).description, *proc);
  return kAudioHardwareNoError;
}

/// The streams of a tap leave first, so that they are not heard nowhere meanwhile.
void AggregateDevices::end(const AggregateDescription& description, Proc& proc) {
  if (std::exchange(proc.isStarted, false)) {
    updateTaps();
    for (const SubTap& tap : description.taps) {
      taps_.waitForStreams(tap.uid);
    }
  }
  // Taken out first: ending a stream lets the loop thread look at what is still in.
  const auto ended = std::move(proc.stream);
}

const AggregateDescription* AggregateDevices::description(AudioObjectID aggregate) const {
  const auto found = aggregates_.find(aggregate);
  return found == aggregates_.end() ? nullptr : &found->second.description;
}

bool AggregateDevices::isRunning(AudioObjectID aggregate) const {
  const auto found = aggregates_.find(aggregate);
  return found != aggregates_.end() &&
         std::ranges::any_of(found->second.procs,
                             [](const auto& entry) { return entry.second.isStarted; });
}

bool AggregateDevices::hasMember(std::string_view uid) const {
  return std::ranges::any_of(aggregates_, [&](const auto& entry) {
    const auto& members = entry.second.description.subdevices;
    return std::ranges::find(members, uid, &SubDevice::uid) != members.end();
  });
}

void AggregateDevices::linkUp() {
  for (auto& [id, aggregate] : aggregates_) {
    for (auto& [procID, proc] : aggregate.procs) {
      if (proc.isStarted && !proc.stream && areMembersThere(aggregate.description)) {
        proc.stream = makeStream(aggregate.description, proc);
      }
      if (proc.stream) {
        proc.stream->linkUp();
      }
    }
  }
  updateTaps();
}

void AggregateDevices::drop() {
  for (auto& [id, aggregate] : aggregates_) {
    for (auto& [procID, proc] : aggregate.procs) {
      proc.stream.reset();
    }
  }
}

void AggregateDevices::updateTaps() {
  std::set<std::string> read;
  for (const auto& [id, aggregate] : aggregates_) {
    for (const auto& [procID, proc] : aggregate.procs) {
      if (proc.isStarted && proc.stream && proc.stream->isLinked()) {
        for (const SubTap& tap : aggregate.description.taps) {
          read.insert(tap.uid);
        }
      }
    }
  }
  taps_.setRead(read);
}

void AggregateDevices::followLoudness() {
  for (auto& [id, aggregate] : aggregates_) {
    for (auto& [procID, proc] : aggregate.procs) {
      if (proc.stream) {
        followLoudness(aggregate.description, *proc.stream);
      }
    }
  }
}

void AggregateDevices::followLoudness(const AggregateDescription& description,
                                      GraphStream& stream) const {
  const auto factors =
      description.taps.empty() ? std::nullopt : loudness_.factorsAt(description.master);
  if (factors) {
    stream.setOutputFactors(factors->left, factors->right);
  }
}

AggregateDevices::Proc* AggregateDevices::find(AudioObjectID aggregate,
                                               AudioDeviceIOProcID procID) {
  const auto found = aggregates_.find(aggregate);
  if (found == aggregates_.end()) {
    return nullptr;
  }
  const auto proc = found->second.procs.find(procID);
  return proc == found->second.procs.end() ? nullptr : &proc->second;
}

}  // namespace orvelle::pipewire
