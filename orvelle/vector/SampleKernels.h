// The stages of the signal chain without memory, and the limiter, on all lanes at once.
#pragma once

#include "orvelle/BoostRender.h"
#include "orvelle/vector/Kernels.h"
#include "orvelle/vector/Lanes.h"

namespace orvelle::vector {

/// The last samples of a block, where they do not fill a vector.
template <class Machine>
ORVELLE_INLINE typename Lanes<Machine>::Float loadSome(const float* source, std::size_t count) {
  typename Lanes<Machine>::Float value{};
  for (std::size_t lane = 0; lane < count; ++lane) {
    value[lane] = source[lane];
  }
  return value;
}

template <class Machine>
ORVELLE_INLINE void storeSome(float* destination, typename Lanes<Machine>::Float value,
                              std::size_t count) {
  for (std::size_t lane = 0; lane < count; ++lane) {
    destination[lane] = value[lane];
  }
}

template <class Machine>
void copyFinite(const float* source, float* destination, std::size_t samples) {
  using L = Lanes<Machine>;
  std::size_t i = 0;
  for (; i + L::count <= samples; i += L::count) {
    const auto value = L::load(source + i);
    L::store(destination + i, L::keep(L::isFinite(value), value));
  }
  const auto value = loadSome<Machine>(source + i, samples - i);
  storeSome<Machine>(destination + i, L::keep(L::isFinite(value), value), samples - i);
}

template <class Machine>
float peak(const float* samples, std::size_t count) {
  using L = Lanes<Machine>;
  auto largest = L::all(0.0F);
  std::size_t i = 0;
  for (; i + L::count <= count; i += L::count) {
    const auto magnitude = L::magnitude(L::load(samples + i));
    largest = L::choose(magnitude > largest, magnitude, largest);
  }
  const auto magnitude = L::magnitude(loadSome<Machine>(samples + i, count - i));
  return L::largest(L::choose(magnitude > largest, magnitude, largest));
}

template <class Machine>
class Limiter {
  using L = Lanes<Machine>;
  using Float = typename L::Float;
  /// Where the order of samples matters, one lane of these is used: unlike with a plain float, the
  /// compiler makes no jump of a choice, which the processor would guess wrong half of the time.
  using One = LaneTypes<4>::Float;

 public:
  Limiter(float gain, float reduction) : gain_(gain), reduction_(reduction) { findRest(); }

  float reduction() const { return reduction_; }

  ORVELLE_INLINE void take(Limiter& limiter, float* samples, std::size_t count) {
    const bool whole = count == L::count;
    const Float x = whole ? L::load(samples) : loadSome<Machine>(samples, count);
    const Float amplified = limiter.gain_ * x;
    const Float magnitude = L::magnitude(amplified);
    const auto loud = magnitude > threshold;
    // Reduced by a factor between 0 and 1, what is finite stays so.
    const Float heard = L::keep(L::isFinite(amplified), amplified);
    // A released limiter comes to rest at a value that rounding makes its own successor (not
    // always 1). As long as nothing is loud it stays there: then no sample waits for another.
    if (limiter.atRest_ && !L::any(loud)) {
      const Float result = heard * limiter.reduction_;
      whole ? L::store(samples, result) : storeSome<Machine>(samples, result, count);
      return;
    }
    const Float target = L::choose(loud, threshold / magnitude, L::all(1.0F));
    limiter.follow(target, heard, samples, count);
  }

 private:
  static constexpr float threshold = BoostRender::limThreshold;
  static constexpr float attack = BoostRender::limAttack;
  static constexpr float release = BoostRender::limRelease;
  static constexpr float attackShare = 1.0F - attack;
  static constexpr float releaseShare = 1.0F - release;

  void findRest() {
    const float silent = 1.0F;
    const float next = silent < reduction_ ? reduction_ * attack + silent * attackShare
                                           : reduction_ * release + silent * releaseShare;
    atRest_ = next == reduction_;
  }

  [[gnu::always_inline]] inline void follow(Float target, Float heard, float* samples,
                                            std::size_t count) {
    alignas(Float) float targets[L::count];
    alignas(Float) float attacks[L::count];
    alignas(Float) float releases[L::count];
    alignas(Float) float heards[L::count];
    L::store(targets, target);
    L::store(attacks, target * attackShare);
    L::store(releases, target * releaseShare);
    L::store(heards, heard);
    One reduction = {reduction_};
    for (std::size_t i = 0; i < count; ++i) {
      const One falling = reduction * attack + One{attacks[i]};
      const One rising = reduction * release + One{releases[i]};
      reduction = One{targets[i]} < reduction ? falling : rising;
      samples[i] = heards[i] * reduction[0];
    }
    reduction_ = reduction[0];
    findRest();
  }

  float gain_;
  float reduction_;
  bool atRest_ = false;
};

template <class Machine>
void amplifyAndLimit(float* samples, std::size_t count, float gain, float& limReduction) {
  using L = Lanes<Machine>;
  Limiter<Machine> limiter(gain, limReduction);
  std::size_t i = 0;
  for (; i + L::count <= count; i += L::count) {
    Limiter<Machine>::take(limiter, samples + i, L::count);
  }
  if (i < count) {
    Limiter<Machine>::take(limiter, samples + i, count - i);
  }
  limReduction = limiter.reduction();
}

/// The side signal is one number for both channels, and enters the right one with its sign changed:
/// computed as R - L there, it would differ in the sign of a zero.
template <class Machine>
ORVELLE_INLINE typename Lanes<Machine>::Float widened(typename Lanes<Machine>::Float frames,
                                                      float width) {
  using L = Lanes<Machine>;
  const auto other = L::swapped(frames);
  const auto mid = (frames + other) * 0.5F;
  const auto side = L::leftTwice(frames - other) * 0.5F * width;
  typename L::Int negativeRight{};
  for (std::size_t lane = 1; lane < L::count; lane += 2) {
    negativeRight[lane] = INT32_MIN;
  }
  const auto sum = mid + L::number(L::bits(side) ^ negativeRight);
  const auto notAbove = L::choose(sum > 1.0F, L::all(1.0F), sum);
  const auto clipped = L::choose(sum < -1.0F, L::all(-1.0F), notAbove);
  return L::keep(L::isFinite(clipped), clipped);
}

template <class Machine>
void widen(float* samples, std::size_t frames, float width) {
  using L = Lanes<Machine>;
  std::size_t i = 0;
  for (; i + L::count <= 2 * frames; i += L::count) {
    L::store(samples + i, widened<Machine>(L::load(samples + i), width));
  }
  const std::size_t rest = 2 * frames - i;
  storeSome<Machine>(samples + i, widened<Machine>(loadSome<Machine>(samples + i, rest), width),
                     rest);
}

}  // namespace orvelle::vector
