// The one object of the process behind all transmit instances: the transport, the pacer, the list
// of instances, the count of running clocks, and what the setup window shows.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "net/media_sender.h"
#include "net/network_transport.h"
#include "net/pacer.h"
#include "platform/mutex.h"
#include "session/client_settings.h"
#include "session/remembered_settings.h"
#include "session/session_instance.h"

// Threads: any. Commands run on the control read thread, and under instancesMutex_, so a slow
// handler holds up Acquire and Release; the replay of settings in Acquire runs on the host's
// thread, outside the lock. The host itself is never called under it: neither the sibling module
// nor the keyboard may hold up the instances.
class SharedTransport {
 public:
  // Built on first use and never destroyed: when a process ends without Shutdown, its threads may
  // be gone already, and no lock of theirs may be waited for.
  static SharedTransport& Get();

  // Supplies the window that shows pairing codes; set before the first instance.
  void SetPairingDialogFactory(Veldrift::PairingDialogFactory factory);

  // Tests build their own, with a control port of theirs in place of the host's (0: one that the
  // system chooses).
  explicit SharedTransport(Veldrift::Clock& clock = Veldrift::SystemClock(),
                           std::optional<uint16_t> controlPort = std::nullopt);
  ~SharedTransport();

  // Lists the instance, starting the transport for the first one. With a phone connected that has
  // chosen settings, they are run through the instance's command handler.
  void Acquire(ISessionInstance* instance);
  // The transport stays up with no instances.
  void Release(ISessionInstance* instance);
  // Stops pacer and transport; the next Acquire starts them again. A second call does nothing.
  void Shutdown();

  bool SendControl(uint8_t opcode, std::span<const std::byte> payload) {
    return transport_.SendControl(opcode, payload);
  }
  bool SendControlByte(uint8_t opcode, uint8_t value);
  bool PeerKnown() const { return transport_.PeerKnown(); }
  std::string PeerAddressText() const { return transport_.PeerAddressText(); }
  uint16_t ListeningPort() const { return transport_.ListeningPort(); }
  Veldrift::DatagramsTaken SendDatagrams(Veldrift::Datagrams datagrams, uint16_t port) {
    return transport_.SendDatagrams(datagrams, port);
  }
  Veldrift::Pacer& GetPacer() { return pacer_; }
  Veldrift::MediaSender& Sender() { return sender_; }
  Veldrift::Clock& GetClock() { return clock_; }

  // Counts running clocks (+1, -1) into the one playback state, told to the phone as it changes.
  void AdjustRunningClocks(int32_t delta);
  // Tells the phone another playback state than the counted one, for the host's sibling module,
  // which knows better. False if it didn't go out.
  bool PublishPlaybackState(bool playing);

  // An instance has started (+1) or stopped (-1).
  void CountRunningInstances(int32_t delta) { runningInstances_ += delta; }
  // Takes no lock: a window may ask while a phone is greeted or an engine switched.
  bool AnyInstanceRunning() const { return runningInstances_ > 0; }

  Veldrift::RememberedSettings& Settings() { return settings_; }
  ClientSettings GetClientSettings() const { return settings_.Copy(); }
  ClientTelemetry GetClientTelemetry() const { return {}; }
  EncoderStatus GetEncoderStatus() const;
  void SetEncoderStatus(const EncoderStatus& status);

 private:
  void EnsureStarted();
  void Wire();
  Veldrift::Pacer::Sender SenderTo(uint16_t port);
  void DispatchControlCommand(uint8_t opcode, std::span<const std::byte> payload);
  void OnNewClient();
  bool GreetAll() VD_EXCLUDES(instancesMutex_);
  void NudgeHost();
  void OnSendFailures();

  Veldrift::Clock& clock_;
  const std::optional<uint16_t> controlPort_;  // in place of the host's
  Veldrift::PairingDialogFactory createPairingDialog_;

  Veldrift::Mutex instancesMutex_;
  std::vector<ISessionInstance*> instances_ VD_GUARDED_BY(instancesMutex_);
  std::atomic<int32_t> runningInstances_{0};

  std::atomic<bool> started_{false};
  Veldrift::Mutex startMutex_;  // one EnsureStarted or Shutdown at a time

  Veldrift::Mutex playbackMutex_;  // held across the send, so that the phone sees them in order
  int32_t runningClocks_ VD_GUARDED_BY(playbackMutex_) = 0;
  bool playbackState_ VD_GUARDED_BY(playbackMutex_) = false;

  Veldrift::RememberedSettings settings_;

  mutable Veldrift::Mutex statusMutex_;
  EncoderStatus status_ VD_GUARDED_BY(statusMutex_);

  // Last, so that their threads are gone before anything they call into is.
  NetworkTransport transport_;
  Veldrift::Pacer pacer_;
  Veldrift::MediaSender sender_;
};
