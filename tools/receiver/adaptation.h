// What to ask of the plug-in so that a network that can't carry the stream carries a smaller one:
// goes down fast and up slowly, on a ladder of sizes and qualities. Pure arithmetic on what the
// caller measures.
//
// Two kinds of trouble look alike and want opposite answers. A full network loses datagrams in
// runs, or delivers them later and later: less is sent. A bad radio loses single ones whatever is
// sent: then every picture is a key frame, so that a loss costs one picture, and of a size whose
// parity is worth most.
//
// Threads: the caller's matter.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "support/clock.h"

namespace Veldrift {

// What is asked of the encoder, which keeps to a quality: its other modes know one rate only.
struct StreamSetting {
  uint16_t shortSide = 0;  // at most, in pixels
  uint8_t quality = 0;     // per cent
  bool intra = false;      // every picture is a key frame
  bool operator==(const StreamSetting&) const = default;
};
// "720p, quality 40, key frames only".
std::string NameOf(const StreamSetting& setting);

// Of the video, since the start of the run.
struct ArrivalCounters {
  uint64_t datagrams = 0;
  uint64_t missing = 0;
  uint64_t gaps = 0;  // runs of missing ones
  uint64_t bytes = 0;
  uint64_t framesWhole = 0;
  uint64_t framesLost = 0;
};

struct PictureArrival {
  size_t bytes = 0;
  bool keyFrame = false;
  int64_t firstNs = 0;  // its first datagram, on the receiver's clock
  int64_t wholeNs = 0;
  std::optional<uint32_t> sendTimeMicros;  // on the sender's clock; wraps
};

struct AdaptationLimits {
  uint16_t shortSide = 1080;  // the source's, or less
  uint8_t quality = 80;
  bool operator==(const AdaptationLimits&) const = default;
};

// The share of pictures of `bytes` that can't be repaired if `lossShare` of the datagrams are lost,
// each for itself: a tenth of parity, rounded up, as the plug-in sends it.
double PictureLossShare(double bytes, double lossShare);

class Adaptation {
 public:
  struct Step {
    StreamSetting setting;
    std::string sentence;  // why, and what
  };

  explicit Adaptation(const AdaptationLimits& limits);

  // What to begin with. `sameNetwork`: what was found out about it, and the setting, stay; what is
  // measured begins anew in any case.
  StreamSetting BeginConnection(bool sameNetwork, int64_t nowNs);

  // The source, or the user, wants other limits: the ladder ends elsewhere. The setting is the one
  // of about the same rate on it, and counts as new if it is another.
  StreamSetting SetLimits(const AdaptationLimits& limits, int64_t nowNs);
  // Key frames only, or never only: nothing else is asked for. Nothing: as the network has it.
  StreamSetting FixIntra(std::optional<bool> intra, int64_t nowNs);

  void NotePicture(const PictureArrival& picture);

  // What to change now, if anything. Call it each few hundredths of a second.
  std::optional<Step> Decide(const ArrivalCounters& counters, int64_t nowNs);

  StreamSetting Setting() const;
  const AdaptationLimits& Limits() const { return limits_; }
  // A key frame that is asked for is on its way for so long that asking sooner is no use.
  int64_t KeyFrameTravelNs() const;

  static constexpr int64_t kSettleNs = 400 * kNanosPerMilli;  // before a step shows in the figures
  static constexpr int64_t kWindowNs = kNanosPerSecond;       // that full networks are judged by
  static constexpr int64_t kRadioWindowNs = 6 * kNanosPerSecond;  // that radios are judged by
  // From one step up to the next, before the network's limit has been met, and after.
  static constexpr int64_t kFirstClimbNs = kNanosPerSecond;
  static constexpr int64_t kClimbNs = 5 * kNanosPerSecond;
  // How long what failed isn't tried again; doubles with each failure up to the other.
  static constexpr int64_t kShortestMemoryNs = 10 * kNanosPerSecond;
  static constexpr int64_t kLongestMemoryNs = 160 * kNanosPerSecond;

 private:
  struct Entry {
    ArrivalCounters counters;
    int64_t timeNs = 0;
  };
  struct Rung {
    uint16_t shortSide = 0;
    uint8_t quality = 0;
    double weight = 0;  // its rate is this many times another's
  };
  struct Change {
    double datagrams = 0, missing = 0, gaps = 0, bytes = 0, whole = 0, lost = 0, seconds = 0;
  };

  void BuildLadder();
  void SettleAt(const StreamSetting& before, int64_t nowNs);
  void LeaveOutPause(int64_t nowNs);
  void Note(const ArrivalCounters& counters, int64_t nowNs);
  Change Since(int64_t fromNs) const;
  double StandingDelayMs() const;
  void ExpectQueue();
  bool Drains(double standingMs, int64_t nowNs);
  std::optional<Step> FleeCongestion(int64_t nowNs);
  std::optional<Step> AnswerRadio(int64_t nowNs);
  std::optional<Step> Climb(int64_t nowNs);
  bool MayClimb(int64_t nowNs) const;
  bool KeyFrameHoldsUp() const;
  double ArrivingShare(size_t rung, double lossShare) const;
  size_t BestRungFor(double lossShare) const;
  Step Down(double factor, const std::string& why, int64_t nowNs);
  void Settle(int64_t nowNs);
  Step Settle(const std::string& why, int64_t nowNs);
  double PictureBytes() const;
  double SentBitsPerSecond() const;

  AdaptationLimits limits_;
  std::vector<Rung> ladder_;
  size_t rung_ = 0;
  bool intra_ = false;
  bool intraFixed_ = false;
  bool metLimit_ = false;  // the network's, ever
  bool climbed_ = false;   // since the last failure
  double failedWeight_ = 0;
  int64_t failedUntilNs_ = 0;
  int64_t memoryNs_ = kShortestMemoryNs;
  int64_t changedNs_ = 0;
  int64_t judgedFromNs_ = 0;  // what came before was sent for the setting before
  int64_t delaysFromNs_ = 0;  // the same for delays
  int64_t radioFromNs_ = 0;   // a full network loses single datagrams too
  int64_t calmNs_ = 0;        // nothing has been wrong since
  int64_t radioBadNs_ = 0;
  int64_t decidedNs_ = 0;
  double drainedToMs_ = 0;  // the queue, since the last step
  int64_t drainedNs_ = 0;
  int64_t drainPatienceNs_ = kSettleNs;
  double carriesBitsPerSecond_ = 0;  // what came while there was too much; 0: not known
  double keyFrameBytes_ = 0;         // the last one's
  int64_t keyFrameNs_ = 0;           // from its first datagram to its last
  std::deque<Entry> entries_;
  std::deque<PictureArrival> pictures_;  // of the last second
  // Smallest time on the way, of a first datagram, in this and in the period before.
  std::optional<int64_t> floorMicros_, floorBeforeMicros_;
  int64_t floorSinceNs_ = 0;
  std::optional<uint32_t> clocksApart_;  // in microseconds, at the first picture
  std::deque<double> delaysMs_;          // of the last pictures' first datagrams, above the floor
  std::deque<double> trainRates_;        // bits a second inside the last pictures of many datagrams
};

}  // namespace Veldrift
