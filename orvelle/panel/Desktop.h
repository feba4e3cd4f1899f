// What the views need of the desktop and QML cannot ask for.
#pragma once

#include <QtQml/qqmlregistration.h>

#include <QFont>
#include <QObject>

namespace orvelle {

/// GUI thread.
class Desktop : public QObject {
  Q_OBJECT
  QML_ELEMENT
  QML_SINGLETON
  Q_PROPERTY(QString monospacedFamily READ monospacedFamily CONSTANT)

 public:
  /// The family in which this desktop writes code and figures.
  [[nodiscard]] static QString monospacedFamily();

  /// The desktop's font at a height in device-independent pixels, also between whole ones.
  Q_INVOKABLE [[nodiscard]] static QFont fontOfSize(double pixels);
};

}  // namespace orvelle
