// The whole chain over one block of samples: which path it takes, and the way through it.
#pragma once

#include "orvelle/vector/EqualizerKernel.h"
#include "orvelle/vector/FinishKernel.h"
#include "orvelle/vector/Kernels.h"

namespace orvelle::vector {

/// From here on, every number is a multiple of 2^-66.
inline constexpr float leastMiddling = 0x1p-43F;

/// Below this, all is fading away, and the proof would soon fail.
inline constexpr float leastSound = 0x1p-32F;

/// Above this, a gain could overflow when it takes in the scale of the equaliser's samples.
inline constexpr float mostScaledGain = 0x1p90F;

/// The least magnitude that is not 0 (as far as it is below `leastMiddling`), and the largest.
struct Range {
  float least;
  float most;
};

/// Frames between the stages, two lanes a frame: a single channel is in both.
struct FrameBuffer {
  static constexpr std::size_t surplus = 16;  // as many as there can be stations, or lanes
  alignas(64) float samples[2 * (mostFrames + surplus)];
};

/// Whether the equaliser can read this block where it lies: two channels of sound, without anything
/// that is not finite or would be flushed, and that nothing is written over before it is read.
template <class Machine>
bool canReadInPlace(const Block& block, float& most) {
  using L = Lanes<Machine>;
  const bool overlap = block.destination < block.source + block.samples &&
                       block.source < block.destination + block.samples;
  if (overlap || block.equalizer->channels == 1 || block.samples < L::count) {
    return false;
  }
  // As bits, what is no number is larger than all numbers. One less, and without a sign, 0 is too:
  // it does no harm.
  const auto lessOne = [](typename L::Int magnitude) {
    return reinterpret_cast<typename L::Unsigned>(magnitude - 1);
  };
  const std::size_t last = block.samples - L::count;
  auto largest = L::bits(L::magnitude(L::load(block.source + last)));
  auto least = lessOne(largest);
  for (std::size_t i = 0; i < last; i += L::count) {
    const auto magnitude = L::bits(L::magnitude(L::load(block.source + i)));
    largest = L::larger(magnitude, largest);
    least = L::smaller(lessOne(magnitude), least);
  }
  most = L::largest(L::number(largest));
  const auto isTiny = least < lessOne(L::bits(L::all(leastMiddling)));
  return !L::any(~(L::number(largest) <= mostMiddling) | isTiny);
}

/// Copies a block into the buffer, finite and flushed. Returns its range.
template <class Machine>
Range fill(FrameBuffer& buffer, const Block& block) {
  using L = Lanes<Machine>;
  const bool isMono = block.equalizer->channels == 1;
  const std::size_t lanes = isMono ? 2 * block.samples : block.samples;
  auto most = L::all(0);
  auto tiny = L::all(0);
  for (std::size_t i = 0; i < lanes; i += L::count) {
    typename L::Float x{};
    if (!isMono && i + L::count <= lanes) {
      x = L::load(block.source + i);
    } else {
      for (std::size_t lane = 0; lane < L::count && i + lane < lanes; ++lane) {
        x[lane] = block.source[isMono ? (i + lane) / 2 : i + lane];
      }
    }
    const auto magnitude = L::magnitude(x);
    const auto isKept = (magnitude >= Equalizer::denormalFloor) & L::isFinite(x);
    tiny |= isKept & (magnitude < leastMiddling);
    most = L::larger(L::bits(magnitude) & isKept, most);
    L::store(buffer.samples + i, L::keep(isKept, x));
  }
  return {L::any(tiny) ? Equalizer::denormalFloor : leastMiddling, L::largest(L::number(most))};
}

/// As many as a band remembers: z1, z2 of both channels.
template <class Machine>
struct FourLanes {
  static constexpr std::size_t lanes = 4;
};

/// What the bands remember. Counts as infinite where it is no number.
template <class Machine>
Range remembered(const EqualizerTask& task) {
  using L = Lanes<FourLanes<Machine>>;
  auto most = L::all(0);
  auto tiny = L::all(0);
  for (std::size_t band = 0; band < task.bandCount; ++band) {
    const float* const memory = task.band[band].memory;
    const auto z = task.channels == 2 ? L::load(memory) : loadSome<FourLanes<Machine>>(memory, 2);
    const auto magnitude = L::magnitude(z);
    most = L::larger(L::bits(magnitude), most);
    tiny |= (magnitude < leastMiddling) & (magnitude != 0.0F);
  }
  const float largest = L::largest(L::number(most));
  return {L::any(tiny) ? 0.0F : leastMiddling,
          L::any(~L::isFinite(L::number(most))) ? __builtin_inff() : largest};
}

/// A single channel back from two lanes, in place.
template <class Machine>
void leaveLeft(float* frames, std::size_t count) {
  for (std::size_t frame = 0; frame < count; ++frame) {
    frames[frame] = frames[2 * frame];
  }
}

/// Waits until the equaliser is through.
struct Nobody {
  [[gnu::always_inline]] inline void start() {}
  template <std::size_t frame>
  [[gnu::always_inline]] inline void work() {}
};

/// False if the result does not hold; the destination may have been written all the same.
template <class Machine, std::size_t vectors, Flush flush, bool limits>
bool equaliseAndFinish(Block& block, const float* input) {
  constexpr float scale = flush == Flush::provenNeedless ? scaleDown : 1.0F;
  using Bands = Cascade<Machine, vectors>;
  EqualizerTask& task = *block.equalizer;
  if constexpr (Bands::stations < static_cast<std::size_t>(Equalizer::bands)) {
    if (task.bandCount > Bands::stations) {
      return equaliseAndFinish<Machine, vectors + 1, flush, limits>(block, input);
    }
  }
  Bands bands(task, scale);
  FrameBuffer output;
  float* const equalised = output.samples + 2 * Bands::stations;
  typename Limiter<Machine>::Aheads ahead;
  Finish<Machine, Origin::equalizer, limits> finish(block, equalised, 1.0F / scale, ahead);
  const auto frames = static_cast<std::int32_t>(block.samples / task.channels);
  if (task.channels == 2 && flush == Flush::provenNeedless) {
    bands.template run<flush>(input, output.samples, frames, finish);
  } else {
    Nobody nobody;
    bands.template run<flush>(input, output.samples, frames, nobody);
    if (task.channels == 1) {
      leaveLeft<Machine>(equalised, block.samples);
    }
  }
  if (!bands.template holds<flush>()) {
    return false;
  }
  finish.takeRest(block);
  bands.keepMemory(task, 1.0F / scale);
  return true;
}

template <class Machine, Flush flush>
bool equaliseAndFinish(Block& block, const float* input) {
  return block.gain != 1.0F ? equaliseAndFinish<Machine, 1, flush, true>(block, input)
                            : equaliseAndFinish<Machine, 1, flush, false>(block, input);
}

/// The stages behind the equaliser on their own.
template <class Machine, Origin origin>
void finishAll(Block& block, const float* source) {
  typename Limiter<Machine>::Aheads ahead;
  if (block.gain != 1.0F) {
    Finish<Machine, origin, true>(block, source, 1.0F, ahead).takeRest(block);
  } else {
    Finish<Machine, origin, false>(block, source, 1.0F, ahead).takeRest(block);
  }
}

template <class Machine>
bool processEqualised(Block& block) {
  const EqualizerTask& task = *block.equalizer;
  const Range memory = remembered<Machine>(task);
  const bool canScale = __builtin_fabsf(block.gain) <= mostScaledGain;
  const bool mayBeProven = memory.least >= leastMiddling && canScale;
  bool isDisproven = false;
  float loudest = 0.0F;
  if (mayBeProven && task.bandCount > 0 && canReadInPlace<Machine>(block, loudest)) {
    const float most = loudest > memory.most ? loudest : memory.most;
    if (most >= leastSound && most <= mostMiddling) {
      if (equaliseAndFinish<Machine, Flush::provenNeedless>(block, block.source)) {
        return true;
      }
      isDisproven = true;
    }
  }
  FrameBuffer input;
  const Range heard = fill<Machine>(input, block);
  const float most = heard.most > memory.most ? heard.most : memory.most;
  const bool isOrdinary = mayBeProven && !isDisproven && heard.least >= leastMiddling &&
                          most >= leastSound && most <= mostMiddling;
  const bool isSilent = most == 0.0F;
  if (isSilent || (task.bandCount == 0 && most <= mostVectorised)) {
    if (task.channels == 1) {
      leaveLeft<Machine>(input.samples, block.samples);
    }
    finishAll<Machine, Origin::equalizer>(block, input.samples);
    return true;
  }
  if (isOrdinary && equaliseAndFinish<Machine, Flush::provenNeedless>(block, input.samples)) {
    return true;
  }
  if (most <= mostVectorised &&
      equaliseAndFinish<Machine, Flush::everyValue>(block, input.samples)) {
    return true;
  }
  if (task.channels == 1) {
    leaveLeft<Machine>(input.samples, block.samples);
  }
  __builtin_memcpy(block.destination, input.samples, block.samples * sizeof(float));
  return false;
}

template <class Machine>
bool process(Block& block) {
  if (block.equalizer != nullptr) {
    return processEqualised<Machine>(block);
  }
  finishAll<Machine, Origin::outside>(block, block.source);
  return true;
}

}  // namespace orvelle::vector
