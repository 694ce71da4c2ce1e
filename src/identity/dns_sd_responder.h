// The system's DNS-SD responder: what publishes a service on the local network and watches for
// others. The calls, their order and their status numbers are those of Windows' DNS API; a body for
// another system behaves the same.
//
// Real: identity/win32/, identity/posix/ (chosen by CMake). Scripted: tests/identity/.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace Veldrift {

// A call that has started and will report by its callback.
inline constexpr uint32_t kRequestPending = 9506;
// What a browse's last callback says after its cancellation.
inline constexpr uint32_t kErrorCancelled = 1223;

inline constexpr uint16_t kRecordTypePtr = 12;

// What is published. All texts are UTF-8.
struct ServiceDescription {
  std::string instanceName = {};  // label, ".", service type
  std::string hostName = {};
  uint16_t port = 0;
  uint16_t priority = 0;
  uint16_t weight = 0;
  std::vector<std::pair<std::string, std::string>> txt = {};  // keys and values, in their order
};

// The responder's own record of a service; freed by its destructor.
class ServiceInstance {
 public:
  virtual ~ServiceInstance() = default;
  // The full name as the responder holds it; empty if it has none.
  virtual std::string Name() const = 0;
};

struct DnsRecord {
  uint16_t type = 0;
  std::string target;  // of a PTR record: the name that it points to; else empty
};

// Converts the records of a browse result, for whoever still wants them; called at most once, and
// only inside the callback that got it.
using RecordReader = std::function<std::vector<DnsRecord>()>;

// Tells the end of a request, on any thread, also before the request returns. `result` is null, or
// an instance other than the one that the request was for. It can come late, after everybody has
// given up, or never. It answers whether anybody still wanted it: if not, a responder that outlives
// its owner takes a registration back that succeeded.
using RegisterCallback =
    std::function<bool(uint32_t status, std::unique_ptr<ServiceInstance> result)>;
// Tells what a browse found, on a thread of the responder's, any number of times. It can come once
// more after the cancellation.
using BrowseCallback = std::function<void(uint32_t status, const RecordReader& records)>;

using BrowseHandle = void*;  // null: none

// A status other than kRequestPending means that nothing has started and no callback comes.
//
// Threads: calls come from one thread at a time. A callback takes no lock that is held during a
// call.
class DnsSdResponder {
 public:
  virtual ~DnsSdResponder() = default;

  // Null on failure, with the system's number in `error`.
  virtual std::unique_ptr<ServiceInstance> ConstructInstance(const ServiceDescription& service,
                                                             uint32_t& error) = 0;
  // Publishes the instance. A name that is taken is made unique: `result` then has the other name.
  virtual uint32_t Register(ServiceInstance& instance, RegisterCallback callback) = 0;
  virtual uint32_t Deregister(ServiceInstance& instance, RegisterCallback callback) = 0;

  // Watches for services of that type ("_x._tcp.local") until it is cancelled.
  virtual uint32_t Browse(const std::string& serviceType, BrowseCallback callback,
                          BrowseHandle& handle) = 0;
  virtual void BrowseCancel(BrowseHandle handle) = 0;
};

// Null if the system has no responder; the log says so.
std::unique_ptr<DnsSdResponder> CreateDnsSdResponder();

}  // namespace Veldrift
