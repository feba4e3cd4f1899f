// Where the program's lines go.
#pragma once

#include <string_view>

namespace orvelle {

/// The program's two text streams. Any thread but the real-time one.
class Console {
 public:
  Console() = default;
  Console(const Console&) = delete;
  Console& operator=(const Console&) = delete;
  virtual ~Console() = default;

  /// Writes `text` and one line break to standard output, at once.
  virtual void print(std::string_view text) = 0;
  /// Writes `text` as it stands to standard error, at once.
  virtual void printError(std::string_view text) = 0;
};

/// The process's own standard output and error.
class StandardConsole final : public Console {
 public:
  void print(std::string_view text) override;
  void printError(std::string_view text) override;
};

}  // namespace orvelle
