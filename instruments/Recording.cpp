#include "instruments/Recording.h"

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace orvelle::instruments {
namespace {

double nanosecondsOf(double frames, std::uint32_t rate) {
  return frames * 1e9 / static_cast<double>(rate);
}

}  // namespace

double Recording::rate() const {
  return static_cast<double>(cycles.back().rate);
}

Samples Recording::channel(std::string_view name) const {
  const auto found = std::find(channelNames.begin(), channelNames.end(), name);
  return channels.at(static_cast<std::size_t>(found - channelNames.begin()));
}

const Cycle& Recording::cycleOf(std::size_t frame) const {
  const auto next = std::upper_bound(
      cycles.begin(), cycles.end(), frame,
      [](std::size_t wanted, const Cycle& cycle) { return wanted < cycle.firstFrame; });
  if (next == cycles.begin() || frame >= frames()) {
    throw std::out_of_range("no such frame in the recording");
  }
  return *std::prev(next);
}

std::int64_t Recording::timeAt(std::size_t frame) const {
  const Cycle& cycle = cycleOf(frame);
  const auto within = static_cast<double>(frame - cycle.firstFrame);
  return cycle.timeNs + std::llround(nanosecondsOf(within, cycle.rate));
}

std::size_t Recording::frameAt(std::int64_t timeNs) const {
  for (const Cycle& cycle : cycles) {
    const double length = nanosecondsOf(cycle.frames, cycle.rate);
    const auto ahead = static_cast<double>(timeNs - cycle.timeNs);
    if (ahead < length) {
      const double frame = std::ceil(std::max(ahead, 0.0) * cycle.rate * 1e-9);
      return cycle.firstFrame + static_cast<std::size_t>(frame);
    }
  }
  return frames();
}

std::vector<Gap> Recording::gaps() const {
  std::vector<Gap> found;
  for (std::size_t index = 1; index < cycles.size(); ++index) {
    const Cycle& before = cycles[index - 1];
    const Cycle& after = cycles[index];
    const double length = nanosecondsOf(before.duration, before.rate);
    double missedNs = static_cast<double>(after.timeNs - before.timeNs) - length;
    if (before.clock == after.clock && after.position >= before.position) {
      // One clock counts every frame, so that late wake-ups do not look like gaps.
      const auto missed = static_cast<double>(after.position - before.position) - before.duration;
      missedNs = nanosecondsOf(missed, before.rate);
    }
    if (missedNs > nanosecondsOf(1.0, before.rate)) {
      found.push_back({after.firstFrame, missedNs * 1e-6});
    }
  }
  return found;
}

}  // namespace orvelle::instruments
