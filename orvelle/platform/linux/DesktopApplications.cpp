#include "orvelle/platform/linux/DesktopApplications.h"

#include <QStandardPaths>
#include <QString>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string_view>

namespace orvelle {

namespace {

/// The matching order of desktop entries: lang_COUNTRY@MODIFIER, lang_COUNTRY,
/// lang@MODIFIER, lang, default. The encoding does not count.
std::vector<std::string> matchingLocales(std::string_view locale) {
  const auto partFrom = [&locale](char mark) {
    const std::string_view part = locale.substr(std::min(locale.find(mark), locale.size()));
    locale.remove_suffix(part.size());
    return std::string(part);
  };
  const std::string modifier = partFrom('@');
  partFrom('.');
  const std::string country = partFrom('_');
  const std::string language(locale);
  return {language + country + modifier, language + country, language + modifier, language, ""};
}

std::string_view trimmed(std::string_view text) {
  constexpr std::string_view blanks = " \t\r";
  const std::size_t first = text.find_first_not_of(blanks);
  return first == std::string_view::npos
             ? std::string_view{}
             : text.substr(first, text.find_last_not_of(blanks) - first + 1);
}

/// A value as it reads without the escapes of the format. Those for line breaks and tabs become
/// blanks: a name is one line.
std::string unescaped(std::string_view value) {
  std::string text;
  for (std::size_t i = 0; i < value.size(); ++i) {
    const bool isEscape = value[i] == '\\' && i + 1 < value.size();
    const char character = isEscape ? value[++i] : value[i];
    const bool isBlank =
        isEscape && std::string_view("sntr").find(character) != std::string_view::npos;
    text += isBlank ? ' ' : character;
  }
  return text;
}

/// The locale of a key "Name" or "Name[locale]"; absent for other keys.
std::optional<std::string_view> localeOfName(std::string_view key) {
  constexpr std::string_view name = "Name";
  if (key == name) {
    return std::string_view{};
  }
  if (!key.starts_with("Name[") || !key.ends_with(']')) {
    return std::nullopt;
  }
  return key.substr(name.size() + 1, key.size() - name.size() - 2);
}

/// The name in the earliest of `locales` that the entry has one in.
std::optional<std::string> nameIn(std::istream& entry, const std::vector<std::string>& locales) {
  std::optional<std::string> name;
  auto best = locales.end();
  bool isInEntry = false;
  for (std::string line; std::getline(entry, line);) {
    const std::string_view text = trimmed(line);
    if (text.starts_with('[')) {
      // Later groups hold actions such as "New Window", which have names of their own.
      isInEntry = text == "[Desktop Entry]";
      continue;
    }
    const std::size_t equals = text.find('=');
    if (!isInEntry || equals == std::string_view::npos) {
      continue;
    }
    const auto locale = localeOfName(trimmed(text.substr(0, equals)));
    const std::string_view value = trimmed(text.substr(equals + 1));
    const auto rank = locale && !value.empty() ? std::find(locales.begin(), best, *locale) : best;
    if (rank != best) {
      best = rank;
      name = unescaped(value);
    }
  }
  return name;
}

/// What POSIX takes the language of messages from.
std::string messagesLocale() {
  for (const char* variable : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* const value = std::getenv(variable);
    if (value != nullptr && *value != '\0') {
      return value;
    }
  }
  return "C";
}

}  // namespace

DesktopApplications::DesktopApplications(const std::string& locale)
    : locales_(matchingLocales(locale)) {}

std::optional<std::string> DesktopApplications::localizedName(std::int32_t /*pid*/,
                                                              const std::string& bundleID) const {
  // The identifier is the program's own claim: it must not name a file elsewhere.
  if (bundleID.empty() || bundleID.find('/') != std::string::npos) {
    return std::nullopt;
  }
  const QString path = QStandardPaths::locate(QStandardPaths::ApplicationsLocation,
                                              QString::fromStdString(bundleID + ".desktop"));
  if (path.isEmpty()) {
    return std::nullopt;
  }
  std::ifstream entry(path.toStdString());
  return nameIn(entry, locales_);
}

std::unique_ptr<ApplicationNames> openApplicationNames() {
  return std::make_unique<DesktopApplications>(messagesLocale());
}

}  // namespace orvelle
