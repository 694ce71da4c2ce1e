#include "platform/posix/socket_support.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <chrono>
#include <cstring>

namespace Veldrift {

sockaddr_in ToSystem(const Ipv4Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = endpoint.address;
  address.sin_port = htons(endpoint.port);
  return address;
}

Ipv4Endpoint FromSystem(const sockaddr_in& address) {
  return {address.sin_addr.s_addr, ntohs(address.sin_port)};
}

Descriptor OpenSocket(int type) { return Descriptor(socket(AF_INET, type | SOCK_CLOEXEC, 0)); }

bool Bind(const Descriptor& socket, const Ipv4Endpoint& local) {
  const sockaddr_in address = ToSystem(local);
  return bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool SetNonBlocking(const Descriptor& socket, bool on) {
  const int flags = fcntl(socket.Get(), F_GETFL);
  return fcntl(socket.Get(), F_SETFL, on ? flags | O_NONBLOCK : flags & ~O_NONBLOCK) == 0;
}

void SetOption(const Descriptor& socket, int level, int name, int value) {
  setsockopt(socket.Get(), level, name, &value, sizeof value);
}

bool WaitFor(int descriptor, short events, int64_t timeoutNanos) {
  using std::chrono::nanoseconds;
  using std::chrono::steady_clock;
  const auto deadline = steady_clock::now() + nanoseconds(timeoutNanos);
  pollfd entry{descriptor, events, 0};
  for (;;) {
    const int64_t left = std::max<int64_t>(nanoseconds(deadline - steady_clock::now()).count(), 0);
    const timespec timeout{static_cast<time_t>(left / 1'000'000'000), left % 1'000'000'000};
    const int ready = ppoll(&entry, 1, &timeout, nullptr);
    if (ready > 0) return true;
    if (ready == 0) errno = ETIMEDOUT;
    if (ready == 0 || errno != EINTR) return false;
  }
}

uint16_t LocalPort(const Descriptor& socket) {
  sockaddr_in address{};
  socklen_t length = sizeof address;
  if (getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) return 0;
  return FromSystem(address).port;
}

SocketLayer::SocketLayer() = default;
SocketLayer::~SocketLayer() = default;

std::string ErrorText() {
  const int error = errno;
  char buffer[256] = "";
  std::string text = strerror_r(error, buffer, sizeof buffer);
  text.erase(text.find_last_not_of("\r\n ") + 1);
  return text.empty() ? "errno " + std::to_string(error) : text;
}

}  // namespace Veldrift
