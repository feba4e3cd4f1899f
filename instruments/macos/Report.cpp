#include "instruments/macos/Report.h"

#include <cmath>
#include <cstdio>

namespace report {

void Report::section(const std::string& title) {
  std::fprintf(output_, "\n%s\n", title.c_str());
  std::fflush(output_);  // what is known so far, should the next question hang
}

void Report::tell(const std::string& question, const std::string& answer) {
  std::fprintf(output_, "            %s: %s\n", question.c_str(), answer.c_str());
}

void Report::check(const std::string& name, bool holds, const std::string& found) {
  ++(holds ? asAssumed_ : different_);
  std::fprintf(output_, "%s %s: %s\n", holds ? "as assumed " : "DIFFERENT  ", name.c_str(),
               found.c_str());
}

void Report::skip(const std::string& name, const std::string& reason) {
  ++skipped_;
  std::fprintf(output_, "not asked   %s: %s\n", name.c_str(), reason.c_str());
}

int Report::finish() const {
  std::fprintf(output_, "\n%d as assumed, %d different, %d not asked\n", asAssumed_, different_,
               skipped_);
  return different_ == 0 ? 0 : 1;
}

std::string codeText(std::uint32_t code) {
  std::string text = "'";
  for (int shift = 24; shift >= 0; shift -= 8) {
    const std::uint32_t byte = (code >> shift) & 0xFFU;
    if (byte < 0x20 || byte > 0x7E) {
      return std::to_string(code);
    }
    text += static_cast<char>(byte);
  }
  return text + "'";
}

std::string codeText(std::int32_t status) {
  return status == 0 ? "success" : codeText(static_cast<std::uint32_t>(status));
}

std::string milliseconds(double seconds) {
  constexpr double millisecondsPerSecond = 1000.0;
  return std::to_string(std::lround(seconds * millisecondsPerSecond)) + " ms";
}

}  // namespace report
