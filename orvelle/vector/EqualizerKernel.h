// Ten filters in series on all lanes at once.
//
// A recursive filter cannot take several samples at a time: each needs the one before. Ten filters
// in series can work at the same time, though, like the stations of an assembly line: while the
// first takes sample t, the second takes sample t - 1, which the first put out a step earlier, and
// so on. Both channels of a station lie side by side, so that a vector of 8 lanes is 4 stations.
// What remains is the time that one filter needs from sample to sample.
//
// Station s stands in vector s % vectors: each vector's input is what the vector before it put out
// in the last step, as it is, and only the last vector's output has to move by one place on its way
// back to the first.
//
//   vectors = 3          place 0     place 1     place 2     place 3
//   vector 0:   in ->    station 0   station 3   station 6   station 9
//   vector 1:            station 1   station 4   station 7   station 10
//   vector 2:            station 2   station 5   station 8   station 11  -> out
//
// Stations beyond the last band pass on what they get. At the beginning of a block the first
// samples have not reached the later stations yet, at the end the last ones have left the earlier
// ones: in these steps a mask keeps the memory of stations without a sample.
#pragma once

#include "orvelle/vector/Kernels.h"
#include "orvelle/vector/Lanes.h"

namespace orvelle::vector {

/// What keeps values below the denormal floor out of filters and sound.
enum class Flush {
  /// Every value is compared, as in the plain arithmetic: always right, half again as slow.
  everyValue,
  /// None is, and a proof is kept that none had to be. All numbers are smaller by 2^-28, which is
  /// exact. Then bit 29 of a number, the second of its exponent, says that it lies between 2^-35
  /// and 2^29 of its true size; ANDing all values of y shows whether this was so throughout.
  /// (Beyond 2^93 the bit is set again, but with coefficients of 2^10 at most nothing gets there
  /// without having been in between.) A coefficient is at least 2^-7, so each product is at least
  /// 2^-42, and a multiple of 2^-66, the last place of such a number. So are z1 and z2, as sums of
  /// products: either exactly 0, or at least 2^-66, which is still above the floor of 1e-20. This
  /// holds from the first sample on if what comes in and what is remembered are also multiples of
  /// 2^-66.
  provenNeedless,
};

inline constexpr float scaleDown = 0x1p-28F;
inline constexpr float scaleUp = 0x1p28F;
inline constexpr std::int32_t isMiddling = 1 << 29;

/// Above this, a sample sends the block to comparing every value...
inline constexpr float mostMiddling = 0x1p20F;
/// ... and above this, to the plain arithmetic, which knows what to do at an overflow.
inline constexpr float mostVectorised = 0x1p100F;

/// As many stations as there are frames in a vector.
template <class Machine>
struct Stations {
  using L = Lanes<Machine>;
  typename L::Float b0, b1, b2, a1, a2;
  typename L::Float z1, z2;
  typename L::Float y;
  typename L::Int position;   // of the station, in the row of all of them
  typename L::Int isBand;     // not one that only passes on
  typename L::Int middling;   // bit 29: every y so far had it
  typename L::Int excessive;  // mask: some y was beyond what may be done here
};

template <class Machine>
ORVELLE_INLINE typename Lanes<Machine>::Float flushed(typename Lanes<Machine>::Float value) {
  using L = Lanes<Machine>;
  return L::keep(~(L::magnitude(value) < Equalizer::denormalFloor), value);
}

/// One sample through each station. Transposed direct form II; do not regroup.
template <class Machine, Flush flush, bool masked>
ORVELLE_INLINE void filter(Stations<Machine>& s, typename Lanes<Machine>::Float x,
                           std::int32_t step, std::int32_t frames) {
  using L = Lanes<Machine>;
  auto y = s.b0 * x + s.z1;
  auto z1 = s.b1 * x - s.a1 * y + s.z2;
  auto z2 = s.b2 * x - s.a2 * y;
  if constexpr (flush == Flush::everyValue) {
    z1 = flushed<Machine>(z1);
    z2 = flushed<Machine>(z2);
    y = flushed<Machine>(y);
  }
  typename L::Int hasSample = L::all(-1);
  if constexpr (masked) {
    const auto frame = step - s.position;
    hasSample = (frame >= 0) & (frame < frames);
    z1 = L::choose(hasSample, z1, s.z1);
    z2 = L::choose(hasSample, z2, s.z2);
  }
  if constexpr (flush == Flush::everyValue) {
    s.excessive |= ~(L::magnitude(y) < mostVectorised) & hasSample;
  } else if constexpr (masked) {
    s.middling &= L::bits(y) | ~hasSample;
  } else {
    s.middling &= L::bits(y);
  }
  s.y = y;
  s.z1 = z1;
  s.z2 = z2;
}

/// All stations: `vectors` vectors of them. Its functions become part of their caller, and loops
/// over the vectors are written out, since only what nobody points at may stay in registers.
template <class Machine, std::size_t vectors>
class Cascade {
  using L = Lanes<Machine>;
  static constexpr std::size_t places = L::count / 2;

 public:
  static constexpr std::size_t stations = vectors * places;
  static constexpr auto groupSteps = static_cast<std::int32_t>(places);

  /// All that it remembers, and puts out, is smaller by `scale`, a power of 2.
  [[gnu::always_inline]] inline Cascade(EqualizerTask& task, float scale) {
    if (task.layout.vectors != vectors) {
      layOut(task);
    }
    alignas(64) float memory[2][lanes] = {};
    gatherMemory(task, scale, memory);
#pragma GCC unroll 8
    for (std::size_t v = 0; v < vectors; ++v) {
      Stations<Machine>& s = stations_[v];
      const std::size_t first = v * L::count;
      s.b0 = L::load(&task.layout.coefficients[0][first]);
      s.b1 = L::load(&task.layout.coefficients[1][first]);
      s.b2 = L::load(&task.layout.coefficients[2][first]);
      s.a1 = L::load(&task.layout.coefficients[3][first]);
      s.a2 = L::load(&task.layout.coefficients[4][first]);
      s.z1 = L::load(memory[0] + first);
      s.z2 = L::load(memory[1] + first);
      s.position = positions(static_cast<std::int32_t>(v));
      s.isBand = s.position < static_cast<std::int32_t>(task.bandCount);
      s.middling = L::all(-1);
      s.excessive = L::all(0);
      s.y = L::all(0.0F);
    }
    // What goes in is scaled by the factors that it meets first: this rounds nothing.
    auto inputScale = L::all(1.0F);
    inputScale[0] = scale;
    inputScale[1] = scale;
    stations_[0].b0 *= inputScale;
    stations_[0].b1 *= inputScale;
    stations_[0].b2 *= inputScale;
  }

  /// Frame i of the input comes out in place i + stations of the output. As soon as the next vector
  /// of frames is there, `listener` may `work` on it, one frame a step: so what follows is computed
  /// while the filters wait for each other. Not on the last ones. It is called some groups late,
  /// when the processor has put the frames away and can read several of them at once.
  template <Flush flush, class Listener>
  [[gnu::always_inline]] inline void run(const float* input, float* output, std::int32_t frames,
                                         Listener& listener) {
    constexpr auto delay = static_cast<std::int32_t>(stations);
    constexpr std::int32_t lateGroups = 8;
    const std::int32_t filled = delay - 1 < frames ? delay - 1 : frames;
    const std::int32_t late = filled + lateGroups * groupSteps;
    std::int32_t step = 0;
    for (; step < filled; ++step) {
      advance<flush, true>(input + 2 * step, output, step, frames);
    }
    for (; step < late && step < frames; ++step) {
      advance<flush, false>(input + 2 * step, output, step, frames);
    }
    if (step + groupSteps <= frames) {
      listener.start();
    }
    for (; step + groupSteps <= frames; step += groupSteps) {
      advanceGroup<flush, 0>(input, output, step, listener);
    }
    for (; step < frames; ++step) {
      advance<flush, false>(input + 2 * step, output, step, frames);
    }
    for (; step < frames + delay - 1; ++step) {
      // No new frame, but the later stations are not done: any frame will do.
      advance<flush, true>(input, output, step, frames);
    }
    L::storeFirst(output + 2 * step, L::rotated(stations_[vectors - 1].y));
  }

  /// Whether what `run` did is what the plain arithmetic does.
  template <Flush flush>
  [[gnu::always_inline]] inline bool holds() const {
    typename L::Int doubtful = L::all(0);
#pragma GCC unroll 8
    for (std::size_t v = 0; v < vectors; ++v) {
      const Stations<Machine>& s = stations_[v];
      doubtful |=
          flush == Flush::everyValue ? s.excessive : ((s.middling & isMiddling) == 0) & s.isBand;
    }
    return !L::any(doubtful);
  }

  [[gnu::always_inline]] inline void keepMemory(const EqualizerTask& task, float scale) const {
    alignas(64) float memory[2][lanes];
#pragma GCC unroll 8
    for (std::size_t v = 0; v < vectors; ++v) {
      L::store(memory[0] + v * L::count, stations_[v].z1 * scale);
      L::store(memory[1] + v * L::count, stations_[v].z2 * scale);
    }
    for (std::size_t station = 0; station < task.bandCount; ++station) {
      for (std::size_t channel = 0; channel < task.channels; ++channel) {
        float* const kept = task.band[station].memory + 2 * channel;
        kept[0] = memory[0][laneOf(station) + channel];
        kept[1] = memory[1][laneOf(station) + channel];
      }
    }
  }

 private:
  static constexpr std::size_t lanes = vectors * L::count;
  static_assert(lanes <= EqualizerTask::Layout::mostLanes);

  /// Of the left channel, in all vectors one after the other.
  static constexpr std::size_t laneOf(std::size_t station) {
    return station % vectors * L::count + station / vectors * 2;
  }

  ORVELLE_INLINE typename L::Int positions(std::int32_t first) {
    constexpr auto stride = static_cast<std::int32_t>(vectors);
    if constexpr (L::count == 4) {
      return first + stride * typename L::Int{0, 0, 1, 1};
    } else {
      return first + stride * typename L::Int{0, 0, 1, 1, 2, 2, 3, 3};
    }
  }

  [[gnu::noinline]] static void layOut(EqualizerTask& task) {
    constexpr float passOn[] = {1.0F, 0.0F, 0.0F, 0.0F, 0.0F};
    for (std::size_t station = 0; station < stations; ++station) {
      const float* const c = station < task.bandCount ? task.band[station].coefficients : passOn;
      for (std::size_t i = 0; i < Equalizer::coefficientsPerBand; ++i) {
        task.layout.coefficients[i][laneOf(station)] = c[i];
        task.layout.coefficients[i][laneOf(station) + 1] = c[i];
      }
    }
    task.layout.vectors = vectors;
  }

  ORVELLE_INLINE void gatherMemory(const EqualizerTask& task, float scale,
                                   float (&memory)[2][lanes]) {
    // A single channel is computed twice, in both lanes.
    const std::size_t right = task.channels == 2 ? 2 : 0;
    for (std::size_t station = 0; station < task.bandCount; ++station) {
      const float* const kept = task.band[station].memory;
      const std::size_t lane = laneOf(station);
      memory[0][lane] = kept[0] * scale;
      memory[1][lane] = kept[1] * scale;
      memory[0][lane + 1] = kept[right] * scale;
      memory[1][lane + 1] = kept[right + 1] * scale;
    }
  }

  template <Flush flush, bool masked>
  [[gnu::always_inline]] inline void advance(const float* frame, float* output, std::int32_t step,
                                             std::int32_t frames) {
    const auto leaving = L::rotated(stations_[vectors - 1].y);
    const auto entering = L::withFirst(leaving, frame);
    L::storeFirst(output + 2 * step, leaving);
    passAlong<vectors - 1, flush, masked>(entering, step, frames);
  }

  /// Written out step after step: in a loop, the processor would spend its time on the loop.
  template <Flush flush, std::int32_t done, class Listener>
  [[gnu::always_inline]] inline void advanceGroup(const float* input, float* output,
                                                  std::int32_t step, Listener& listener) {
    if constexpr (done < groupSteps) {
      advance<flush, false>(input + 2 * (step + done), output, step + done, 0);
      listener.template work<done>();
      advanceGroup<flush, done + 1>(input, output, step, listener);
    }
  }

  /// From the last vector to the first, so that each still finds what its neighbour put out in the
  /// step before.
  template <std::size_t v, Flush flush, bool masked>
  [[gnu::always_inline]] inline void passAlong(typename L::Float entering, std::int32_t step,
                                               std::int32_t frames) {
    if constexpr (v == 0) {
      filter<Machine, flush, masked>(stations_[0], entering, step, frames);
    } else {
      filter<Machine, flush, masked>(stations_[v], stations_[v - 1].y, step, frames);
      passAlong<v - 1, flush, masked>(entering, step, frames);
    }
  }

  Stations<Machine> stations_[vectors];
};

}  // namespace orvelle::vector
