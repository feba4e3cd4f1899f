// Qt's application object for a program that talks to a terminal.
#pragma once

#include <QCoreApplication>

namespace orvelle {

/// A QCoreApplication that leaves number texts alone. `argc` and `argv` must outlive the object.
class ConsoleApplication {
 public:
  ConsoleApplication(int& argc, char** argv);

 private:
  QCoreApplication application_;
};

}  // namespace orvelle
