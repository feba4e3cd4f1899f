// The program "orvelle-panel": what "orvelle gui" becomes. Apart from it, so that the commands on a
// console load nothing that draws.
#include <cstdio>
#include <exception>

#include "orvelle/GUIApp.h"

int main(int argc, char** argv) {
  try {
    return orvelle::OrvelleMenuBarApp::main(argc, argv);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "orvelle-panel: %s\n", error.what());
    return 1;
  }
}
