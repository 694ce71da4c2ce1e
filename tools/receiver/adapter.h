// Steers a stream so that the network carries it: gives the policy what arrives, and sends the
// plug-in what it decides.
//
// Threads: Take comes from the receiving threads; the others from the session's.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

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
  // `limits`: what the user wants at most; a short side of 0 is the source's. `arrivals`: the
  // video's counters of now. `sourceShortSide`: the source's, 0 while it isn't known.
  Adapter(const AdaptationLimits& limits, std::function<ArrivalCounters()> arrivals,
          std::function<uint16_t()> sourceShortSide);

  void Take(const SharedFrame& frame) override;
  void Finish() override {}

  // What is to be told of it goes to `tell`.
  using Teller = std::function<void(const std::string&)>;
  // `sameNetwork`: it is the plug-in of the connection before, at the same address.
  void BeginConnection(ControlLink& link, const Teller& tell, bool sameNetwork, int64_t nowNs);
  // Each tick of a connection.
  void Steer(ControlLink& link, const Teller& tell, int64_t nowNs);
  // No key frame comes sooner than that after it was asked for.
  int64_t KeyFrameTravelNs() const;

  // Takes what the user asks for while it runs: a size and a quality are the most to ask for from
  // now on; with another encoder mode nothing is steered until there is a quality again; a GOP mode
  // is left alone until there is another, or the automatic one. False: the command is none of its
  // matter. What is taken is sent by the next Steer.
  bool Wish(const Command& command);
  // The same as commands: what is wished for now.
  std::vector<Command> Wishes() const;

  const AdapterReport& Report() const { return report_; }
  // What was said last.
  const std::string& Said() const { return said_; }

  // So long is the first sentence held back for the source's size.
  static constexpr int64_t kSourcePatienceNs = 2 * kNanosPerSecond;

 private:
  StreamSetting ApplyWishes(int64_t nowNs);
  std::optional<Adaptation::Step> Decide(int64_t nowNs);
  void Rest(ControlLink& link, const Teller& tell, int64_t nowNs);
  void Send(ControlLink& link);
  void SendChanged(const Command& command, ControlLink& link);
  void Say(const std::string& sentence, const Teller& tell, int64_t nowNs);
  void SayBeginning(const Teller& tell, int64_t nowNs);

  const std::function<ArrivalCounters()> arrivals_;
  const std::function<uint16_t()> sourceShortSide_;
  mutable Mutex mutex_;
  Adaptation policy_ VD_GUARDED_BY(mutex_);
  AdaptationLimits wished_;      // 0: no limit but the source
  std::optional<Command> mode_;  // another than quality: nothing is steered
  std::optional<uint8_t> gop_;   // as the user wants it
  StreamSetting setting_;        // that was asked for
  uint16_t source_ = 0;          // the source's size, last known
  bool rests_ = false;           // since mode_ was sent
  bool beginning_ = false;       // the first sentence is held back
  int64_t beganNs_ = 0;
  std::map<uint8_t, std::vector<std::byte>> sent_;  // on this connection, by opcode
  std::string said_;
  AdapterReport report_;
};

}  // namespace Veldrift
