#include "orvelle/panel/EQChoices.h"

#include "orvelle/EQPreset.h"

namespace orvelle {

QStringList EQChoices::presets() {
  QStringList names;
  for (const EQPreset preset : allEQPresets) {
    const std::string_view name = rawValue(preset);
    names.append(QString::fromUtf8(name.data(), static_cast<qsizetype>(name.size())));
  }
  return names;
}

}  // namespace orvelle
