// The same pictures as plain UDP fragments, to measure beside: datagrams of the same sizes, each
// with the frame's index (32 bits), its own and their count (16 bits each). No parity, no pacing.
#pragma once

#include "bench/wire/receive.h"
#include "bench/wire/send.h"

namespace Veldrift {

// 0, or 1 after a sentence on the standard error. The logs are those of WireSend and WireReceive.
int BareSend(const WireSendOptions& options);
int BareReceive(const WireReceiveOptions& options);

}  // namespace Veldrift
