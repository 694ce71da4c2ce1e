// One transmit instance as a host plays into it: its pictures, its pushed sound and its activation
// come from threads of their own, its timeline goes by the ticks that the module delivers.
//
// Threads: the public functions belong to the host's main thread; the module's clock thread calls
// back.
#pragma once

#include <cstdint>
#include <string>
#include <thread>

#include "host_lock.h"
#include "host_options.h"
#include "host_suites.h"
#include "media_source.h"
#include "playhead.h"
#include "plugin_table.h"

namespace Veldrift {

struct PlayCounters {
  uint64_t framesPushed = 0;
  uint64_t framesSkipped = 0;  // their time had passed
  uint64_t soundBlocks = 0;
  int64_t pushNs = 0;  // all pushes together
  int64_t longestPushNs = 0;
  int64_t clockTicks = 0;  // how far the module moved the host's clock
  int64_t clockNs = 0;     // how long the clock was on
  int64_t samplesPulled = 0;

  void Add(const PlayCounters& other);
};

class Player final : private PulledSound {
 public:
  // `sound` may be null. Both sources outlive this.
  Player(PluginTable& table, FrameSource& pictures, SoundSource* sound, const PlayerWays& ways,
         int32_t playID);
  ~Player() override { Close(); }
  Player(const Player&) = delete;
  Player& operator=(const Player&) = delete;

  // Makes the instance and activates it. Otherwise `sentence` says why not.
  HostExit Open(std::string& sentence);
  // Pauses, deactivates and disposes of the instance. The playhead stays.
  void Close();

  void Play(int speed);
  void Pause();
  void Step(int frames);
  void GoTo(double seconds);
  void Render();
  void SetSize(int width, int height);
  // A host that opens a sequence of another rate makes a new instance.
  HostExit SetRate(double fps, std::string& sentence);
  void Activate(bool on);

  int Speed() const;  // 0: pauses
  int64_t Place() const;
  int64_t TicksPerFrame() const;
  // Places of the timeline that playing has passed.
  uint64_t PlacesPlayed() const;
  bool SourceEnded() const;
  PlayCounters Counters() const;

 private:
  enum class SoundTask { End, Push, Scrub };

  static void OnTicks(void* self, int64_t ticks);
  void TakeTicks(int64_t ticks);
  bool Pull(float* const* channels, uint32_t samples) override;

  void StartClock();
  void StopClock();
  void JudgeSegment(int64_t stopNs, int64_t endNs);

  void RunPictures();
  bool NextPlace(int64_t& place, bool& jumped);
  void ShowPlace(int64_t place, bool jumped);
  uint32_t NumberOf(int64_t place, bool jumped);
  void Push(const Host::FrameList* list);
  void PushOddList();

  void RunSound();
  SoundTask NextSoundTask();
  void PushSound();
  bool AwaitSample(int64_t sample, uint32_t play);
  void PushScrubbing();
  void PushBlock(uint32_t samples);
  int64_t SampleAt(int64_t nowNs) const VD_REQUIRES(mutex_);
  int64_t SampleNow() const;
  void SoundGoesTo(int64_t sample);

  PluginTable& table_;
  FrameSource& pictures_;  // the picture thread's while it runs
  SoundSource* const sound_;
  const PlayerWays ways_;
  Host::InstanceRecord record_{};  // at a fixed address, since the module may remember it
  bool open_ = false;              // the main thread's

  HostLock hostLock_;
  Mutex soundMutex_;  // held while sound_ is used; no other lock is taken under it
  mutable Mutex mutex_;
  CondVar changed_;
  Playhead playhead_ VD_GUARDED_BY(mutex_);
  ClockSegment segment_ VD_GUARDED_BY(mutex_);
  PlayCounters counters_ VD_GUARDED_BY(mutex_);
  bool clockOn_ VD_GUARDED_BY(mutex_) = false;  // between slots 9 and 10
  int insideCallback_ VD_GUARDED_BY(mutex_) = 0;
  bool stopInside_ VD_GUARDED_BY(mutex_) = false;      // the callback is to call slot 10
  int64_t stoppedInsideNs_ VD_GUARDED_BY(mutex_) = 0;  // when it did
  uint32_t play_ VD_GUARDED_BY(mutex_) = 0;            // counted at each jump and change of speed
  bool wantsPicture_ VD_GUARDED_BY(mutex_) = false;
  bool wantsScrubbing_ VD_GUARDED_BY(mutex_) = false;
  bool pushesSound_ VD_GUARDED_BY(mutex_) = false;  // between slots 12 and 14
  uint64_t pulledWhilePushing_ VD_GUARDED_BY(mutex_) = 0;
  int64_t pulledAtStart_ VD_GUARDED_BY(mutex_) = 0;
  bool constantSpeed_ VD_GUARDED_BY(mutex_) = true;  // of the segment
  uint64_t placesPlayed_ VD_GUARDED_BY(mutex_) = 0;
  bool sourceEnded_ VD_GUARDED_BY(mutex_) = false;
  bool ending_ VD_GUARDED_BY(mutex_) = false;
  PictureFormat format_ VD_GUARDED_BY(mutex_);  // of the next picture

  // The picture thread's.
  int64_t lastPlace_ = -1;
  int64_t lastNumber_ = -1;
  uint64_t lists_ = 0;
  uint32_t samplesPerBlock_ = 0;  // the sound thread's

  std::thread pictureThread_, soundThread_, activation_;
};

}  // namespace Veldrift
