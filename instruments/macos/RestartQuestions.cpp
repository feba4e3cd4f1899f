#include <CoreAudio/CoreAudio.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "instruments/macos/HAL.h"
#include "instruments/macos/Questions.h"

namespace report {

namespace {

using Clock = std::chrono::steady_clock;

struct News {
  AudioObjectID object = 0;
  std::uint32_t selector = 0;
  Clock::time_point moment;
};

std::mutex newsMutex;

std::vector<News>& allNews() {
  static std::vector<News> news;
  return news;
}

OSStatus note(AudioObjectID object, UInt32 count, const AudioObjectPropertyAddress* addresses,
              void* /*clientData*/) {
  const std::lock_guard lock(newsMutex);
  for (UInt32 index = 0; index < count; ++index) {
    allNews().push_back({object, addresses[index].mSelector, Clock::now()});
  }
  return kAudioHardwareNoError;
}

bool hasNews(std::uint32_t selector) {
  const std::lock_guard lock(newsMutex);
  return std::ranges::find(allNews(), selector, &News::selector) != allNews().end();
}

void tellNews(Report& report) {
  const std::lock_guard lock(newsMutex);
  for (const News& news : allNews()) {
    const std::chrono::duration<double> since = news.moment - allNews().front().moment;
    report.tell(milliseconds(since.count()),
                codeText(news.selector) + " of object " + std::to_string(news.object));
  }
  allNews().clear();
}

}  // namespace

void watchRestart(Report& report) {
  constexpr double patienceSeconds = 60.0;
  constexpr double settlingSeconds = 5.0;
  report.section("Restart: run \"sudo killall coreaudiod\" in another window within a minute");
  const auto runLoop = address(kAudioHardwarePropertyRunLoop);
  const void* none = nullptr;
  AudioObjectSetPropertyData(kAudioObjectSystemObject, &runLoop, 0, nullptr, kReferenceSize,
                             static_cast<const void*>(&none));
  const AudioObjectID formerOutput = defaultOutput();
  const std::string uid = askText(formerOutput, address(kAudioDevicePropertyDeviceUID));
  for (const auto selector : std::array<AudioObjectPropertySelector, 3>{
           kAudioHardwarePropertyServiceRestarted, kAudioHardwarePropertyDevices,
           kAudioHardwarePropertyDefaultOutputDevice}) {
    const auto property = address(selector);
    AudioObjectAddPropertyListener(kAudioObjectSystemObject, &property, &note, nullptr);
  }
  const PrivateAggregate aggregate(uid, "");
  pause(1.0);
  {
    const std::lock_guard lock(newsMutex);
    allNews().clear();
  }
  const auto restarted =
      secondsUntil([] { return hasNews(kAudioHardwarePropertyServiceRestarted); }, patienceSeconds);
  if (!restarted) {
    report.skip("restart-is-told", "no restart within a minute");
    return;
  }
  pause(settlingSeconds);
  tellNews(report);
  report.check("restart-is-told", true, "by its own property");
  report.check("aggregate-gone-after-restart", deviceWithUID(aggregate.uid) == kAudioObjectUnknown,
               std::to_string(deviceWithUID(aggregate.uid)));
  report.tell("the default output's number", std::to_string(formerOutput) + " before, " +
                                                 std::to_string(deviceWithUID(uid)) + " after");
  const PrivateAggregate another(uid, "");
  const auto heard =
      secondsUntil([] { return hasNews(kAudioHardwarePropertyDevices); }, settlingSeconds);
  report.tell("a listener from before the restart", "heard of a new device " + afterText(heard));
}

}  // namespace report
