// SetupDialog: what its controls show.
#include <cstring>

#include "ui/pairing_uri.h"
#include "ui/win32/setup_dialog.h"
#include "ui/win32/setup_log.h"

namespace Veldrift {
namespace {

// The pixels as the window system holds them; null if it can't.
UniqueBitmap MakeBitmap(const QrBitmap& picture) {
  BITMAPINFO info{};
  info.bmiHeader.biSize = sizeof info.bmiHeader;
  info.bmiHeader.biWidth = picture.side;
  info.bmiHeader.biHeight = -picture.side;  // from the top down
  info.bmiHeader.biPlanes = 1;
  info.bmiHeader.biBitCount = 32;
  info.bmiHeader.biCompression = BI_RGB;
  void* pixels = nullptr;
  UniqueBitmap bitmap(CreateDIBSection(nullptr, &info, DIB_RGB_COLORS, &pixels, nullptr, 0));
  if (!bitmap || pixels == nullptr) return nullptr;
  std::memcpy(pixels, picture.pixels.data(), picture.pixels.size() * sizeof picture.pixels[0]);
  return bitmap;
}

void SetChecked(HWND checkBox, bool checked) {
  SendMessageW(checkBox, BM_SETCHECK, checked ? BST_CHECKED : BST_UNCHECKED, 0);
}

}  // namespace

// An equal text isn't written again: that would show as a flicker.
void SetupDialog::SetTextIfChanged(HWND control, const std::string& text) {
  const std::wstring wide = WideText(text);
  std::array<wchar_t, 512> present;
  const int length = GetWindowTextW(control, present.data(), int(present.size()));
  if (wide != std::wstring_view(present.data(), size_t(length))) {
    SetWindowTextW(control, wide.c_str());
  }
}

void SetupDialog::RefreshIdentity() {
  state_.install = ReadInstallState();
  for (const PanelRow& row : PanelRows()) {
    if (!IsOfNetwork(row.value)) continue;
    SetTextIfChanged(Control(IdOf(row.value)), NetworkText(row.value, state_.install));
  }
  SetTextIfChanged(Control(kInstanceLineId), InstanceLine(state_.install.identity.id));
  SetTextIfChanged(Control(kNameEditId), state_.install.identity.name);
  SetChecked(Control(kDiscoverableId), state_.install.discoverable);
  SetChecked(Control(kEncoderSwitchId), state_.install.asyncHwEncoders);
  ShowQrCode();
}

// What can't be made leaves the picture that is there.
void SetupDialog::ShowQrCode() {
  const std::string uri = BuildPairingUri(state_.install.identity);
  QrCode code = EncodeQrText(uri);
  if (code.size == 0) {
    PluginLog(kSetupLog, kLogInfo, "QR: failed to encode payload (len=%zu)", uri.size());
    return;
  }
  state_.qrCode = std::move(code);
  const std::optional<QrBitmap> picture = RenderQrToBitmap(state_.qrCode, kQrSide);
  UniqueBitmap bitmap = picture ? MakeBitmap(*picture) : nullptr;
  if (bitmap) {
    TakeQrBitmap(std::move(bitmap));
  } else {
    PluginLog(kSetupLog, kLogInfo, "QR: RenderQrToBitmap failed");
  }
}

// The control gives its former bitmap back. A newer one of the system's shows a copy of ours, so
// that both are to be deleted.
void SetupDialog::TakeQrBitmap(UniqueBitmap bitmap) {
  const LRESULT given = SendMessageW(Control(kQrPictureId), STM_SETIMAGE, IMAGE_BITMAP,
                                     reinterpret_cast<LPARAM>(bitmap.get()));
  const UniqueBitmap before = std::exchange(state_.qrBitmap, std::move(bitmap));
  auto* const former = reinterpret_cast<HGDIOBJ>(given);
  if (former != nullptr && former != before.get()) DeleteObject(former);
}

void SetupDialog::RefreshStats() {
  const LiveState live = ReadLiveState(transport_);
  SetTextIfChanged(Control(kStatusTextId), StatusLine(live));
  const HWND dot = Control(kStatusDotId);
  if ((GetWindowLongPtrW(dot, GWLP_USERDATA) != 0) != IsStreaming(live)) {
    SetWindowLongPtrW(dot, GWLP_USERDATA, IsStreaming(live) ? 1 : 0);
    InvalidateRect(dot, nullptr, FALSE);
  }
  SetTextIfChanged(Control(kEncoderLineId), EncoderLine(live));
  for (const PanelRow& row : PanelRows()) {
    if (IsOfNetwork(row.value)) continue;
    SetTextIfChanged(Control(IdOf(row.value)), PanelText(row.value, live));
  }
}

void SetupDialog::RefreshPeers() {
  std::vector<TrustedPeer> peers = ListTrustedPeers();
  std::string signature = PeersSignature(peers);
  if (state_.peersSignature == signature) return;
  state_.peersSignature = std::move(signature);
  state_.peers = std::move(peers);
  DestroyPeerRows();
  MakePeerRows();
  // The focus may have been on a button that is gone.
  if (GetActiveWindow() == state_.window) RestoreFocus();
}

}  // namespace Veldrift
