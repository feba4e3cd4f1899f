// The signal chain as a filter: raw interleaved 32-bit float stereo, native byte order, from
// standard input to standard output.
#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "bench/RawAudio.h"
#include "orvelle/BoostRender.h"
#include "orvelle/EQPreset.h"
#include "orvelle/NumberText.h"

namespace orvelle {
namespace {

constexpr int usageError = 2;

constexpr std::string_view usage =
    R"(Usage: orvelle-filter [options] < input > output
Reads and writes raw interleaved 32-bit float stereo, native byte order.
  --gain <x>       linear factor, 0 or more (default 1)
  --preset <name>  equaliser curve, switches the equaliser on (default: off)
  --bands <dB,...> gain of each of the ten bands, the same with a curve of your own
  --width <x>      stereo width, 0 is mono, 1 is neutral (default 1)
  --frames <n>     frames per callback, 1 to 1048576 (default 512)
  --kernels <name> instruction set (default: the fastest that this processor has)
  --help           this text
Instruction sets of this processor, the fastest first:)";

std::string namesOfKernels() {
  std::string names;
  for (const vector::Kernels* const kernels : vector::usableKernels()) {
    names.append(" ").append(kernels->name);
  }
  return names;
}

struct Options {
  float gain = 1.0F;
  float width = 1.0F;
  std::optional<std::array<float, Equalizer::bands>> gainsDb;  // none: equaliser off
  const vector::Kernels* kernels = &vector::fastestKernels();
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

std::array<float, Equalizer::bands> parseBands(std::string_view text) {
  std::array<float, Equalizer::bands> gainsDb{};
  std::string_view rest = text;
  for (std::size_t band = 0; band < gainsDb.size(); ++band) {
    const std::size_t end = band + 1 < gainsDb.size() ? rest.find(',') : rest.size();
    const auto value = parseFloat(std::string(rest.substr(0, end)));
    if (end == std::string_view::npos || !value || !(std::abs(*value) <= 40.0F)) {
      throw UsageError{"--bands wants ten numbers from -40 to 40 with commas between them, not \"" +
                       std::string(text) + "\""};
    }
    gainsDb[band] = *value;
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return gainsDb;
}

const vector::Kernels& parseKernels(std::string_view text) {
  for (const vector::Kernels* const kernels : vector::usableKernels()) {
    if (kernels->name == text) {
      return *kernels;
    }
  }
  throw UsageError{"this processor has no \"" + std::string(text) + "\""};
}

void apply(std::string_view option, std::string_view value, Options& options) {
  if (option == "--gain") {
    options.gain = parseFactor(option, value);
  } else if (option == "--width") {
    options.width = parseFactor(option, value);
  } else if (option == "--preset") {
    options.gainsDb = gains(parsePreset(value));
  } else if (option == "--bands") {
    options.gainsDb = parseBands(value);
  } else if (option == "--kernels") {
    options.kernels = &parseKernels(value);
  } else {
    options.framesPerCallback = parseFrames(value);
  }
}

Options parse(const std::vector<std::string_view>& arguments) {
  constexpr std::array known = {"--gain",  "--width",   "--preset",
                                "--bands", "--kernels", "--frames"};
  Options options;
  for (std::size_t i = 0; i < arguments.size(); i += 2) {
    const std::string_view option = arguments[i];
    if (std::ranges::find(known, option) == known.end()) {
      throw UsageError{"unknown option \"" + std::string(option) + "\""};
    }
    if (i + 1 == arguments.size()) {
      throw UsageError{std::string(option) + " wants a value"};
    }
    apply(option, arguments[i + 1], options);
  }
  return options;
}

void filter(const Options& options) {
  BoostRender chain(*options.kernels);
  chain.gain = options.gain;
  chain.spatialWidth = options.width;
  if (options.gainsDb) {
    chain.equalizer.setGains(*options.gainsDb);
    chain.equalizer.isEnabled = true;
  }
  filterStandardInput("orvelle-filter", options.framesPerCallback, [&](std::span<float> samples) {
    const auto bytes = static_cast<std::uint32_t>(samples.size_bytes());
    const AudioBuffer buffer{2, bytes, samples.data()};
    chain.render({&buffer, 1}, {&buffer, 1});
  });
}

}  // namespace
}  // namespace orvelle

int main(int argc, char** argv) {
  const std::vector<std::string_view> arguments(argv + 1, argv + argc);
  for (const std::string_view argument : arguments) {
    if (argument == "--help") {
      std::cout << orvelle::usage << orvelle::namesOfKernels() << "\n";
      return EXIT_SUCCESS;
    }
  }
  try {
    orvelle::filter(orvelle::parse(arguments));
    return EXIT_SUCCESS;
  } catch (const orvelle::UsageError& error) {
    std::cerr << "orvelle-filter: " << error.message << "\n\n"
              << orvelle::usage << orvelle::namesOfKernels() << "\n";
    return orvelle::usageError;
  } catch (const std::exception& error) {
    std::cerr << "orvelle-filter: " << error.what() << "\n";
    return EXIT_FAILURE;
  }
}
