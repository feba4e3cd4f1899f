// What a running boost costs the main thread while its panel is closed.
#include <functional>

#include "tests/ControllerRig.h"
#include "tests/RealTimeSentinel.h"

namespace orvelle {
namespace {

/// Hands out the jobs that repeat, so that a single tick can be watched.
class HandedOutTicks final : public MainQueue {
 public:
  explicit HandedOutTicks(ManualQueue& queue) : queue_(queue) {}
  void post(Job job) override { queue_.post(std::move(job)); }
  TimerID postAfter(double seconds, Job job) override {
    return queue_.postAfter(seconds, std::move(job));
  }
  TimerID repeat(double firstSeconds, double intervalSeconds, Job job) override {
    ticks[intervalSeconds] = job;
    return queue_.repeat(firstSeconds, intervalSeconds, std::move(job));
  }
  void cancel(TimerID timer) override { queue_.cancel(timer); }
  void onSignal(int signal, Job job) override { queue_.onSignal(signal, std::move(job)); }
  int run() override { return queue_.run(); }
  void quit(int status) override { queue_.quit(status); }

  std::map<double, Job> ticks;  ///< by interval in seconds

 private:
  ManualQueue& queue_;
};

// Would catch a meter that works for a panel that nobody sees.
TEST_F(ControllerRig, AClosedPanelCostsNextToNothing) {
  HandedOutTicks ticks(queue);
  controller = std::make_unique<AudioController>(
      ControllerHost{{hardware, ticks, worker, console}, worker, defaults, services, names});
  services.windows = {{false, true, 300.0, 620.0}, {true, true, 1000.0, 800.0}};
  switchOn();
  heard();
  int changes = 0;
  QObject::connect(controller.get(), &AudioController::levelChanged, [&changes] { ++changes; });
  EXPECT_EQ(test::RealTimeSentinel::watch(ticks.ticks.at(0.125)),
            test::RealTimeSentinel::Violations{});
  EXPECT_EQ(changes, 0);
  services.windows.front().isVisible = true;
  ticks.ticks.at(0.125)();
  EXPECT_EQ(changes, 1) << "the tick that was watched is none";
  controller->shutdown();
  controller.reset();  // before its queue
}

}  // namespace
}  // namespace orvelle
