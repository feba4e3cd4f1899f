// Qt's application object for a program that talks to a terminal.
#pragma once

#include <QCoreApplication>

namespace orvelle {

/// A QCoreApplication that leaves number texts alone: Qt takes the user's locale for the whole
/// process, and with it "1,5" instead of "1.5" in everything that is parsed and printed with the C
/// library. `argc` and `argv` must outlive the object.
class ConsoleApplication {
 public:
  ConsoleApplication(int& argc, char** argv);

 private:
  QCoreApplication application_;
};

}  // namespace orvelle
