#include "orvelle/UndoRecord.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <sstream>
#include <vector>

#include "orvelle/NumberText.h"

namespace orvelle {

namespace {

// One line a fact, words separated by single blanks:
//   orvelle-undo 1
//   boost default-output <former> <taken>
//   boost raised <uid> <volume or -> <muted, audible or ->
//   tap.1 taps
//   end
constexpr std::string_view kFirstLine = "orvelle-undo 1";
constexpr std::string_view kLastLine = "end";
constexpr std::string_view kNothing = "-";

using Words = std::vector<std::string>;

bool isPlain(char character) {
  return (character >= 'a' && character <= 'z') || (character >= 'A' && character <= 'Z') ||
         (character >= '0' && character <= '9') || character == '_' || character == '.' ||
         character == ':';
}

/// Everything that is not plain as "%" and two hexadecimal digits; an empty text as "%".
std::string escaped(std::string_view text) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string word = text.empty() ? "%" : "";
  for (const char character : text) {
    if (isPlain(character)) {
      word += character;
    } else {
      const auto byte = static_cast<unsigned char>(character);
      word += {'%', digits[byte / 16], digits[byte % 16]};
    }
  }
  return word;
}

std::optional<std::string> unescaped(std::string_view word) {
  std::string text;
  if (word == "%") {
    return text;
  }
  for (std::size_t i = 0; i < word.size(); ++i) {
    if (word[i] != '%') {
      text += word[i];
      continue;
    }
    std::uint8_t byte = 0;
    const std::string_view digits = word.substr(i + 1, 2);
    const auto [end, error] =
        std::from_chars(digits.data(), digits.data() + digits.size(), byte, 16);
    if (digits.size() != 2 || error != std::errc{} || end != digits.data() + 2) {
      return std::nullopt;
    }
    text += static_cast<char>(byte);
    i += 2;
  }
  return text;
}

std::string_view muteWord(const std::optional<bool>& mute) {
  if (!mute) {
    return kNothing;
  }
  return *mute ? "muted" : "audible";
}

std::optional<OutputLevel> levelFrom(const std::string& volume, const std::string& mute) {
  OutputLevel level;
  if (volume != kNothing) {
    level.volume = parseFloat(volume);
    if (!level.volume || !std::isfinite(*level.volume) || *level.volume < 0.0F) {
      return std::nullopt;
    }
  }
  if (mute != kNothing) {
    level.mute = mute == muteWord(true);
  }
  const bool isWord = mute == kNothing || mute == muteWord(true) || mute == muteWord(false);
  return isWord ? std::optional(level) : std::nullopt;
}

/// False for a line that says nothing known.
bool addFact(const Words& words, UndoRecord& record) {
  const std::string& kind = words[1];
  if (kind == "taps" && words.size() == 2) {
    record.hasTaps = true;
    return true;
  }
  if (kind == "default-output" && words.size() == 4) {
    const auto former = unescaped(words[2]);
    const auto taken = unescaped(words[3]);
    if (former && taken) {
      record.defaultOutput = {*former, *taken};
    }
    return former && taken;
  }
  if (kind == "raised" && words.size() == 5) {
    const auto uid = unescaped(words[2]);
    const auto level = levelFrom(words[3], words[4]);
    if (uid && level) {
      record.raisedOutputs[*uid] = *level;
    }
    return uid && level;
  }
  return false;
}

Words wordsOf(const std::string& line) {
  std::istringstream stream(line);
  Words words;
  for (std::string word; stream >> word;) {
    words.push_back(word);
  }
  return words;
}

}  // namespace

std::string encodeUndo(const UndoRecords& records) {
  std::ostringstream text;
  text << kFirstLine << '\n';
  for (const auto& [owner, record] : records) {
    const std::string begin = escaped(owner) + " ";
    if (record.defaultOutput) {
      text << begin << "default-output " << escaped(record.defaultOutput->former) << ' '
           << escaped(record.defaultOutput->taken) << '\n';
    }
    for (const auto& [uid, level] : record.raisedOutputs) {
      text << begin << "raised " << escaped(uid) << ' '
           << (level.volume ? shortestText(*level.volume) : std::string(kNothing)) << ' '
           << muteWord(level.mute) << '\n';
    }
    if (record.hasTaps) {
      text << begin << "taps\n";
    }
  }
  text << kLastLine << '\n';
  return text.str();
}

std::optional<UndoRecords> decodeUndo(std::string_view text) {
  std::istringstream stream{std::string(text)};
  std::string line;
  if (!std::getline(stream, line) || line != kFirstLine) {
    return std::nullopt;
  }
  UndoRecords records;
  while (std::getline(stream, line)) {
    if (line == kLastLine) {
      return records;
    }
    const Words words = wordsOf(line);
    const auto owner = words.size() < 2 ? std::nullopt : unescaped(words[0]);
    if (!owner || !addFact(words, records[*owner])) {
      return std::nullopt;
    }
  }
  return std::nullopt;
}

}  // namespace orvelle
