#include "tools/receiver/session.h"

#include <algorithm>
#include <cstdio>
#include <utility>

#include "net/control_protocol.h"

namespace Veldrift {

namespace {

constexpr int64_t kStandstillNs = kNanosPerSecond;
constexpr int kHungUpSuspiciously = 2;  // connections in a row

std::string Seconds(int64_t nanos) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f s", double(nanos) / 1e9);
  return text;
}

}  // namespace

Session::Session(const SessionOptions& options, Parts parts)
    : options_(options), parts_(std::move(parts)), places_{options.host} {
  if (parts_.modes == nullptr) return;
  parts_.link.TellSent(
      [this](const Command& command) { parts_.modes->NoteSent(command, parts_.clock.NowNanos()); });
}

void Session::Begin(uint32_t number) {
  parts_.beginConnection(number);
  if (parts_.modes != nullptr) parts_.modes->BeginConnection();
}

SessionResult Session::Run() {
  Begin(1);
  result_.link = parts_.link.Open(result_.sentence);
  result_.startNs = parts_.clock.NowNanos();
  if (result_.link == LinkResult::Open) {
    Resume(options_.host, result_.startNs);
    while (Step()) parts_.clock.SleepFor(kTickNs);
  }
  result_.endNs = parts_.clock.NowNanos();
  if (!waiting_.empty()) result_.interruptedNs += result_.endNs - lostNs_;
  return std::move(result_);
}

void Session::End(SessionEnd end, std::string sentence) {
  result_.end = end;
  result_.sentence = std::move(sentence);
}

bool Session::Step() {
  const int64_t nowNs = parts_.clock.NowNanos();
  const bool timeUp =
      options_.seconds > 0 && nowNs - result_.startNs >= int64_t(options_.seconds * 1e9);
  if (const std::string failure = SinkFailure(); !failure.empty()) {
    End(SessionEnd::SinkFailed, failure);
  } else if (SinkDone()) {
    End(SessionEnd::Unwanted, "");
  } else if ((parts_.stopped || timeUp) && !waiting_.empty()) {
    End(SessionEnd::Lost, "the connection was lost and didn't come back within " +
                              Seconds(nowNs - lostNs_) + ": " + waiting_);
  } else if (parts_.stopped) {
    End(SessionEnd::Stopped, "");
  } else if (timeUp) {
    End(SessionEnd::TimeUp, "");
  } else if (waiting_.empty() ? Watch(nowNs) : Return(nowNs)) {
    parts_.observer.Tick(nowNs, waiting_);
    return true;
  }
  return false;
}

std::string Session::SinkFailure() const {
  for (const FrameSink* sink : parts_.sinks) {
    if (std::string failure = sink->Failure(); !failure.empty()) return failure;
  }
  return {};
}

bool Session::SinkDone() const {
  return std::ranges::any_of(parts_.sinks, [](const FrameSink* sink) { return sink->Done(); });
}

bool Session::WantsKeyFrame() const {
  return std::ranges::any_of(parts_.sinks,
                             [](const FrameSink* sink) { return sink->WantsKeyFrame(); });
}

std::string Session::WhyLost(int64_t nowNs) const {
  if (parts_.link.Ended()) {
    const std::string how = parts_.link.EndText();
    return how.empty() ? "it ended" : how;
  }
  const int64_t silentNs = nowNs - std::max(parts_.link.LastHeardNs(), wokeNs_);
  return silentNs >= kSilenceNs ? "no heartbeat came for " + Seconds(silentNs) : "";
}

// While this process stood still, nobody read what came.
void Session::NoticeStandstill(int64_t nowNs) {
  const int64_t sleptNs = parts_.sleptNs ? parts_.sleptNs() : 0;
  const int64_t stoodNs = nowNs - watchedNs_ + sleptNs - std::exchange(sleptNs_, sleptNs);
  watchedNs_ = nowNs;
  if (stoodNs <= kStandstillNs) return;
  wokeNs_ = nowNs;
  parts_.observer.Tell("this machine or process stood still for " + Seconds(stoodNs) +
                       ", in which nothing was received");
  parts_.observer.Woke(nowNs);
}

bool Session::Watch(int64_t nowNs) {
  NoticeStandstill(nowNs);
  if (std::string violation = parts_.link.Violation(); !violation.empty()) {
    End(SessionEnd::Broken, std::move(violation));
    return false;
  }
  if (const std::string reason = WhyLost(nowNs); !reason.empty()) return Lose(reason, nowNs);
  parts_.link.SendDue(nowNs);
  Steer(nowNs);
  KeepMode(nowNs);
  if (asker_.Due(WantsKeyFrame(), nowNs)) parts_.link.Send({kRequestIdr, {}});
  return true;
}

void Session::Steer(int64_t nowNs) {
  if (parts_.adapter == nullptr) return;
  parts_.adapter->Steer(parts_.link, TellObserver(), nowNs);
  asker_.SetTravel(parts_.adapter->KeyFrameTravelNs());
}

void Session::KeepMode(int64_t nowNs) {
  if (parts_.modes == nullptr) return;
  if (const auto again = parts_.modes->Due(nowNs)) parts_.link.Send(*again);
}

Adapter::Teller Session::TellObserver() const {
  return [this](const std::string& sentence) { parts_.observer.Tell(sentence); };
}

bool Session::Lose(std::string reason, int64_t nowNs) {
  const bool soon = nowNs - connectedNs_ < ReconnectBackoff::kLongLifeNs;
  hungUpSoon_ = parts_.link.Ended() && soon ? hungUpSoon_ + 1 : 0;
  if (hungUpSoon_ >= kHungUpSuspiciously) reason += ", as it does when another receiver connects";
  // A silent connection ended when it fell silent.
  lostNs_ = parts_.link.Ended() ? nowNs : std::max(parts_.link.LastHeardNs(), connectedNs_);
  waiting_ = reason;
  parts_.link.Close();
  ++result_.interruptionCount;
  const std::string sentence =
      "the connection was lost after " + Seconds(nowNs - result_.startNs) + ": " + reason;
  if (result_.interruptions.size() < SessionResult::kMostInterruptions) {
    result_.interruptions.push_back({lostNs_, 0, reason});
  }
  if (!options_.reconnect) {
    End(SessionEnd::Lost, sentence);
    return false;
  }
  parts_.observer.Tell(sentence + "; trying to connect again");
  nextTryNs_ = nowNs + backoff_.AfterEnd(nowNs - connectedNs_);
  tries_ = 0;
  return true;
}

// A place that wasn't known is tried at once.
void Session::LookAround(int64_t nowNs) {
  if (parts_.whereabouts == nullptr || tries_ == 0) return;
  for (const Ipv4Endpoint& place : parts_.whereabouts->Look()) {
    if (std::ranges::find(places_, place) != places_.end()) continue;
    places_.insert(places_.begin(), place);
    tries_ = places_.size();  // the next in turn is the new one
    nextTryNs_ = nowNs;
  }
}

bool Session::Return(int64_t nowNs) {
  LookAround(nowNs);
  return nowNs < nextTryNs_ || TryAgain();
}

bool Session::TryAgain() {
  const Ipv4Endpoint place = places_[tries_++ % places_.size()];
  Begin(connections_ + 1);
  std::string reason;
  const LinkResult link = parts_.link.Reopen(place, reason);
  const int64_t nowNs = parts_.clock.NowNanos();
  switch (link) {
    case LinkResult::Open:
      places_ = {place};
      Resume(place, nowNs);
      return true;
    case LinkResult::Interrupted:  // seen at the next step
      return true;
    case LinkResult::NoAnswer:
    case LinkResult::Closed:
      waiting_ = reason;
      nextTryNs_ = nowNs + backoff_.AfterFailure();
      return true;
    case LinkResult::Refused:
    case LinkResult::Broken:
    case LinkResult::Failed:
      break;
  }
  result_.link = link;
  End(SessionEnd::TurnedAway, reason);
  return false;
}

void Session::Resume(const Ipv4Endpoint& place, int64_t nowNs) {
  // What was found out about the way to another place says nothing about this one.
  const bool sameNetwork = connections_++ > 0 && place.address == address_;
  address_ = place.address;
  connectedNs_ = watchedNs_ = nowNs;
  sleptNs_ = parts_.sleptNs ? parts_.sleptNs() : 0;
  asker_.BeginConnection(nowNs);
  if (parts_.adapter != nullptr) {
    parts_.adapter->BeginConnection(parts_.link, TellObserver(), sameNetwork, nowNs);
  }
  if (waiting_.empty()) return;
  waiting_.clear();
  result_.interruptedNs += nowNs - lostNs_;
  if (result_.interruptions.size() == result_.interruptionCount) {
    result_.interruptions.back().toNs = nowNs;
  }
  if (parts_.whereabouts != nullptr) parts_.whereabouts->Rest();
  parts_.observer.Tell("connected again after " + Seconds(nowNs - lostNs_));
}

}  // namespace Veldrift
