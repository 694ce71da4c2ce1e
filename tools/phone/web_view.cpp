#include "web_view.h"

#include <cmath>
#include <nlohmann/json.hpp>
#include <utility>

#include "platform/network_interfaces.h"
#include "tools/cli/terminal_qr.h"
#include "tools/platform/terminal.h"
#include "ui/qr_code.h"
#include "web_command.h"

namespace Veldrift {

namespace {

constexpr int64_t kTellPeriodNs = 10 * kNanosPerSecond;
constexpr const char* kLoopback = "127.0.0.1";
constexpr int kTaken = 204;
constexpr int kNoConnection = 409;
constexpr int kTooMany = 429;

int StatusOf(WebRemote::Answer answer) {
  if (answer == WebRemote::Answer::Taken) return kTaken;
  return answer == WebRemote::Answer::TooMany ? kTooMany : kNoConnection;
}

double Tenths(double value) { return std::round(value * 10) / 10; }

// Lines that wrap can't be scanned.
std::string Drawing(const std::string& address, bool toTerminal) {
  const QrCode code = EncodeQrText(address);
  if (!toTerminal || TerminalColumns() < TerminalQrColumns(code)) return {};
  return DrawQrForTerminal(code);
}

}  // namespace

WebView::WebView(const WebOptions& options, const std::vector<Command>& settings,
                 const MediaReceiver& receiver, PhoneLink& link, Adapter* adapter,
                 SessionObserver& next)
    : options_(options),
      receiver_(receiver),
      link_(link),
      adapter_(adapter),
      next_(next),
      broadcast_(SystemClock()),
      news_(SystemClock()),
      sink_(broadcast_, SystemClock()),
      remote_(settings, adapter),
      server_({broadcast_, news_, [this](const Command& command) {
                 return StatusOf(remote_.Offer(command, SteadyNanos()));
               }}) {}

bool WebView::Start(std::string& sentence) {
  std::optional<WebKeys> keys = LoadWebKeys(options_.keyFile, sentence);
  if (!keys) return false;
  keys_ = std::move(*keys);
  return server_.Start(options_.local, keys_, sentence);
}

void WebView::Tick(int64_t nowNs, const std::string& waiting) {
  sink_.Tick();
  remote_.Tick(link_, waiting.empty(), nowNs);
  if (nowNs >= nextNewsNs_) {
    nextNewsNs_ = nowNs + kNewsNs;
    PublishNews(nowNs, waiting);
  }
  TellRefused(nowNs);
  next_.Tick(nowNs, waiting);
}

void WebView::PublishNews(int64_t nowNs, const std::string& waiting) {
  figures_.Add(SampleOf(receiver_.Counters(StreamType::Video).assembler), nowNs);
  const nlohmann::ordered_json news = {{"now", sink_.LineMicros()},
                                       {"waiting", waiting},
                                       {"playing", link_.Playing()},
                                       {"pictures", Tenths(figures_.FramesPerSecond())},
                                       {"mbit", Tenths(figures_.MegabitsPerSecond())},
                                       {"lost", Tenths(figures_.FramesLostPercent())},
                                       {"encoder", link_.EncoderText()},
                                       {"viewers", broadcast_.ViewerCount()},
                                       {"adapts", adapter_ != nullptr},
                                       {"network", adapter_ == nullptr ? "" : adapter_->Said()},
                                       {"settings", remote_.Settings()}};
  news_.Publish(news.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
}

void WebView::TellRefused(int64_t nowNs) {
  const uint64_t refused = server_.Refused();
  if (refused == refused_ || nowNs < nextRefusedNs_) return;
  Tell("the page's server refused " + std::to_string(refused - refused_) +
       (refused - refused_ == 1 ? " request that had" : " requests that had") + " no valid key");
  refused_ = refused;
  nextRefusedNs_ = nowNs + kTellPeriodNs;
}

std::string WebView::AddressAt(const std::string& host, const std::string& key) const {
  return "http://" + host + ":" + std::to_string(server_.Port()) + "/#" + key;
}

std::string WebView::Invitation(bool toTerminal) const {
  std::vector<std::string> hosts;
  if (options_.local.address != 0) {
    hosts.push_back(AddressText(options_.local.address));
  } else {
    for (const NetworkInterfaceInfo& one : EnumerateInterfaces()) hosts.push_back(one.address);
    hosts.emplace_back(kLoopback);
  }
  std::string text = Drawing(AddressAt(hosts.front(), keys_.steer), toTerminal);
  for (const std::string& host : hosts) {
    text += "to watch and steer: " + AddressAt(host, keys_.steer) + "\n";
  }
  return text + "only to watch:      " + AddressAt(hosts.front(), keys_.look) + "\n";
}

}  // namespace Veldrift
