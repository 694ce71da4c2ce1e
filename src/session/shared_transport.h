// The one object of the process behind all transmit instances: the transport, the pacer, the list
// of instances, and what the phone chose last.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "net/network_transport.h"
#include "net/pacer.h"
#include "platform/mutex.h"
#include "session/client_settings.h"

class TransmitInstance;

// Threads: any. Commands run on the control read thread, and under instancesMutex_, so a slow
// handler holds up Acquire, Release and AnyInstanceRunning; the replay of settings in Acquire runs
// on the host's thread, outside the lock.
class SharedTransport {
 public:
  // Built on first use, destroyed at the process's end.
  static SharedTransport& Get();

  // Supplies the window that shows pairing codes; set before the first instance.
  void SetPairingDialogFactory(Veldrift::PairingDialogFactory factory);

  // Tests build their own.
  explicit SharedTransport(Veldrift::Clock& clock = Veldrift::SystemClock());
  ~SharedTransport();

  // Lists the instance, starting the transport for the first one. With a phone connected that has
  // chosen settings, they are run through the instance's command handler.
  void Acquire(TransmitInstance* instance);
  // The transport stays up with no instances.
  void Release(TransmitInstance* instance);
  // Stops pacer and transport; the next Acquire starts them again. A second call does nothing.
  void Shutdown();

  bool SendControl(uint8_t opcode, std::span<const std::byte> payload) {
    return transport_.SendControl(opcode, payload);
  }
  bool SendControlByte(uint8_t opcode, uint8_t value);
  bool PeerKnown() const { return transport_.PeerKnown(); }
  std::string PeerAddressText() const { return transport_.PeerAddressText(); }
  uint16_t ListeningPort() const { return transport_.ListeningPort(); }
  Veldrift::Pacer& GetPacer() { return pacer_; }
  Veldrift::Clock& GetClock() { return clock_; }

  // The streams' numbers: shared by all instances, never reset.
  struct StreamNumbers {
    std::atomic<uint16_t> frameNumber{0};
    std::atomic<uint32_t> sequence{0};
  };
  StreamNumbers video, audio;

  // Counts running clocks (+1, -1) into the one playback state, told to the phone as it changes.
  void AdjustRunningClocks(int32_t delta);
  bool AnyInstanceRunning();

  void RememberCodec(int32_t codec) { Remember(codec_, codec); }
  void RememberGopMode(int32_t mode) { Remember(gopMode_, mode); }
  void RememberGopSize(int32_t frames) { Remember(gopSize_, frames); }
  void RememberShortSideCap(int32_t cap) { Remember(shortSideCap_, cap); }
  void RememberEncoderMode(int32_t mode, int32_t quality);
  ClientSettings GetClientSettings() const;
  ClientTelemetry GetClientTelemetry() const { return {}; }
  EncoderStatus GetEncoderStatus() const;
  void SetEncoderStatus(const EncoderStatus& status);

 private:
  friend class TransportProbe;  // tests choose the port

  void EnsureStarted();
  void Wire();
  Veldrift::Pacer::Sender SenderTo(uint16_t port);
  void DispatchControlCommand(uint8_t opcode, std::span<const std::byte> payload);
  void OnNewClient();
  void OnSendFailures();
  void ReplaySettings(TransmitInstance& instance);
  void Remember(std::atomic<int32_t>& field, int32_t value);

  Veldrift::Clock& clock_;
  std::optional<uint16_t> portForTests_;  // instead of the host's
  Veldrift::PairingDialogFactory createPairingDialog_;

  Veldrift::Mutex instancesMutex_;
  std::vector<TransmitInstance*> instances_ VD_GUARDED_BY(instancesMutex_);

  std::atomic<bool> started_{false};
  Veldrift::Mutex startMutex_;  // one EnsureStarted or Shutdown at a time

  Veldrift::Mutex playbackMutex_;  // held across the send, so that the phone sees them in order
  int32_t runningClocks_ VD_GUARDED_BY(playbackMutex_) = 0;
  bool playbackState_ VD_GUARDED_BY(playbackMutex_) = false;

  std::atomic<int32_t> quality_{-1}, shortSideCap_{0}, codec_{-1}, gopSize_{0}, gopMode_{-1},
      encoderMode_{-1};
  std::atomic<bool> hasClientSettings_{false};

  mutable Veldrift::Mutex statusMutex_;
  EncoderStatus status_ VD_GUARDED_BY(statusMutex_);

  // Last, so that their threads are gone before anything they call into is.
  NetworkTransport transport_;
  Veldrift::Pacer pacer_;
};
