#include "orvelle/platform/linux/DesktopEntry.h"

#include <algorithm>
#include <array>
#include <utility>

namespace orvelle {

namespace {

/// The letter behind a backslash, and what both stand for.
constexpr std::array<std::pair<char, char>, 5> kEscapes = {
    {{'s', ' '}, {'n', '\n'}, {'t', '\t'}, {'r', '\r'}, {'\\', '\\'}}};

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const std::size_t first = text.find_first_not_of(blanks);
  return first == std::string_view::npos
             ? std::string_view{}
             : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

}  // namespace

void visitDesktopEntry(std::istream& file,
                       const std::function<void(std::string_view, std::string_view)>& visit) {
  bool isInEntry = false;
  for (std::string line; std::getline(file, line);) {
    const std::string_view text = trimmed(line);
    if (text.starts_with('[')) {
      isInEntry = text == "[Desktop Entry]";
      continue;
    }
    const std::size_t equals = text.find('=');
    if (isInEntry && !text.starts_with('#') && equals != std::string_view::npos) {
      visit(trimmed(text.substr(0, equals)), trimmed(text.substr(equals + 1)));
    }
  }
}

std::string unescapedValue(std::string_view value) {
  std::string text;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const bool isEscape = value[i] == '\\' && i + 1 < value.size();
    if (!isEscape) {
      text += value[i];
      continue;
    }
    const char letter = value[++i];
    const auto* const escape = std::ranges::find(kEscapes, letter, &std::pair<char, char>::first);
    text += escape == kEscapes.end() ? letter : escape->second;
  }
  return text;
}

std::string execArgument(std::string_view argument) {
  std::string quoted = "\"";
  for (const char character : argument) {
    if (std::string_view("\"`$\\").find(character) != std::string_view::npos) {
      quoted += '\\';
    }
    // One alone would begin a field code, in whose place files to open are put.
    quoted += character == '%' ? std::string("%%") : std::string(1, character);
  }
  quoted += '"';

  std::string escaped;
  for (const char character : quoted) {
    const auto* const escape =
        std::ranges::find(kEscapes, character, &std::pair<char, char>::second);
    // A blank needs its escape only at the end of a value, where a quotation mark stands here.
    escaped += escape == kEscapes.end() || character == ' ' ? std::string(1, character)
                                                            : std::string{'\\', escape->first};
  }
  return escaped;
}

std::string execProgram(std::string_view value) {
  const std::string command = unescapedValue(value);
  std::string program;
  bool isQuoted = false;
  for (std::size_t i = command.find_first_not_of(' '); i < command.size(); ++i) {
    const char character = command[i];
    if (character == '"') {
      isQuoted = !isQuoted;
    } else if (character == ' ' && !isQuoted) {
      break;
    } else if ((character == '\\' || character == '%') && i + 1 < command.size()) {
      program += command[++i];
    } else {
      program += character;
    }
  }
  return program;
}

}  // namespace orvelle
