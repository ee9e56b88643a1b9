// The remote port's TCP connection on Windows (Winsock 2, linked with ws2_32).
#include <winsock2.h>
#include <ws2tcpip.h>

#include <chrono>
#include <mutex>

#include "serial/Rfc2217Socket.h"

struct netsock::Socket {
  SOCKET s;
};

namespace {

using Clock = std::chrono::steady_clock;

// Winsock is started once per process and left running until the process ends.
bool startWinsock(std::string& why) {
  static std::once_flag once;
  static int result = 0;
  std::call_once(once, [] {
    WSADATA data;
    result = WSAStartup(MAKEWORD(2, 2), &data);
  });
  if (result != 0) why = "Winsock did not start (" + std::to_string(result) + ")";
  return result == 0;
}

std::string errorText(int error) {
  switch (error) {
  case WSAECONNREFUSED: return "connection refused";
  case WSAETIMEDOUT: return "timed out";
  case WSAECONNRESET: return "connection reset by the server";
  case WSAECONNABORTED: return "connection aborted";
  case WSAENETUNREACH:
  case WSAEHOSTUNREACH: return "host unreachable";
  default: return "Winsock error " + std::to_string(error);
  }
}

timeval timevalOf(std::uint64_t micros) {
  timeval t;
  t.tv_sec = static_cast<long>(micros / 1000000);
  t.tv_usec = static_cast<long>(micros % 1000000);
  return t;
}

std::uint64_t microsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
  return left <= 0 ? 0 : static_cast<std::uint64_t>(left);
}

// select() on one socket: 1 ready, 0 time out, -1 error.
int selectOne(SOCKET s, bool forWrite, std::uint64_t micros) {
  fd_set set;
  FD_ZERO(&set);
  FD_SET(s, &set);
  fd_set errors;
  FD_ZERO(&errors);
  FD_SET(s, &errors);
  timeval t = timevalOf(micros);
  return select(0, forWrite ? nullptr : &set, forWrite ? &set : nullptr, &errors, &t);
}

SOCKET connectOne(const addrinfo* a, Clock::time_point deadline, std::string& why) {
  SOCKET s = socket(a->ai_family, a->ai_socktype, a->ai_protocol);
  if (s == INVALID_SOCKET) {
    why = errorText(WSAGetLastError());
    return INVALID_SOCKET;
  }
  u_long nonBlocking = 1;
  ioctlsocket(s, FIONBIO, &nonBlocking);
  int error = 0;
  if (connect(s, a->ai_addr, static_cast<int>(a->ai_addrlen)) != 0) {
    error = WSAGetLastError();
    if (error == WSAEWOULDBLOCK) {
      // A failed connect shows in the error set, a completed one in the write set.
      const int ready = selectOne(s, true, microsUntil(deadline));
      int len = sizeof error;
      if (ready <= 0)
        error = WSAETIMEDOUT;
      else if (getsockopt(s, SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&error), &len) != 0)
        error = WSAGetLastError();
    }
  }
  if (error != 0) {
    why = errorText(error);
    closesocket(s);
    return INVALID_SOCKET;
  }
  // Requests are small and each waits for its answer: no Nagle delay.
  const BOOL one = TRUE;
  setsockopt(s, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&one), sizeof one);
  return s;
}

} // namespace

namespace netsock {

Socket* connectTcp(const std::string& host, const std::string& port, std::uint32_t timeoutMs, std::string& why) {
  if (!startWinsock(why)) return nullptr;
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_protocol = IPPROTO_TCP;
  addrinfo* list = nullptr;
  const int rc = getaddrinfo(host.c_str(), port.c_str(), &hints, &list);
  if (rc != 0) {
    why = "host not found (" + std::to_string(rc) + ")";
    return nullptr;
  }
  SOCKET s = INVALID_SOCKET;
  for (const addrinfo* a = list; a != nullptr && s == INVALID_SOCKET; a = a->ai_next) s = connectOne(a, deadline, why);
  freeaddrinfo(list);
  return s == INVALID_SOCKET ? nullptr : new Socket{s};
}

void closeSocket(Socket* socket) {
  if (socket == nullptr) return;
  closesocket(socket->s);
  delete socket;
}

void shutdownSocket(Socket* socket) { shutdown(socket->s, SD_BOTH); }

bool waitReadable(Socket* socket, std::uint32_t micros) { return selectOne(socket->s, false, micros) > 0; }

Received receive(Socket* socket, std::uint8_t* buffer, std::size_t capacity, std::size_t& got, std::string& why) {
  got = 0;
  const int r = recv(socket->s, reinterpret_cast<char*>(buffer), static_cast<int>(capacity), 0);
  if (r > 0) {
    got = static_cast<std::size_t>(r);
    return Received::data;
  }
  if (r == 0) return Received::closed;
  const int error = WSAGetLastError();
  if (error == WSAEWOULDBLOCK) return Received::nothing;
  why = errorText(error);
  return Received::failed;
}

bool sendAll(Socket* socket, const std::uint8_t* data, std::size_t length, std::uint32_t timeoutMs, std::string& why) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  std::size_t done = 0;
  while (done < length) {
    const int w = send(socket->s, reinterpret_cast<const char*>(data + done), static_cast<int>(length - done), 0);
    if (w > 0) {
      done += static_cast<std::size_t>(w);
      continue;
    }
    const int error = WSAGetLastError();
    if (error != WSAEWOULDBLOCK) {
      why = errorText(error);
      return false;
    }
    if (microsUntil(deadline) == 0 || selectOne(socket->s, true, microsUntil(deadline)) <= 0) {
      why = "the server takes no more data";
      return false;
    }
  }
  return true;
}

} // namespace netsock
