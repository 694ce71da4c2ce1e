#include "session/host_clock.h"

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>

#include "support/guarded.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {
constexpr LogCategory kLog{kLogSubsystem, "transmit"};
constexpr int64_t kLongestStopNanos = 5 * kNanosPerSecond;
}  // namespace

// One playback: its thread and all that the thread touches, so that it may outlive a clock which
// was stopped from inside its callback.
class HostClock::Run {
 public:
  Run(const Host::ClockRecord& record, int64_t ticksPerSecond, int32_t fps,
      std::unique_ptr<IClockListener> listener, Clock& clock)
      : record_(record),
        ticksPerSecond_(ticksPerSecond),
        periodNanos_(kNanosPerSecond / fps),
        listener_(std::move(listener)),
        clock_(clock),
        startNanos_(clock.NowNanos()) {}

  // Throws if no thread can be had. The thread holds the run.
  static void StartThread(const std::shared_ptr<Run>& run) {
    run->thread_ = std::thread([run] {
      run->threadId_ = std::this_thread::get_id();
      RunGuarded(kLog, "audio clock", [&] { run->Loop(); });
      MutexLock lock(run->mutex_);
      run->ended_ = true;
      run->changed_.NotifyAll();
    });
  }

  void End() {
    MutexLock lock(mutex_);
    going_ = false;
    changed_.NotifyAll();
  }

  bool IsCallersOwn() const { return threadId_ == std::this_thread::get_id(); }

  // False if the thread hasn't ended by then.
  bool WaitForEnd(int64_t deadlineNanos) {
    MutexLock lock(mutex_);
    while (!ended_ && clock_.NowNanos() < deadlineNanos) {
      clock_.WaitUntil(changed_, lock, deadlineNanos);
    }
    return ended_;
  }
  bool HasEnded() { return WaitForEnd(0); }

  void Join() { thread_.join(); }

 private:
  void Loop() {
    int64_t last = startNanos_;
    int64_t next = startNanos_ + periodNanos_;
    while (WaitForTick(next)) {
      const int64_t now = clock_.NowNanos();
      RunGuarded(kLog, "a tick of the audio clock", [&] {
        Tick({now, now - last, now - startNanos_});
      });
      last = now;
      // Places on the grid that have gone by, in a sleep of the machine or a slow callback, are
      // left out: this tick has told of all the time.
      next += ((now - next) / periodNanos_ + 1) * periodNanos_;
    }
  }

  void Tick(const ClockTick& tick) {
    const double ticks =
        double(ticksPerSecond_) * double(tick.elapsedNanos) / double(kNanosPerSecond);
    record_.callback(record_.callbackData, int64_t(ticks));
    // The callback may have stopped the clock: the listener's instance is on its way out then.
    if (listener_ && Going()) listener_->OnTick(tick);
  }

  bool Going() {
    MutexLock lock(mutex_);
    return going_;
  }

  bool WaitForTick(int64_t deadlineNanos) {
    MutexLock lock(mutex_);
    while (going_ && clock_.NowNanos() < deadlineNanos) {
      clock_.WaitUntil(changed_, lock, deadlineNanos);
    }
    return going_;
  }

  const Host::ClockRecord record_;
  const int64_t ticksPerSecond_;
  const int64_t periodNanos_;
  const std::unique_ptr<IClockListener> listener_;
  Clock& clock_;
  const int64_t startNanos_;
  std::thread thread_;  // touched by the one who starts it and the one who joins it
  std::atomic<std::thread::id> threadId_{};
  Mutex mutex_;
  CondVar changed_;
  bool going_ VD_GUARDED_BY(mutex_) = true;
  bool ended_ VD_GUARDED_BY(mutex_) = false;
};

// Threads of the process that have been told to end: whoever starts or stops a clock next joins
// those that have. Never destroyed, since no thread may be awaited while the library unloads.
class HostClock::Leftovers {
 public:
  static Leftovers& Get() {
    static Leftovers* const leftovers = new Leftovers;
    return *leftovers;
  }

  void Add(std::shared_ptr<Run> run) {
    MutexLock lock(mutex_);
    runs_.push_back(std::move(run));
  }

  void JoinThoseThatHaveEnded() {
    std::vector<std::shared_ptr<Run>> ended;
    {
      MutexLock lock(mutex_);
      const auto firstEnded = std::partition(
          runs_.begin(), runs_.end(),
          [](const std::shared_ptr<Run>& run) { return run->IsCallersOwn() || !run->HasEnded(); });
      ended.assign(std::make_move_iterator(firstEnded), std::make_move_iterator(runs_.end()));
      runs_.erase(firstEnded, runs_.end());
    }
    for (const std::shared_ptr<Run>& run : ended) run->Join();
  }

 private:
  Mutex mutex_;
  std::vector<std::shared_ptr<Run>> runs_ VD_GUARDED_BY(mutex_);
};

HostClock::~HostClock() {
  Stop();
  std::vector<std::shared_ptr<Run>> unfinished;
  {
    MutexLock lock(mutex_);
    unfinished.swap(unfinished_);
  }
  for (const std::shared_ptr<Run>& run : unfinished) {
    if (!run->IsCallersOwn()) run->WaitForEnd(INT64_MAX);
  }
  Leftovers::Get().JoinThoseThatHaveEnded();
}

HostClock::StartResult HostClock::Start(const Host::ClockRecord& record, int64_t ticksPerSecond,
                                        int32_t fps, std::unique_ptr<IClockListener> listener) {
  if (record.mode != Host::kPlayModePlaying || record.callback == nullptr) {
    return StartResult::NotStarted;
  }
  Leftovers::Get().JoinThoseThatHaveEnded();
  MutexLock lock(mutex_);
  if (current_) return StartResult::NotStarted;
  if (listener) listener->OnStart();
  const auto run = std::make_shared<Run>(record, ticksPerSecond, fps, std::move(listener), clock_);
  // Before the thread: its first callback may stop the clock again.
  const bool claimed = claim_.Take();
  const bool started =
      RunGuarded(kLog, "the start of the audio clock", [&] { Run::StartThread(run); });
  if (!started) {
    if (claimed) claim_.GiveBack();
    return StartResult::Failed;
  }
  current_ = run;
  return StartResult::Started;
}

void HostClock::Stop() {
  std::shared_ptr<Run> run;
  {
    MutexLock lock(mutex_);
    run = std::exchange(current_, nullptr);
  }
  if (!run) return;
  claim_.GiveBack();
  run->End();
  Leftovers::Get().Add(run);
  const bool ended = !run->IsCallersOwn() && run->WaitForEnd(clock_.NowNanos() + kLongestStopNanos);
  if (!ended) {
    if (!run->IsCallersOwn()) {
      PluginLog(kLog, kLogError, "StopClock: the host's callback hasn't returned for 5 s");
    }
    MutexLock lock(mutex_);
    std::erase_if(unfinished_, [](const std::shared_ptr<Run>& one) { return one->HasEnded(); });
    unfinished_.push_back(run);
  }
  Leftovers::Get().JoinThoseThatHaveEnded();
  PluginLog(kLog, kLogInfo, "StopClock");
}

}  // namespace Veldrift
