#include "orvelle/platform/coreaudio/CallbackSlot.h"

#include <algorithm>
#include <cstring>
#include <mutex>
#include <thread>
#include <utility>

namespace orvelle::coreaudio {

namespace {

// Never destroyed, as the places: the HAL's threads may call until the process has ended.

std::mutex& occupationMutex() {
  static auto& mutex = *new std::mutex;
  return mutex;
}

bool hasSound(AudioBufferList buffers) {
  return std::ranges::any_of(buffers, [](const AudioBuffer& buffer) {
    const auto* samples = static_cast<const float*>(buffer.mData);
    return samples != nullptr &&
           std::any_of(samples, samples + buffer.mDataByteSize / sizeof(float),
                       [](float sample) { return sample != 0.0F; });
  });
}

void silence(const AudioBuffer& buffer) {
  if (buffer.mData != nullptr) {
    std::memset(buffer.mData, 0, buffer.mDataByteSize);
  }
}

}  // namespace

std::array<CallbackSlot, CallbackSlot::mostSlots>& CallbackSlot::slots() {
  static auto& slots = *new std::array<CallbackSlot, mostSlots>;
  return slots;
}

/// Tells its place, and none is used twice. Under the lock.
std::uint64_t CallbackSlot::nextOccupation() const {
  static std::uint64_t occupations = 0;
  return ++occupations * mostSlots + static_cast<std::uint64_t>(this - slots().data());
}

CallbackSlot::Handle CallbackSlot::occupy(CallbackSettings settings) {
  const std::lock_guard lock(occupationMutex());
  auto* const free = std::ranges::find(slots(), false, &CallbackSlot::isTaken_);
  if (free == slots().end()) {
    return nullptr;
  }
  free->isTaken_ = true;
  free->callCount_ = 0;
  const float factor = settings.waitsForFactors ? 0.0F : 1.0F;
  free->setFactors(factor, factor);
  free->hasFactors_ = !settings.waitsForFactors;
  free->setPathOpen(!settings.waitsForSound);
  free->settings_ = std::move(settings);
  free->occupation_ = free->nextOccupation();
  return Handle(&*free);
}

void CallbackSlot::shutOut() {
  occupation_ = 0;
  while (inside_ != 0) {
    std::this_thread::yield();
  }
}

void CallbackSlot::renumber(std::uint32_t droppedInputs) {
  shutOut();
  settings_.droppedInputs = droppedInputs;
  const std::lock_guard lock(occupationMutex());
  occupation_ = nextOccupation();
}

void CallbackSlot::release() {
  shutOut();
  const IOBlock block = std::exchange(settings_.block, nullptr);
  const std::lock_guard lock(occupationMutex());
  isTaken_ = false;
}

void* CallbackSlot::clientData() const {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): a number in a pointer's place, never looked behind.
  return reinterpret_cast<void*>(static_cast<std::uintptr_t>(occupation_.load()));
}

void CallbackSlot::setPathOpen(bool isOpen) {
  hasHeardSound_ = false;
  isPathOpen_ = isOpen;
}

void CallbackSlot::setFactors(float left, float right) {
  left_.store(left, std::memory_order_relaxed);
  right_.store(right, std::memory_order_relaxed);
  hasFactors_ = true;
}

// Real-time thread

OSStatus CallbackSlot::run(::AudioObjectID /*device*/, const ::AudioTimeStamp* /*now*/,
                           const ::AudioBufferList* input, const ::AudioTimeStamp* /*inputTime*/,
                           ::AudioBufferList* output, const ::AudioTimeStamp* /*outputTime*/,
                           void* clientData) {
  const auto occupation = static_cast<std::uint64_t>(reinterpret_cast<std::uintptr_t>(clientData));
  CallbackSlot& slot = slots()[occupation % mostSlots];
  // Sequentially consistent: whoever releases the slot sees us inside, or we see that it is gone.
  slot.inside_.fetch_add(1);
  if (slot.occupation_.load() == occupation) {
    slot.call(*input, *output);
  }
  slot.inside_.fetch_sub(1);
  return kAudioHardwareNoError;
}

void CallbackSlot::call(const ::AudioBufferList& input, const ::AudioBufferList& output) {
  const AudioBufferList inputs(inputs_.data(), takeInputs(input));
  const AudioBufferList outputs(outputs_.data(), takeOutputs(output));
  settings_.block(inputs, outputs);
  callCount_.fetch_add(1, std::memory_order_relaxed);
  if (!isPathOpen_.load(std::memory_order_relaxed)) {
    if (!hasHeardSound_.load(std::memory_order_relaxed) && hasSound(inputs)) {
      hasHeardSound_.store(true, std::memory_order_relaxed);
    }
    std::ranges::for_each(outputs, silence);
    return;
  }
  applyFactors(outputs);
}

std::size_t CallbackSlot::takeInputs(const ::AudioBufferList& input) {
  std::size_t count = 0;
  for (std::uint32_t index = 0; index < std::min<std::size_t>(input.mNumberBuffers, mostBuffers);
       ++index) {
    if ((settings_.droppedInputs & (1U << index)) == 0) {
      const ::AudioBuffer& buffer = input.mBuffers[index];
      inputs_[count++] = {buffer.mNumberChannels, buffer.mDataByteSize, buffer.mData};
    }
  }
  return count;
}

std::size_t CallbackSlot::takeOutputs(const ::AudioBufferList& output) {
  const std::size_t count = std::min<std::size_t>(output.mNumberBuffers, mostBuffers);
  for (std::size_t index = 0; index < count; ++index) {
    const ::AudioBuffer& buffer = output.mBuffers[index];
    outputs_[index] = {buffer.mNumberChannels, buffer.mDataByteSize, buffer.mData};
  }
  return count;
}

void CallbackSlot::applyFactors(AudioBufferList output) const {
  const std::array factors = {left_.load(std::memory_order_relaxed),
                              right_.load(std::memory_order_relaxed)};
  if (factors[0] == 1.0F && factors[1] == 1.0F) {
    return;
  }
  for (const AudioBuffer& buffer : output) {
    auto* samples = static_cast<float*>(buffer.mData);
    const std::size_t count = samples == nullptr ? 0 : buffer.mDataByteSize / sizeof(float);
    const std::size_t channels = std::max(1U, buffer.mNumberChannels);
    // Two loops: a division for each sample would take longer than the soft clip before.
    for (std::size_t frame = 0; frame < count; frame += channels) {
      for (std::size_t channel = 0; channel < std::min(channels, count - frame); ++channel) {
        samples[frame + channel] *= factors[channel % 2];
      }
    }
  }
}

}  // namespace orvelle::coreaudio
