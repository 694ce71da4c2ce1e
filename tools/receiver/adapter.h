// Steers a stream so that the network carries it: gives the policy what arrives, and sends the
// plug-in what it decides.
//
// Threads: Take comes from the receiving threads; the others from the session's.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <string>

#include "platform/mutex.h"
#include "tools/receiver/adaptation.h"
#include "tools/receiver/control_link.h"
#include "tools/receiver/frame_sink.h"

namespace Veldrift {

struct AdapterReport {
  uint64_t steps = 0;     // after the first setting
  StreamSetting setting;  // the last
  // What was said, the first kMostKept sentences, and when, on the steady clock.
  struct Entry {
    int64_t timeNs = 0;
    std::string sentence;
  };
  std::deque<Entry> entries;

  static constexpr size_t kMostKept = 1000;
};

class Adapter : public FrameSink {
 public:
  // `arrivals`: the video's counters of now. `sourceShortSide`: the source's, 0 while it isn't
  // known.
  Adapter(const AdaptationLimits& limits, std::function<ArrivalCounters()> arrivals,
          std::function<uint16_t()> sourceShortSide);

  void Take(const SharedFrame& frame) override;
  void Finish() override {}

  // What is to be told of it goes to `tell`.
  using Teller = std::function<void(const std::string&)>;
  void BeginConnection(ControlLink& link, const Teller& tell, int64_t nowNs);
  // Each tick of a connection.
  void Steer(ControlLink& link, const Teller& tell, int64_t nowNs);
  // No key frame comes sooner than that after it was asked for.
  int64_t KeyFrameTravelNs() const;

  const AdapterReport& Report() const { return report_; }

 private:
  void Obey(const Adaptation::Step& step, ControlLink& link, const Teller& tell, int64_t nowNs);

  const uint16_t mostShortSide_;  // 0: no limit but the source
  const std::function<ArrivalCounters()> arrivals_;
  const std::function<uint16_t()> sourceShortSide_;
  mutable Mutex mutex_;
  Adaptation policy_ VD_GUARDED_BY(mutex_);
  StreamSetting setting_;
  bool known_ = false;  // what the plug-in has of `setting_`
  AdapterReport report_;
};

}  // namespace Veldrift
