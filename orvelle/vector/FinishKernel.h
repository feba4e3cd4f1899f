// What follows the equaliser, on all lanes at once.
#pragma once

#include "orvelle/BoostRender.h"
#include "orvelle/vector/EqualizerKernel.h"
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

/// Gain, then a peak limiter without look-ahead. `BoostRender` tells its times.
template <class Machine>
class Limiter {
  using L = Lanes<Machine>;
  using Float = typename L::Float;
  /// Where the order of samples matters, one lane of these is used: unlike with a plain float, the
  /// compiler makes no jump of a choice, which the processor would guess wrong half of the time.
  using One = LaneTypes<4>::Float;

 public:
  [[gnu::always_inline]] inline Limiter(float gain, float reduction)
      : gain_(gain), reduction_(reduction) {
    findRest();
  }

  float reduction() const { return reduction_; }

  /// The first `count` lanes, one after the other.
  [[gnu::always_inline]] inline Float limit(Float x, std::size_t count) {
    const Float amplified = gain_ * x;
    const Float magnitude = L::magnitude(amplified);
    const auto loud = magnitude > BoostRender::limThreshold;
    // Reduced by a factor between 0 and 1, what is finite stays so.
    const Float heard = L::keep(L::isFinite(amplified), amplified);
    // A released limiter comes to rest at a value that rounding makes its own successor (not
    // always 1). As long as nothing is loud it stays there: then no sample waits for another.
    if (atRest_ && !L::any(loud)) {
      return heard * reduction_;
    }
    const Float target = L::choose(loud, BoostRender::limThreshold / magnitude, L::all(1.0F));
    const Float reductions = follow(target, count);
    findRest();
    return heard * reductions;
  }

 private:
  static constexpr float attack = BoostRender::limAttack;
  static constexpr float release = BoostRender::limRelease;
  static constexpr float attackShare = 1.0F - attack;
  static constexpr float releaseShare = 1.0F - release;

  [[gnu::always_inline]] inline void findRest() {
    atRest_ = reduction_ <= 1.0F && reduction_ * release + releaseShare == reduction_;
  }

  /// What does not depend on the sample before is computed for all lanes beforehand.
  struct Ahead {
    alignas(Float) float targets[L::count];
    alignas(Float) float attacks[L::count];
    alignas(Float) float releases[L::count];
  };

  /// A choice that waits no longer than it has to once both sides are there. Left to itself, the
  /// compiler takes instructions for it that wait three or four cycles.
  ORVELLE_INLINE One chosen(One target, One reduction, One falling, One rising) {
#if defined(__AVX512VL__)
    const __mmask8 isFalling = _mm_cmp_ps_mask(target, reduction, _CMP_LT_OQ);
    asm("" : "+v"(falling), "+v"(rising));
    return _mm_mask_blend_ps(isFalling, rising, falling);
#elif defined(__x86_64__)
    One isFalling = _mm_cmplt_ps(target, reduction);
    asm("" : "+x"(isFalling));
    return _mm_or_ps(_mm_and_ps(isFalling, falling), _mm_andnot_ps(isFalling, rising));
#else
    return target < reduction ? falling : rising;
#endif
  }

  ORVELLE_INLINE One next(One reduction, const Ahead& ahead, std::size_t lane) {
    const One falling = reduction * attack + One{ahead.attacks[lane]};
    const One rising = reduction * release + One{ahead.releases[lane]};
    return chosen(One{ahead.targets[lane]}, reduction, falling, rising);
  }

  /// The reduction of four samples side by side; the last of them goes on.
  ORVELLE_INLINE One nextFour(One& reduction, const Ahead& ahead, std::size_t lane) {
    const One first = next(reduction, ahead, lane);
    const One second = next(first, ahead, lane + 1);
    const One third = next(second, ahead, lane + 2);
    reduction = next(third, ahead, lane + 3);
    const One early = __builtin_shufflevector(first, second, 0, 4, 0, 4);
    const One late = __builtin_shufflevector(third, reduction, 0, 4, 0, 4);
    return __builtin_shufflevector(early, late, 0, 1, 4, 5);
  }

  [[gnu::always_inline]] inline Float follow(Float target, std::size_t count) {
    Ahead ahead;
    L::store(ahead.targets, target);
    L::store(ahead.attacks, target * attackShare);
    L::store(ahead.releases, target * releaseShare);
    // Reading a number from memory costs nothing here, moving it between lanes does: the compiler
    // must not know that it was in a vector.
    asm("" : "+m"(ahead));
    One reduction = {reduction_};
    Float reductions{};
    if (count < L::count) {
      for (std::size_t lane = 0; lane < count; ++lane) {
        reduction = next(reduction, ahead, lane);
        reductions[lane] = reduction[0];
      }
    } else if constexpr (L::count == 4) {
      reductions = nextFour(reduction, ahead, 0);
    } else {
      const One early = nextFour(reduction, ahead, 0);
      const One late = nextFour(reduction, ahead, 4);
      reductions = __builtin_shufflevector(early, late, 0, 1, 2, 3, 4, 5, 6, 7);
    }
    reduction_ = reduction[0];
    return reductions;
  }

  float gain_;
  float reduction_;
  bool atRest_ = false;
};

/// The side signal is one number for both channels, and enters the right one with its sign changed:
/// computed as R - L there, it would differ in the sign of a zero.
template <class Machine>
ORVELLE_INLINE typename Lanes<Machine>::Float widened(typename Lanes<Machine>::Float frames,
                                                      float width) {
  using L = Lanes<Machine>;
  const auto other = L::swapped(frames);
  const auto mid = (frames + other) * 0.5F;
  const auto side = L::leftTwice(frames - other) * 0.5F * width;
  const auto sum = mid + L::rightNegated(side);
  const auto notAbove = L::choose(sum > 1.0F, L::all(1.0F), sum);
  const auto clipped = L::choose(sum < -1.0F, L::all(-1.0F), notAbove);
  return L::keep(L::isFinite(clipped), clipped);
}

/// Where samples come from: the callback's input, or the equaliser, whose numbers may be scaled.
struct FromInput {
  template <class Machine>
  ORVELLE_INLINE typename Lanes<Machine>::Float taken(typename Lanes<Machine>::Float value, float) {
    using L = Lanes<Machine>;
    return L::keep(L::isFinite(value), value);
  }
};

struct FromEqualizer {
  template <class Machine>
  ORVELLE_INLINE typename Lanes<Machine>::Float taken(typename Lanes<Machine>::Float value,
                                                      float scale) {
    return value * scale;
  }
};

/// Everything behind the equaliser, in one pass: peak, gain and limiter, width.
template <class Machine, class Source>
class Finish {
  using L = Lanes<Machine>;
  using Float = typename L::Float;

 public:
  [[gnu::always_inline]] inline Finish(const Block& block, const float* source, float scale)
      : source_(source),
        destination_(block.destination),
        scale_(scale),
        width_(block.width),
        limits_(block.gain != 1.0F),
        widens_(block.width != 1.0F),
        limiter_(block.gain, block.limReduction) {}

  /// The next samples, as many as there are lanes.
  [[gnu::always_inline]] inline void takeVector() {
    const Float x = Source::template taken<Machine>(L::load(source_ + done_), scale_);
    L::store(destination_ + done_, finished(x, L::count));
    done_ += L::count;
  }

  /// All others, up to `samples`; then the block is told what it carries on.
  [[gnu::always_inline]] inline void takeRest(Block& block) {
    while (done_ + L::count <= block.samples) {
      takeVector();
    }
    const std::size_t rest = block.samples - done_;
    if (rest > 0) {
      const Float some = loadSome<Machine>(source_ + done_, rest);
      const Float x = Source::template taken<Machine>(some, scale_);
      storeSome<Machine>(destination_ + done_, finished(x, rest), rest);
    }
    const float peak = L::largest(L::number(peak_));
    block.peak = peak > block.peak ? peak : block.peak;
    block.limReduction = limiter_.reduction();
  }

 private:
  [[gnu::always_inline]] inline Float finished(Float x, std::size_t count) {
    peak_ = L::larger(L::bits(L::magnitude(x)), peak_);
    if (limits_) {
      x = limiter_.limit(x, count);
    }
    if (widens_) {
      const Float halfFrame = x;
      x = widened<Machine>(x, width_);
      if (count % 2 != 0) {
        x[count - 1] = halfFrame[count - 1];
      }
    }
    return x;
  }

  const float* source_;
  float* destination_;
  std::size_t done_ = 0;
  float scale_;
  float width_;
  bool limits_;
  bool widens_;
  typename L::Int peak_{};  // without their sign, numbers are ordered as their bits
  Limiter<Machine> limiter_;
};

}  // namespace orvelle::vector
