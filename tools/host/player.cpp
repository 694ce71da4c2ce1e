#include "player.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "fault_book.h"
#include "support/clock.h"

namespace Veldrift {

namespace {

constexpr int64_t kPatienceNs = 3 * kNanosPerSecond;
// A module may wait for a callback that it has begun, but not for ever.
constexpr int64_t kLongestSlot10Ns = 15 * kNanosPerSecond;

void Blame(const std::string& sentence) {
  if (!sentence.empty()) FaultBook::Instance().Note(sentence);
}

}  // namespace

void PlayCounters::Add(const PlayCounters& other) {
  framesPushed += other.framesPushed;
  framesSkipped += other.framesSkipped;
  soundBlocks += other.soundBlocks;
  pushNs += other.pushNs;
  longestPushNs = std::max(longestPushNs, other.longestPushNs);
  clockTicks += other.clockTicks;
  clockNs += other.clockNs;
  samplesPulled += other.samplesPulled;
}

Player::Player(PluginTable& table, FrameSource& pictures, SoundSource* sound,
               const PlayerWays& ways, int32_t playID)
    : table_(table),
      pictures_(pictures),
      sound_(sound),
      ways_(ways),
      playhead_(pictures.Format().ticksPerFrame),
      format_(pictures.Format()) {
  record_.utilities = &HostSuites::Instance().Utilities();
  record_.playID = playID;
  if (sound_ == nullptr) return;
  record_.sampleRate = float(sound_->Format().sampleRate);
  record_.channels = uint32_t(sound_->Format().channels);
}

// ---- The instance ------------------------------------------------------------------------------

HostExit Player::Open(std::string& sentence) {
  {
    const MutexLock lock(mutex_);
    ending_ = false;
    record_.ticksPerFrame = format_.ticksPerFrame;
  }
  const HostExit exit = table_.Create(record_, sentence);
  if (exit != kExitGood) return exit;
  open_ = true;
  if (sound_ != nullptr) HostSuites::Instance().Announce(record_.playID, *this);
  Activate(true);
  pictureThread_ = std::thread([this] { RunPictures(); });
  soundThread_ = std::thread([this] { RunSound(); });
  return kExitGood;
}

void Player::Close() {
  if (!open_) return;
  open_ = false;
  Pause();
  Activate(false);  // beside the last pushes of the other threads
  {
    const MutexLock lock(mutex_);
    ending_ = true;
    changed_.NotifyAll();
  }
  for (std::thread* thread : {&pictureThread_, &soundThread_, &activation_}) {
    if (thread->joinable()) thread->join();
  }
  HostSuites::Instance().Withdraw(record_.playID);
  table_.Dispose(record_);
  MutexLock lock(mutex_);
  while (insideCallback_ > 0) changed_.Wait(lock);
}

void Player::Activate(bool on) {
  if (activation_.joinable()) activation_.join();
  activation_ = std::thread([this, on] { table_.Activate(record_, on && sound_ != nullptr, on); });
}

// ---- The clock ---------------------------------------------------------------------------------

void Player::OnTicks(void* self, int64_t ticks) { static_cast<Player*>(self)->TakeTicks(ticks); }

void Player::TakeTicks(int64_t ticks) {
  bool stop = false;
  {
    const MutexLock lock(mutex_);
    ++insideCallback_;
    if (!clockOn_) Blame("called the clock's callback after slot 10");
    if (ticks <= 0) Blame("moved the host's clock by " + std::to_string(ticks) + " ticks");
    ++segment_.callbacks;
    segment_.ticks += ticks;
    counters_.clockTicks += ticks;
    playhead_.Tick(ticks, SteadyNanos());
    stop = std::exchange(stopInside_, false);
    changed_.NotifyAll();
  }
  if (ways_.lock) {
    if (hostLock_.Take(kLongestSlot10Ns)) {
      hostLock_.Give();
    } else {
      Blame("waited for ever in slot 10 for a callback that waited for the host's lock");
    }
  }
  if (stop) {
    const int64_t nowNs = SteadyNanos();
    table_.StopClock(record_);
    const MutexLock lock(mutex_);
    clockOn_ = false;
    stoppedInsideNs_ = nowNs;
  }
  const MutexLock lock(mutex_);
  --insideCallback_;
  changed_.NotifyAll();
}

void Player::StartClock() {
  {
    const MutexLock lock(mutex_);
    clockOn_ = true;
    stoppedInsideNs_ = 0;
    segment_ = {SteadyNanos()};
    pulledAtStart_ = counters_.samplesPulled;
    constantSpeed_ = playhead_.Speed() == 1;
  }
  const Host::ClockRecord clock{&OnTicks, this, Host::kPlayModePlaying};
  table_.StartClock(record_, clock);
  if (ways_.callback) table_.StartClock(record_, clock);  // does nothing: it runs
}

void Player::StopClock() {
  if (ways_.callback) {  // slot 10 from inside the callback, as at an out point
    const int64_t deadline = SteadyNanos() + kPatienceNs;
    MutexLock lock(mutex_);
    stopInside_ = true;
    while ((stoppedInsideNs_ == 0 || insideCallback_ > 0) && SteadyNanos() < deadline) {
      SystemClock().WaitUntil(changed_, lock, deadline);
    }
    stopInside_ = false;
  }
  const bool locked = ways_.lock && hostLock_.Take(kPatienceNs);
  if (locked) {
    hostLock_.AwaitSomebody(4 * TicksToNanos(record_.ticksPerFrame));
  }
  int64_t stopNs = SteadyNanos();
  table_.StopClock(record_);
  const int64_t endNs = SteadyNanos();
  {
    const MutexLock lock(mutex_);
    clockOn_ = false;
    if (stoppedInsideNs_ != 0) stopNs = stoppedInsideNs_;
    if (insideCallback_ > 0 && !ways_.lock && !ways_.callback) {
      Blame("returned from slot 10 while its clock's callback was running");
    }
  }
  if (locked) hostLock_.Give();
  JudgeSegment(stopNs, endNs);
}

void Player::JudgeSegment(int64_t stopNs, int64_t endNs) {
  const MutexLock lock(mutex_);
  counters_.clockNs += stopNs - segment_.startNs;
  Blame(segment_.Verdict(stopNs, endNs, record_.ticksPerFrame));
  const int64_t pulled = counters_.samplesPulled - pulledAtStart_;
  if (sound_ != nullptr && ways_.road == SoundRoad::Pull && constantSpeed_) {
    Blame(VerdictOnPulled(pulled, segment_.ticks, sound_->Format().sampleRate,
                          record_.ticksPerFrame));
  }
}

// ---- What the main thread does -----------------------------------------------------------------

void Player::Play(int speed) {
  bool start = false;
  if (sound_ != nullptr && ways_.road == SoundRoad::Pull) SoundGoesTo(SampleNow());
  {
    const MutexLock lock(mutex_);
    start = !clockOn_;
    playhead_.Run(speed, SteadyNanos());
    if (speed != 1) constantSpeed_ = false;
    ++play_;
    changed_.NotifyAll();
  }
  if (start) StartClock();
}

void Player::Pause() {
  bool stop = false;
  {
    const MutexLock lock(mutex_);
    stop = clockOn_;
    playhead_.Stand(SteadyNanos());
    ++play_;
    changed_.NotifyAll();
  }
  if (stop) StopClock();
}

void Player::Step(int frames) {
  Pause();
  const MutexLock lock(mutex_);
  playhead_.MoveTo(playhead_.PlaceAt(SteadyNanos()) + frames);
  wantsPicture_ = wantsScrubbing_ = true;
  changed_.NotifyAll();
}

void Player::GoTo(double seconds) {
  Pause();
  const MutexLock lock(mutex_);
  playhead_.MoveTo(
      int64_t(seconds * double(kTicksPerSecond) / double(playhead_.TicksPerFrame()) + 0.5));
  wantsPicture_ = true;
  changed_.NotifyAll();
}

void Player::Render() {
  const MutexLock lock(mutex_);
  wantsPicture_ = true;
  changed_.NotifyAll();
}

void Player::SetSize(int width, int height) {
  const MutexLock lock(mutex_);
  format_.width = width;
  format_.height = height;
  wantsPicture_ = true;
  changed_.NotifyAll();
}

HostExit Player::SetRate(double fps, std::string& sentence) {
  const int speed = Speed();
  Close();
  {
    const MutexLock lock(mutex_);
    format_.ticksPerFrame = Veldrift::TicksPerFrame(fps);
    playhead_.SetTicksPerFrame(format_.ticksPerFrame);
    lastPlace_ = playhead_.PlaceAt(SteadyNanos());  // the same moment, counted anew
    wantsPicture_ = true;
  }
  const HostExit exit = Open(sentence);
  if (exit == kExitGood && speed != 0) Play(speed);
  return exit;
}

int Player::Speed() const {
  const MutexLock lock(mutex_);
  return playhead_.Speed();
}

int64_t Player::Place() const {
  const MutexLock lock(mutex_);
  return playhead_.PlaceAt(SteadyNanos());
}

int64_t Player::TicksPerFrame() const {
  const MutexLock lock(mutex_);
  return playhead_.TicksPerFrame();
}

uint64_t Player::PlacesPlayed() const {
  const MutexLock lock(mutex_);
  return placesPlayed_;
}

bool Player::SourceEnded() const {
  const MutexLock lock(mutex_);
  return sourceEnded_;
}

PlayCounters Player::Counters() const {
  const MutexLock lock(mutex_);
  return counters_;
}

}  // namespace Veldrift
