#include "ui/status_view.h"

#include <algorithm>

#include "support/log_line.h"
#include "ui/pairing_uri.h"
#include "ui/setup_layout.h"

namespace Veldrift {
namespace {

constexpr size_t kValueColumn = 18;

void AddRow(std::string& view, const std::string& label, std::string value) {
  MakePrintable(value);
  const size_t blanks = kValueColumn - std::min(label.size(), kValueColumn - 1);
  view += label + std::string(blanks, ' ') + value + "\n";
}

void AddHeading(std::string& view, const char* heading) {
  view += "\n";
  view += heading;
  view += "\n";
}

const char* OnOrOff(bool on) { return on ? "on" : "off"; }

void AddPeers(std::string& view, const std::vector<TrustedPeer>& peers) {
  AddHeading(view, "TRUSTED IPHONES");
  if (peers.empty()) view += std::string(kNoPeersText) + "\n";
  for (const TrustedPeer& peer : peers) {
    const std::string paired = PairedLine(peer);
    std::string line = PeerName(peer) + (paired.empty() ? "" : ", " + paired);
    MakePrintable(line);
    view += line + "\n";
  }
}

// A heading stands above its rows, and before the next heading of its column.
void AddPanel(std::string& view, const InstallState& install, const LiveState& live) {
  const auto headings = PanelHeadings();
  for (size_t i = 0; i < headings.size(); ++i) {
    const bool last = i + 1 == headings.size() || headings[i + 1].left != headings[i].left;
    AddHeading(view, headings[i].text);
    for (const PanelRow& row : PanelRows()) {
      if (row.left != headings[i].left || row.top < headings[i].top) continue;
      if (!last && row.top > headings[i + 1].top) continue;
      AddRow(view, row.label,
             IsOfNetwork(row.value) ? NetworkText(row.value, install) : PanelText(row.value, live));
    }
  }
}

}  // namespace

std::string StatusView(const InstallState& install, const LiveState& live,
                       const std::vector<TrustedPeer>& peers) {
  std::string view = "DEVICE\n";
  AddRow(view, "Status", StatusLine(live));
  AddRow(view, "Name", install.identity.name);
  AddRow(view, "Discoverable", OnOrOff(install.discoverable));
  AddRow(view, "HW encoder", OnOrOff(install.asyncHwEncoders));
  AddRow(view, "Encoder", live.encoderName.empty() ? kNothing : live.encoderName);
  AddRow(view, "Instance ID", install.identity.id);
  AddRow(view, "Pairing URI", BuildPairingUri(install.identity));
  AddPeers(view, peers);
  AddPanel(view, install, live);
  return view;
}

}  // namespace Veldrift
