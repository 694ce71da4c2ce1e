#include "ui/setup_data.h"

#include "encoder/encoder_description.h"
#include "ui/network_texts.h"

namespace Veldrift {

LiveState ReadLiveState(const SharedTransport& transport) {
  LiveState state;
  state.connected = transport.PeerKnown();
  state.running = transport.AnyInstanceRunning();
  state.phone = transport.PeerAddressText();
  state.encoderName = GetActiveEncoderDescription();
  state.settings = transport.GetClientSettings();
  state.telemetry = transport.GetClientTelemetry();
  state.encoder = transport.GetEncoderStatus();
  return state;
}

InstallState ReadInstallState() {
  return {LoadOrCreateInstallIdentity(), EnumerateInterfaces(), IsDiscoverable(),
          IsAsyncHwEncodersEnabled()};
}

std::string NetworkText(PanelValue value, const InstallState& state) {
  switch (value) {
    case PanelValue::Address:
      return NetworkLine(state.interfaces);
    case PanelValue::Interfaces:
      return InterfaceRow(state.interfaces);
    case PanelValue::Ports:
      return kPortsText;
    default:
      return kNothing;
  }
}

}  // namespace Veldrift
