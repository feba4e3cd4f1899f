#include "tests/session/GuardedSession.h"

#include <gtest/gtest.h>
#include <signal.h>  // NOLINT(modernize-deprecated-headers): kill

#include <algorithm>
#include <cmath>
#include <fstream>
#include <limits>
#include <thread>

#include "orvelle/platform/Process.h"

namespace orvelle::instruments {
namespace {

constexpr float tolerance = 1.02F;
const std::vector<std::string> outputs = {"hw_usb", "hw_speaker"};

}  // namespace

bool operator==(const Standing& one, const Standing& other) {
  return one.defaultSink == other.defaultSink && one.configuredSink == other.configuredSink &&
         one.streamOutputs == other.streamOutputs && one.mutes == other.mutes &&
         std::ranges::equal(one.volumes, other.volumes,
                            [](float a, float b) { return std::abs(a - b) < 1e-4F; });
}

std::ostream& operator<<(std::ostream& stream, const Standing& standing) {
  stream << "default " << standing.defaultSink << ", configured " << standing.configuredSink
         << ", stream at";
  for (const std::string& output : standing.streamOutputs) {
    stream << " " << output;
  }
  stream << ", volumes";
  for (const float volume : standing.volumes) {
    stream << " " << volume;
  }
  return stream;
}

double millisecondsAbove(float peak, const Recording& recording, std::int64_t fromNs) {
  const std::size_t begin = fromNs == 0 ? 0 : recording.frameAt(fromNs);
  const auto peaks = peakPerMillisecond(recording.channel("FL").subspan(begin), recording.rate());
  return static_cast<double>(
      std::ranges::count_if(peaks, [&](float level) { return level > peak * tolerance; }));
}

double millisecondsUntilSteady(float peak, const Recording& recording, std::int64_t sinceNs) {
  constexpr std::size_t steadyMs = 100;
  const std::size_t begin = recording.frameAt(sinceNs);
  const auto peaks = peakPerMillisecond(recording.channel("FL").subspan(begin), recording.rate());
  const auto lastOff = std::find_if(peaks.rbegin(), peaks.rend(), [&](float level) {
    return level > peak * tolerance || level < peak / tolerance;
  });
  const auto steady = static_cast<std::size_t>(lastOff - peaks.rbegin());
  return steady < steadyMs ? std::numeric_limits<double>::infinity()
                           : static_cast<double>(peaks.size() - steady);
}

pid_t guardianOf(pid_t program) {
  for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
    std::ifstream stat(entry.path() / "stat");
    pid_t pid = 0;
    pid_t parent = 0;
    std::string name;
    std::string state;
    if (stat >> pid >> name >> state >> parent && parent == program &&
        name.starts_with("(orvelle-guardia")) {
      return pid;
    }
  }
  return 0;
}

void signalGuardianOf(pid_t program, int signal) {
  const pid_t guardian = guardianOf(program);
  ASSERT_GT(guardian, 0) << "no guardian";
  kill(guardian, signal);
}

bool isRunning(pid_t process) {
  return process > 0 && processStartTime(process).has_value();
}

std::vector<std::filesystem::path> journalsIn(const PrivateSession& session) {
  std::vector<std::filesystem::path> found;
  std::error_code error;
  const std::filesystem::path folder = session.environment().at("XDG_STATE_HOME") + "/orvelle";
  for (const auto& file : std::filesystem::directory_iterator(folder, error)) {
    found.push_back(file.path());
  }
  return found;
}

GuardedSession::Quiet::Quiet(DesktopPanel& panel) {
  for (const std::string& output : outputs) {
    panel.setVolume(output, formerVolume);
  }
}

GuardedSession::GuardedSession(std::chrono::seconds capacity)
    : BoostSession(
          {.standIns =
               {usbOutput(),
                {.name = "hw_speaker", .description = "Speaker", .bus = "pci", .priority = 900}}}),
      usb_("hw_usb", capacity),
      speaker_("hw_speaker", capacity) {}

Standing GuardedSession::standing() {
  Standing now{panel().defaultSink(), panel().configuredSink(), panel().outputsOf("probe"), {}, {}};
  for (const std::string& output : outputs) {
    const NodeVolume level = panel().volume(output);
    now.volumes.push_back(level.cubic());
    now.mutes.push_back(level.isMuted);
  }
  return now;
}

std::optional<double> GuardedSession::millisecondsUntil(const std::vector<Standing>& expected,
                                                        std::int64_t sinceNs) {
  std::int64_t now = 0;
  const bool isReached = SessionClient::waitFor(
      [&] {
        now = monotonicNanoseconds();
        return std::ranges::count(expected, standing()) != 0;
      },
      milliseconds(2000));
  return isReached ? std::optional(static_cast<double>(now - sinceNs) * 1e-6) : std::nullopt;
}

}  // namespace orvelle::instruments
