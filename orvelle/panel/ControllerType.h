// The controller's type for the views, which are checked against it when they are compiled. Here,
// so that the controller itself needs no QML.
#pragma once

#include <QtQml/qqml.h>

#include "orvelle/AudioController.h"

namespace orvelle {

struct ControllerType {
  Q_GADGET
  QML_FOREIGN(orvelle::AudioController)
  QML_NAMED_ELEMENT(AudioController)
  QML_UNCREATABLE("There is one, which the application makes.")
};

}  // namespace orvelle
