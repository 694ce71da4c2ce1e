#include "session/shared_transport.h"

#include <algorithm>
#include <utility>

#include "net/control_protocol.h"
#include "net/media_datagram.h"
#include "session/transmit_instance.h"
#include "support/control_bridge.h"
#include "support/host_keys.h"
#include "support/little_endian.h"
#include "support/paths.h"
#include "support/plugin_log.h"

using namespace Veldrift;

namespace {

constexpr LogCategory kLog{kLogSubsystem, "shared"};
constexpr int32_t kMaxQuality = 100;
constexpr int32_t kHighestGopMode = 3;

}  // namespace

SharedTransport& SharedTransport::Get() {
  // It may have to log while it dies: what the log needs is built first, and so outlives it.
  (void)GetAppSupportDir();
  static SharedTransport transport;
  return transport;
}

SharedTransport::SharedTransport(Clock& clock) : clock_(clock), transport_(clock), pacer_(clock) {}

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
  const uint16_t port = portForTests_.value_or(host.controlPort);
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
  return [this, port](std::span<const std::byte> datagram) {
    return transport_.SendDatagram(datagram, port);
  };
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
}

// ---- Instances ---------------------------------------------------------------------------------

void SharedTransport::Acquire(TransmitInstance* instance) {
  EnsureStarted();
  {
    MutexLock lock(instancesMutex_);
    instances_.push_back(instance);
    PluginLog(kLog, kLogInfo, "acquire: instance=%p count=%zu", static_cast<void*>(instance),
              instances_.size());
  }
  if (PeerKnown() && hasClientSettings_) {
    PluginLog(kLog, kLogInfo, "acquire: replaying cached client settings into new instance");
    try {
      ReplaySettings(*instance);
    } catch (...) {
      // The instance's constructor fails with this, so nobody else takes it off the list.
      Release(instance);
      throw;
    }
  }
}

// A remembered VBR mode is not replayed, nor is the engine.
void SharedTransport::ReplaySettings(TransmitInstance& instance) {
  const ClientSettings settings = GetClientSettings();
  const auto replay = [&instance](uint8_t opcode, std::initializer_list<int32_t> bytes) {
    std::vector<std::byte> payload;
    for (const int32_t byte : bytes) payload.push_back(std::byte(byte & 0xFF));
    instance.HandleControlCommand(opcode, payload);
  };
  if (settings.codec == 0 || settings.codec == 1) replay(kSetCodec, {settings.codec});
  if (settings.hardFrameCap != 0) {
    const int32_t cap = settings.hardFrameCap;
    replay(kSetHardFrameCap, {cap, cap >> 8, cap >> 16, cap >> 24});
  }
  if (settings.shortSideCap > 0) {
    replay(kSetMaxResolution, {settings.shortSideCap, settings.shortSideCap >> 8});
  }
  if (settings.gopMode >= 0 && settings.gopMode <= kHighestGopMode) {
    replay(kSetGopMode, {settings.gopMode});
  }
  if (settings.encoderMode == 0 || settings.encoderMode == 1) {
    replay(kSetEncoderMode, {settings.encoderMode, std::clamp(settings.quality, 0, kMaxQuality)});
  }
}

void SharedTransport::Release(TransmitInstance* instance) {
  MutexLock lock(instancesMutex_);
  const auto found = std::find(instances_.begin(), instances_.end(), instance);
  if (found != instances_.end()) instances_.erase(found);
  PluginLog(kLog, kLogInfo, "release: instance=%p count=%zu", static_cast<void*>(instance),
            instances_.size());
}

bool SharedTransport::AnyInstanceRunning() {
  MutexLock lock(instancesMutex_);
  return std::any_of(instances_.begin(), instances_.end(),
                     [](const TransmitInstance* instance) { return instance->IsRunning(); });
}

// ---- Events of the transport -------------------------------------------------------------------

void SharedTransport::DispatchControlCommand(uint8_t opcode, std::span<const std::byte> payload) {
  if (opcode >= kHostCommandFirst && opcode <= kHostCommandLast) {
    // No lock is held here: neither the sibling module nor the keyboard may hold up the instances.
    if (!CallCtrlBridge(BridgeOperation(opcode - kHostCommandFirst))) SendHostKeys(opcode);
    return;
  }
  MutexLock lock(instancesMutex_);
  for (TransmitInstance* instance : instances_) instance->HandleControlCommand(opcode, payload);
}

void SharedTransport::OnNewClient() {
  {
    MutexLock lock(instancesMutex_);
    for (TransmitInstance* instance : instances_) instance->OnNewClient();
  }
  MutexLock lock(playbackMutex_);
  SendControlByte(kPlaybackState, runningClocks_ > 0 ? 1 : 0);
}

void SharedTransport::OnSendFailures() {
  MutexLock lock(instancesMutex_);
  for (TransmitInstance* instance : instances_) instance->OnUdpFailures();
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

// ---- What is remembered ------------------------------------------------------------------------

void SharedTransport::Remember(std::atomic<int32_t>& field, int32_t value) {
  field = value;
  hasClientSettings_ = true;
}

void SharedTransport::RememberEncoderMode(int32_t mode, int32_t quality) {
  quality_ = quality;
  Remember(encoderMode_, mode);
}

ClientSettings SharedTransport::GetClientSettings() const {
  ClientSettings settings;
  settings.quality = quality_;
  settings.shortSideCap = shortSideCap_;
  settings.codec = codec_;
  settings.gopSize = gopSize_;
  settings.encoderMode = encoderMode_;
  settings.hasClientSettings = hasClientSettings_;
  settings.gopMode = gopMode_;
  return settings;
}

EncoderStatus SharedTransport::GetEncoderStatus() const {
  MutexLock lock(statusMutex_);
  return status_;
}

void SharedTransport::SetEncoderStatus(const EncoderStatus& status) {
  MutexLock lock(statusMutex_);
  status_ = status;
  status_.valid = true;
}
