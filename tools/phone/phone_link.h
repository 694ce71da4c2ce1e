// The control side of the phone: finds the plug-in, pairs, keeps the token, sends the settings, and
// keeps what the plug-in says.
//
// Threads: the main thread calls everything; messages arrive on the client's reading thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "phone_exit.h"
#include "phone_options.h"
#include "platform/mutex.h"
#include "tools/receiver/commands.h"
#include "tools/receiver/control_client.h"
#include "tools/receiver/pairing_log.h"

namespace Veldrift {

struct SentCommand {
  Command command;
  int64_t sentNs = 0;
  std::optional<int64_t> acknowledgedNs;  // by the first instance that answered
};

class PhoneLink {
 public:
  explicit PhoneLink(const PhoneOptions& options, const std::atomic<bool>& interrupted);

  // Connects, pairs, and begins to send the commands of the options. Otherwise `sentence` says why
  // not. An interrupt gives kExitGood with a sentence.
  PhoneExit Open(std::string& sentence);

  void Send(const Command& command);
  // Sends those of the options' commands whose time has come.
  void SendDue(int64_t nowNs);
  // When the connection was begun that came about, on the steady clock.
  int64_t ConnectNs() const { return connectNs_; }
  bool Ended() const { return client_->Ended(); }
  void Close() { client_->Disconnect(); }

  std::string Violation() const { return client_->Violation(); }
  std::vector<StatusMessage> Messages() const;
  std::vector<SentCommand> Sent() const;
  // The encoder's last description of itself; empty if there was none.
  std::string EncoderText() const;

 private:
  PhoneExit Connect(std::string& sentence);
  PhoneExit Pair(std::string& sentence);
  std::optional<std::string> FindCode();
  std::optional<std::string> AskForCode();
  ControlClient::PairResult PairWatched(std::string& token);
  void Note(const StatusMessage& message);

  const PhoneOptions& options_;
  const std::atomic<bool>& interrupted_;
  std::unique_ptr<PairingCodeLog> codeLog_;
  int64_t connectNs_ = 0;
  size_t commandsDone_ = 0;
  int64_t nextCommandNs_ = 0;
  std::atomic<bool> asking_{false};  // somebody is typing the code
  mutable Mutex mutex_;
  std::vector<StatusMessage> messages_ VD_GUARDED_BY(mutex_);
  std::vector<SentCommand> sent_ VD_GUARDED_BY(mutex_);
  // Last: its reading thread ends before what it notes into goes.
  std::unique_ptr<ControlClient> client_;
};

}  // namespace Veldrift
