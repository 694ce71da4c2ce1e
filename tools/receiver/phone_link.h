// The control side of the phone: finds the plug-in, pairs, keeps the token, comes back by it, sends
// the settings, and keeps what the plug-in says.
//
// Threads: the main thread calls everything; messages arrive on the client's reading thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/mutex.h"
#include "platform/socket.h"
#include "tools/receiver/commands.h"
#include "tools/receiver/control_client.h"
#include "tools/receiver/control_link.h"
#include "tools/receiver/pairing_log.h"

namespace Veldrift {

struct LinkOptions {
  Ipv4Endpoint host;
  uint32_t bindAddress = 0;  // network byte order; 0 is any address
  std::string id = "veldrift-phone";
  std::string name = "Phone stand-in";
  std::filesystem::path tokenFile;    // empty: the token isn't kept
  std::string code;                   // empty: it is looked for
  std::filesystem::path codeFromLog;  // the plug-in's log; empty: somebody is asked for the code
  double waitSeconds = 10;            // for the plug-in, and for the code

  // Sent at the start of each connection, since a plug-in that was started anew knows none of them.
  std::vector<Command> settings;
  std::vector<Command> commands;  // sent once, behind the settings
  int commandIntervalMs = 0;      // from one to the next
};

// Somebody who reads the code from the plug-in's window.
struct CodeReader {
  std::function<std::optional<std::string>()> ask;
  // Ends the process: an interrupt came while `ask` waits, which nobody can tell to give up.
  std::function<void()> abandon;
};

struct SentCommand {
  Command command;
  int64_t sentNs = 0;
  std::optional<int64_t> acknowledgedNs;  // by the first instance that answered
};

class PhoneLink : public ControlLink {
 public:
  // `reader` is asked where the options neither have a code nor name a log.
  PhoneLink(const LinkOptions& options, const std::atomic<bool>& interrupted,
            CodeReader reader = {});

  LinkResult Open(std::string& sentence) override;
  LinkResult Reopen(const Ipv4Endpoint& host, std::string& sentence) override;

  void Send(const Command& command) override;
  void SendDue(int64_t nowNs) override;
  void TellSent(std::function<void(const Command&)> listener) override {
    listener_ = std::move(listener);
  }
  // When the first connection was begun that came about, on the steady clock.
  int64_t ConnectNs() const { return connectNs_; }
  bool Ended() const override { return client_->Ended(); }
  std::string EndText() const override { return client_->EndText(); }
  int64_t LastHeardNs() const override { return client_->LastHeardNs(); }
  void Close() override { client_->Disconnect(); }

  std::string Violation() const override { return client_->Violation(); }
  // Of all connections, without heartbeats; of a very long run the first ones.
  std::vector<StatusMessage> Messages() const;
  std::vector<SentCommand> Sent() const;
  // The encoder's last description of itself; empty if there was none.
  std::string EncoderText() const;
  // Whether the host plays: it does unless the plug-in has said that it doesn't.
  bool Playing() const { return playing_; }
  // The shorter side of the host's picture; 0 while it isn't known.
  uint16_t SourceShortSide() const { return sourceShortSide_; }

 private:
  LinkResult Connect(std::string& sentence);
  // `patienceSeconds`: for the plug-in's answers.
  LinkResult Pair(double patienceSeconds, std::string& sentence);
  LinkResult SentenceOf(ControlClient::PairResult result, std::string& sentence) const;
  LinkResult KeepToken(std::string& sentence) const;
  void BeginReading();
  std::optional<std::string> FindCode();
  std::optional<std::string> AskForCode();
  ControlClient::PairResult PairWatched(double patienceSeconds, std::string& token);
  void Note(const StatusMessage& message);

  const LinkOptions& options_;
  const std::atomic<bool>& interrupted_;
  const CodeReader reader_;
  std::unique_ptr<PairingCodeLog> codeLog_;
  int64_t connectNs_ = 0;
  std::string token_;
  std::function<void(const Command&)> listener_;
  bool known_ = false;   // paired before
  bool gaveUp_ = false;  // the last pairing, for want of an answer
  size_t settingsDone_ = 0;
  size_t commandsDone_ = 0;
  int64_t nextCommandNs_ = 0;
  std::atomic<bool> asking_{false};  // somebody is typing the code
  std::atomic<bool> playing_{true};
  std::atomic<uint16_t> sourceShortSide_{0};
  mutable Mutex mutex_;
  std::vector<StatusMessage> messages_ VD_GUARDED_BY(mutex_);
  std::vector<SentCommand> sent_ VD_GUARDED_BY(mutex_);
  std::string encoderText_ VD_GUARDED_BY(mutex_);
  // Last: its reading thread ends before what it notes into goes.
  std::unique_ptr<ControlClient> client_;
};

}  // namespace Veldrift
