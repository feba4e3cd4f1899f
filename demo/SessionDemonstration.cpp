// Shows the boost on a machine without a desktop session: a private session with outputs that stand
// in for hardware, music through it without and with the boost, and what it measured at the output.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "demo/Music.h"
#include "instruments/DesktopPanel.h"
#include "instruments/Measurement.h"
#include "instruments/PrivateSession.h"
#include "instruments/Recorder.h"
#include "instruments/Subprocess.h"
#include "instruments/WaveFile.h"

namespace orvelle::demo {

namespace {

using std::chrono::milliseconds;

constexpr double kMusicPeakDbfs = -14.0;  // quiet enough for the gain to stay clear of the limiter
constexpr float kGain = 4.0F;
constexpr float kOutputVolume = 0.9F;  // as a mixer shows it
constexpr const char* kOutput = "standin_headphones";
constexpr float kSoundBelowPeak = 1e-2F;  // -40 dB: where the sound begins and ends

volatile std::sig_atomic_t interrupted = 0;

instruments::SessionOptions outputsOfALaptop() {
  instruments::SessionOptions options;
  options.standIns = {
      {.name = kOutput, .description = "USB Headphones (stand-in)", .bus = "usb", .priority = 1200},
      {.name = "standin_speakers", .description = "Speakers (stand-in)", .bus = "pci"},
      {.name = "standin_headset",
       .description = "Headset with Microphone (stand-in)",
       .bus = "usb",
       .priority = 900,
       .mediaClass = "Audio/Duplex"},
  };
  return options;
}

/// Prints what a process writes, as it comes.
class Echo {
 public:
  explicit Echo(const instruments::Subprocess& process) : process_(process) {}

  void printNewLines() {
    const std::vector<instruments::OutputLine> lines = process_.lines();
    for (; printed_ < lines.size(); ++printed_) {
      std::printf("  %s\n", lines[printed_].text.c_str());
    }
    std::fflush(stdout);
  }

 private:
  const instruments::Subprocess& process_;
  std::size_t printed_ = 0;
};

/// Waits for the end of `process` while `echo` goes on; throws when it fails or takes too long.
void waitForSuccess(instruments::Subprocess& process, Echo& echo, std::chrono::seconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  std::optional<int> status;
  while (!(status = process.wait(milliseconds(50)))) {
    echo.printNewLines();
    if (interrupted != 0) {
      throw std::runtime_error("interrupted");
    }
    if (std::chrono::steady_clock::now() > end) {
      throw std::runtime_error("a program of the demonstration does not end");
    }
  }
  echo.printNewLines();
  if (*status != 0) {
    throw std::runtime_error("a program of the demonstration failed: " + process.standardError());
  }
}

/// Plays `music` on the default output and captures what arrives at the real one.
instruments::Recording playAndRecord(const instruments::PrivateSession& session,
                                     const std::string& music, Echo* boostEcho) {
  const instruments::Recorder recorder(kOutput);
  instruments::Subprocess player({"pw-play", music}, session.environment());
  Echo playerEcho(player);
  waitForSuccess(player, boostEcho == nullptr ? playerEcho : *boostEcho, std::chrono::seconds(20));
  if (!recorder.waitFor(milliseconds(200))) {
    throw std::runtime_error("the recording stands still");
  }
  return recorder.take();
}

instruments::Recording playBoosted(const instruments::PrivateSession& session,
                                   const std::string& program, const std::string& music) {
  instruments::Subprocess boost({program, "boost", "--input", "OrvelleAudioDevice_UID", "--gain",
                                 std::to_string(static_cast<int>(kGain))},
                                session.environment());
  Echo echo(boost);
  const bool isRunning = boost.waitForLine("Ctrl-C to stop.", milliseconds(5000)).has_value();
  echo.printNewLines();
  if (!isRunning) {
    throw std::runtime_error("the boost does not start");
  }
  instruments::Recording recording = playAndRecord(session, music, &echo);
  boost.signal(SIGINT);
  waitForSuccess(boost, echo, std::chrono::seconds(5));
  return recording;
}

struct Level {
  double rmsDbfs = 0.0;
  double peakDbfs = 0.0;
};

/// Over both channels, from the first sound to the last.
Level measure(const instruments::Recording& recording) {
  float peak = 0.0F;
  for (const std::vector<float>& channel : recording.channels) {
    peak = std::max(peak, instruments::peak(channel));
  }
  const float threshold = peak * kSoundBelowPeak;
  double squares = 0.0;
  double samples = 0.0;
  for (const std::vector<float>& channel : recording.channels) {
    const std::size_t end = instruments::endOfSound(channel, threshold);
    const std::size_t first =
        std::min(end, instruments::firstAbove(channel, threshold).value_or(end));
    for (const float sample : std::span(channel).subspan(first, end - first)) {
      squares += static_cast<double>(sample) * static_cast<double>(sample);
      samples += 1.0;
    }
  }
  return {instruments::toDecibels(std::sqrt(squares / std::max(samples, 1.0))),
          instruments::toDecibels(static_cast<double>(peak))};
}

/// Prints the comparison; says whether the boost has done what it was asked.
bool report(const Level& before, const Level& after, const std::filesystem::path& directory) {
  constexpr double toleranceDb = 0.1;
  const double gainDb = instruments::toDecibels(static_cast<double>(kGain));
  const double differenceDb = after.rmsDbfs - before.rmsDbfs;
  std::printf("Measured at the headphones (dBFS):\n");
  std::printf("  before: %6.2f dB level, %6.2f dB peak   %s\n", before.rmsDbfs, before.peakDbfs,
              (directory / "before.wav").c_str());
  std::printf("  after:  %6.2f dB level, %6.2f dB peak   %s\n", after.rmsDbfs, after.peakDbfs,
              (directory / "after.wav").c_str());
  std::printf("  louder by %.2f dB (asked for: %.2f dB)\n", differenceDb, gainDb);
  return std::abs(differenceDb - gainDb) < toleranceDb;
}

void writeRecording(const std::filesystem::path& path, const instruments::Recording& recording) {
  instruments::writeWave(
      path, {.rate = static_cast<int>(recording.rate()), .channels = recording.channels});
}

int demonstrate(const std::string& program, const std::filesystem::path& directory) {
  std::filesystem::create_directories(directory);
  const instruments::PrivateSession session(outputsOfALaptop());
  instruments::DesktopPanel().setVolume(kOutput, kOutputVolume);
  const Music music = composeMusic(kMusicPeakDbfs);
  const std::filesystem::path musicPath = session.directory() / "music.wav";
  instruments::writeWave(musicPath,
                         {.rate = Music::sampleRate, .channels = {music.left, music.right}});

  std::printf("A private session with stand-in devices, as the program sees it:\n");
  instruments::Subprocess list({program, "list"}, session.environment());
  Echo listEcho(list);
  waitForSuccess(list, listEcho, std::chrono::seconds(5));

  std::printf("\nMusic without the boost ...\n");
  const instruments::Recording before = playAndRecord(session, musicPath, nullptr);
  std::printf("The same music with it:\n");
  const instruments::Recording after = playBoosted(session, program, musicPath);
  writeRecording(directory / "before.wav", before);
  writeRecording(directory / "after.wav", after);
  std::printf("\n");
  return report(measure(before), measure(after), directory) ? 0 : 1;
}

}  // namespace

}  // namespace orvelle::demo

int main(int argc, char** argv) {
  const std::span arguments(argv, static_cast<std::size_t>(argc));
  if (arguments.size() != 3) {
    std::fprintf(stderr, "usage: orvelle-demonstration <orvelle> <directory for recordings>\n");
    return 2;
  }
  std::signal(SIGINT, [](int) { orvelle::demo::interrupted = 1; });
  try {
    return orvelle::demo::demonstrate(std::filesystem::absolute(arguments[1]), arguments[2]);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "demonstration: %s\n", error.what());
    return 1;
  }
}
