// The signal chain as a filter: raw interleaved 32-bit float stereo, native byte order, from
// standard input to standard output.
#include <unistd.h>

#include <cerrno>
#include <charconv>
#include <cmath>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "orvelle/BoostRender.h"
#include "orvelle/EQPreset.h"
#include "orvelle/NumberText.h"

namespace orvelle {
namespace {

constexpr int usageError = 2;
constexpr std::size_t frameBytes = 2 * sizeof(float);

constexpr std::string_view usage =
    R"(Usage: orvelle-filter [options] < input > output
Reads and writes raw interleaved 32-bit float stereo, native byte order.
  --gain <x>       linear factor, 0 or more (default 1)
  --preset <name>  equaliser curve, switches the equaliser on (default: off)
  --width <x>      stereo width, 0 is mono, 1 is neutral (default 1)
  --frames <n>     frames per callback, 1 to 1048576 (default 512)
  --help           this text
)";

struct Options {
  float gain = 1.0F;
  float width = 1.0F;
  std::optional<EQPreset> preset;
  std::size_t framesPerCallback = 512;
};

struct UsageError {
  std::string message;
};

float parseFactor(std::string_view option, std::string_view text) {
  const std::optional<float> value = parseFloat(std::string(text));
  if (!value || !std::isfinite(*value) || *value < 0.0F) {
    throw UsageError{std::string(option) + " wants a number of 0 or more, not \"" +
                     std::string(text) + "\""};
  }
  return *value;
}

std::size_t parseFrames(std::string_view text) {
  constexpr std::size_t most = 1U << 20U;
  std::size_t value = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop != end || value < 1 || value > most) {
    throw UsageError{"--frames wants a whole number from 1 to 1048576, not \"" + std::string(text) +
                     "\""};
  }
  return value;
}

EQPreset parsePreset(std::string_view text) {
  if (const auto preset = eqPresetFromRawValue(text)) {
    return *preset;
  }
  std::string message = "no preset is called \"" + std::string(text) + "\"; there are:";
  for (const EQPreset preset : allEQPresets) {
    message.append(" \"").append(rawValue(preset)).append("\"");
  }
  throw UsageError{message};
}

Options parse(const std::vector<std::string_view>& arguments) {
  Options options;
  for (std::size_t i = 0; i < arguments.size(); i += 2) {
    const std::string_view option = arguments[i];
    if (option != "--gain" && option != "--width" && option != "--preset" && option != "--frames") {
      throw UsageError{"unknown option \"" + std::string(option) + "\""};
    }
    if (i + 1 == arguments.size()) {
      throw UsageError{std::string(option) + " wants a value"};
    }
    const std::string_view value = arguments[i + 1];
    if (option == "--gain") {
      options.gain = parseFactor(option, value);
    } else if (option == "--width") {
      options.width = parseFactor(option, value);
    } else if (option == "--preset") {
      options.preset = parsePreset(value);
    } else {
      options.framesPerCallback = parseFrames(value);
    }
  }
  return options;
}

/// Fills `bytes` up to the end of the input, however small the pieces are in which it comes.
std::size_t readFully(char* bytes, std::size_t size) {
  std::size_t filled = 0;
  while (filled < size) {
    const ssize_t count = ::read(STDIN_FILENO, bytes + filled, size - filled);
    if (count == 0) {
      break;
    }
    if (count > 0) {
      filled += static_cast<std::size_t>(count);
    } else if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot read standard input");
    }
  }
  return filled;
}

/// False: nobody reads any more.
bool writeFully(const char* bytes, std::size_t size) {
  std::size_t written = 0;
  while (written < size) {
    const ssize_t count = ::write(STDOUT_FILENO, bytes + written, size - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
    } else if (errno == EPIPE) {
      return false;
    } else if (errno != EINTR) {
      throw std::system_error(errno, std::generic_category(), "cannot write standard output");
    }
  }
  return true;
}

void filter(const Options& options) {
  BoostRender chain;
  chain.gain = options.gain;
  chain.spatialWidth = options.width;
  if (options.preset) {
    chain.equalizer.setGains(gains(*options.preset));
    chain.equalizer.isEnabled = true;
  }

  std::vector<float> samples(2 * options.framesPerCallback);
  char* const bytes = reinterpret_cast<char*>(samples.data());
  const std::size_t callbackBytes = samples.size() * sizeof(float);
  std::size_t received = callbackBytes;
  while (received == callbackBytes) {
    received = readFully(bytes, callbackBytes);
    const std::size_t surplus = received % frameBytes;
    const auto whole = static_cast<std::uint32_t>(received - surplus);
    const AudioBuffer buffer{2, whole, samples.data()};
    chain.render({&buffer, 1}, {&buffer, 1});
    if (!writeFully(bytes, whole)) {
      return;
    }
    if (surplus != 0) {
      std::cerr << "orvelle-filter: the input ends within a frame; its last " << surplus
                << " bytes are left out\n";
    }
  }
}

}  // namespace
}  // namespace orvelle

int main(int argc, char** argv) {
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  for (const std::string_view argument : arguments) {
    if (argument == "--help") {
      std::cout << orvelle::usage;
      return EXIT_SUCCESS;
    }
  }
  std::signal(SIGPIPE, SIG_IGN);  // a reader that has heard enough is no accident
  try {
    orvelle::filter(orvelle::parse(arguments));
    return EXIT_SUCCESS;
  } catch (const orvelle::UsageError& error) {
    std::cerr << "orvelle-filter: " << error.message << "\n\n" << orvelle::usage;
    return orvelle::usageError;
  } catch (const std::exception& error) {
    std::cerr << "orvelle-filter: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
}
