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
  /// What does not depend on the sample before is computed for all lanes beforehand. Reading a
  /// number from memory costs nothing here, moving it between lanes does.
  struct Ahead {
    [[gnu::always_inline]] inline void set(Float target) {
      L::store(targets, target);
#if defined(__AVX__)
      L::storePairs(shares, target * releaseShare, target * attackShare);
#else
      L::store(attacks, target * attackShare);
      L::store(releases, target * releaseShare);
#endif
      asm("" : "+m"(*this));  // the compiler must not know that the numbers were in a vector
    }

    alignas(Float) float targets[L::count];
#if defined(__AVX__)
    alignas(Float) float shares[2 * L::count];
#else
    alignas(Float) float attacks[L::count];
    alignas(Float) float releases[L::count];
#endif
  };

  /// Of the present samples, and of the coming ones.
  using Aheads = Ahead[2];

  Limiter(float reduction, Aheads& ahead) : ahead_(ahead), reduction_(startingFrom(reduction)) {
    findRest();
  }

  float reduction() const {
    return reduction_[0];
  }

  /// Whether samples of such magnitudes leave a limiter alone that is at rest: then it is a factor,
  /// and no sample waits for another. Not if one is infinite, or no number.
  ORVELLE_INLINE bool isQuiet(Float magnitude) {
    return !L::any(~(magnitude <= BoostRender::limThreshold));
  }

  [[gnu::always_inline]] inline bool isAtRest() {
    if (!isAtRest_) {
      findRest();
    }
    return isAtRest_;
  }

  /// The coming samples. A division takes long: to be called while the present ones are followed.
  [[gnu::always_inline]] inline void prepare(Float x) {
    const Float magnitude = L::magnitude(x);
    coming_ = x;
    areComingQuiet_ = isQuiet(magnitude);
    if (!areComingQuiet_ || !isAtRest_) {
      const auto loud = magnitude > BoostRender::limThreshold;
      const Float target = L::choose(loud, BoostRender::limThreshold / magnitude, L::all(1.0F));
      ahead_[1 - present_].set(target);
    }
  }

  /// The coming samples are the present ones. What follows has to be called for each of their
  /// frames, then `end`.
  [[gnu::always_inline]] inline void begin() {
    samples_ = coming_;
    present_ = 1 - present_;
    isFollowing_ = !areComingQuiet_ || !isAtRest();
    isAtRest_ = !isFollowing_;
  }

  /// Two samples, one after the other.
  template <std::size_t frame>
  [[gnu::always_inline]] inline void follow() {
    if (isFollowing_) {
      const One left = next(reduction_, ahead_[present_], 2 * frame);
      reduction_ = next(left, ahead_[present_], 2 * frame + 1);
      reductions_[frame] = __builtin_shufflevector(left, reduction_, 0, 4, 0, 4);
    }
  }

  [[gnu::always_inline]] inline Float end() const {
    if (!isFollowing_) {
      return samples_ * reduction();
    }
    // Reduced by a factor between 0 and 1, what is finite stays so.
    return L::keep(L::isFinite(samples_), samples_) * L::framesOf(reductions_);
  }

  /// From `prepare` to `end` for the first `count` samples alone.
  [[gnu::always_inline]] inline Float limitSome(Float x, std::size_t count) {
    prepare(x);
    begin();
    Float reductions = L::all(reduction());
    for (std::size_t lane = 0; isFollowing_ && lane < count; ++lane) {
      reduction_ = next(reduction_, ahead_[present_], lane);
      reductions[lane] = reduction();
    }
    return L::keep(L::isFinite(samples_), samples_) * reductions;
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
  ORVELLE_INLINE One startingFrom(float reduction) {
    return One{} + reduction;
  }

  /// Both outcomes stand in one vector, and the comparison is at once the number of the lane that
  /// holds the right one: 0, or -1, of which the last two bits count. No mask, no jump.
  ORVELLE_INLINE One next(One reduction, const Ahead& ahead, std::size_t lane) {
    double shares = 0.0;  // two of them in one load
    __builtin_memcpy(&shares, ahead.shares + 2 * lane, sizeof shares);
    const One both =
        reduction * One{release, attack, release, attack} + _mm_castpd_ps(_mm_set1_pd(shares));
    const One isFalling = _mm_cmplt_ps(_mm_broadcast_ss(ahead.targets + lane), reduction);
    return _mm_permutevar_ps(both, _mm_castps_si128(isFalling));
  }
#else
  ORVELLE_INLINE One startingFrom(float reduction) {
    return One{reduction};
  }

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

  Aheads& ahead_;
  std::size_t present_ = 0;
  Float samples_{};
  Float coming_{};
  One reductions_[L::count / 2]{};  // of each frame, twice
  One reduction_;                   // in the first lane, or the same in all
  bool isAtRest_ = false;
  bool isFollowing_ = false;
  bool areComingQuiet_ = false;
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
  return L::keep(clipped <= 1.0F, clipped);  // not if infinities met
}

/// Who vouches for the samples: the equaliser puts out finite ones.
enum class Origin { outside, equalizer };

/// Everything behind the equaliser, in one pass: peak, gain and limiter, width.
/// `limits`: the gain is not exactly 1.0.
template <class Machine, Origin origin, bool limits>
class Finish {
  using L = Lanes<Machine>;
  using Float = typename L::Float;

 public:
  /// The samples of `source` stand for `scale` times as much: a power of 2, which the gain takes in
  /// without rounding (`Block::gain` must be below 2^90 then).
  [[gnu::always_inline]] inline Finish(const Block& block, const float* source, float scale,
                                       typename Limiter<Machine>::Aheads& ahead)
      : source_(source),
        destination_(block.destination),
        scale_(scale),
        gain_(block.gain * scale),
        width_(block.width),
        widens_(block.width != 1.0F),
        limiter_(block.limReduction, ahead) {}

  /// To be called before `work`, as soon as the first vector is there.
  [[gnu::always_inline]] inline void start() {
    isStarted_ = true;
    if constexpr (limits) {
      limiter_.prepare(amplified(L::load(source_ + done_)));
    }
  }

  /// One frame of work: after as many of these as there are frames in a vector, counted from 0, the
  /// vector is done. In this form, the limiter's work can be mixed with other work, each of which
  /// would otherwise wait for its own last result. If it `hasNext`, the next vector must be there.
  template <std::size_t frame, bool hasNext = true>
  [[gnu::always_inline]] inline void work() {
    if constexpr (frame == 0) {
      begin<hasNext>();
    }
    if constexpr (limits) {
      limiter_.template follow<frame>();
    }
    if constexpr (frame == L::count / 2 - 1) {
      end();
    }
  }

  /// All others, up to `samples`; then the block is told what it carries on.
  [[gnu::always_inline]] inline void takeRest(Block& block) {
    while (!isStarted_ && done_ + groupVectors * L::count <= block.samples) {
      takeGroup();
    }
    takeVectors(block.samples - block.samples % L::count);
    const std::size_t rest = block.samples - done_;
    if (rest > 0) {
      takeSome(rest);
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
#pragma GCC unroll 8
    for (std::size_t v = 0; v < groupVectors; ++v) {
      const Float x = L::load(source_ + done_ + v * L::count);
      most = L::larger(L::bits(L::magnitude(x)), most);
    }
    const Float loudest = L::magnitude(gain_ * L::number(most));
    if (limits ? !Limiter<Machine>::isQuiet(loudest) || !limiter_.isAtRest()
               : L::any(~L::isFinite(loudest))) {
      takeVectors(end);
      return;
    }
    peak_ = L::larger(most, peak_);
    const float reduction = limits ? limiter_.reduction() : 1.0F;
    if (widens_) {
      for (; done_ < end; done_ += L::count) {
        const Float x = gain_ * L::load(source_ + done_) * reduction;
        L::store(destination_ + done_, widened<Machine>(x, width_));
      }
    } else {
#pragma GCC unroll 8
      for (std::size_t v = 0; v < groupVectors; ++v) {
        const std::size_t at = done_ + v * L::count;
        L::store(destination_ + at, gain_ * L::load(source_ + at) * reduction);
      }
      done_ = end;
    }
  }

  [[gnu::always_inline]] inline void takeVectors(std::size_t end) {
    if (done_ == end) {
      return;
    }
    if (!isStarted_) {
      start();
    }
    while (done_ + L::count < end) {
      takeVector<true, 0>();
    }
    takeVector<false, 0>();
    isStarted_ = false;
  }

  template <bool hasNext, std::size_t frame>
  [[gnu::always_inline]] inline void takeVector() {
    if constexpr (frame < L::count / 2) {
      work<frame, hasNext>();
      takeVector<hasNext, frame + 1>();
    }
  }

  template <bool hasNext>
  [[gnu::always_inline]] inline void begin() {
    if constexpr (!limits) {
      amplified_ = amplified(L::load(source_ + done_));
      return;
    }
    limiter_.begin();
    if constexpr (hasNext) {
      limiter_.prepare(amplified(L::load(source_ + done_ + L::count)));
    }
  }

  [[gnu::always_inline]] inline void end() {
    Float x = limits ? limiter_.end() : amplified_;
    if (widens_) {
      x = widened<Machine>(x, width_);
    }
    L::store(destination_ + done_, x);
    done_ += L::count;
  }

  /// The last samples, fewer than there are lanes.
  [[gnu::always_inline]] inline void takeSome(std::size_t count) {
    Float x = amplified(loadSome<Machine>(source_ + done_, count));
    if constexpr (limits) {
      x = limiter_.limitSome(x, count);
    }
    if (widens_) {
      const Float halfFrame = x;
      x = widened<Machine>(x, width_);
      if (count % 2 != 0) {
        x[count - 1] = halfFrame[count - 1];
      }
    }
    storeSome<Machine>(destination_ + done_, x, count);
  }

  [[gnu::always_inline]] inline Float amplified(Float x) {
    if constexpr (origin == Origin::outside) {
      x = L::keep(L::isFinite(x), x);
    }
    peak_ = L::larger(L::bits(L::magnitude(x)), peak_);
    return gain_ * x;
  }

  const float* source_;
  float* destination_;
  std::size_t done_ = 0;
  float scale_;
  float gain_;
  float width_;
  bool widens_;
  bool isStarted_ = false;
  typename L::Int peak_{};  // without their sign, numbers are ordered as their bits
  Float amplified_{};
  Limiter<Machine> limiter_;
};

}  // namespace orvelle::vector
