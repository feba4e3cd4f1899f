// A private session in which single applications are tapped.
#pragma once

#include <sys/types.h>

#include <memory>
#include <string>
#include <vector>

#include "instruments/Subprocess.h"
#include "tests/session/BoostSession.h"

namespace orvelle::instruments {

/// Options of a tap that plays on the speaker.
inline const std::vector<std::string> toSpeaker = {"--output", "hw_speaker"};

class AppSession : public BoostSession {
 public:
  using BoostSession::BoostSession;

  /// Taps a process and returns when the program says that it does; fails the test otherwise.
  std::unique_ptr<Subprocess> tap(pid_t process, const std::string& volume,
                                  const std::vector<std::string>& furtherWords = {});
  /// The same with this process: what is tapped are its probes.
  std::unique_ptr<Subprocess> tapProbes(const std::string& volume,
                                        const std::vector<std::string>& furtherWords = {});
  /// Ends a tap with Ctrl-C: its whole way out is checked.
  static void interruptTap(Subprocess& tap);
};

}  // namespace orvelle::instruments
