// A console that keeps what was printed.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "orvelle/platform/Console.h"

namespace orvelle {

class RecordingConsole final : public Console {
 public:
  void print(std::string_view text) override { lines.emplace_back(text); }
  void printError(std::string_view text) override { errors.append(text); }

  std::vector<std::string> lines;  ///< standard output, without line breaks
  std::string errors;              ///< standard error as it stands
};

}  // namespace orvelle
