// A private session in which the program itself runs: what the end-to-end tests share.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "instruments/DesktopPanel.h"
#include "instruments/Measurement.h"
#include "instruments/PrivateSession.h"
#include "instruments/Recorder.h"
#include "instruments/Recording.h"
#include "instruments/Subprocess.h"
#include "instruments/WaveFile.h"

namespace orvelle::instruments {

inline constexpr const char* loopbackName = "OrvelleAudioDevice_UID";

/// What players play: a millisecond is one period, so that each whole one has the same peak.
inline constexpr double toneHz = 1000.0;
inline constexpr float quietAmplitude = 0.1F;
inline constexpr float loudAmplitude = 0.5F;

/// For what must happen at all; tests that measure time have limits of their own.
inline constexpr milliseconds patience{5000};

/// Prints a figure and keeps it with the test's result.
void report(const std::string& name, double value, const std::string& unit);

/// How long or how often, for tests that can do more than they do in every check: the number that
/// an environment variable holds.
int numberFrom(const char* variable, int otherwise);

/// A USB output, the best one of most sessions here.
StandIn usbOutput();
/// A built-in one, second to it.
StandIn speaker();

/// A sine of `frames` frames at 48 kHz, with an amplitude for each of the two channels.
WaveFile stereoSine(double frequency, float left, float right, std::size_t frames = 48000);

/// A second of noise, unlike on both channels.
WaveFile stereoNoise();

/// The samples from the first sounding one on, `frames` at most.
Samples fromOnset(Samples recorded, std::size_t frames);

/// The part of a recording that sounds, without 100 ms at both ends. Throws std::runtime_error when
/// too little of it sounds to measure anything.
Samples settled(const Recording& recording, std::string_view channel);

/// Ones that outrank both, and the built-in one alone.
StandIn bluetoothHeadphones();
StandIn display();

double millisecondsBetween(std::int64_t fromNs, std::int64_t toNs);

/// Time from an event to the first sample above `threshold` behind it; infinity when there is none.
double millisecondsToSound(const Recording& recording, std::int64_t eventNs, float threshold);

/// Silence from the last sample that sounded at one output to the first one at another; both
/// recordings begin before the sound moves.
double handOverMs(const Recording& from, const Recording& to);

/// Levels that differ by less are the same.
inline constexpr double levelToleranceDb = 0.1;

/// Level of a tone (Hz), from a tenth of a second in which its player missed no cycle and nothing
/// else sounded. Throws std::runtime_error when there is none.
double levelNow(const Recorder& recorder, double frequency);

struct Excess {
  double decibels = 0.0;      ///< of the loudest sample; negative when all are quieter
  double milliseconds = 0.0;  ///< with a peak beyond the tolerance
};

/// How much louder than a level, and how long, a recording was.
Excess excessOver(double levelDbfs, const Recording& recording);

/// Checks that nothing was louder at any time, in the name of what was recorded.
void expectNeverAbove(double levelDbfs, const Recorder& recorder, const std::string& name);

class BoostSession {
 public:
  explicit BoostSession(const SessionOptions& options);

  PrivateSession& session() { return session_; }
  DesktopPanel& panel() { return panel_; }
  [[nodiscard]] const DesktopPanel& panel() const { return panel_; }

  /// Starts the program with these words.
  std::unique_ptr<Subprocess> run(const std::vector<std::string>& words);
  /// Starts a boost and returns when it says that it runs; fails the test otherwise.
  std::unique_ptr<Subprocess> boost(const std::string& gain,
                                    const std::vector<std::string>& furtherWords = {});
  /// The same for a boost that follows the devices.
  std::unique_ptr<Subprocess> autoBoost(const std::string& gain);
  /// Ends a boost with Ctrl-C: its whole way out is checked.
  static void interrupt(Subprocess& boost);

  /// Checks volume (as mixers show it) and mute of a node.
  void expectVolume(const std::string& node, float volume, bool isMuted);

  /// Begins to play a file through the default output, and returns once its stream is there. Quiet
  /// follows the file: players end without hearing their last cycles out.
  std::unique_ptr<Subprocess> startPlayer(const std::string& player, WaveFile wave);
  /// Plays a file to its end through the default output.
  void play(const std::string& player, const WaveFile& wave);

  /// All nodes, ports and links by name: equal before and after means that nothing was left.
  [[nodiscard]] std::multiset<std::string> inventory() const;
  /// Waits until the inventory is `expected` again; false when it is not within a second.
  [[nodiscard]] bool returnsTo(const std::multiset<std::string>& expected) const;

 private:
  std::unique_ptr<Subprocess> runBoost(const std::vector<std::string>& words);
  [[nodiscard]] std::size_t playbackStreams() const;

  PrivateSession session_;
  DesktopPanel panel_;
  int playedFiles_ = 0;
};

}  // namespace orvelle::instruments
