#include "identity/service_advertiser.h"

namespace Veldrift {

// No responder is built in yet.
std::unique_ptr<IServiceAdvertiser> CreateServiceAdvertiser() { return nullptr; }

}  // namespace Veldrift
