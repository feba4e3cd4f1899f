#include "tests/session/AppSession.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <csignal>

namespace orvelle::instruments {

std::unique_ptr<Subprocess> AppSession::tap(pid_t process, const std::string& volume,
                                            const std::vector<std::string>& furtherWords) {
  std::vector<std::string> words = {"appvol", "--pid", std::to_string(process), "--vol", volume};
  words.insert(words.end(), furtherWords.begin(), furtherWords.end());
  auto tap = run(words);
  EXPECT_TRUE(tap->waitForLine("Ctrl-C to stop.", patience).has_value())
      << tap->standardOutput() << tap->standardError();
  return tap;
}

std::unique_ptr<Subprocess> AppSession::tapProbes(const std::string& volume,
                                                  const std::vector<std::string>& furtherWords) {
  return tap(getpid(), volume, furtherWords);
}

void AppSession::interruptTap(Subprocess& tap) {
  tap.signal(SIGINT);
  EXPECT_EQ(tap.wait(patience), 0) << tap.standardError();
  EXPECT_TRUE(tap.standardOutput().ends_with("\n\nStopped.\n")) << tap.standardOutput();
  EXPECT_EQ(tap.standardError(), "");
}

}  // namespace orvelle::instruments
