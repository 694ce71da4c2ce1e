#include "net/pairing_handshake.h"

#include <array>
#include <optional>
#include <vector>

#include "identity/trusted_peers.h"
#include "net/control_protocol.h"
#include "platform/calendar.h"
#include "support/identifiers.h"
#include "support/plugin_log.h"

namespace Veldrift {

namespace {

constexpr LogCategory kLog{kLogSubsystem, "network"};
constexpr size_t kTokenBytes = 32;

struct ClientHello {
  std::string id, name, token;
};

std::optional<uint8_t> ReadByte(ControlConnection& connection) {
  std::byte byte{};
  if (!connection.Receive({&byte, 1})) return std::nullopt;
  return std::to_integer<uint8_t>(byte);
}

// One length byte and that many bytes; false at once if the length is above `limit`.
bool ReadShortString(ControlConnection& connection, std::string& text, size_t limit) {
  const std::optional<uint8_t> length = ReadByte(connection);
  if (!length || *length > limit) return false;
  text.resize(*length);
  return connection.Receive(std::as_writable_bytes(std::span(text)));
}

std::optional<ClientHello> ReadHello(ControlConnection& connection) {
  const std::optional<uint8_t> opcode = ReadByte(connection);
  if (!opcode) {
    PluginLog(kLog, kLogInfo, "pair: client disconnected before Hello");
    return std::nullopt;
  }
  if (*opcode != kClientHello) {
    PluginLog(kLog, kLogInfo, "pair: expected ClientHello, got 0x%02x — dropping", *opcode);
    return std::nullopt;
  }
  ClientHello hello;
  if (!ReadShortString(connection, hello.id, kMaxHelloId) ||
      !ReadShortString(connection, hello.name, kMaxHelloName) ||
      !ReadShortString(connection, hello.token, kMaxHelloToken)) {
    PluginLog(kLog, kLogInfo, "pair: malformed ClientHello");
    return std::nullopt;
  }
  if (hello.id.empty()) {
    PluginLog(kLog, kLogInfo, "pair: empty iPhone UUID");
    return std::nullopt;
  }
  PluginLog(kLog, kLogInfo, "pair: Hello from id=%{public}s name=%{public}s token=%{public}s",
            hello.id.c_str(), hello.name.c_str(), hello.token.empty() ? "<none>" : "<present>");
  return hello;
}

// A failed reply is logged by the connection, which is dead then anyway.
void Reply(ControlConnection& connection, uint8_t opcode) {
  (void)connection.SendMessage(opcode, {});
}

void Accept(ControlConnection& connection, const std::string& token) {
  std::string payload(1, char(token.size()));
  payload += token;
  (void)connection.SendMessage(kPairAccepted, std::as_bytes(std::span(payload)));
}

bool IsTrusted(const ClientHello& hello) {
  if (hello.token.empty()) return false;
  const std::optional<TrustedPeer> peer = FindTrustedPeer(hello.id);
  if (peer && peer->token == hello.token) {
    PluginLog(kLog, kLogInfo, "pair: trusted reconnect id=%{public}s", hello.id.c_str());
    return true;
  }
  PluginLog(kLog, kLogInfo, "pair: token present but not trusted — challenging");
  return false;
}

std::unique_ptr<IPairingDialog> ShowCode(const std::shared_ptr<ControlConnection>& connection,
                                         const PairingDialogFactory& createDialog,
                                         const std::string& code, const std::string& peerName) {
  std::unique_ptr<IPairingDialog> dialog = createDialog ? createDialog() : nullptr;
  if (dialog) {
    dialog->Show(code, peerName, [weak = std::weak_ptr(connection)] {
      if (const std::shared_ptr<ControlConnection> alive = weak.lock()) alive->StopReceiving();
    });
  } else {
    PluginLog(kLog, kLogInfo, "pair: IPairingDialog factory null — headless pairing");
  }
  return dialog;
}

std::optional<std::string> ReadCode(ControlConnection& connection) {
  const std::optional<uint8_t> opcode = ReadByte(connection);
  if (!opcode) {
    PluginLog(kLog, kLogInfo, "pair: disconnected while awaiting code");
    return std::nullopt;
  }
  if (*opcode != kPairingCode) {
    PluginLog(kLog, kLogInfo, "pair: expected PairingCode, got 0x%02x — dropping", *opcode);
    Reply(connection, kPairRejected);
    return std::nullopt;
  }
  std::string code(kPairingCodeDigits, '\0');
  if (!connection.Receive(std::as_writable_bytes(std::span(code)))) {
    PluginLog(kLog, kLogInfo, "pair: truncated PairingCode");
    return std::nullopt;
  }
  return code;
}

std::string PairNewPeer(ControlConnection& connection, const ClientHello& hello) {
  const std::string token = MakeToken(kTokenBytes);
  AddOrUpdateTrustedPeer(
      {hello.id, hello.name, token, UtcStamp(WallClockMillis(), StampPrecision::Seconds)});
  PluginLog(kLog, kLogInfo, "pair: OK id=%{public}s name=%{public}s", hello.id.c_str(),
            hello.name.c_str());
  Accept(connection, token);
  return token;
}

std::string Challenge(const std::shared_ptr<ControlConnection>& connection,
                      const PairingDialogFactory& createDialog, const ClientHello& hello) {
  const std::string code = MakePairingCode();
  PluginLog(kLog, kLogInfo, "pair: challenge=%{public}s for %{public}s", code.c_str(),
            hello.name.c_str());
  // Closes its window when this function is done, behind the reply.
  const auto dialog = ShowCode(connection, createDialog, code, hello.name);
  Reply(*connection, kPairChallenge);
  const std::optional<std::string> submitted = ReadCode(*connection);
  if (!submitted) return {};
  if (*submitted == code) return PairNewPeer(*connection, hello);
  PluginLog(kLog, kLogInfo, "pair: code mismatch submitted=%{public}s expected=%{public}s",
            submitted->c_str(), code.c_str());
  Reply(*connection, kPairRejected);
  return {};
}

}  // namespace

std::string DoPairingHandshake(const std::shared_ptr<ControlConnection>& connection,
                               const PairingDialogFactory& createDialog) {
  const std::optional<ClientHello> hello = ReadHello(*connection);
  if (!hello) return {};
  if (IsTrusted(*hello)) {
    Accept(*connection, hello->token);
    return hello->token;
  }
  return Challenge(connection, createDialog, *hello);
}

}  // namespace Veldrift
