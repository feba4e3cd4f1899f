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
  explicit Limiter(float reduction) : reduction_(One{} + reduction) { findRest(); }

  float reduction() const { return reduction_[0]; }

  /// Whether the limiter is at rest, and stays there while samples of such magnitudes pass: then
  /// it is a factor, and no sample waits for another. Not while one is infinite, or no number.
  [[gnu::always_inline]] inline bool restsAt(Float magnitude) {
    if (L::any(~(magnitude <= BoostRender::limThreshold))) {
      return false;
    }
    if (!isAtRest_) {
      findRest();
    }
    return isAtRest_;
  }

  /// The first `count` lanes, one after the other.
  [[gnu::always_inline]] inline Float limit(Float x, std::size_t count) {
    const Float magnitude = L::magnitude(x);
    if (restsAt(magnitude)) {
      return x * reduction();
    }
    isAtRest_ = false;
    const auto loud = magnitude > BoostRender::limThreshold;
    const Float target = L::choose(loud, BoostRender::limThreshold / magnitude, L::all(1.0F));
    // Reduced by a factor between 0 and 1, what is finite stays so.
    return L::keep(L::isFinite(x), x) * follow(target, count);
  }

 private:
  static constexpr float attack = BoostRender::limAttack;
  static constexpr float release = BoostRender::limRelease;
  static constexpr float attackShare = 1.0F - attack;
  static constexpr float releaseShare = 1.0F - release;

  /// A released limiter comes to rest at a value that rounding makes its own successor (not always
  /// 1).
  void findRest() {
    const float now = reduction();
    isAtRest_ = now <= 1.0F && now * release + releaseShare == now;
  }

#if defined(__AVX__)
  /// What does not depend on the sample before is computed for all lanes beforehand.
  struct Ahead {
    [[gnu::always_inline]] inline explicit Ahead(Float target) {
      L::store(targets, target);
      L::storePairs(shares, target * releaseShare, target * attackShare);
    }

    alignas(Float) float targets[L::count];
    alignas(Float) float shares[2 * L::count];
  };

  /// Both outcomes stand in one vector, and the comparison is at once the number of the lane that
  /// holds the right one: 0, or -1, of which the last two bits count. No mask, no jump.
  ORVELLE_INLINE One next(One reduction, const Ahead& ahead, std::size_t lane) {
    const auto* const shares = reinterpret_cast<const double*>(ahead.shares + 2 * lane);
    const One both =
        reduction * One{release, attack, release, attack} + _mm_castpd_ps(_mm_loaddup_pd(shares));
    const One isFalling = _mm_cmplt_ps(_mm_broadcast_ss(ahead.targets + lane), reduction);
    return _mm_permutevar_ps(both, _mm_castps_si128(isFalling));
  }
#else
  /// What does not depend on the sample before is computed for all lanes beforehand.
  struct Ahead {
    [[gnu::always_inline]] inline explicit Ahead(Float target) {
      L::store(targets, target);
      L::store(attacks, target * attackShare);
      L::store(releases, target * releaseShare);
    }

    alignas(Float) float targets[L::count];
    alignas(Float) float attacks[L::count];
    alignas(Float) float releases[L::count];
  };

  ORVELLE_INLINE One next(One reduction, const Ahead& ahead, std::size_t lane) {
    const One falling = reduction * attack + One{ahead.attacks[lane]};
    const One rising = reduction * release + One{ahead.releases[lane]};
#if defined(__x86_64__)
    // Left to itself, the compiler makes a choice out of this that takes longer.
    One isFalling = _mm_cmplt_ps(One{ahead.targets[lane]}, reduction);
    asm("" : "+x"(isFalling));
    return _mm_or_ps(_mm_and_ps(isFalling, falling), _mm_andnot_ps(isFalling, rising));
#else
    return One{ahead.targets[lane]} < reduction ? falling : rising;
#endif
  }
#endif

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
    Ahead ahead(target);
    // Reading a number from memory costs nothing here, moving it between lanes does: the compiler
    // must not know that it was in a vector.
    asm("" : "+m"(ahead));
    if (count < L::count) {
      Float reductions{};
      for (std::size_t lane = 0; lane < count; ++lane) {
        reduction_ = next(reduction_, ahead, lane);
        reductions[lane] = reduction_[0];
      }
      return reductions;
    }
    if constexpr (L::count == 4) {
      return nextFour(reduction_, ahead, 0);
    } else {
      const One early = nextFour(reduction_, ahead, 0);
      const One late = nextFour(reduction_, ahead, 4);
      return __builtin_shufflevector(early, late, 0, 1, 2, 3, 4, 5, 6, 7);
    }
  }

  One reduction_;  // the same in all lanes
  bool isAtRest_ = false;
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
  const auto clipped = L::larger(L::all(-1.0F), L::smaller(L::all(1.0F), sum));
  return L::keep(clipped == clipped, clipped);
}

/// Who vouches for the samples: the equaliser puts out finite ones.
enum class Origin { outside, equalizer };

/// Everything behind the equaliser, in one pass: peak, gain and limiter, width.
template <class Machine, Origin origin>
class Finish {
  using L = Lanes<Machine>;
  using Float = typename L::Float;

 public:
  /// The samples of `source` stand for `scale` times as much: a power of 2, which the gain takes in
  /// without rounding (`Block::gain` must be below 2^90 then).
  [[gnu::always_inline]] inline Finish(const Block& block, const float* source, float scale)
      : source_(source),
        destination_(block.destination),
        scale_(scale),
        gain_(block.gain * scale),
        width_(block.width),
        limits_(block.gain != 1.0F),
        widens_(block.width != 1.0F),
        limiter_(block.limReduction) {}

  /// The next samples, as many as there are lanes.
  [[gnu::always_inline]] inline void takeVector() {
    L::store(destination_ + done_, finished(L::load(source_ + done_), L::count));
    done_ += L::count;
  }

  /// All others, up to `samples`; then the block is told what it carries on.
  [[gnu::always_inline]] inline void takeRest(Block& block) {
    while (done_ + groupVectors * L::count <= block.samples) {
      takeGroup();
    }
    while (done_ + L::count <= block.samples) {
      takeVector();
    }
    const std::size_t rest = block.samples - done_;
    if (rest > 0) {
      const Float some = loadSome<Machine>(source_ + done_, rest);
      storeSome<Machine>(destination_ + done_, finished(some, rest), rest);
    }
    const float peak = L::largest(L::number(peak_)) * scale_;
    block.peak = peak > block.peak ? peak : block.peak;
    block.limReduction = limiter_.reduction();
  }

 private:
  static constexpr std::size_t groupVectors = 8;

  /// As long as nothing is to be limited, one look at several vectors is enough.
  [[gnu::always_inline]] inline void takeGroup() {
    const std::size_t end = done_ + groupVectors * L::count;
    typename L::Int most{};
    for (std::size_t i = done_; i < end; i += L::count) {
      most = L::larger(L::bits(L::magnitude(L::load(source_ + i))), most);
    }
    const Float loudest = L::magnitude(gain_ * L::number(most));
    if (limits_ ? !limiter_.restsAt(loudest) : L::any(~L::isFinite(loudest))) {
      while (done_ < end) {
        takeVector();
      }
      return;
    }
    peak_ = L::larger(most, peak_);
    const float reduction = limits_ ? limiter_.reduction() : 1.0F;
    if (widens_) {
      for (; done_ < end; done_ += L::count) {
        const Float x = gain_ * L::load(source_ + done_) * reduction;
        L::store(destination_ + done_, widened<Machine>(x, width_));
      }
    } else {
      for (; done_ < end; done_ += L::count) {
        L::store(destination_ + done_, gain_ * L::load(source_ + done_) * reduction);
      }
    }
  }

  [[gnu::always_inline]] inline Float finished(Float x, std::size_t count) {
    if constexpr (origin == Origin::outside) {
      x = L::keep(L::isFinite(x), x);
    }
    peak_ = L::larger(L::bits(L::magnitude(x)), peak_);
    x = gain_ * x;
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
  float gain_;
  float width_;
  bool limits_;
  bool widens_;
  typename L::Int peak_{};  // without their sign, numbers are ordered as their bits
  Limiter<Machine> limiter_;
};

}  // namespace orvelle::vector
