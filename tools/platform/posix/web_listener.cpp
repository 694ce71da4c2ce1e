#include "tools/platform/posix/web_listener.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Veldrift {

namespace {

constexpr int kBacklog = 32;

void Set(int descriptor, int level, int option, int value) {
  setsockopt(descriptor, level, option, &value, sizeof value);
}

}  // namespace

int OpenWebListener(const Ipv4Endpoint& local, std::string& error) {
  const int descriptor = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  if (descriptor < 0) {
    error = ErrorText();
    return -1;
  }
  Set(descriptor, SOL_SOCKET, SO_REUSEADDR, 1);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = local.address;
  address.sin_port = htons(local.port);
  if (bind(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0 &&
      listen(descriptor, kBacklog) == 0) {
    return descriptor;
  }
  error = ErrorText();
  close(descriptor);
  return -1;
}

uint16_t ListeningPort(int descriptor) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  if (getsockname(descriptor, reinterpret_cast<sockaddr*>(&address), &size) != 0) return 0;
  return ntohs(address.sin_port);
}

void CloseWebListener(int descriptor) { close(descriptor); }

void PrepareLiveConnection(int descriptor, int mostUnsentBytes) {
  Set(descriptor, IPPROTO_TCP, TCP_NODELAY, 1);
  Set(descriptor, IPPROTO_TCP, TCP_NOTSENT_LOWAT, mostUnsentBytes);
}

}  // namespace Veldrift
