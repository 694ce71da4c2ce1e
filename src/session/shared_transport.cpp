#include "session/shared_transport.h"

#include <algorithm>
#include <utility>

#include "net/control_protocol.h"
#include "net/media_datagram.h"
#include "support/control_bridge.h"
#include "support/host_keys.h"
#include "support/paths.h"
#include "support/plugin_log.h"

using namespace Veldrift;

namespace {

constexpr LogCategory kLog{kLogSubsystem, "shared"};
constexpr LogCategory kTransmitLog{kLogSubsystem, "transmit"};

}  // namespace

SharedTransport& SharedTransport::Get() {
  static SharedTransport* const transport = new SharedTransport;
  return *transport;
}

SharedTransport::SharedTransport(Clock& clock, std::optional<uint16_t> controlPort)
    : clock_(clock),
      controlPort_(controlPort),
      transport_(clock),
      pacer_(clock),
      sender_(pacer_, clock) {}

SharedTransport::~SharedTransport() { Shutdown(); }

void SharedTransport::SetPairingDialogFactory(PairingDialogFactory factory) {
  createPairingDialog_ = std::move(factory);
}

// ---- Start and stop ----------------------------------------------------------------------------

void SharedTransport::EnsureStarted() {
  if (started_) return;
  MutexLock lock(startMutex_);
  if (started_) return;
  const HostTraits& host = TraitsOf(DetectHostApplication());
  const uint16_t port = controlPort_.value_or(host.controlPort);
  PluginLog(kLog, kLogInfo, "starting shared transport: host=%{public}s controlPort=%u",
            host.displayText, port);
  Wire();
  try {
    transport_.StartListening(port);
    pacer_.Start(SenderTo(kVideoPort), SenderTo(kAudioPort));
  } catch (...) {
    // A thread couldn't be started: the next instance tries again from nothing.
    pacer_.Stop();
    transport_.Stop();
    throw;
  }
  started_ = true;
}

Pacer::Sender SharedTransport::SenderTo(uint16_t port) {
  return [this, port](Datagrams datagrams) { return SendDatagrams(datagrams, port); };
}

void SharedTransport::Wire() {
  TransportCallables callables;
  callables.onCommand = [this](uint8_t opcode, std::span<const std::byte> payload) {
    DispatchControlCommand(opcode, payload);
  };
  callables.onNewClient = [this] { OnNewClient(); };
  callables.onIdrRequest = [this] { OnSendFailures(); };
  callables.anyInstanceRunning = [this] { return AnyInstanceRunning(); };
  callables.createPairingDialog = createPairingDialog_;
  transport_.SetCallables(std::move(callables));
}

void SharedTransport::Shutdown() {
  MutexLock lock(startMutex_);
  if (!started_.exchange(false)) return;
  PluginLog(kLog, kLogInfo, "SharedTransport::Shutdown — joining pacer + transport threads");
  pacer_.Stop();
  transport_.Stop();
  pacer_.ClearQueue();  // what came in between
}

// ---- Instances ---------------------------------------------------------------------------------

void SharedTransport::Acquire(ISessionInstance* instance) {
  EnsureStarted();
  {
    MutexLock lock(instancesMutex_);
    instances_.push_back(instance);
    PluginLog(kLog, kLogInfo, "acquire: instance=%p count=%zu", static_cast<void*>(instance),
              instances_.size());
  }
  if (PeerKnown() && settings_.Any()) {
    PluginLog(kLog, kLogInfo, "acquire: replaying cached client settings into new instance");
    try {
      settings_.Replay(*instance);
    } catch (...) {
      // The instance's constructor fails with this, so nobody else takes it off the list.
      Release(instance);
      throw;
    }
  }
}

void SharedTransport::Release(ISessionInstance* instance) {
  MutexLock lock(instancesMutex_);
  const auto found = std::find(instances_.begin(), instances_.end(), instance);
  if (found != instances_.end()) instances_.erase(found);
  PluginLog(kLog, kLogInfo, "release: instance=%p count=%zu", static_cast<void*>(instance),
            instances_.size());
}

// ---- Events of the transport -------------------------------------------------------------------

void SharedTransport::DispatchControlCommand(uint8_t opcode, std::span<const std::byte> payload) {
  if (opcode >= kHostCommandFirst && opcode <= kHostCommandLast) {
    if (!CallCtrlBridge(BridgeOperation(opcode - kHostCommandFirst))) SendHostKeys(opcode);
    return;
  }
  MutexLock lock(instancesMutex_);
  for (ISessionInstance* instance : instances_) instance->HandleControlCommand(opcode, payload);
}

// What belongs to the arrival of a phone is done once, whatever the number of instances: a queue
// cleared by the second would lose the picture that the first has just encoded for this phone.
void SharedTransport::OnNewClient() {
  pacer_.ClearQueue();
  if (GreetAll()) NudgeHost();
  MutexLock lock(playbackMutex_);
  SendControlByte(kPlaybackState, runningClocks_ > 0 ? 1 : 0);
}

// False if there is no instance.
bool SharedTransport::GreetAll() {
  MutexLock lock(instancesMutex_);
  for (ISessionInstance* instance : instances_) instance->OnNewClient();
  return !instances_.empty();
}

// A paused host renders, and so pushes, a frame.
void SharedTransport::NudgeHost() {
  PluginLog(kTransmitLog, kLogInfo, "new client nudge (initial frame)");
  if (CallCtrlBridge(BridgeOperation::NewClientNudge)) return;
  PluginLog(kTransmitLog, kLogInfo, "Ctrl bridge unavailable — fallback to keyboard nudge");
  NudgeHostByKeyboard(clock_);
}

void SharedTransport::OnSendFailures() {
  MutexLock lock(instancesMutex_);
  for (ISessionInstance* instance : instances_) instance->OnUdpFailures();
}

bool SharedTransport::SendControlByte(uint8_t opcode, uint8_t value) {
  const std::byte payload{value};
  return SendControl(opcode, {&payload, 1});
}

// ---- Playback state ----------------------------------------------------------------------------

void SharedTransport::AdjustRunningClocks(int32_t delta) {
  MutexLock lock(playbackMutex_);
  runningClocks_ = std::max(runningClocks_ + delta, 0);
  const bool playing = runningClocks_ != 0;
  if (playing == playbackState_) return;
  playbackState_ = playing;
  SendControlByte(kPlaybackState, playing ? 1 : 0);
  PluginLog(kLog, kLogInfo, "playback state -> %d (running clocks=%d)", playing ? 1 : 0,
            runningClocks_);
}

bool SharedTransport::PublishPlaybackState(bool playing) {
  MutexLock lock(playbackMutex_);
  return SendControlByte(kPlaybackState, playing ? 1 : 0);
}

// ---- For the setup window ----------------------------------------------------------------------

EncoderStatus SharedTransport::GetEncoderStatus() const {
  MutexLock lock(statusMutex_);
  return status_;
}

void SharedTransport::SetEncoderStatus(const EncoderStatus& status) {
  MutexLock lock(statusMutex_);
  status_ = status;
  status_.valid = true;
}
