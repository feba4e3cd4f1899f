// The program "orvelle-report": asks the real system what the audio back end assumes of it, and
// prints a report that can be sent. Without options it takes some ten seconds and nothing is heard.
#include <cstdio>
#include <string_view>

#include "instruments/macos/Questions.h"

int main(int argc, char** argv) {
  const std::string_view option = argc > 1 ? argv[1] : "";
  report::Report answers;
  if (option == "--restart") {
    report::watchRestart(answers);
    return answers.finish();
  }
  if (option == "--hold-tap") {
    return report::holdTap();
  }
  if (argc > 1) {
    std::puts("usage: orvelle-report [--restart]");
    return 2;
  }
  report::askSystem(answers);
  report::askProcesses(answers);
  report::askDevices(answers);
  report::askListeners(answers);
  report::askAggregates(answers);
  report::askTaps(answers);
  report::askDeath(answers);
  report::askLoopback(answers);
  return answers.finish();
}
