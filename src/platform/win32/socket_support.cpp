#include "platform/win32/socket_support.h"

#include "platform/mutex.h"

namespace Veldrift {
namespace {

Mutex layerMutex;
int layerUsers VD_GUARDED_BY(layerMutex) = 0;

}  // namespace

SocketLayer::SocketLayer() {
  MutexLock lock(layerMutex);
  if (layerUsers++ > 0) return;
  WSADATA data{};
  WSAStartup(MAKEWORD(2, 2), &data);
}

SocketLayer::~SocketLayer() {
  MutexLock lock(layerMutex);
  if (--layerUsers == 0) WSACleanup();
}

std::string ErrorText() {
  const int error = WSAGetLastError();
  const std::string text = SystemMessage(static_cast<DWORD>(error));
  return text.empty() ? "WSA error " + std::to_string(error) : text;
}

sockaddr_in ToSystem(const Ipv4Endpoint& endpoint) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = endpoint.address;
  address.sin_port = htons(endpoint.port);
  return address;
}

Ipv4Endpoint FromSystem(const sockaddr_in& address) {
  return {static_cast<uint32_t>(address.sin_addr.s_addr), ntohs(address.sin_port)};
}

OwnedSocket OpenSocket(int type) {
  return OwnedSocket(
      WSASocketW(AF_INET, type, 0, nullptr, 0, WSA_FLAG_OVERLAPPED | WSA_FLAG_NO_HANDLE_INHERIT));
}

void KeepFromChildren(const OwnedSocket& socket) {
  SetHandleInformation(reinterpret_cast<HANDLE>(socket.Get()), HANDLE_FLAG_INHERIT, 0);
}

bool Bind(const OwnedSocket& socket, const Ipv4Endpoint& local) {
  const sockaddr_in address = ToSystem(local);
  return bind(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
}

bool SetNonBlocking(const OwnedSocket& socket) {
  u_long on = 1;
  return ioctlsocket(socket.Get(), static_cast<long>(FIONBIO), &on) == 0;
}

void SetOption(const OwnedSocket& socket, int level, int name, int value) {
  setsockopt(socket.Get(), level, name, reinterpret_cast<const char*>(&value), sizeof value);
}

bool WaitFor(SOCKET socket, WaitKind kind, int64_t timeoutNanos) {
  fd_set watched;
  FD_ZERO(&watched);
  FD_SET(socket, &watched);
  fd_set failed = watched;
  timeval timeout{static_cast<long>(timeoutNanos / 1'000'000'000),
                  static_cast<long>(timeoutNanos % 1'000'000'000 / 1'000)};
  const bool reading = kind == WaitKind::Reading;
  const int ready = select(0, reading ? &watched : nullptr, reading ? nullptr : &watched,
                           reading ? nullptr : &failed, &timeout);
  if (ready == 0) WSASetLastError(WSAETIMEDOUT);
  return ready > 0;
}

uint16_t LocalPort(const OwnedSocket& socket) {
  sockaddr_in address{};
  int length = sizeof address;
  if (getsockname(socket.Get(), reinterpret_cast<sockaddr*>(&address), &length) != 0) return 0;
  return FromSystem(address).port;
}

}  // namespace Veldrift
