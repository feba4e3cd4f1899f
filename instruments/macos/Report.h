// What the program tells a person, and what that person sends to us.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

namespace report {

/// Lines on standard output. Names of people's devices and programs do not appear in them.
class Report {
 public:
  void section(const std::string& title);
  /// What was found where nothing was assumed.
  void tell(const std::string& question, const std::string& answer);
  /// Whether an assumption of the audio back end holds here. `name` is its name in
  /// docs/macos-assumptions.md.
  void check(const std::string& name, bool holds, const std::string& found);
  /// It could not be asked.
  void skip(const std::string& name, const std::string& reason);

  /// Counts, and the exit status: 0 where everything that could be asked was as assumed.
  int finish() const;

 private:
  std::FILE* const output_ = stdout;
  int asAssumed_ = 0;
  int different_ = 0;
  int skipped_ = 0;
};

/// A four-character code as text, in quotes; the number where it is none.
std::string codeText(std::uint32_t code);
std::string codeText(std::int32_t status);
std::string milliseconds(double seconds);

}  // namespace report
