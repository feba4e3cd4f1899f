#include "orvelle/platform/linux/DesktopApplications.h"

#include <QStandardPaths>
#include <QString>
#include <algorithm>
#include <array>
#include <cstdlib>
#include <fstream>
#include <string_view>

#include "orvelle/platform/linux/DesktopEntry.h"

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

/// A name is one line.
std::string nameFrom(std::string_view value) {
  std::string name = unescapedValue(value);
  std::ranges::replace_if(
      name,
      [](char character) {
        return std::string_view("\n\t\r").find(character) != std::string_view::npos;
      },
      ' ');
  return name;
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
  visitDesktopEntry(entry, [&](std::string_view key, std::string_view value) {
    const auto locale = localeOfName(key);
    const auto rank = locale && !value.empty() ? std::find(locales.begin(), best, *locale) : best;
    if (rank != best) {
      best = rank;
      name = nameFrom(value);
    }
  });
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
