// A plug-in's end of the control connection as a script has it, in virtual time: when it is there,
// what it does to a connection, and when. And a clock whose sleeper plays the script.
#pragma once

#include <algorithm>
#include <functional>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/manual_clock.h"
#include "tools/receiver/control_link.h"

namespace Veldrift {

// Runs what is due whenever somebody sleeps.
class ScriptClock : public ManualClock {
 public:
  ScriptClock() : ManualClock(0) {}

  void At(double seconds, std::function<void()> deed) {
    deeds_.emplace(int64_t(seconds * 1e9), std::move(deed));
  }
  void SleepFor(int64_t nanos) override {
    Advance(nanos);
    while (!deeds_.empty() && deeds_.begin()->first <= NowNanos()) {
      const auto deed = deeds_.begin()->second;
      deeds_.erase(deeds_.begin());
      deed();
    }
  }

 private:
  std::multimap<int64_t, std::function<void()>> deeds_;
};

class FakeLink : public ControlLink {
 public:
  explicit FakeLink(ScriptClock& clock) : clock_(clock) {}

  // What the next tries come to. Open means that a connection holds.
  LinkResult answer = LinkResult::Open;
  uint16_t port = 1;   // where the plug-in is
  double lives = 1e6;  // seconds until it ends a connection
  bool beats = true;   // heartbeats come
  std::string violation;
  std::vector<Command> settings;  // sent at the start of each connection

  std::vector<double> tries;  // seconds
  std::vector<uint16_t> ports;
  std::vector<Command> sent;

  LinkResult Open(std::string& sentence) override { return Reopen({0, 1}, sentence); }
  LinkResult Reopen(const Ipv4Endpoint& host, std::string& sentence) override {
    tries.push_back(double(clock_.NowNanos()) / 1e9);
    ports.push_back(host.port);
    const LinkResult result = host.port == port ? answer : LinkResult::NoAnswer;
    if (result != LinkResult::Open) sentence = "nobody there";
    open_ = result == LinkResult::Open;
    openedNs_ = lastHeardNs_ = clock_.NowNanos();
    if (open_) std::ranges::for_each(settings, [this](const Command& each) { Send(each); });
    return result;
  }

  void SendDue(int64_t nowNs) override {
    if (beats) lastHeardNs_ = nowNs;
  }
  void Send(const Command& command) override {
    sent.push_back(command);
    if (listener_) listener_(command);
  }
  void TellSent(std::function<void(const Command&)> listener) override {
    listener_ = std::move(listener);
  }
  bool Ended() const override {
    return !open_ || clock_.NowNanos() - openedNs_ >= int64_t(lives * 1e9);
  }
  std::string EndText() const override { return "it hung up"; }
  int64_t LastHeardNs() const override { return lastHeardNs_; }
  std::string Violation() const override { return violation; }
  void Close() override { open_ = false; }

 private:
  ScriptClock& clock_;
  std::function<void(const Command&)> listener_;
  bool open_ = false;
  int64_t openedNs_ = 0;
  int64_t lastHeardNs_ = 0;
};

}  // namespace Veldrift
