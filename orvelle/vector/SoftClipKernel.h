// Volume and soft clip of a tapped application, on all lanes at once.
//
// The curve is tanh, computed here and not by the C library: that one takes one value at a time,
// and each platform's rounds in its own way. Here are only additions, multiplications and one
// division, which are the same everywhere.
//
// A curve that is nearly straight and one that is nearly flat need different arithmetic:
//
//   y below 0.65   y + y^3 P(y^2)        y itself is exact, and only the small rest is rounded
//   y above        1 - 2 / (e^2y + 1)    1 is exact, and only the small rest is rounded
//
// Both are computed for every lane, and a mask chooses: a jump would be guessed wrong half of the
// time. P, and R in e^r = 1 + r + r^2 R(r), have the least possible largest error, relative to tanh
// and to e^r, as found by Remez' exchange with 50 digits; each coefficient was rounded to a float
// before those behind it were found anew.
//
// Tried with every float: at most 1.2 units in the last place from the true curve, never falling
// where that rises, odd, never beyond 1.
#pragma once

#include "orvelle/vector/FinishKernel.h"
#include "orvelle/vector/Kernels.h"
#include "orvelle/vector/Lanes.h"

namespace orvelle::vector {

/// e^x + 1, for 0 <= x <= 20: with the whole number n next to x / ln 2 and the rest r = x - n ln 2,
/// e^x is 2^n e^r.
template <class Machine>
ORVELLE_INLINE typename Lanes<Machine>::Float exponentialPlusOne(typename Lanes<Machine>::Float x) {
  using L = Lanes<Machine>;
  constexpr float perLogarithm = 0x1.715476p+0F;  // 1 / ln 2
  // ln 2 in two parts, the first with so few digits that its multiples are exact.
  constexpr float logarithm = 0x1.62cp-1F;
  constexpr float logarithmRest = 0x1.217f7ep-12F;
  // A number so large that its sum with another has no fraction, and ends in the bits of n.
  constexpr float rounder = 0x1.8p23F;
  const auto rounded = x * perLogarithm + rounder;
  const auto n = rounded - rounder;
  const auto r = (x - n * logarithm) - n * logarithmRest;

  auto polynomial = r * 0x1.6ac70ap-10F + 0x1.123de4p-7F;  // R, error 3.2e-9
  polynomial = polynomial * r + 0x1.555858p-5F;
  polynomial = polynomial * r + 0x1.55548cp-3F;
  polynomial = polynomial * r + 0x1.fffffcp-2F;
  const auto powerOfTwo = L::number((L::bits(rounded) << 23) + 0x3f800000);  // n as its exponent
  // So grouped, e^r is not rounded on its own before it is added to the 1 that is asked for.
  return (powerOfTwo + 1.0F) + powerOfTwo * (r + r * r * polynomial);
}

/// tanh of numbers that are at least 0, infinity included.
template <class Machine>
ORVELLE_INLINE typename Lanes<Machine>::Float hyperbolicTangent(typename Lanes<Machine>::Float y) {
  using L = Lanes<Machine>;
  constexpr float hardlyBentBelow = 0x1p-13F;  // the result is y
  constexpr float straightBelow = 0.65F;
  constexpr float saturated = 9.5F;  // the result is 1, some way before already

  const auto bounded = L::choose(y > saturated, L::all(saturated), y);
  const auto flat = 1.0F - 2.0F / exponentialPlusOne<Machine>(bounded + bounded);

  // Small numbers have denormal powers, which take some processors a hundred times as long.
  const auto bent = L::keep(bounded > hardlyBentBelow, bounded);
  const auto square = bent * bent;
  auto polynomial = square * -0x1.6968fap-8F + 0x1.4f5d36p-6F;  // P, error 6.8e-9
  polynomial = polynomial * square - 0x1.b7cfb2p-5F;
  polynomial = polynomial * square + 0x1.1103fp-3F;
  polynomial = polynomial * square - 0x1.555524p-2F;
  const auto straight = bounded + bent * square * polynomial;
  return L::choose(bounded < straightBelow, straight, flat);
}

/// +0 for what is no number.
template <class Machine>
ORVELLE_INLINE typename Lanes<Machine>::Float softClipped(typename Lanes<Machine>::Float value) {
  using L = Lanes<Machine>;
  const auto magnitude = L::magnitude(value);
  const auto sign = L::bits(value) ^ L::bits(magnitude);
  const auto curved = L::bits(hyperbolicTangent<Machine>(magnitude));
  return L::keep(magnitude <= __builtin_inff(), L::number(curved | sign));
}

template <class Machine, bool clips>
void amplify(TapBlock& block) {
  using L = Lanes<Machine>;
  const TapBlock here = block;             // the compiler knows that no sample is stored into it
  auto peak = L::bits(L::all(here.peak));  // without their sign, numbers are ordered as their bits
  const auto amplified = [&](typename L::Float read) __attribute__((always_inline)) {
    const auto x = L::keep(L::isFinite(read), read);
    peak = L::larger(L::bits(L::magnitude(x)), peak);
    const auto product = here.volume * x;
    if constexpr (clips) {
      return softClipped<Machine>(product);
    } else {
      return product;
    }
  };
  std::size_t done = 0;
  for (; done + L::count <= here.samples; done += L::count) {
    L::store(here.destination + done, amplified(L::load(here.source + done)));
  }
  if (const std::size_t rest = here.samples - done; rest > 0) {
    const auto some = loadSome<Machine>(here.source + done, rest);
    storeSome<Machine>(here.destination + done, amplified(some), rest);
  }
  block.peak = L::largest(L::number(peak));
}

template <class Machine>
void softClip(TapBlock& block) {
  // Silence is what the curve leaves as it is.
  if (block.volume == 1.0F || block.volume == 0.0F) {
    amplify<Machine, false>(block);
  } else {
    amplify<Machine, true>(block);
  }
}

}  // namespace orvelle::vector
