#include "net/network_transport.h"

#include <algorithm>
#include <utility>

#include "identity/install_identity.h"
#include "net/control_protocol.h"
#include "net/media_datagram.h"
#include "net/pairing_handshake.h"
#include "support/guarded.h"
#include "support/plugin_log.h"

using namespace Veldrift;

namespace {

constexpr LogCategory kLog{kLogSubsystem, "network"};
constexpr int64_t kAcceptSliceNanos = 100 * kNanosPerMilli;
constexpr int64_t kTickNanos = kNanosPerSecond;
constexpr int64_t kFlushNanos = 20 * kNanosPerMilli;
constexpr int32_t kInactiveTicksToTell = 3;
constexpr uint32_t kFailuresToAsk = 5;

void LogPeerNotKnown(uint8_t opcode) {
  PluginLog(kLog, kLogDebug, "SendControl opcode=0x%02x: SKIP — peer not known", opcode);
}

void JoinIfRunning(std::thread& thread) {
  if (thread.joinable()) thread.join();
}

// A thread whose exceptions end in the log.
template <typename Body>
std::thread StartThread(const char* name, Body body) {
  return std::thread([name, body = std::move(body)] { RunGuarded(kLog, name, body); });
}

}  // namespace

NetworkTransport::NetworkTransport(Clock& clock) : clock_(clock) {}

NetworkTransport::~NetworkTransport() { Stop(); }

// ---- Start and stop ----------------------------------------------------------------------------

void NetworkTransport::StartListening(uint16_t controlPort) {
  if (running_.exchange(true)) return;
  udpFailures_ = 0;
  lastServedNanos_ = 0;
  {
    MutexLock lock(transmitMutex_);
    transmitActive_ = false;
    inactiveTicks_ = 0;
  }
  PluginLog(kLog, kLogInfo, "StartListening control=:%u video=:%u audio=:%u", controlPort,
            kVideoPort, kAudioPort);
  udpSocket_ = OpenDatagramSender();
  if (udpSocket_) {
    PluginLog(kLog, kLogInfo, "UDP sender socket fd=%lld",
              static_cast<long long>(udpSocket_->Number()));
  } else {
    PluginLog(kLog, kLogError, "UDP socket() failed: %s", ErrorText().c_str());
  }
  acceptThread_ = StartThread("accept loop", [this, controlPort] { AcceptLoop(controlPort); });
  StartAdvertiser(controlPort);
  pollThread_ = StartThread("poll loop", [this] { TransmitStatePollLoop(); });
}

void NetworkTransport::StartAdvertiser(uint16_t controlPort) {
  if (!IsDiscoverable()) {
    PluginLog(kLog, kLogInfo, "discoverable=false — skipping mDNS advertisement");
    return;
  }
  advertiser_ = CreateServiceAdvertiser();
  if (!advertiser_) {
    PluginLog(kLog, kLogInfo, "ServiceAdvertiser factory returned null — mDNS skipped");
    return;
  }
  bool active = false;
  {
    MutexLock lock(transmitMutex_);
    active = transmitActive_ = AnyInstanceRunning();
  }
  if (!advertiser_->Start(controlPort, MakeServiceInfo(active))) {
    PluginLog(kLog, kLogError, "ServiceAdvertiser::Start failed — Bonjour discovery disabled");
    advertiser_.reset();
  }
}

// Hosts on one machine share the identity, and are told apart by a suffix.
ServiceInfo NetworkTransport::MakeServiceInfo(bool transmitActive) const {
  const InstallIdentity identity = LoadOrCreateInstallIdentity();
  const HostTraits& host = TraitsOf(DetectHostApplication());
  ServiceInfo info;
  info.id = *host.suffix == '\0' ? identity.id : identity.id + "-" + host.suffix;
  info.name = identity.name + " — " + host.displayText;
  info.transmit = transmitActive ? 1 : 0;
  return info;
}

void NetworkTransport::Stop() {
  if (!running_.exchange(false)) return;
  PluginLog(kLog, kLogInfo, "Stop");
  Connection client;
  {
    MutexLock lock(clientMutex_);
    peerKnown_ = false;
    client = std::exchange(client_, nullptr);
  }
  if (client) client->Disconnect();
  WakeWaiters();
  JoinIfRunning(acceptThread_);
  JoinIfRunning(readThread_);
  JoinIfRunning(heartbeatThread_);
  JoinIfRunning(pollThread_);
  udpSocket_.reset();
  if (advertiser_) {
    advertiser_->Stop();
    advertiser_.reset();
  }
}

// The empty lock closes the gap in which a waiter has tested its condition but doesn't wait yet.
void NetworkTransport::WakeWaiters() {
  { MutexLock lock(shutdownMutex_); }
  shutdownCv_.NotifyAll();
}

bool NetworkTransport::AnyInstanceRunning() const {
  return callables_.anyInstanceRunning && callables_.anyInstanceRunning();
}

// ---- Accepting ---------------------------------------------------------------------------------

void NetworkTransport::AcceptLoop(uint16_t port) {
  const std::unique_ptr<StreamListener> listener = ListenTcp(port);
  if (!listener) {
    PluginLog(kLog, kLogError, "CreateTcpListener(:%u) failed: %s", port, ErrorText().c_str());
    return;
  }
  listeningPort_ = listener->Port();
  PluginLog(kLog, kLogInfo, "Listening on :%u", listener->Port());
  while (running_) {
    std::unique_ptr<StreamSocket> socket = listener->Accept(kAcceptSliceNanos);
    if (!socket || !WaitForTurn()) continue;
    // What goes wrong with one connection ends that one.
    RunGuarded(kLog, "a new connection", [&] {
      const auto newcomer = std::make_shared<ControlConnection>(std::move(socket), clock_);
      if (!RunGuarded(kLog, "a new connection", [&] { Welcome(newcomer); })) Farewell(newcomer);
    });
  }
  listeningPort_ = 0;
}

// Holds the newcomer up until a second has passed since the last one was served, if that one hasn't
// paired; what it does meanwhile waits in its socket. False if the transport stops.
bool NetworkTransport::WaitForTurn() {
  const auto paired = [this] {
    MutexLock lock(clientMutex_);
    return lastServedPaired_;
  };
  const int64_t turn = lastServedNanos_ + kTickNanos;
  MutexLock lock(shutdownMutex_);
  while (running_ && lastServedNanos_ != 0 && !paired() && clock_.NowNanos() < turn) {
    clock_.WaitUntil(shutdownCv_, lock, turn);
  }
  return running_;
}

// Takes the newcomer in the old client's place, whoever it is.
void NetworkTransport::Welcome(const Connection& newcomer) {
  lastServedNanos_ = clock_.NowNanos();
  PluginLog(kLog, kLogInfo, "Client connected fd=%lld ip=%{public}s — awaiting ClientHello",
            newcomer->Number(), AddressText(newcomer->Peer().address).c_str());
  Connection old;
  {
    MutexLock lock(clientMutex_);
    if (!running_) return;
    peerKnown_ = false;
    lastServedPaired_ = false;
    peer_ = newcomer->Peer();
    old = std::exchange(client_, newcomer);
  }
  if (old) {
    PluginLog(kLog, kLogInfo, "Replaced old client fd=%lld", old->Number());
    old->Disconnect();
  }
  WakeWaiters();
  JoinIfRunning(readThread_);
  readThread_ = StartThread("read thread", [this, newcomer] { ReadThread(newcomer); });
  JoinIfRunning(heartbeatThread_);
  heartbeatThread_ = StartThread("heartbeat loop", [this, newcomer] { HeartbeatLoop(newcomer); });
}

// ---- One client --------------------------------------------------------------------------------

void NetworkTransport::ReadThread(const Connection& connection) {
  RunGuarded(kLog, "read thread", [&] { Serve(connection); });
  Farewell(connection);
}

void NetworkTransport::Serve(const Connection& connection) {
  if (DoPairingHandshake(connection, callables_.createPairingDialog).empty()) {
    PluginLog(kLog, kLogInfo, "control: pair handshake failed fd=%lld — dropping",
              connection->Number());
  } else if (Admit(connection)) {
    if (callables_.onNewClient) callables_.onNewClient();
    {
      MutexLock lock(transmitMutex_);
      TellTransmitState(AnyInstanceRunning());
    }
    RunControlReadLoop(
        [&connection](std::span<std::byte> buffer) { return connection->Receive(buffer); },
        callables_.onCommand, running_);
  }
}

// Opens media and status to the connection that has just proved itself; false if another has taken
// its place meanwhile.
bool NetworkTransport::Admit(const Connection& connection) {
  {
    MutexLock lock(clientMutex_);
    if (client_ != connection) return false;
    peerKnown_ = true;
    lastServedPaired_ = true;
  }
  WakeWaiters();
  return true;
}

void NetworkTransport::Farewell(const Connection& connection) {
  Connection current;
  {
    MutexLock lock(clientMutex_);
    current = client_;
    if (current == connection) {
      client_ = nullptr;
      peerKnown_ = false;
    }
  }
  connection->Disconnect();
  WakeWaiters();
  if (current == connection) {
    PluginLog(kLog, kLogInfo, "control read loop exit fd=%lld — closed + peer cleared",
              connection->Number());
  } else {
    PluginLog(kLog, kLogInfo,
              "control read loop exit fd=%lld — stale (current=%lld), already handed off",
              connection->Number(), current ? current->Number() : -1);
  }
}

void NetworkTransport::HeartbeatLoop(const Connection& connection) {
  // A fixed grid: a late tick doesn't move the later ones.
  int64_t next = clock_.NowNanos() + kTickNanos;
  PluginLog(kLog, kLogInfo, "HeartbeatLoop: START fd=%lld", connection->Number());
  int ticks = 0;
  for (; running_; next += kTickNanos) {
    const bool current = WaitForTick(next, connection);
    if (!running_) break;
    ++ticks;
    if (!current) {
      const Connection successor = CurrentClient();
      PluginLog(kLog, kLogInfo, "HeartbeatLoop: EXIT fd=%lld — replaced by fd=%lld (tick=%d)",
                connection->Number(), successor ? successor->Number() : -1, ticks);
      break;
    }
    const bool sent = connection->SendMessage(kHeartbeat, {});
    PluginLog(kLog, kLogDebug, "HeartbeatLoop: tick=%d fd=%lld send=%{public}s", ticks,
              connection->Number(), sent ? "ok" : "FAIL");
    if (!sent) break;
  }
  PluginLog(kLog, kLogInfo, "HeartbeatLoop: END fd=%lld after %d ticks", connection->Number(),
            ticks);
}

// Waits for the tick, or until the connection isn't the client any more; true if it still is. What
// the phone hasn't taken yet goes out as soon as it reads on.
bool NetworkTransport::WaitForTick(int64_t tickNanos, const Connection& connection) {
  MutexLock lock(shutdownMutex_);
  while (running_ && IsCurrent(connection) && clock_.NowNanos() < tickNanos) {
    int64_t wakeNanos = tickNanos;
    if (connection->Flush()) wakeNanos = std::min(tickNanos, clock_.NowNanos() + kFlushNanos);
    clock_.WaitUntil(shutdownCv_, lock, wakeNanos);
  }
  return IsCurrent(connection);
}

// ---- The host's transmit state -----------------------------------------------------------------

void NetworkTransport::TransmitStatePollLoop() {
  PluginLog(kLog, kLogInfo, "TransmitStatePollLoop: START");
  int64_t next = clock_.NowNanos() + kTickNanos;
  while (running_) {
    {
      MutexLock lock(shutdownMutex_);
      while (running_ && clock_.NowNanos() < next) clock_.WaitUntil(shutdownCv_, lock, next);
    }
    if (!running_) break;
    PollTransmitState();
    next = clock_.NowNanos() + kTickNanos;
  }
  PluginLog(kLog, kLogInfo, "TransmitStatePollLoop: END");
}

// Going active is told at once, going inactive after three polls in a row: a short gap in the
// host's preview doesn't make the phone flicker.
void NetworkTransport::PollTransmitState() {
  MutexLock lock(transmitMutex_);
  if (AnyInstanceRunning()) {
    inactiveTicks_ = 0;
    if (transmitActive_) return;
    PluginLog(kLog, kLogInfo, "transmit: edge inactive → active");
    TellTransmitState(true);
    return;
  }
  if (!transmitActive_) return;
  const int32_t ticks = ++inactiveTicks_;
  if (ticks < kInactiveTicksToTell) return;
  PluginLog(kLog, kLogInfo, "transmit: edge active → inactive after %d ticks", ticks);
  TellTransmitState(false);
}

void NetworkTransport::TellTransmitState(bool active) {
  transmitActive_ = active;
  inactiveTicks_ = 0;
  const std::byte payload{active ? uint8_t{1} : uint8_t{0}};
  (void)SendControl(kTransmitState, {&payload, 1});
}

// ---- Sending -----------------------------------------------------------------------------------

bool NetworkTransport::SendControl(uint8_t opcode, std::span<const std::byte> payload) {
  Connection client;
  bool known = false;
  {
    MutexLock lock(clientMutex_);
    client = client_;
    known = peerKnown_;
  }
  if (!known && !AllowedBeforePairing(opcode)) {
    LogPeerNotKnown(opcode);
    return false;
  }
  if (!client) {
    PluginLog(kLog, kLogDebug, "SendControl opcode=0x%02x: SKIP — fd invalid", opcode);
    return false;
  }
  return client->SendMessage(opcode, payload);
}

DatagramsTaken NetworkTransport::SendDatagrams(Datagrams datagrams, uint16_t port) {
  DatagramsTaken taken;
  const std::optional<uint32_t> address = PairedAddress();
  if (!address || !udpSocket_) return taken;
  while (!datagrams.empty()) {
    size_t sent = 0;
    const DatagramSocket::SendResult result =
        udpSocket_->SendMany(datagrams, {*address, port}, sent);
    taken.count += sent;
    for (const std::span<const std::byte> one : datagrams.first(sent)) taken.bytes += one.size();
    if (sent > 0) udpFailures_ = 0;
    if (result == DatagramSocket::SendResult::Sent) break;
    NoteRefusal(result, port);
    datagrams = datagrams.subspan(sent + 1);
  }
  return taken;
}

// Asks for a key frame once a run of failures.
void NetworkTransport::NoteRefusal(DatagramSocket::SendResult result, uint16_t port) {
  if (result == DatagramSocket::SendResult::BufferFull) {
    PluginLog(kLog, kLogDebug, "UDP drop — kernel buffer full");
  } else {
    PluginLog(kLog, kLogError, "sendto port=%u failed: %s", port, ErrorText().c_str());
  }
  const uint32_t failures = ++udpFailures_;
  if (failures != kFailuresToAsk || !callables_.onIdrRequest) return;
  PluginLog(kLog, kLogInfo, "UDP: %d consecutive send failures — requesting IDR", int(failures));
  callables_.onIdrRequest();
}

NetworkTransport::Connection NetworkTransport::CurrentClient() const {
  MutexLock lock(clientMutex_);
  return client_;
}

std::optional<uint32_t> NetworkTransport::PairedAddress() const {
  if (!peerKnown_) return std::nullopt;
  MutexLock lock(clientMutex_);
  if (!peerKnown_) return std::nullopt;
  return peer_.address;
}

std::string NetworkTransport::PeerAddressText() const {
  const std::optional<uint32_t> address = PairedAddress();
  return address ? AddressText(*address) : std::string();
}
