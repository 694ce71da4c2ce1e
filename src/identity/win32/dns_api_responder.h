// The responder over Windows' DNS API.
#pragma once

#include <memory>

#include "identity/dns_sd_responder.h"
#include "platform/win32/dns_api.h"

namespace Veldrift {

std::unique_ptr<DnsSdResponder> MakeDnsApiResponder(const DnsApi& api);

}  // namespace Veldrift
