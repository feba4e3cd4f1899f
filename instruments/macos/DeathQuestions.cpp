#include <CoreAudio/CoreAudio.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <csignal>
#include <string>
#include <vector>

#include "instruments/macos/HAL.h"
#include "instruments/macos/Questions.h"
#include "orvelle/platform/Process.h"
#include "orvelle/platform/coreaudio/TapDescription.h"

namespace report {

namespace {

constexpr AudioObjectPropertySelector kTapList = 0x74707323;  // 'tps#'
/// A person may have to answer the system's question first.
constexpr int kChildMilliseconds = 20'000;

struct Child {
  pid_t process = -1;
  int toldBy = -1;  ///< gets a byte when the child holds its tap, and the end of file with it
};

/// This program again: nobody but one that begins anew may use the audio system after a fork.
Child startTapHolder() {
  std::array<int, 2> ends{};
  const std::string program = orvelle::ownProgram().string();
  if (program.empty() || pipe(ends.data()) != 0) {
    return {};
  }
  const pid_t child = fork();
  if (child == 0) {
    dup2(ends[1], STDOUT_FILENO);
    close(ends[0]);
    close(ends[1]);
    execl(program.c_str(), program.c_str(), "--hold-tap", static_cast<char*>(nullptr));
    _exit(1);
  }
  close(ends[1]);
  return {child, ends[0]};
}

bool isTold(const Child& child) {
  pollfd awaited{child.toldBy, POLLIN, 0};
  char byte = 0;
  return poll(&awaited, 1, kChildMilliseconds) == 1 && read(child.toldBy, &byte, 1) == 1;
}

std::vector<AudioObjectID> listedTaps() {
  return askList(kAudioObjectSystemObject, address(kTapList));
}

}  // namespace

void askDeath(Report& report) {
  report.section("A process that is killed while it has a tap on this one");
  const std::size_t before = listedTaps().size();
  const Child child = startTapHolder();
  if (child.process <= 0 || !isTold(child)) {
    report.skip("tap-ends-with-a-killed-process", "the child has made none");
  } else {
    const auto listed = secondsUntil([&] { return listedTaps().size() > before; }, 2.0);
    kill(child.process, SIGKILL);
    const auto gone = secondsUntil([&] { return listedTaps().size() <= before; }, 5.0);
    if (listed) {
      report.check("tap-ends-with-a-killed-process", gone.has_value(), afterText(gone));
    } else {
      report.skip("tap-ends-with-a-killed-process", "taps of other processes are not listed");
    }
  }
  if (child.process > 0) {
    kill(child.process, SIGKILL);
    waitpid(child.process, nullptr, 0);
    close(child.toldBy);
  }
}

int holdTap() {
  const pid_t parent = getppid();
  const auto processes =
      askList(kAudioObjectSystemObject, address(kAudioHardwarePropertyProcessObjectList));
  const auto tapped = std::ranges::find_if(processes, [parent](AudioObjectID process) {
    return ask<pid_t>(process, address(kAudioProcessPropertyPID)).value == parent;
  });
  AudioObjectID tap = kAudioObjectUnknown;
  std::string uid;
  // Not a private one, which nobody else would see go.
  if (tapped == processes.end() ||
      orvelle::coreaudio::createTap({*tapped}, false, orvelle::TapMuteBehavior::mutedWhenTapped,
                                    tap, uid) != 0) {
    return 1;
  }
  PrivateAggregate aggregate(askText(defaultOutput(), address(kAudioDevicePropertyDeviceUID)), uid);
  Callback reader(aggregate.id);
  reader.start();
  constexpr char done = '1';
  if (write(STDOUT_FILENO, &done, 1) != 1) {
    return 1;
  }
  while (getppid() == parent) {
    pause(0.1);
  }
  return 0;
}

}  // namespace report
