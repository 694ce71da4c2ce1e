// Every socket of the system and the threads around them: one control port, at most one phone on
// it, its heartbeat, the host's transmit state, and the last stop of every datagram.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <thread>

#include "identity/service_advertiser.h"
#include "net/control_connection.h"
#include "net/control_reader.h"
#include "net/media_datagram.h"
#include "net/pairing_dialog.h"
#include "platform/mutex.h"
#include "platform/socket.h"
#include "support/clock.h"
#include "support/paths.h"

// What the transport asks of the layers above; set before StartListening. Each may be empty.
struct TransportCallables {
  Veldrift::CommandHandler onCommand;        // on the read thread: each command of the phone
  std::function<void()> onNewClient;         // on the read thread: a phone has paired
  std::function<void()> onIdrRequest;        // on the sender's thread: datagrams keep failing
  std::function<bool()> anyInstanceRunning;  // on the read and poll threads
  Veldrift::PairingDialogFactory createPairingDialog;
};

// One attempt a second is all that protects a pairing code of six digits: behind a connection that
// didn't pair, the next one is served 1 s after it was.
//
// A later connection replaces an earlier one, whether or not it can pair: from its first moment no
// media and no status goes out until it has paired. A stranger is never sent anything but the
// pairing messages and heartbeats: who the client is, whether it has paired and where its datagrams
// go change together, under clientMutex_.
//
// Threads: accept and poll thread while listening; a read and a heartbeat thread a client. Anyone
// may send. StartListening and Stop come from one thread at a time.
class NetworkTransport {
 public:
  explicit NetworkTransport(Veldrift::Clock& clock = Veldrift::SystemClock());
  ~NetworkTransport();
  NetworkTransport(const NetworkTransport&) = delete;
  NetworkTransport& operator=(const NetworkTransport&) = delete;

  void SetCallables(TransportCallables callables) { callables_ = std::move(callables); }

  // Opens the port (0: one that the system chooses) and starts the threads; does nothing if they
  // run. A port or socket that can't be had is logged, and the rest goes on.
  void StartListening(uint16_t controlPort);
  // Ends the connection and all threads. A second call does nothing.
  void Stop();

  // Sends one message to the phone. Before it has paired only the pairing messages and heartbeats
  // pass. False if it didn't go out.
  bool SendControl(uint8_t opcode, std::span<const std::byte> payload);

  // Tries each datagram once, in order, to the paired phone's `port`, and answers what was taken.
  // Five refusals in a row call onIdrRequest once.
  Veldrift::DatagramsTaken SendDatagrams(Veldrift::Datagrams datagrams, uint16_t port);
  // True if the one datagram was taken.
  bool SendDatagram(std::span<const std::byte> bytes, uint16_t port) {
    return SendDatagrams({&bytes, 1}, port).count == 1;
  }

  // A phone has paired and is connected. Gates all media and status.
  bool PeerKnown() const { return peerKnown_; }
  // The paired phone's address, empty if there is none.
  std::string PeerAddressText() const;

  // The port that really listens; 0 until it does.
  uint16_t ListeningPort() const { return listeningPort_; }

  // Runs one of the built-in tests by its name; true if it passed, with one line in `result`.
  static bool RunSelfTest(const std::string& id, std::string& result);

 private:
  using Connection = std::shared_ptr<Veldrift::ControlConnection>;

  void StartAdvertiser(uint16_t controlPort);
  Veldrift::ServiceInfo MakeServiceInfo(bool transmitActive) const;
  bool AnyInstanceRunning() const;

  void AcceptLoop(uint16_t port);
  bool WaitForTurn();
  void Welcome(const Connection& newcomer);
  void ReadThread(const Connection& connection);
  void Serve(const Connection& connection);
  bool Admit(const Connection& connection);
  void Farewell(const Connection& connection);
  void HeartbeatLoop(const Connection& connection);
  bool WaitForTick(int64_t tickNanos, const Connection& connection);
  void TransmitStatePollLoop();
  void PollTransmitState() VD_EXCLUDES(transmitMutex_);
  void TellTransmitState(bool active) VD_REQUIRES(transmitMutex_);

  Connection CurrentClient() const VD_EXCLUDES(clientMutex_);
  bool IsCurrent(const Connection& connection) const { return CurrentClient() == connection; }
  std::optional<uint32_t> PairedAddress() const VD_EXCLUDES(clientMutex_);
  void NoteRefusal(Veldrift::DatagramSocket::SendResult result, uint16_t port);
  void WakeWaiters();

  Veldrift::Clock& clock_;
  const Veldrift::SocketLayer socketLayer_;
  TransportCallables callables_;
  std::thread acceptThread_, readThread_, heartbeatThread_, pollThread_;
  std::atomic<bool> running_{false};

  // Wakes the accept, poll and heartbeat threads at shutdown and at a change of the client. Comes
  // before clientMutex_.
  Veldrift::Mutex shutdownMutex_;
  Veldrift::CondVar shutdownCv_;

  // Guards the client as a whole; held to copy or replace only.
  mutable Veldrift::Mutex clientMutex_;
  Connection client_ VD_GUARDED_BY(clientMutex_);
  Veldrift::Ipv4Endpoint peer_ VD_GUARDED_BY(clientMutex_);
  std::atomic<bool> peerKnown_{false};  // written under clientMutex_, read anywhere
  bool lastServedPaired_ VD_GUARDED_BY(clientMutex_) = true;  // or there was none
  int64_t lastServedNanos_ = 0;                               // the accept thread's

  std::unique_ptr<Veldrift::DatagramSocket> udpSocket_;  // changes only while no thread runs
  std::atomic<uint32_t> udpFailures_{0};
  std::unique_ptr<Veldrift::IServiceAdvertiser> advertiser_;
  std::atomic<uint16_t> listeningPort_{0};

  // Held while the state is decided and sent, so that the phone is left with the latest. Comes
  // before clientMutex_.
  Veldrift::Mutex transmitMutex_;
  bool transmitActive_ VD_GUARDED_BY(transmitMutex_) = false;  // what the phone was told last
  int32_t inactiveTicks_ VD_GUARDED_BY(transmitMutex_) = 0;
};
