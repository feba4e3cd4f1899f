// Raw interleaved 32-bit float stereo, native byte order, from standard input to standard output:
// what the filter programs here have in common, so that they differ in the filter alone.
#pragma once

#include <cstddef>
#include <functional>
#include <span>

namespace orvelle {

/// Hands the whole input to `filter` in callbacks of `framesPerCallback` frames, which changes them
/// in place, and writes what it leaves. The last callback may be shorter. Ends early, without a
/// complaint, when nobody reads any more. An incomplete last frame is left out, and told
/// of on standard error in the name of `program`. Throws std::system_error.
void filterStandardInput(const char* program, std::size_t framesPerCallback,
                         const std::function<void(std::span<float> samples)>& filter);

}  // namespace orvelle
