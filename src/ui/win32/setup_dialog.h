// The setup window on Windows, as one object for as long as the window lives: its controls, what
// they show, and what the user does with them.
//
// Threads: the dialog's own, for everything.
#pragma once

#include <array>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "identity/trusted_peers.h"
#include "session/shared_transport.h"
#include "ui/qr_code.h"
#include "ui/setup_data.h"
#include "ui/setup_layout.h"
#include "ui/win32/gdi_handles.h"
#include "ui/win32/setup_resources.h"

namespace Veldrift {

// Posted to the window, brings it to the front.
inline constexpr UINT kRaiseSetupDialog = WM_APP + 1;

// One trusted phone in the list.
struct PeerRow {
  HWND icon = nullptr;
  HWND name = nullptr;
  HWND paired = nullptr;
  HWND forget = nullptr;
  std::string id;
};

// What the window keeps between messages. The window destroys its controls itself.
struct SetupDialogState {
  HWND window = nullptr;
  HWND peersHeading = nullptr;
  std::vector<PeerRow> rows;
  HWND noPeers = nullptr;
  bool advancedOpen = false;
  HWND hint = nullptr;
  int32_t hintTopCollapsed = kHintTopCollapsed;
  int32_t hintTopExpanded = kHintTopExpanded;
  int32_t outerHeightCollapsed = 0;
  int32_t outerHeightExpanded = 0;
  SetupResources resources;
  std::array<Card, kCards> cards = SetupCards();
  QrCode qrCode;
  UniqueBitmap qrBitmap;
  InstallState install;
  std::vector<TrustedPeer> peers;
  std::optional<std::string> peersSignature;  // nothing: the rows are to be made anew
  HWND lastFocus = nullptr;                   // of the controls, while another window has the focus
};

// What its owner hears of it.
struct SetupDialogEvents {
  std::function<void()> onRaised;
  std::function<void()> onDestroyed;  // the window goes, whoever closed it
};

class SetupDialog {
 public:
  SetupDialog(SharedTransport& transport, SetupDialogEvents events)
      : transport_(transport), events_(std::move(events)) {}
  SetupDialog(const SetupDialog&) = delete;
  SetupDialog& operator=(const SetupDialog&) = delete;

  // The window, filled and not shown yet; null if the system refuses it. Once.
  HWND Make();
  void Appear();

 private:
  static LRESULT CALLBACK WindowProcedure(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  LRESULT OnMessage(HWND window, UINT message, WPARAM wParam, LPARAM lParam);
  LRESULT OnControlColour(UINT message, HDC context, HWND control) const;
  void OnDestroy();

  // setup_controls.cpp: making, showing and hiding.
  void MakeControls();
  HWND MakeControl(const ControlTraits& traits);
  struct Child {
    const wchar_t* kind;  // its class
    DWORD style;
    int id;
    Place place;
    FontRole font;
    int tag;
  };
  HWND MakeChild(const Child& child, const std::wstring& text);
  void MakePanel();
  void MeasureHeights();
  void SetAdvancedVisible(bool show);
  void DestroyPeerRows();
  void MakePeerRows();

  // setup_refresh.cpp: what they show.
  HWND Control(int id) const { return GetDlgItem(state_.window, id); }
  void SetTextIfChanged(HWND control, const std::string& text);
  void RefreshIdentity();
  void RefreshStats();
  void RefreshPeers();
  void ShowQrCode();
  void TakeQrBitmap(UniqueBitmap bitmap);

  // setup_actions.cpp: what the user does, by WM_COMMAND.
  void OnCommand(int id, int code);
  void OnEnter();
  void SaveName();
  void ToggleDiscoverable();
  void ToggleHwEncoders();
  void ToggleAdvanced();
  void Forget(size_t row);
  void Raise();
  void OnActivate(bool active);
  void RestoreFocus();

  SharedTransport& transport_;
  const SetupDialogEvents events_;
  SetupDialogState state_;
};

}  // namespace Veldrift
