// Numbers as the user types and reads them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace orvelle {

/// The number that the whole text is by the rules of C's strtof: also hexadecimal, "inf" and
/// "nan"; too large a number is infinite. Absent when anything is left over. Expects LC_NUMERIC to
/// be "C".
std::optional<float> parseFloat(const std::string& text);
/// The same in double precision, by the rules of strtod.
std::optional<double> parseDouble(const std::string& text);

/// The whole number that the whole text is: an optional sign and decimal digits. Absent when
/// anything else is there or the type is too small for it.
std::optional<std::int32_t> parseInteger(const std::string& text);

/// The shortest decimal text that reads back as the same value, and that shows that it is not an
/// integer: "1.5", "3.0"; with an exponent below 0.0001 and from 2^24 on: "1e+20".
std::string shortestText(float value);

/// 20 log10(gain), always signed, with one decimal: "+3.5".
std::string decibelText(float gain);

/// Truncated toward zero: "44100".
std::string wholeNumberText(double value);

}  // namespace orvelle
