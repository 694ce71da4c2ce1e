// The control side of the phone: finds the plug-in, pairs, keeps the token, sends the settings, and
// keeps what the plug-in says.
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
#include <vector>

#include "platform/mutex.h"
#include "platform/socket.h"
#include "tools/receiver/commands.h"
#include "tools/receiver/control_client.h"
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

  std::vector<Command> commands;  // sent once paired, in this order
  int commandIntervalMs = 0;      // from one to the next
};

// Somebody who reads the code from the plug-in's window.
struct CodeReader {
  std::function<std::optional<std::string>()> ask;
  // Ends the process: an interrupt came while `ask` waits, which nobody can tell to give up.
  std::function<void()> abandon;
};

enum class LinkResult {
  Open,
  Interrupted,
  NoAnswer,  // nobody listens there
  Refused,   // the pairing
  Broken,    // the plug-in spoke against the protocol
  Failed,    // the token can't be kept
};

struct SentCommand {
  Command command;
  int64_t sentNs = 0;
  std::optional<int64_t> acknowledgedNs;  // by the first instance that answered
};

class PhoneLink {
 public:
  // `reader` is asked where the options neither have a code nor name a log.
  PhoneLink(const LinkOptions& options, const std::atomic<bool>& interrupted,
            CodeReader reader = {});

  // Connects, pairs, and begins to send the commands of the options. Otherwise `sentence` says why
  // not.
  LinkResult Open(std::string& sentence);

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
  LinkResult Connect(std::string& sentence);
  LinkResult Pair(std::string& sentence);
  std::optional<std::string> FindCode();
  std::optional<std::string> AskForCode();
  ControlClient::PairResult PairWatched(std::string& token);
  void Note(const StatusMessage& message);

  const LinkOptions& options_;
  const std::atomic<bool>& interrupted_;
  const CodeReader reader_;
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
