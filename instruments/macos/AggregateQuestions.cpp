#include <CoreAudio/CoreAudio.h>
#include <CoreFoundation/CoreFoundation.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "instruments/macos/HAL.h"
#include "instruments/macos/Questions.h"

namespace report {

namespace {

constexpr double kPatienceSeconds = 2.0;

struct Heard {
  std::atomic<int> calls = 0;
  std::atomic<bool> onMainThread = false;
};

/// Never taken apart: a call that comes late must find it.
Heard& heard() {
  static Heard all;
  return all;
}

const std::thread::id& mainThread() {
  static const std::thread::id first = std::this_thread::get_id();
  return first;
}

OSStatus hear(AudioObjectID /*object*/, UInt32 /*count*/,
              const AudioObjectPropertyAddress* /*addresses*/, void* /*clientData*/) {
  heard().onMainThread = std::this_thread::get_id() == mainThread();
  ++heard().calls;
  return kAudioHardwareNoError;
}

const AudioObjectPropertyAddress kDevices = address(kAudioHardwarePropertyDevices);

std::string defaultUID() {
  return askText(defaultOutput(), address(kAudioDevicePropertyDeviceUID));
}

/// Whether, and after how long, creating a private aggregate reaches one's own listener.
void tellNewsOfAggregate(Report& report, const std::string& when) {
  heard().calls = 0;
  const PrivateAggregate aggregate(defaultUID(), "");
  const auto seconds = secondsUntil([] { return heard().calls > 0; }, kPatienceSeconds);
  report.tell("listener, " + when,
              "heard of a private aggregate " + afterText(seconds) +
                  (heard().onMainThread ? ", on the main thread" : ", on another thread"));
}

void checkWithoutRunLoop(Report& report) {
  const auto runLoop = address(kAudioHardwarePropertyRunLoop);
  CFRunLoopRef none = nullptr;
  const OSStatus status =
      AudioObjectSetPropertyData(kAudioObjectSystemObject, &runLoop, 0, nullptr, kReferenceSize,
                                 static_cast<const void*>(&none));
  report.check("run-loop-null", status == 0, codeText(status));
  tellNewsOfAggregate(report, "with the run loop set to none");
  report.check("own-aggregate-fires-own-listener", heard().calls > 0,
               std::to_string(heard().calls) + " calls");
  report.check("listeners-on-a-thread-of-the-hal", heard().calls > 0 && !heard().onMainThread,
               heard().onMainThread ? "on the main thread" : "not on the main thread");
}

void checkLateCalls(Report& report) {
  {
    const PrivateAggregate aggregate(defaultUID(), "");
    AudioObjectRemovePropertyListener(kAudioObjectSystemObject, &kDevices, &hear, nullptr);
    heard().calls = 0;
  }
  pause(1.0);
  report.tell("calls after a listener's removal", std::to_string(heard().calls));
}

/// How long a question to a fresh aggregate is answered with an error.
template <class Value>
void tellFirstAnswer(Report& report, AudioObjectID aggregate, const std::string& what,
                     const AudioObjectPropertyAddress& property) {
  const OSStatus first = ask<Value>(aggregate, property).status;
  const auto seconds =
      secondsUntil([&] { return ask<Value>(aggregate, property).status == 0; }, kPatienceSeconds);
  report.tell(what + " of a fresh aggregate",
              "at first " + codeText(first) + ", answered " + afterText(seconds));
}

void checkFreshness(Report& report, const PrivateAggregate& aggregate) {
  report.check("aggregate-created", aggregate.status == 0, codeText(aggregate.status));
  const auto listed = secondsUntil([&] { return isListed(aggregate.id); }, kPatienceSeconds);
  report.check("private-aggregate-in-own-list", listed.has_value(), afterText(listed));
  tellFirstAnswer<Float64>(report, aggregate.id, "rate",
                           address(kAudioDevicePropertyNominalSampleRate));
  tellFirstAnswer<UInt32>(report, aggregate.id, "running",
                          address(kAudioDevicePropertyDeviceIsRunning));
  const UInt32 wanted = channelCount(defaultOutput(), kAudioObjectPropertyScopeOutput);
  const auto complete = secondsUntil(
      [&] { return channelCount(aggregate.id, kAudioObjectPropertyScopeOutput) == wanted; },
      kPatienceSeconds);
  report.check("streams-come-soon", complete.has_value(), "all channels " + afterText(complete));
  report.check(
      "transport-of-aggregate",
      ask<UInt32>(aggregate.id, address(kAudioDevicePropertyTransportType)).value ==
          kAudioDeviceTransportTypeAggregate,
      codeText(ask<UInt32>(aggregate.id, address(kAudioDevicePropertyTransportType)).value));
}

void checkRun(Report& report, const PrivateAggregate& aggregate) {
  const auto running = address(kAudioDevicePropertyDeviceIsRunning);
  const auto isRunning = [&] { return ask<UInt32>(aggregate.id, running).value != 0; };
  Callback callback(aggregate.id);
  report.check("callback-created", callback.createStatus == 0, codeText(callback.createStatus));
  const OSStatus started = callback.start();
  report.check("first-start", started == 0, codeText(started));
  const auto runs = secondsUntil(isRunning, kPatienceSeconds);
  const auto called = secondsUntil([&] { return callback.calls > 0; }, kPatienceSeconds);
  report.check("runs-after-start", runs.has_value(), afterText(runs));
  report.check("called-after-start", called.has_value(), afterText(called) + " more");
  pause(0.5);
  report.tell("in half a second", std::to_string(callback.calls) + " calls of " +
                                      std::to_string(callback.frames) + " frames, " +
                                      std::to_string(callback.inputBuffers) + " buffers in, " +
                                      std::to_string(callback.outputBuffers) + " out");
  report.check("callback-on-its-own-thread", !callback.runsOnCallersThread, "not on the main one");
  const OSStatus stopped = callback.stop();
  const auto rests = secondsUntil([&] { return !isRunning(); }, kPatienceSeconds);
  report.check("stopped", stopped == 0, codeText(stopped) + ", at rest " + afterText(rests));
  callback.destroy();
  callback.calls = 0;
  pause(0.5);
  report.check("no-call-after-destroy", callback.calls == 0, std::to_string(callback.calls));
}

/// What the back end avoids, because nobody says what comes of it.
void checkOddities(Report& report) {
  const PrivateAggregate one(defaultUID(), "");
  const PrivateAggregate same(defaultUID(), "", one.uid);
  report.check("same-uid-twice", same.status == 0 && same.id != one.id,
               codeText(same.status) + ", objects " + std::to_string(one.id) + " and " +
                   std::to_string(same.id));
  const PrivateAggregate without("app.orvelle.nobody", "");
  report.check("missing-member-is-left-out", without.status == 0, codeText(without.status));
}

/// Without a start: nothing is opened.
void checkStreamUsage(Report& report) {
  for (const AudioObjectID device :
       askList(kAudioObjectSystemObject, address(kAudioHardwarePropertyDevices))) {
    if (channelCount(device, kAudioObjectPropertyScopeInput) == 0) {
      continue;
    }
    const PrivateAggregate aggregate(askText(device, address(kAudioDevicePropertyDeviceUID)), "");
    pause(1.0);
    const Callback callback(aggregate.id);
    const auto property =
        address(kAudioDevicePropertyIOProcStreamUsage, kAudioObjectPropertyScopeInput);
    UInt32 byteSize = 0;
    AudioObjectGetPropertyDataSize(aggregate.id, &property, 0, nullptr, &byteSize);
    std::vector<std::uint64_t> storage(byteSize / sizeof(std::uint64_t) + 2);  // aligned for it
    auto* const usage = reinterpret_cast<AudioHardwareIOProcStreamUsage*>(storage.data());
    usage->mIOProc = reinterpret_cast<void*>(callback.procID());
    const OSStatus read =
        AudioObjectGetPropertyData(aggregate.id, &property, 0, nullptr, &byteSize, usage);
    const UInt32 streams = read == 0 ? usage->mNumberStreams : 0;
    std::fill_n(usage->mStreamIsOn, streams, 0U);
    const OSStatus written =
        AudioObjectSetPropertyData(aggregate.id, &property, 0, nullptr, byteSize, usage);
    report.check(
        "inputs-can-be-switched-off", read == 0 && written == 0,
        codeText(read) + ", " + codeText(written) + ", " + std::to_string(streams) + " streams");
    return;
  }
  report.skip("inputs-can-be-switched-off", "no device has inputs");
}

}  // namespace

void askListeners(Report& report) {
  report.section("Listeners");
  mainThread();
  if (defaultUID().empty()) {
    report.skip("listeners", "there is no default output");
    return;
  }
  const OSStatus status =
      AudioObjectAddPropertyListener(kAudioObjectSystemObject, &kDevices, &hear, nullptr);
  report.check("listener-added", status == 0, codeText(status));
  const auto unknown = address(kNoSuchSelector);
  const OSStatus taken = AudioObjectAddPropertyListener(defaultOutput(), &unknown, &hear, nullptr);
  report.check("listener-of-unknown-property", taken == 0, codeText(taken));
  tellNewsOfAggregate(report, "as it is, without a run loop that runs");
  checkWithoutRunLoop(report);
  checkLateCalls(report);
}

void askAggregates(Report& report) {
  report.section("Aggregates");
  if (defaultUID().empty()) {
    report.skip("aggregates", "there is no default output");
    return;
  }
  PrivateAggregate aggregate(defaultUID(), "");
  checkFreshness(report, aggregate);
  checkRun(report, aggregate);
  checkOddities(report);
  checkStreamUsage(report);
  const AudioObjectID id = aggregate.id;
  const OSStatus status = aggregate.destroy();
  const auto gone = secondsUntil([&] { return !isListed(id); }, kPatienceSeconds);
  report.check("aggregate-destroyed", status == 0 && gone.has_value(),
               codeText(status) + ", out of the list " + afterText(gone));
}

}  // namespace report
