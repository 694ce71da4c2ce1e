#include "ui/setup_look.h"

#include "ui/setup_layout.h"

namespace Veldrift {

Rgb StaticTextColour(int id, int tag) {
  switch (id) {
    case kTitleId:
    case kNetworkLineId:
      return kPrimaryText;
    case kSubtitleId:
      return kSecondaryText;
    case kEncoderLineId:
    case kInstanceLineId:
      return kMutedText;
    default:
      break;
  }
  switch (tag) {
    case kHeadingTag:
    case kLabelTag:
    case kIconTag:
      return kSecondaryText;
    case kPairedTag:
    case kHintTag:
    case kNoPeersTag:
      return kMutedText;
    case kWarningTag:
      return kDangerRed;
    default:
      return kPrimaryText;
  }
}

ButtonKind KindOfButton(int id) {
  switch (id) {
    case kSaveId:
      return ButtonKind::Primary;
    case kCloseId:
      return ButtonKind::Secondary;
    case kDisclosureId:
      return ButtonKind::Quiet;
    default:
      return ButtonKind::Danger;
  }
}

ButtonLook LookOfButton(ButtonKind kind, bool pressed, bool enabled) {
  ButtonLook look{};
  switch (kind) {
    case ButtonKind::Primary:
      look.text = kWhite;
      look.fill = look.border = pressed ? kAccentBluePressed : kAccentBlue;
      break;
    case ButtonKind::Secondary:
      look = {kPrimaryText, pressed ? Rgb{60, 60, 64} : Rgb{72, 72, 76}, {96, 96, 100}};
      break;
    case ButtonKind::Danger:
      look.text = kWhite;
      look.fill = look.border = pressed ? kDangerRedPressed : kDangerRed;
      break;
    case ButtonKind::Quiet:
      look = {kPrimaryText, pressed ? Rgb{60, 60, 64} : Rgb{52, 52, 56}, {80, 80, 84}};
      break;
  }
  if (!enabled) look.text = kMutedText;
  return look;
}

}  // namespace Veldrift
