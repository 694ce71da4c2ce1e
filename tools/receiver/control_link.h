// A receiver's way to the plug-in, one connection after the other: what a session needs of it.
// Real: PhoneLink. Fake: tests/tools/fake_link.h.
//
// Threads: one thread calls everything.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "platform/socket.h"
#include "tools/receiver/commands.h"

namespace Veldrift {

enum class LinkResult {
  Open,
  Interrupted,
  NoAnswer,  // nobody listens there, or nobody answers
  Closed,    // by the plug-in, during the pairing
  Refused,   // the pairing
  Broken,    // the plug-in spoke against the protocol
  Failed,    // the token can't be kept
};

class ControlLink {
 public:
  virtual ~ControlLink() = default;

  // Connects and pairs for the first time, with patience. Otherwise `sentence` says why not.
  virtual LinkResult Open(std::string& sentence) = 0;

  // Once paired before: tries once, at `host`, to connect and to pair by the token. A few seconds
  // at most.
  virtual LinkResult Reopen(const Ipv4Endpoint& host, std::string& sentence) = 0;

  // Sends what the connection's settings are and what else is due.
  virtual void SendDue(int64_t nowNs) = 0;
  virtual void Send(const Command& command) = 0;
  // Each command that goes out is told to `listener`, whoever sends it.
  virtual void TellSent(std::function<void(const Command&)> listener) = 0;

  // Whether the connection has ended, and then how, as half a sentence.
  virtual bool Ended() const = 0;
  virtual std::string EndText() const = 0;
  // When something last came, on the steady clock.
  virtual int64_t LastHeardNs() const = 0;
  // What the plug-in did against the protocol; empty if nothing.
  virtual std::string Violation() const = 0;

  virtual void Close() = 0;
};

}  // namespace Veldrift
