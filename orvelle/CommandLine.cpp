#include "orvelle/CommandLine.h"

#include <algorithm>
#include <iterator>
#include <utility>

namespace orvelle {

CommandLine::CommandLine(std::vector<std::string> arguments)
    : arguments_(std::move(arguments)), command_(argument(1).value_or("gui")) {}

std::optional<std::string> CommandLine::value(std::string_view flag) const {
  const auto found = std::find(arguments_.begin(), arguments_.end(), flag);
  if (found == arguments_.end() || std::next(found) == arguments_.end()) {
    return std::nullopt;
  }
  return *std::next(found);
}

std::optional<std::string> CommandLine::argument(std::size_t index) const {
  return index < arguments_.size() ? std::optional(arguments_[index]) : std::nullopt;
}

}  // namespace orvelle
