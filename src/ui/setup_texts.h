// What the setup window says of the device, the stream and the trusted phones: from the session's
// records to the exact texts, UTF-8. Pure functions, the same for every view and system; decimal
// signs are points, whatever the host's locale.
//
// Threads: any thread.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "identity/trusted_peers.h"
#include "session/client_settings.h"

namespace Veldrift {

// What the windows look at twice a second: copies, read one by one, so a mix of two moments.
struct LiveState {
  bool connected = false;   // a phone has finished its handshake and stays connected
  bool running = false;     // an instance runs
  std::string phone;        // the phone's address, empty without one
  std::string encoderName;  // of the active encoder, empty without one
  ClientSettings settings;
  ClientTelemetry telemetry;
  EncoderStatus encoder;
};

// ---- The device
// ----------------------------------------------------------------------------------

bool IsStreaming(const LiveState& state);
// The line beside the dot, which is live while IsStreaming.
std::string StatusLine(const LiveState& state);
std::string EncoderLine(const LiveState& state);
std::string InstanceLine(const std::string& installId);

// ---- The panel of live figures
// -------------------------------------------------------------------

// Its values, in the order of their controls' ids.
enum class PanelValue : uint8_t {
  Status,
  Phone,
  Codec,
  Bitrate,
  Resolution,
  Gop,
  FecParity,
  BitrateCeiling,
  MaxResolution,
  Address,
  Interfaces,
  Ports,
  Controller,
  LastReason,
  Phase,
  Loss,
  Backlog,
  OwdTrend,
  RateMode,
  Engine,
  EngineCodec,
  EngineGop,
};
inline constexpr size_t kPanelValues = 22;

// Those of the network tell the machine, not the stream: they are read with the identity.
constexpr bool IsOfNetwork(PanelValue value) {
  return value >= PanelValue::Address && value <= PanelValue::Ports;
}

// Where there is nothing to tell.
inline constexpr char kNothing[] = "—";
// The media ports, and the control port of the first of the hosts; it names that one in all of
// them.
inline constexpr char kPortsText[] = "47100 control · 47101 video · 47102 audio";

// kNothing for those of the network.
std::string PanelText(PanelValue value, const LiveState& state);

// ---- The trusted phones
// --------------------------------------------------------------------------

inline constexpr char kNoPeersText[] = "No iPhones paired yet.";
std::string PeerName(const TrustedPeer& peer);
std::string PairedLine(const TrustedPeer& peer);  // empty if nobody knows when
// Two lists of the same signature look the same.
std::string PeersSignature(const std::vector<TrustedPeer>& peers);

}  // namespace Veldrift
