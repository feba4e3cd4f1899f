#include <CoreAudio/CoreAudio.h>
#include <sys/socket.h>
#include <sys/sysctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstddef>
#include <cstring>
#include <string>
#include <string_view>

#include "instruments/macos/HAL.h"
#include "instruments/macos/Questions.h"
#include "orvelle/platform/Process.h"
#include "orvelle/platform/posix/RecordSocket.h"

namespace report {

namespace {

std::string systemValue(const char* name) {
  std::array<char, 256> text{};
  std::size_t size = text.size() - 1;
  return sysctlbyname(name, text.data(), &size, nullptr, 0) == 0 ? text.data() : "unknown";
}

struct Code {
  std::uint32_t value;
  const char* assumed;
};

constexpr std::array kCodes = {
    Code{kAudioObjectPropertyName, "'lnam'"},
    Code{kAudioHardwarePropertyDevices, "'dev#'"},
    Code{kAudioHardwarePropertyDefaultOutputDevice, "'dOut'"},
    Code{kAudioHardwarePropertyTranslateUIDToDevice, "'uidd'"},
    Code{kAudioHardwarePropertyServiceRestarted, "'srst'"},
    Code{kAudioHardwarePropertyRunLoop, "'rnlp'"},
    Code{kAudioHardwarePropertyProcessObjectList, "'prs#'"},
    Code{kAudioDevicePropertyDeviceUID, "'uid '"},
    Code{kAudioDevicePropertyTransportType, "'tran'"},
    Code{kAudioDevicePropertyDeviceIsRunning, "'goin'"},
    Code{kAudioDevicePropertyNominalSampleRate, "'nsrt'"},
    Code{kAudioDevicePropertyStreamConfiguration, "'slay'"},
    Code{kAudioDevicePropertyVolumeScalar, "'volm'"},
    Code{kAudioDevicePropertyMute, "'mute'"},
    Code{kAudioProcessPropertyPID, "'ppid'"},
    Code{kAudioProcessPropertyBundleID, "'pbid'"},
    Code{kAudioProcessPropertyIsRunningOutput, "'piro'"},
    Code{kAudioTapPropertyFormat, "'tfmt'"},
    Code{kAudioTapPropertyDescription, "'tdsc'"},
};

void checkCodes(Report& report) {
  std::string different;
  for (const Code& code : kCodes) {
    if (codeText(code.value) != code.assumed) {
      different += " " + codeText(code.value) + " instead of " + code.assumed;
    }
  }
  report.check("codes", different.empty(),
               different.empty() ? std::to_string(kCodes.size()) + " compared" : different);
}

void checkLayout(Report& report) {
  const bool holds = sizeof(AudioObjectPropertyAddress) == 12 && sizeof(AudioBuffer) == 16 &&
                     offsetof(AudioBuffer, mData) == 8 && sizeof(AudioBufferList) == 24 &&
                     offsetof(AudioBufferList, mBuffers) == 8 &&
                     sizeof(AudioStreamBasicDescription) == 40 && sizeof(AudioTimeStamp) == 64;
  report.check("layout", holds,
               std::to_string(sizeof(AudioObjectPropertyAddress)) + " " +
                   std::to_string(sizeof(AudioBuffer)) + " " +
                   std::to_string(sizeof(AudioBufferList)) + " " +
                   std::to_string(sizeof(AudioStreamBasicDescription)) + " " +
                   std::to_string(sizeof(AudioTimeStamp)) + " bytes");
}

void checkDefaultProperties(Report& report) {
  Boolean isSettable = 0;
  const auto runLoop = address(kAudioHardwarePropertyRunLoop);
  OSStatus status = AudioObjectIsPropertySettable(kAudioObjectSystemObject, &runLoop, &isSettable);
  report.check("run-loop-settable", status == 0 && isSettable != 0, codeText(status));
  const auto restarted = address(kAudioHardwarePropertyServiceRestarted);
  status = AudioObjectIsPropertySettable(kAudioObjectSystemObject, &restarted, &isSettable);
  report.check("restart-cannot-be-forced", isSettable == 0, codeText(status));
}

constexpr std::string_view kTold = "from the child";

/// A child that ends by itself or is killed: when its end of a socket closes, and when it counts as
/// dead.
void checkDeath(Report& report) {
  const auto sockets = orvelle::openRecordSockets();
  if (!sockets) {
    report.check("socket-pair", false, std::strerror(errno));
    return;
  }
  const pid_t child = fork();
  if (child == 0) {
    close(sockets->first);
    orvelle::sendRecord(sockets->second, kTold);
    for (;;) {
      ::pause();
    }
  }
  close(sockets->second);
  report.check("start-time", orvelle::processStartTime(child).has_value(), "of a child");
  kill(child, SIGKILL);
  const std::string told =
      orvelle::lastRecord(sockets->first, [](std::string_view record) { return record == kTold; });
  const auto dead = secondsUntil([&] { return !orvelle::processStartTime(child); }, 1.0);
  report.check("socket-tells-of-death", dead.has_value(), "dead " + afterText(dead) + " more");
  report.tell("record of the killed one", told.empty() ? "lost" : "arrived");
  waitpid(child, nullptr, 0);
  close(sockets->first);
}

}  // namespace

void askSystem(Report& report) {
  report.section("System");
  report.tell("macOS",
              systemValue("kern.osproductversion") + " (" + systemValue("kern.osversion") + ")");
  report.tell("model", systemValue("hw.model"));
  report.tell("processor", systemValue("hw.machine"));
  checkCodes(report);
  checkLayout(report);
  checkDefaultProperties(report);
}

void askProcesses(Report& report) {
  report.section("Processes");
  report.check("own-program", orvelle::ownProgram().filename() == "orvelle-report",
               orvelle::ownProgram().filename().string());
  std::array<int, 2> sockets{};
  const bool hasRecords = socketpair(AF_UNIX, SOCK_SEQPACKET, 0, sockets.data()) == 0;
  report.check("no-sockets-of-records", !hasRecords, hasRecords ? "there are" : "there are none");
  checkDeath(report);
}

}  // namespace report
