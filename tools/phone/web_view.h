// The live view for browsers, as the phone uses it: a sink for what arrives, an observer of the
// session, and the server in between.
//
// Threads: the session's, and before and after it the owner's.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/receiver/live_figures.h"
#include "tools/receiver/media_receiver.h"
#include "tools/receiver/phone_link.h"
#include "tools/receiver/session.h"
#include "web_broadcast.h"
#include "web_news.h"
#include "web_options.h"
#include "web_remote.h"
#include "web_server.h"
#include "web_sink.h"

namespace Veldrift {

class WebView : public SessionObserver {
 public:
  // `next` observes too. `adapter` may be null. All outlive this.
  WebView(const WebOptions& options, const std::vector<Command>& settings,
          const MediaReceiver& receiver, PhoneLink& link, Adapter* adapter, SessionObserver& next);
  ~WebView() override { Stop(); }

  // Begins to serve. False with a sentence.
  bool Start(std::string& sentence);
  void Stop() { server_.Stop(); }

  FrameSink& Sink() { return sink_; }

  void Tell(const std::string& sentence) override { next_.Tell(sentence); }
  void Tick(int64_t nowNs, const std::string& waiting) override;
  void Woke(int64_t nowNs) override {
    figures_.BeginAnew(nowNs);
    next_.Woke(nowNs);
  }

  // What to type into a browser, or to scan: the addresses, and of the first a QR code.
  std::string Invitation(bool toTerminal) const;

  static constexpr int64_t kNewsNs = 500 * kNanosPerMilli;

 private:
  void PublishNews(int64_t nowNs, const std::string& waiting);
  void TellRefused(int64_t nowNs);
  std::string AddressAt(const std::string& host, const std::string& key) const;

  const WebOptions options_;
  const MediaReceiver& receiver_;
  PhoneLink& link_;
  const Adapter* const adapter_;
  SessionObserver& next_;
  WebKeys keys_;
  WebBroadcast broadcast_;
  WebNews news_;
  WebSink sink_;
  WebRemote remote_;
  WebServer server_;
  LiveFigures figures_;
  int64_t nextNewsNs_ = 0;
  int64_t nextRefusedNs_ = 0;
  uint64_t refused_ = 0;  // told
};

}  // namespace Veldrift
