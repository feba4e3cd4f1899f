// A private session for measuring in, and what makes it busy:
//   orvelle-session hold ...   a session; prints its environment, one variable a line
//   orvelle-session play ...   programs that play into it, or are there and wait
//   orvelle-session start ...  how long the boost takes to be heard
// The first two end with their standard input.
#include <pipewire/stream.h>
#include <spa/param/audio/format-utils.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <map>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "instruments/Measurement.h"
#include "instruments/PrivateSession.h"
#include "instruments/Probe.h"
#include "instruments/Recorder.h"
#include "instruments/SessionClient.h"
#include "instruments/Subprocess.h"
#include "orvelle/NumberText.h"

namespace orvelle::instruments {
namespace {

using Options = std::map<std::string, int>;

void sayReadyAndWait() {
  std::puts("ready");
  std::fflush(stdout);
  std::array<char, 64> ignored{};
  while (read(STDIN_FILENO, ignored.data(), ignored.size()) > 0) {
  }
}

/// The first device is the best one. Cycles have one length, whatever clients wish for.
SessionOptions sessionOptions(const Options& options) {
  SessionOptions session;
  session.quantum = options.at("--quantum");
  session.minimumQuantum = session.quantum;
  session.maximumQuantum = session.quantum;
  for (int number = 1; number <= options.at("--devices"); ++number) {
    session.standIns.push_back({.name = "hw_" + std::to_string(number),
                                .bus = number == 1 ? "usb" : "pci",
                                .priority = number == 1 ? 2000 : 1000});
  }
  return session;
}

void hold(const Options& options) {
  const PrivateSession session(sessionOptions(options));
  for (const auto& [name, value] : session.environment()) {
    std::printf("%s=%s\n", name.c_str(), value.c_str());
  }
  sayReadyAndWait();
}

/// Programs that are there, play nothing and are led nowhere yet. All on one connection: what
/// others see of them are their streams. A session manager that had to lead hundreds of them
/// somewhere would take minutes for that.
class WaitingStreams {
 public:
  /// Returns when everybody can see them.
  explicit WaitingStreams(int count) {
    for (int number = 1; number <= count; ++number) {
      const SessionClient::Lock lock(client_);
      streams_.emplace_back(makeStream("waiting_" + std::to_string(number)));
    }
    const auto last = "waiting_" + std::to_string(count);
    constexpr std::chrono::seconds limit(60);
    if (count > 0 &&
        !SessionClient::waitFor([&] { return client_.node(last).has_value(); }, limit)) {
      throw std::runtime_error("the session does not take so many streams");
    }
  }
  WaitingStreams(const WaitingStreams&) = delete;
  WaitingStreams& operator=(const WaitingStreams&) = delete;
  ~WaitingStreams() {
    const SessionClient::Lock lock(client_);
    streams_.clear();
  }

 private:
  struct Destroy {
    void operator()(pw_stream* stream) const { pw_stream_destroy(stream); }
  };

  pw_stream* makeStream(const std::string& name) {
    pw_stream* const stream =
        pw_stream_new(client_.core(), name.c_str(),
                      pw_properties_new(PW_KEY_MEDIA_TYPE, "Audio", PW_KEY_MEDIA_CATEGORY,
                                        "Playback", PW_KEY_NODE_NAME, name.c_str(), nullptr));
    spa_audio_info_raw format{};
    format.format = SPA_AUDIO_FORMAT_F32;
    format.rate = 48000;
    format.channels = 2;
    std::array<std::uint8_t, 1024> bytes{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    std::array<const spa_pod*, 1> parameters = {
        spa_format_audio_raw_build(&builder, SPA_PARAM_EnumFormat, &format)};
    if (pw_stream_connect(stream, PW_DIRECTION_OUTPUT, PW_ID_ANY, PW_STREAM_FLAG_INACTIVE,
                          parameters.data(), parameters.size()) < 0) {
      throw std::runtime_error("a stream cannot join the session");
    }
    return stream;
  }

  SessionClient client_{"waiting"};
  std::vector<std::unique_ptr<pw_stream, Destroy>> streams_;
};

/// Noise of -20 dBFS, so that no stage of a filter has an easier time than with music.
Signal noise() {
  return [random = std::minstd_rand()](const PlayedFrame&) mutable {
    const auto range = static_cast<float>(std::minstd_rand::max());
    return 0.2F * (static_cast<float>(random()) / range - 0.5F);
  };
}

void play(const Options& options) {
  std::vector<std::unique_ptr<Probe>> players;
  for (int number = 1; number <= options.at("--players"); ++number) {
    players.push_back(
        std::make_unique<Probe>(noise(), ProbeOptions{.name = "player_" + std::to_string(number)}));
  }
  const WaitingStreams waiting(options.at("--waiting"));
  sayReadyAndWait();
}

Environment ownEnvironment() {
  Environment variables;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    const std::size_t equals = text.find('=');
    variables.emplace(text.substr(0, equals), text.substr(equals + 1));
  }
  return variables;
}

/// From the start of the process to the first sample at the output that is twice as loud as before.
void timeTheStart(const std::string& program) {
  const Probe player(constantSignal(0.1F), {});
  const Recorder output("hw_1");
  if (!output.waitFor(milliseconds(300))) {
    throw std::runtime_error("nothing plays");
  }
  const float before = output.take().channel("FL").back();
  Subprocess boost({program, "auto", "--gain", "4"}, ownEnvironment());
  if (!boost.waitForLine("Ctrl-C to stop.", milliseconds(5000)) ||
      !output.waitFor(milliseconds(500))) {
    throw std::runtime_error("the boost does not start: " + boost.standardError());
  }
  const Recording heard = output.take();
  const std::size_t begin = heard.frameAt(boost.startNs());
  const auto onset = firstAbove(heard.channel("FL").subspan(begin), 2.0F * before);
  if (!(before > 0.0F) || !onset) {
    throw std::runtime_error("nothing becomes louder");
  }
  std::printf("%.1f\n", 1e-6 * static_cast<double>(heard.timeAt(begin + *onset) - boost.startNs()));
  boost.signal(SIGINT);
  boost.wait(milliseconds(5000));
}

int run(const std::vector<std::string>& words) {
  if (words.size() == 2 && words[0] == "start") {
    timeTheStart(words[1]);
    return EXIT_SUCCESS;
  }
  const bool holds = !words.empty() && words[0] == "hold";
  Options options = holds ? Options{{"--quantum", 1024}, {"--devices", 1}}
                          : Options{{"--players", 1}, {"--waiting", 0}};
  bool isUnderstood = words.size() % 2 == 1 && (holds || words[0] == "play");
  for (std::size_t i = 1; isUnderstood && i < words.size(); i += 2) {
    const int value = parseInteger(words[i + 1]).value_or(-1);
    isUnderstood = options.contains(words[i]) && value >= 0;
    options[words[i]] = value;
  }
  if (!isUnderstood) {
    std::fputs(
        "Usage: orvelle-session hold [--quantum <frames>] [--devices <n>]\n"
        "       orvelle-session play [--players <n>] [--waiting <n>]\n"
        "       orvelle-session start <program>\n",
        stderr);
    return 2;
  }
  holds ? hold(options) : play(options);
  return EXIT_SUCCESS;
}

}  // namespace
}  // namespace orvelle::instruments

int main(int argc, char** argv) {
  try {
    return orvelle::instruments::run({argv + 1, argv + argc});
  } catch (const std::exception& error) {
    std::fprintf(stderr, "orvelle-session: %s\n", error.what());
    return EXIT_FAILURE;
  }
}
