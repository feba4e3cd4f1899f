// One I/O cycle of a simulated world: programs play, loopbacks deliver, callbacks run, outputs
// sound.
#include <algorithm>
#include <cmath>
#include <numeric>
#include <utility>

#include "orvelle/platform/simulated/SimulatedHardware.h"
#include "orvelle/platform/simulated/SimulatedObjects.h"

namespace orvelle {

namespace {

/// Some neighbouring channels within frames that may be wider.
struct Place {
  std::size_t frameWidth;
  std::size_t firstChannel;
};

/// Adds `channels` channels of `from` to as many of `to`.
void addChannels(const std::vector<float>& from, Place fromPlace, std::vector<float>& to,
                 Place toPlace, std::size_t channels, std::size_t frames) {
  for (std::size_t frame = 0; frame < frames; ++frame) {
    for (std::size_t channel = 0; channel < channels; ++channel) {
      to[frame * toPlace.frameWidth + toPlace.firstChannel + channel] +=
          from[frame * fromPlace.frameWidth + fromPlace.firstChannel + channel];
    }
  }
}

std::vector<AudioBuffer> buffersOver(std::vector<std::vector<float>>& samples,
                                     std::uint32_t frames) {
  std::vector<AudioBuffer> buffers;
  buffers.reserve(samples.size());
  for (std::vector<float>& data : samples) {
    buffers.push_back({static_cast<std::uint32_t>(data.size() / frames),
                       static_cast<std::uint32_t>(data.size() * sizeof(float)), data.data()});
  }
  return buffers;
}

}  // namespace

void SimulatedHardware::runCycle(std::uint32_t frames) {
  const std::lock_guard cycle(cycleMutex_);
  std::vector<PendingCallback> callbacks;
  {
    const std::lock_guard lock(mutex_);
    playPrograms(frames);
    callbacks = prepareCallbacks(frames);
  }
  // Callbacks run without the lock, as on hardware: the main thread may destroy one meanwhile.
  std::erase_if(callbacks, [](PendingCallback& callback) {
    return !callback.proc->call(callback.inputs, callback.outputs);
  });
  callbackCount_ += callbacks.size();
  const std::lock_guard lock(mutex_);
  for (PendingCallback& callback : callbacks) {
    if (const auto device = devices_.find(callback.proc->device); device != devices_.end()) {
      applyGovernor(device->second, callback);
      mixOutputs(device->second, callback, frames);
    }
  }
  finishCycle(frames);
}

std::vector<float> SimulatedHardware::heard(const std::string& uid) const {
  const std::lock_guard lock(mutex_);
  const Device* device = findDevice(uid);
  return device == nullptr ? std::vector<float>{} : device->heard;
}

float SimulatedHardware::heardPeak(const std::string& uid) const {
  float peak = 0.0F;
  for (const float sample : heard(uid)) {
    peak = std::max(peak, std::abs(sample));
  }
  return peak;
}

void SimulatedHardware::playPrograms(std::uint32_t frames) {
  for (auto& [id, device] : devices_) {
    device.mix.assign(std::size_t{frames} * device.outputChannels(), 0.0F);
    if (device.carried.size() == device.mix.size()) {
      device.mix.swap(device.carried);
    }
    device.carried.assign(device.mix.size(), 0.0F);
  }
  for (const auto& [id, process] : processes_) {
    const ProcessDescription& program = process.description;
    const Device* chosen = program.outputUID.empty() ? nullptr : findDevice(program.outputUID);
    const auto target = devices_.find(chosen != nullptr ? chosen->id : defaultOutput_);
    if (!program.isPlaying || target == devices_.end() || isSilencedByTap(id)) {
      continue;
    }
    const std::uint32_t channels = target->second.outputChannels();
    for (std::size_t i = 0; i < target->second.mix.size(); ++i) {
      target->second.mix[i] += program.signal(worldFrame_ + static_cast<std::int64_t>(i / channels),
                                              static_cast<std::uint32_t>(i % channels));
    }
  }
  for (auto& [id, device] : devices_) {
    if (!device.description.isLoopback) {
      continue;
    }
    device.arrived = device.mix;
    const std::uint32_t channels = device.outputChannels();
    for (std::size_t i = 0; i < device.arrived.size(); ++i) {
      device.arrived[i] *=
          outputFactor(device.description, static_cast<std::uint32_t>(i % channels));
    }
  }
}

bool SimulatedHardware::isSilencedByTap(AudioObjectID process) const {
  return std::ranges::any_of(taps_, [&](const auto& keyed) {
    const TapDescription& tap = keyed.second.description;
    const bool isTapped = std::ranges::find(tap.processes, process) != tap.processes.end();
    return isTapped &&
           (tap.muteBehavior == TapMuteBehavior::muted ||
            (tap.muteBehavior == TapMuteBehavior::mutedWhenTapped && isTapRead(keyed.first)));
  });
}

bool SimulatedHardware::isTapRead(AudioObjectID tap) const {
  return std::ranges::any_of(procs_, [&](const auto& keyed) {
    const Device& reader = devices_.at(keyed.second->device);
    return keyed.second->isStarted && devices_.contains(reader.master) &&
           std::ranges::find(reader.taps, tap) != reader.taps.end();
  });
}

std::vector<SimulatedHardware::PendingCallback> SimulatedHardware::prepareCallbacks(
    std::uint32_t frames) {
  std::vector<PendingCallback> callbacks;
  for (const auto& [id, proc] : procs_) {
    const Device& device = devices_.at(proc->device);
    const bool hasClock = !device.isAggregate || devices_.contains(device.master);
    if (!proc->isStarted || !hasClock) {
      continue;
    }
    PendingCallback callback;
    callback.proc = proc;
    collectInputs(device, frames, callback);
    for (const std::uint32_t channels :
         streams(device, kAudioObjectPropertyScopeOutput).channelsPerBuffer) {
      callback.outputSamples.emplace_back(std::size_t{frames} * channels, 0.0F);
    }
    callback.inputs = buffersOver(callback.inputSamples, frames);
    callback.outputs = buffersOver(callback.outputSamples, frames);
    callbacks.push_back(std::move(callback));
  }
  return callbacks;
}

void SimulatedHardware::collectInputs(const Device& device, std::uint32_t frames,
                                      PendingCallback& callback) const {
  for (const AudioObjectID id : membersOf(device)) {
    const Device& member = devices_.at(id);
    std::size_t firstChannel = 0;
    for (const std::uint32_t channels : member.description.inputBuffers) {
      std::vector<float> samples(std::size_t{frames} * channels, 0.0F);
      const std::size_t width = member.outputChannels();
      if (member.description.isLoopback && firstChannel + channels <= width) {
        addChannels(member.arrived, {width, firstChannel}, samples, {channels, 0}, channels,
                    frames);
      }
      callback.inputSamples.push_back(std::move(samples));
      firstChannel += channels;
    }
  }
  for (const AudioObjectID id : device.taps) {
    const auto tap = taps_.find(id);
    callback.inputSamples.push_back(tap == taps_.end()
                                        ? std::vector<float>(std::size_t{frames} * 2, 0.0F)
                                        : tapSamples(tap->second, frames));
  }
}

std::vector<float> SimulatedHardware::tapSamples(const Tap& tap, std::uint32_t frames) const {
  std::vector<float> samples(std::size_t{frames} * 2, 0.0F);
  for (const AudioObjectID id : tap.description.processes) {
    const auto process = processes_.find(id);
    if (process == processes_.end() || !process->second.description.isPlaying) {
      continue;
    }
    for (std::size_t i = 0; i < samples.size(); ++i) {
      samples[i] += process->second.description.signal(
          worldFrame_ + static_cast<std::int64_t>(i / 2), static_cast<std::uint32_t>(i % 2));
    }
  }
  return samples;
}

/// The loopback whose volume and mute stand in for the output's own in what an aggregate with taps
/// plays; null where the output's own govern.
const SimulatedHardware::Device* SimulatedHardware::governingLoopback(
    const Device& aggregate) const {
  if (!governsTaps_) {
    return nullptr;
  }
  std::vector<AggregateOutline> outlines;
  for (const auto& [id, other] : devices_) {
    if (other.isAggregate) {
      outlines.push_back(outline(other));
    }
  }
  const auto chosen = devices_.find(defaultOutput_);
  const bool isLoopback = chosen != devices_.end() && chosen->second.description.isLoopback;
  const auto governor = devices_.find(orvelle::governingLoopback(
      outline(aggregate), outlines, isLoopback ? defaultOutput_ : kAudioObjectUnknown));
  return governor == devices_.end() ? nullptr : &governor->second;
}

AggregateOutline SimulatedHardware::outline(const Device& aggregate) const {
  const Device* loopback = loopbackIn(aggregate);
  return {aggregate.masterUID, loopback == nullptr ? kAudioObjectUnknown : loopback->id,
          !aggregate.taps.empty(), isStarted(aggregate)};
}

const SimulatedHardware::Device* SimulatedHardware::loopbackIn(const Device& aggregate) const {
  for (const AudioObjectID id : membersOf(aggregate)) {
    if (devices_.at(id).description.isLoopback) {
      return &devices_.at(id);
    }
  }
  return nullptr;
}

bool SimulatedHardware::isStarted(const Device& device) const {
  return std::ranges::any_of(procs_, [&device](const auto& keyed) {
    return keyed.second->device == device.id && keyed.second->isStarted;
  });
}

void SimulatedHardware::applyGovernor(const Device& aggregate, PendingCallback& callback) const {
  const Device* governor = governingLoopback(aggregate);
  if (governor == nullptr) {
    return;
  }
  for (std::size_t buffer = 0; buffer < callback.outputs.size(); ++buffer) {
    const std::uint32_t channels = callback.outputs[buffer].mNumberChannels;
    std::vector<float>& samples = callback.outputSamples[buffer];
    for (std::size_t i = 0; i < samples.size(); ++i) {
      samples[i] *= outputFactor(governor->description, static_cast<std::uint32_t>(i % channels));
    }
  }
}

void SimulatedHardware::mixOutputs(const Device& device, const PendingCallback& callback,
                                   std::uint32_t frames) {
  std::size_t buffer = 0;
  for (const AudioObjectID id : membersOf(device)) {
    Device& member = devices_.at(id);
    // What is played into a loopback can only be delivered by the next cycle.
    std::vector<float>& destination = member.description.isLoopback ? member.carried : member.mix;
    std::size_t firstChannel = 0;
    for (const std::uint32_t channels : member.description.outputBuffers) {
      const bool fits = destination.size() == std::size_t{frames} * member.outputChannels();
      if (fits && buffer < callback.outputSamples.size()) {
        addChannels(callback.outputSamples[buffer], {channels, 0}, destination,
                    {member.outputChannels(), firstChannel}, channels, frames);
      }
      ++buffer;
      firstChannel += channels;
    }
  }
}

void SimulatedHardware::finishCycle(std::uint32_t frames) {
  for (auto& [id, device] : devices_) {
    if (device.isAggregate || device.description.isLoopback) {
      continue;
    }
    device.heard = device.mix;
    const std::uint32_t channels = device.outputChannels();
    for (std::size_t i = 0; i < device.heard.size(); ++i) {
      device.heard[i] *= outputFactor(device.description, static_cast<std::uint32_t>(i % channels));
    }
  }
  worldFrame_ += frames;
}

/// The members that are still there; a plain device is its own only member.
std::vector<AudioObjectID> SimulatedHardware::membersOf(const Device& device) const {
  if (!device.isAggregate) {
    return {device.id};
  }
  std::vector<AudioObjectID> present = device.members;
  std::erase_if(present, [this](AudioObjectID id) { return !devices_.contains(id); });
  return present;
}

}  // namespace orvelle
