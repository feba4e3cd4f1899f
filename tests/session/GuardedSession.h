// A private session that is looked at again when the program has ended in it without a word.
#pragma once

#include <sys/types.h>

#include <memory>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {

/// The sine that is played throughout: a millisecond is one period, so that each whole one has the
/// same peak.
inline constexpr double sineHz = 1000.0;
inline constexpr float sineAmplitude = 0.5F;
/// What outputs stand at, as mixers show it.
inline constexpr float formerVolume = 0.2F;
/// Peak of the sine through such an output.
inline constexpr float formerPeak = sineAmplitude * formerVolume * formerVolume * formerVolume;

/// What has to be the same before and after.
struct Standing {
  std::string defaultSink;
  std::string configuredSink;
  std::set<std::string> streamOutputs;
  std::vector<float> volumes;
  std::vector<bool> mutes;

  friend bool operator==(const Standing& one, const Standing& other);
  friend std::ostream& operator<<(std::ostream& stream, const Standing& standing);
};

/// Milliseconds of a recording from `fromNs` on in which the sine was louder than `peak`.
double millisecondsAbove(float peak, const Recording& recording, std::int64_t fromNs = 0);

/// From `sinceNs` to the last millisecond that did not have this peak; 0 when all had. The last
/// tenth of a second must have it throughout: infinity otherwise.
double millisecondsUntilSteady(float peak, const Recording& recording, std::int64_t sinceNs);

/// The guardian of a running program; 0 when it has none.
pid_t guardianOf(pid_t program);
/// Fails the test where there is none.
void signalGuardianOf(pid_t program, int signal);
/// A process that has ended is none, even if nobody has taken note of its end.
bool isRunning(pid_t process);

/// In the session's state folder.
std::vector<std::filesystem::path> journalsIn(const PrivateSession& session);

/// Two outputs at a fifth of their volume, and a sine played into the default one.
class GuardedSession : public BoostSession {
 public:
  /// `capacity`: of the recordings, as a whole.
  explicit GuardedSession(std::chrono::seconds capacity = std::chrono::seconds(60));

  [[nodiscard]] Standing standing();
  /// How long it takes until everything stands like one of these; absent when it does not.
  std::optional<double> millisecondsUntil(const std::vector<Standing>& expected,
                                          std::int64_t sinceNs);

  Recorder& usb() { return usb_; }
  Recorder& speaker() { return speaker_; }

 private:
  /// Sets the volumes before anything plays.
  struct Quiet {
    explicit Quiet(DesktopPanel& panel);
  };

  Quiet quiet_{panel()};
  Recorder usb_;
  Recorder speaker_;
  Probe probe_{sineSignal(sineHz, sineAmplitude), {}};
};

}  // namespace orvelle::instruments
