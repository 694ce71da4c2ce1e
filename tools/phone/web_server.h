// The small server of the page: its files, the stream, the news, and the commands. Requests are
// read by libmicrohttpd, which gives each connection a thread and a bounded memory.
//
// What it can't be brought to: hand out anything but this, hold up the stream (viewers read from
// the broadcast, each at a place of its own), or take more than kMostConnections.
//
// Threads: Start and Stop belong to the owner's; the services are called from the connections'.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "platform/socket.h"
#include "tools/receiver/commands.h"
#include "web_broadcast.h"
#include "web_gate.h"
#include "web_news.h"

struct MHD_Daemon;

namespace Veldrift {

// Owned by whoever starts the server; they outlive it.
struct WebServices {
  WebBroadcast& broadcast;
  WebNews& news;
  // HTTP's status for a command that is one.
  std::function<int(const Command&)> command;
};

class WebServer {
 public:
  explicit WebServer(WebServices services);
  ~WebServer();
  WebServer(const WebServer&) = delete;
  WebServer& operator=(const WebServer&) = delete;

  // Once. Port 0 is any. False with a sentence.
  bool Start(const Ipv4Endpoint& local, const WebKeys& keys, std::string& sentence);
  // Ends the broadcast and the news as well, so that nobody waits for them.
  void Stop();

  uint16_t Port() const { return port_; }
  // Requests that had no key, or a wrong one.
  uint64_t Refused() const { return refused_; }

  static constexpr unsigned kMostConnections = 48;
  static constexpr unsigned kMostConnectionsAnAddress = 32;
  static constexpr size_t kMostViewers = 8;
  static constexpr size_t kMostBodyBytes = 4096;
  // For the head of a request: more is refused without being kept.
  static constexpr size_t kConnectionBytes = size_t{32} << 10;
  // Of a connection on which nothing moves: while it has a request that may be answered, and before
  // and between requests. Whoever holds connections for nothing keeps an address's own user away.
  static constexpr unsigned kPatienceSeconds = 10;
  static constexpr unsigned kIdlePatienceSeconds = 3;

 private:
  class Handler;

  const WebServices services_;
  uint16_t port_ = 0;
  std::atomic<uint64_t> refused_{0};
  std::unique_ptr<Handler> handler_;
  MHD_Daemon* daemon_ = nullptr;
};

}  // namespace Veldrift
