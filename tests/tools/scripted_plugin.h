// The plug-in's end of a control connection, in a test's hands.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>

#include "platform/socket.h"
#include "support/clock.h"

namespace Veldrift {

// A plug-in's end of the connection that says and expects exactly what the test tells it to.
class ScriptedPlugin {
 public:
  ScriptedPlugin() : listener_(ListenTcp(0, *ParseAddress("127.0.0.1"))) {}

  Ipv4Endpoint Address() const { return {*ParseAddress("127.0.0.1"), listener_->Port()}; }

  // Runs `script` on a thread of its own with the next connection; the one before has ended then.
  template <typename Script>
  void Run(Script script) {
    if (thread_.joinable()) thread_.join();
    thread_ = std::thread([this, script] {
      peer_ = listener_->Accept(10 * kNanosPerSecond);
      if (peer_) script(*this);
      if (peer_) peer_->Disconnect();
    });
  }
  ~ScriptedPlugin() {
    if (thread_.joinable()) thread_.join();
  }

  void Say(const std::string& bytes) {
    size_t sent = 0;
    EXPECT_EQ(peer_->TrySend(std::as_bytes(std::span(bytes)), sent),
              StreamSocket::SendResult::Sent);
    EXPECT_EQ(sent, bytes.size());
  }
  std::string Hear(size_t count) {
    std::string bytes(count, '\0');
    size_t have = 0;
    while (have < count) {
      const auto got = peer_->Receive(std::as_writable_bytes(std::span(bytes)).subspan(have));
      if (got <= 0) break;
      have += size_t(got);
    }
    bytes.resize(have);
    return bytes;
  }
  void WaitForEnd() { Hear(1); }

 private:
  SocketLayer layer_;
  std::unique_ptr<StreamListener> listener_;
  std::unique_ptr<StreamSocket> peer_;
  std::thread thread_;
};

}  // namespace Veldrift
