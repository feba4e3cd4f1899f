// A private session in which the program itself runs: what the end-to-end tests share.
#pragma once

#include <chrono>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "instruments/DesktopPanel.h"
#include "instruments/Measurement.h"
#include "instruments/PrivateSession.h"
#include "instruments/Recording.h"
#include "instruments/Subprocess.h"
#include "instruments/WaveFile.h"

namespace orvelle::instruments {

inline constexpr const char* loopbackName = "OrvelleAudioDevice_UID";

/// For what must happen at all; tests that measure time have limits of their own.
inline constexpr milliseconds patience{5000};

/// Prints a figure and keeps it with the test's result.
void report(const std::string& name, double value, const std::string& unit);

/// A USB output, the best one of most sessions here.
StandIn usbOutput();

/// A sine of `frames` frames at 48 kHz, with an amplitude for each of the two channels.
WaveFile stereoSine(double frequency, float left, float right, std::size_t frames = 48000);

/// The part of a recording that sounds, without 100 ms at both ends. Throws std::runtime_error when
/// too little of it sounds to measure anything.
Samples settled(const Recording& recording, std::string_view channel);

class BoostSession {
 public:
  explicit BoostSession(const SessionOptions& options);

  [[nodiscard]] const PrivateSession& session() const { return session_; }
  DesktopPanel& panel() { return panel_; }

  /// Starts the program with these words.
  std::unique_ptr<Subprocess> run(const std::vector<std::string>& words);
  /// Starts a boost and returns when it says that it runs; fails the test otherwise.
  std::unique_ptr<Subprocess> boost(const std::string& gain,
                                    const std::vector<std::string>& furtherWords = {});
  /// Ends a boost with Ctrl-C: its whole way out is checked.
  static void interrupt(Subprocess& boost);

  /// Plays a file to its end through the default output.
  void play(const std::string& player, WaveFile wave);

  /// All nodes, ports and links by name: equal before and after means that nothing was left.
  [[nodiscard]] std::multiset<std::string> inventory() const;
  /// Waits until the inventory is `expected` again; false when it is not within a second.
  [[nodiscard]] bool returnsTo(const std::multiset<std::string>& expected) const;

 private:
  PrivateSession session_;
  DesktopPanel panel_;
};

}  // namespace orvelle::instruments
