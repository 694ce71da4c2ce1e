// Between the host stand-in and its sibling module, VeldriftCtrl.acsrf (in After Effects
// VeldriftAE.aex): how the sibling gets at the host's timeline. To the plug-in it shows what every
// sibling shows, vd_ctrl_bridge_get.
#pragma once

#include <cstdint>

extern "C" {

// Carries out one operation of the bridge; 0: done. Any thread.
typedef int32_t (*VdHostHandler)(int32_t operation);

// The sibling's export: from now on it hands its operations to `handler`, which stays good until
// the process ends.
typedef void (*VdAttachHost)(VdHostHandler handler);

}  // extern "C"

inline constexpr const char* kVdAttachHostExport = "vd_ctrl_attach_host";
