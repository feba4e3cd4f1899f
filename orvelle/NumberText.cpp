#include "orvelle/NumberText.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <system_error>

namespace orvelle {

namespace {

/// Whether a conversion that ended at `end` took `text` from its first to its last character.
bool isWhole(const std::string& text, const char* end) {
  return !text.empty() && end == text.data() + text.size();
}

/// printf's "%.*f", in every locale.
std::string fixedText(double value, int decimals) {
  std::array<char, 400> digits{};  // the largest double has 309 before the point
  const auto result = std::to_chars(digits.data(), digits.data() + digits.size(), value,
                                    std::chars_format::fixed, decimals);
  return {digits.data(), result.ptr};
}

}  // namespace

std::optional<float> parseFloat(const std::string& text) {
  char* end = nullptr;
  const float value = std::strtof(text.c_str(), &end);
  return isWhole(text, end) ? std::optional(value) : std::nullopt;
}

std::optional<double> parseDouble(const std::string& text) {
  char* end = nullptr;
  const double value = std::strtod(text.c_str(), &end);
  return isWhole(text, end) ? std::optional(value) : std::nullopt;
}

std::optional<std::int32_t> parseInteger(const std::string& text) {
  // std::from_chars knows no plus sign, and must not see a second sign after it.
  const bool hasPlus = text.starts_with('+') && !text.starts_with("+-");
  std::int32_t value = 0;
  const auto result =
      std::from_chars(text.data() + (hasPlus ? 1 : 0), text.data() + text.size(), value);
  return result.ec == std::errc{} && isWhole(text, result.ptr) ? std::optional(value)
                                                               : std::nullopt;
}

std::string shortestText(float value) {
  constexpr float smallestPlain = 1e-4F;
  constexpr float firstWithGaps = 16777216.0F;  // 2^24: beyond, not every integer is a float
  const float magnitude = std::fabs(value);
  const bool isPlain =
      magnitude == 0.0F || (magnitude >= smallestPlain && magnitude < firstWithGaps);

  std::array<char, 48> digits{};
  const auto result =
      std::to_chars(digits.data(), digits.data() + digits.size(), value,
                    isPlain ? std::chars_format::fixed : std::chars_format::scientific);
  std::string text(digits.data(), result.ptr);
  if (isPlain && text.find('.') == std::string::npos) {
    text += ".0";
  }
  return text;
}

std::string decibelText(float gain) {
  const double decibels = 20.0 * std::log10(static_cast<double>(gain));
  // The sign of "not a number", which a negative gain gives, differs between machines.
  const bool isNegative = std::signbit(decibels) && !std::isnan(decibels);
  return (isNegative ? "-" : "+") + fixedText(std::fabs(decibels), 1);
}

std::string wholeNumberText(double value) {
  return fixedText(std::trunc(value) + 0.0, 0);  // adding 0 turns -0 into 0
}

}  // namespace orvelle
