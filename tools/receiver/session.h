// A receiver's run: connects, pairs, and stays connected. A lost connection, a plug-in that has
// fallen silent, a sink that fails and the end of the time are seen within a tick, told at once and
// acted on; the session comes back by its token, without end. What becomes of the frames is the
// sinks' matter.
//
// Threads: Run stays on one thread until the end; Stop is wished for by an atomic from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "support/clock.h"
#include "tools/receiver/adapter.h"
#include "tools/receiver/control_link.h"
#include "tools/receiver/encoder_mode_keeper.h"
#include "tools/receiver/frame_sink.h"
#include "tools/receiver/key_frame_asker.h"
#include "tools/receiver/reconnect_backoff.h"

namespace Veldrift {

struct SessionOptions {
  Ipv4Endpoint host;
  double seconds = 0;     // from the first pairing on; 0: without end
  bool reconnect = true;  // false: the end of the connection is the session's
};

enum class SessionEnd {
  TimeUp,
  Stopped,      // by the user
  Unwanted,     // a sink is done
  NeverOpened,  // the first connection didn't come about; see SessionResult::link
  Lost,         // the connection, and it wasn't to be or couldn't be had again
  TurnedAway,   // on coming back; see SessionResult::link
  Broken,       // the plug-in spoke against the protocol
  SinkFailed,
};

// A time without a connection.
struct Interruption {
  int64_t fromNs = 0;  // when the last sign of life had come
  int64_t toNs = 0;    // 0: not repaired
  std::string reason;
};

struct SessionResult {
  SessionEnd end = SessionEnd::NeverOpened;
  LinkResult link = LinkResult::Open;
  std::string sentence;  // what was told last; empty where nothing was wrong
  int64_t startNs = 0;   // paired for the first time
  int64_t endNs = 0;
  std::vector<Interruption> interruptions;  // the first kMostInterruptions
  size_t interruptionCount = 0;
  int64_t interruptedNs = 0;  // all of them together, also one that lasted to the end

  static constexpr size_t kMostInterruptions = 1000;
};

// Whoever sits in front of it. Called on the session's thread.
class SessionObserver {
 public:
  virtual ~SessionObserver() = default;
  // Something that should be known now, in one sentence.
  virtual void Tell(const std::string& sentence) = 0;
  // Each tick. `waiting`: why there is no connection; empty while there is one.
  virtual void Tick(int64_t nowNs, const std::string& waiting) = 0;
  // The process, or the machine, stood still until now: what is missing wasn't the network's fault.
  virtual void Woke(int64_t nowNs) = 0;
};

// Where the plug-in may be now, if its address can change.
class PluginWhereabouts {
 public:
  virtual ~PluginWhereabouts() = default;
  // Looks, without waiting, for as long as it is called again and again.
  virtual std::vector<Ipv4Endpoint> Look() = 0;
  // It is not missed any more.
  virtual void Rest() = 0;
};

class Session {
 public:
  struct Parts {
    ControlLink& link;
    std::vector<FrameSink*> sinks;
    // The number, from 1 on, of the connection that is tried for: frames that come from now on may
    // be another plug-in's.
    std::function<void(uint32_t)> beginConnection;
    SessionObserver& observer;
    PluginWhereabouts* whereabouts;  // null: it stays where it is
    Clock& clock;
    const std::atomic<bool>& stopped;
    Adapter* adapter = nullptr;          // null: the stream stays as it was asked for
    EncoderModeKeeper* modes = nullptr;  // null: an encoder may forget its mode
    // How long the machine has slept so far, as far as the clock leaves that out; may be empty.
    std::function<int64_t()> sleptNs{};
  };

  Session(const SessionOptions& options, Parts parts);
  ~Session() { parts_.link.TellSent({}); }
  Session(const Session&) = delete;
  Session& operator=(const Session&) = delete;

  SessionResult Run();

  static constexpr int64_t kTickNs = 20 * kNanosPerMilli;
  // Heartbeats come each second.
  static constexpr int64_t kSilenceNs = 5 * kNanosPerSecond;

 private:
  bool Step();
  // The connection that is tried for is of this number.
  void Begin(uint32_t number);
  void End(SessionEnd end, std::string sentence);
  // Each answers whether the session goes on.
  bool Watch(int64_t nowNs);
  bool Lose(std::string reason, int64_t nowNs);
  bool Return(int64_t nowNs);
  bool TryAgain();
  void Resume(const Ipv4Endpoint& place, int64_t nowNs);
  void LookAround(int64_t nowNs);
  void NoticeStandstill(int64_t nowNs);
  void Steer(int64_t nowNs);
  void KeepMode(int64_t nowNs);
  Adapter::Teller TellObserver() const;
  std::string SinkFailure() const;
  bool SinkDone() const;
  std::string WhyLost(int64_t nowNs) const;
  bool WantsKeyFrame() const;

  const SessionOptions options_;
  const Parts parts_;
  SessionResult result_;
  ReconnectBackoff backoff_;
  KeyFrameAsker asker_;
  uint32_t connections_ = 0;
  uint32_t address_ = 0;  // of the last connection's plug-in
  int64_t connectedNs_ = 0;
  int64_t watchedNs_ = 0;  // the last look at the connection
  int64_t wokeNs_ = 0;     // the process had stood still until then
  int64_t sleptNs_ = 0;    // at the last look
  int hungUpSoon_ = 0;     // so many connections in a row did the plug-in end soon
  // Without a connection:
  std::string waiting_;  // why; empty: there is one
  int64_t lostNs_ = 0;
  int64_t nextTryNs_ = 0;
  std::vector<Ipv4Endpoint> places_;  // to try, in turn
  size_t tries_ = 0;
};

}  // namespace Veldrift
