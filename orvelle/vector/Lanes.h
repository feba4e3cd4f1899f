// Vectors of single-precision numbers: one instruction works on 4 or 8 of them, each in a lane of
// its own. Written with the vector types of gcc and clang, so that the same source becomes SSE2,
// AVX2, AVX-512 or NEON.
//
// A `Machine` names the instruction set that a source file is compiled for. Everything here is a
// template of it, because the linker keeps one copy of each function: without the difference in
// name, code for a newer processor could end up in the hands of an older one. For the same reason
// these headers use nothing of the standard library that contains code.
#pragma once

#include <cstddef>
#include <cstdint>
#if defined(__x86_64__)
#include <immintrin.h>
#endif

// A vector handed to a real function would travel through memory.
#define ORVELLE_INLINE [[gnu::always_inline]] static inline

namespace orvelle::vector {

template <std::size_t lanes>
struct LaneTypes;

template <>
struct LaneTypes<4> {
  using Float [[gnu::vector_size(16)]] = float;
  using Int [[gnu::vector_size(16)]] = std::int32_t;
  using Unsigned [[gnu::vector_size(16)]] = std::uint32_t;
};

template <>
struct LaneTypes<8> {
  using Float [[gnu::vector_size(32)]] = float;
  using Int [[gnu::vector_size(32)]] = std::int32_t;
  using Unsigned [[gnu::vector_size(32)]] = std::uint32_t;
};

/// Comparison of two vectors gives an `Int` with all bits set in the lanes where it holds.
template <class Machine>
struct Lanes {
  static constexpr std::size_t count = Machine::lanes;
  using Float = typename LaneTypes<count>::Float;
  using Int = typename LaneTypes<count>::Int;
  using Unsigned = typename LaneTypes<count>::Unsigned;

  ORVELLE_INLINE Float all(float value) { return value - Float{}; }
  ORVELLE_INLINE Int all(std::int32_t value) { return value - Int{}; }

  ORVELLE_INLINE Float load(const float* source) {
    Float value;
    __builtin_memcpy(&value, source, sizeof value);
    return value;
  }
  ORVELLE_INLINE void store(float* destination, Float value) {
    __builtin_memcpy(destination, &value, sizeof value);
  }

  ORVELLE_INLINE Int bits(Float value) { return reinterpret_cast<Int>(value); }
  ORVELLE_INLINE Float number(Int bits) { return reinterpret_cast<Float>(bits); }
  ORVELLE_INLINE Float magnitude(Float value) { return number(bits(value) & 0x7fffffff); }

  /// The value where the mask is set, +0 elsewhere.
  ORVELLE_INLINE Float keep(Int mask, Float value) { return number(bits(value) & mask); }
  ORVELLE_INLINE Float choose(Int mask, Float yes, Float no) {
    return number((bits(yes) & mask) | (bits(no) & ~mask));
  }

  ORVELLE_INLINE Int isFinite(Float value) { return magnitude(value) <= 3.40282347e+38F; }

  /// The lanes of both in turn.
  ORVELLE_INLINE void storePairs(float* destination, Float first, Float second) {
    if constexpr (count == 4) {
      store(destination, __builtin_shufflevector(first, second, 0, 4, 1, 5));
      store(destination + 4, __builtin_shufflevector(first, second, 2, 6, 3, 7));
    } else {
      store(destination, __builtin_shufflevector(first, second, 0, 8, 1, 9, 2, 10, 3, 11));
      store(destination + 8, __builtin_shufflevector(first, second, 4, 12, 5, 13, 6, 14, 7, 15));
    }
  }

  /// One frame after the other, each of which is given in both halves of four lanes.
  // NOLINTNEXTLINE(modernize-avoid-c-arrays): as in Kernels.h
  ORVELLE_INLINE Float framesOf(const LaneTypes<4>::Float (&frames)[count / 2]) {
    const auto first = __builtin_shufflevector(frames[0], frames[1], 0, 1, 6, 7);
    if constexpr (count == 4) {
      return first;
    } else {
      const auto second = __builtin_shufflevector(frames[2], frames[3], 0, 1, 6, 7);
      return __builtin_shufflevector(first, second, 0, 1, 2, 3, 4, 5, 6, 7);
    }
  }

  /// Left and right of each frame exchanged.
  ORVELLE_INLINE Float swapped(Float frames) {
    if constexpr (count == 4) {
      return __builtin_shufflevector(frames, frames, 1, 0, 3, 2);
    } else {
      return __builtin_shufflevector(frames, frames, 1, 0, 3, 2, 5, 4, 7, 6);
    }
  }
  /// The left sample of each frame in both places.
  ORVELLE_INLINE Float leftTwice(Float frames) {
    if constexpr (count == 4) {
      return __builtin_shufflevector(frames, frames, 0, 0, 2, 2);
    } else {
      return __builtin_shufflevector(frames, frames, 0, 0, 2, 2, 4, 4, 6, 6);
    }
  }
  /// The right sample of each frame with its sign changed, that of a zero too.
  ORVELLE_INLINE Float rightNegated(Float frames) {
    if constexpr (count == 4) {
      return number(bits(frames) ^ Int{0, INT32_MIN, 0, INT32_MIN});
    } else {
      return number(bits(frames) ^ Int{0, INT32_MIN, 0, INT32_MIN, 0, INT32_MIN, 0, INT32_MIN});
    }
  }
  /// Each frame one place up, the last one in the first place.
  ORVELLE_INLINE Float rotated(Float frames) {
    if constexpr (count == 4) {
      return __builtin_shufflevector(frames, frames, 2, 3, 0, 1);
    } else {
      return __builtin_shufflevector(frames, frames, 6, 7, 0, 1, 2, 3, 4, 5);
    }
  }
  /// `frames` with the one at `first` in the first place.
  ORVELLE_INLINE Float withFirst(Float frames, const float* first) {
    double frame = 0.0;  // two samples in one load
    __builtin_memcpy(&frame, first, sizeof frame);
    if constexpr (count == 4) {
      using Frames [[gnu::vector_size(16)]] = double;
      const Frames inAllPlaces = {frame, frame};
      return __builtin_shufflevector(frames, reinterpret_cast<Float>(inAllPlaces), 4, 5, 2, 3);
    } else {
      using Frames [[gnu::vector_size(32)]] = double;
      const Frames inAllPlaces = {frame, frame, frame, frame};
      return __builtin_shufflevector(frames, reinterpret_cast<Float>(inAllPlaces), 8, 9, 2, 3, 4, 5,
                                     6, 7);
    }
  }
  ORVELLE_INLINE void storeFirst(float* frame, Float frames) {
    __builtin_memcpy(frame, &frames, 2 * sizeof(float));
  }

  /// Whether a mask is set in any lane.
  ORVELLE_INLINE bool any(Int mask) {
#if defined(__x86_64__)
    if constexpr (count == 4) {
      return _mm_movemask_ps(reinterpret_cast<__m128>(mask)) != 0;
    }
#if defined(__AVX2__)
    if constexpr (count == 8) {
      return _mm256_movemask_ps(reinterpret_cast<__m256>(mask)) != 0;
    }
#endif
#else
    std::int32_t set = 0;
    for (std::size_t lane = 0; lane < count; ++lane) {
      set |= mask[lane];
    }
    return set != 0;
#endif
  }

  ORVELLE_INLINE Int larger(Int one, Int other) {
    return one > other ? one : other;
  }

  ORVELLE_INLINE Unsigned smaller(Unsigned one, Unsigned other) {
    return one < other ? one : other;
  }

  /// Where one of them is no number: the other argument, `value`.
  ORVELLE_INLINE Float larger(Float bound, Float value) {
#if defined(__x86_64__)
    if constexpr (count == 4) {
      return _mm_max_ps(bound, value);
    }
#if defined(__AVX2__)
    if constexpr (count == 8) {
      return _mm256_max_ps(bound, value);
    }
#endif
#else
    return bound > value ? bound : value;
#endif
  }
  ORVELLE_INLINE Float smaller(Float bound, Float value) {
#if defined(__x86_64__)
    if constexpr (count == 4) {
      return _mm_min_ps(bound, value);
    }
#if defined(__AVX2__)
    if constexpr (count == 8) {
      return _mm256_min_ps(bound, value);
    }
#endif
#else
    return bound < value ? bound : value;
#endif
  }

  ORVELLE_INLINE float largest(Float values) {
    float result = values[0];
    for (std::size_t lane = 1; lane < count; ++lane) {
      result = values[lane] > result ? values[lane] : result;
    }
    return result;
  }
};

}  // namespace orvelle::vector
