// What the equaliser offers, for the views.
#pragma once

#include <QtQml/qqmlregistration.h>

#include <QList>
#include <QObject>
#include <QStringList>

namespace orvelle {

/// GUI thread.
class EQChoices : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON
  Q_PROPERTY(QStringList presets READ presets CONSTANT)

 public:
  /// Names of the built-in presets, in the order in which they are offered.
  [[nodiscard]] static QStringList presets();
};

}  // namespace orvelle
