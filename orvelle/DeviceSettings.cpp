#include "orvelle/DeviceSettings.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QString>
#include <algorithm>
#include <cmath>
#include <utility>

namespace orvelle {

namespace {

namespace key {
constexpr QLatin1String boost("boost");
constexpr QLatin1String eqEnabled("eqEnabled");
constexpr QLatin1String eqPreset("eqPreset");
constexpr QLatin1String spatialEnabled("spatialEnabled");
constexpr QLatin1String spatialWidth("spatialWidth");
constexpr QLatin1String customGains("customGains");
}  // namespace key

// Each returns the value only if JSON has it as just that type: no number counts as a boolean.

std::optional<bool> booleanFrom(const QJsonValue& value) {
  return value.isBool() ? std::optional(value.toBool()) : std::nullopt;
}

std::optional<double> numberFrom(const QJsonValue& value) {
  const double number = value.toDouble(std::nan(""));
  return std::isfinite(number) ? std::optional(number) : std::nullopt;
}

/// Half a surrogate pair can be written in JSON, but is no text.
std::optional<std::string> textFrom(const QString& text) {
  return text.isValidUtf16() ? std::optional(text.toStdString()) : std::nullopt;
}

std::optional<std::string> textFrom(const QJsonValue& value) {
  return value.isString() ? textFrom(value.toString()) : std::nullopt;
}

std::optional<std::vector<double>> numbersFrom(const QJsonValue& value) {
  if (!value.isArray()) {
    return std::nullopt;
  }
  std::vector<double> numbers;
  for (const auto& element : value.toArray()) {
    const auto number = numberFrom(element);
    if (!number) {
      return std::nullopt;
    }
    numbers.push_back(*number);
  }
  return numbers;
}

std::optional<DeviceSettings> settingsFrom(const QJsonValue& value) {
  const QJsonObject record = value.toObject();
  const auto boost = numberFrom(record[key::boost]);
  const auto eqEnabled = booleanFrom(record[key::eqEnabled]);
  const auto eqPreset = textFrom(record[key::eqPreset]);
  const auto spatialEnabled = booleanFrom(record[key::spatialEnabled]);
  const auto spatialWidth = numberFrom(record[key::spatialWidth]);
  if (!boost || !eqEnabled || !eqPreset || !spatialEnabled || !spatialWidth) {
    return std::nullopt;
  }
  DeviceSettings settings{*boost, *eqEnabled, *eqPreset, *spatialEnabled, *spatialWidth, {}};
  if (const QJsonValue gains = record[key::customGains]; !gains.isUndefined() && !gains.isNull()) {
    settings.customGains = numbersFrom(gains);
    if (!settings.customGains) {
      return std::nullopt;
    }
  }
  return settings;
}

std::optional<QJsonValue> toJson(double number) {
  return std::isfinite(number) ? std::optional(QJsonValue(number)) : std::nullopt;
}

std::optional<QJsonValue> toJson(const std::vector<double>& numbers) {
  QJsonArray array;
  for (const double number : numbers) {
    const auto element = toJson(number);
    if (!element) {
      return std::nullopt;
    }
    array.append(*element);
  }
  return array;
}

std::optional<QJsonValue> toJson(const DeviceSettings& settings) {
  const auto boost = toJson(settings.boost);
  const auto spatialWidth = toJson(settings.spatialWidth);
  const auto gains = toJson(settings.customGains.value_or(std::vector<double>{}));
  if (!boost || !spatialWidth || !gains) {
    return std::nullopt;
  }
  QJsonObject record{{key::boost, *boost},
                     {key::eqEnabled, settings.eqEnabled},
                     {key::eqPreset, QString::fromStdString(settings.eqPreset)},
                     {key::spatialEnabled, settings.spatialEnabled},
                     {key::spatialWidth, *spatialWidth}};
  if (settings.customGains) {
    record[key::customGains] = *gains;
  }
  return record;
}

template <class Value>
std::optional<std::string> encode(const std::map<std::string, Value>& values) {
  QJsonObject object;
  for (const auto& [name, value] : values) {
    const auto json = toJson(value);
    if (!json) {
      return std::nullopt;
    }
    object[QString::fromStdString(name)] = *json;
  }
  return QJsonDocument(object).toJson(QJsonDocument::Compact).toStdString();
}

template <class Value>
std::optional<std::map<std::string, Value>> decode(
    std::string_view json, std::optional<Value> (*valueFrom)(const QJsonValue&)) {
  const auto document = QJsonDocument::fromJson(
      QByteArray::fromRawData(json.data(), static_cast<qsizetype>(json.size())));
  if (!document.isObject()) {
    return std::nullopt;
  }
  const QJsonObject object = document.object();
  std::map<std::string, Value> values;
  for (auto member = object.begin(); member != object.end(); ++member) {
    const auto name = textFrom(member.key());
    auto value = valueFrom(member.value());
    if (!name || !value) {
      return std::nullopt;
    }
    values.emplace(*name, std::move(*value));
  }
  return values;
}

}  // namespace

std::optional<std::string> encodeDeviceStore(const DeviceStore& store) {
  return encode(store);
}

std::optional<DeviceStore> decodeDeviceStore(std::string_view json) {
  return decode<DeviceSettings>(json, settingsFrom);
}

std::optional<std::string> encodeUserPresets(const UserPresets& presets) {
  return encode(presets);
}

std::optional<UserPresets> decodeUserPresets(std::string_view json) {
  return decode<std::vector<double>>(json, numbersFrom);
}

}  // namespace orvelle
