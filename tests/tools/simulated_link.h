// A link with a rate, a queue that loses what doesn't fit, and losses of its own; an encoder that
// makes pictures as large as they are asked for; and a receiver that adapts. In virtual time,
// without sockets.
#pragma once

#include <algorithm>
#include <cmath>
#include <deque>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "net/framing.h"
#include "net/media_datagram.h"
#include "tools/receiver/adaptation.h"
#include "tools/receiver/key_frame_asker.h"

namespace Veldrift {

struct SimulatedLink {
  double megabits = 0;  // a second; 0: no limit
  double queueBytes = 64e3;
  double lossShare = 0;
};

// At 30 pictures a second.
class SimulatedStream {
 public:
  explicit SimulatedStream(bool adapts) : adapts_(adapts), policy_(AdaptationLimits{}) {
    Obey({policy_.BeginConnection(false, 0), "begins"});
  }

  SimulatedLink link;
  // Of a picture of 1080p in quality 50, which is neither an easy nor a hard one.
  double keyFrameBytes = 90e3;
  double otherBytes = 22e3;
  // It begins each size with a quality of 75, and each quality with a key frame.
  bool forgets = false;

  int pictures = 0;
  int decoded = 0;
  double firstSeconds = -1;  // when the first picture was decoded
  std::vector<double> delaysMs;
  std::vector<Adaptation::Step> steps;
  std::vector<double> stepSeconds;

  void Run(double seconds) {
    const int64_t endNs = nowNs_ + int64_t(seconds * 1e9);
    while (nowNs_ < endNs) {
      SendPicture();
      nowNs_ += kNanosPerSecond / 30;
      Arrive();
    }
  }

  void Forget() {
    pictures = decoded = 0;
    delaysMs.clear();
  }
  double Share() const { return pictures == 0 ? 0 : double(decoded) / pictures; }
  double P99() const {
    if (delaysMs.empty()) return 1e9;
    std::vector<double> sorted = delaysMs;
    std::ranges::sort(sorted);
    return sorted[size_t(double(sorted.size() - 1) * 0.99)];
  }
  StreamSetting Setting() const { return policy_.Setting(); }
  const Adaptation& Policy() const { return policy_; }

 private:
  struct OnTheWay {
    PictureArrival picture;
    bool whole = false;
    int64_t sentNs = 0;
    ArrivalCounters counters;
  };

  void Obey(const Adaptation::Step& step) {
    steps.push_back(step);
    stepSeconds.push_back(double(nowNs_) / 1e9);
    if (!adapts_) return;
    if (step.setting.shortSide != setting_.shortSide) {
      keyFrameDue_ = true;
      forgot_ = forgets;
    }
    if (forgets && step.setting.quality != setting_.quality) keyFrameDue_ = true;
    setting_ = step.setting;
  }

  void SendPicture() {
    const bool key = setting_.intra || keyFrameDue_;
    keyFrameDue_ = false;
    const int quality = forgot_ ? 75 : setting_.quality;
    if (std::exchange(forgot_, false)) keyFrameDue_ = true;
    const double size = std::pow(setting_.shortSide / 1080.0, 1.5) *
                        std::pow(1.5, (quality - 50) / 10.0) * (key ? keyFrameBytes : otherBytes);
    OnTheWay one;
    one.sentNs = nowNs_;
    one.picture.bytes = size_t(std::max(size, 100.0));
    one.picture.keyFrame = key;
    one.picture.sendTimeMicros = uint32_t(nowNs_ / 1000 + 123'456'789);
    SendDatagrams(one);
    ++pictures;
    onTheWay_.push_back(one);
  }

  void SendDatagrams(OnTheWay& one) {
    const size_t data = DataFragmentCount(one.picture.bytes);
    const size_t all = data + ChooseParityCount(data);
    size_t came = 0;
    for (size_t i = 0; i < all; ++i) {
      const int64_t atNs = PassQueue();
      const bool lost = atNs < 0 || chance_(random_) < link.lossShare;
      counters_.missing += lost ? 1 : 0;
      counters_.gaps += lost && !lostBefore_ ? 1 : 0;
      lostBefore_ = lost;
      if (lost) continue;
      ++counters_.datagrams;
      counters_.bytes += kFragmentBytes;
      if (came++ == 0) one.picture.firstNs = atNs;
      if (came == data) one.picture.wholeNs = atNs;
    }
    one.whole = came >= data;
    ++(one.whole ? counters_.framesWhole : counters_.framesLost);
    one.counters = counters_;
    if (!one.whole) one.picture.wholeNs = nowNs_;
  }

  // When a datagram that is sent now is at the other end; below 0: there was no room.
  int64_t PassQueue() {
    if (link.megabits <= 0) return nowNs_ + kNanosPerMilli;
    const double nsPerByte = 8e3 / link.megabits;
    freeNs_ = std::max(freeNs_, nowNs_);
    if (double(freeNs_ - nowNs_) / nsPerByte + kFragmentBytes > link.queueBytes) return -1;
    freeNs_ += int64_t(nsPerByte * kFragmentBytes);
    return freeNs_ + kNanosPerMilli;
  }

  void Arrive() {
    while (!onTheWay_.empty() && onTheWay_.front().picture.wholeNs <= nowNs_) {
      const OnTheWay one = onTheWay_.front();
      onTheWay_.pop_front();
      seen_ = one.counters;
      if (one.whole) {
        policy_.NotePicture(one.picture);
        if (one.picture.keyFrame) waits_ = false;
        if (!waits_) Decoded(one);
      } else {
        waits_ = true;
      }
    }
    if (asker_.Due(waits_, nowNs_)) keyFrameDue_ = true;
    if (const auto step = policy_.Decide(seen_, nowNs_)) Obey(*step);
  }

  void Decoded(const OnTheWay& one) {
    ++decoded;
    if (firstSeconds < 0) firstSeconds = double(one.picture.wholeNs) / 1e9;
    delaysMs.push_back(double(one.picture.wholeNs - one.sentNs) / 1e6);
  }

  const bool adapts_;
  Adaptation policy_;
  KeyFrameAsker asker_;
  StreamSetting setting_{1080, 75, false};
  bool keyFrameDue_ = true;
  bool forgot_ = false;
  bool waits_ = true;
  bool lostBefore_ = false;
  int64_t nowNs_ = 0;
  int64_t freeNs_ = 0;
  ArrivalCounters counters_, seen_;
  std::deque<OnTheWay> onTheWay_;
  std::mt19937 random_{7};
  std::uniform_real_distribution<double> chance_{0, 1};
};

}  // namespace Veldrift
