// The words that the program was started with.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace orvelle {

/// The argument vector, program path first. There are no option rules: a flag may stand anywhere
/// and takes whatever follows it, and what nobody asks for is ignored.
class CommandLine {
 public:
  explicit CommandLine(std::vector<std::string> arguments);

  /// The command word; "gui" where there is none.
  [[nodiscard]] const std::string& command() const { return command_; }
  /// The argument after the first one that equals `flag`; absent when there is none. Searches the
  /// whole vector, program path and command word included.
  [[nodiscard]] std::optional<std::string> value(std::string_view flag) const;
  /// The argument at `index` of the vector.
  [[nodiscard]] std::optional<std::string> argument(std::size_t index) const;

 private:
  std::vector<std::string> arguments_;
  std::string command_;
};

}  // namespace orvelle
