// The remote port's TCP connection on POSIX systems.
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "serial/Rfc2217Socket.h"

struct netsock::Socket {
  int fd;
};

namespace {

using Clock = std::chrono::steady_clock;

std::string errorText(int error) { return error == ECONNREFUSED ? "connection refused" : std::strerror(error); }

int msUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
  return left <= 0 ? 0 : static_cast<int>(left);
}

// One address: a non-blocking connect, waited for at most until deadline. The fd on
// success, -1 with why set otherwise.
int connectOne(const addrinfo* a, Clock::time_point deadline, std::string& why) {
  const int fd = ::socket(a->ai_family, a->ai_socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, a->ai_protocol);
  if (fd < 0) {
    why = std::strerror(errno);
    return -1;
  }
  int error = 0;
  if (::connect(fd, a->ai_addr, a->ai_addrlen) != 0) {
    error = errno;
    if (error == EINPROGRESS) {
      pollfd p{fd, POLLOUT, 0};
      int ready;
      do {
        ready = ::poll(&p, 1, msUntil(deadline));
      } while (ready < 0 && errno == EINTR);
      socklen_t len = sizeof error;
      if (ready <= 0)
        error = ETIMEDOUT;
      else if (getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &len) != 0)
        error = errno;
    }
  }
  if (error != 0) {
    why = error == ETIMEDOUT ? "timed out" : errorText(error);
    ::close(fd);
    return -1;
  }
  // Requests are small and each waits for its answer: no Nagle delay.
  const int one = 1;
  setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
  return fd;
}

} // namespace

namespace netsock {

Socket* connectTcp(const std::string& host, const std::string& port, std::uint32_t timeoutMs, std::string& why) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  const int rc = getaddrinfo(host.c_str(), port.c_str(), &hints, &list);
  if (rc != 0) {
    why = gai_strerror(rc);
    return nullptr;
  }
  int fd = -1;
  for (const addrinfo* a = list; a != nullptr && fd < 0; a = a->ai_next) fd = connectOne(a, deadline, why);
  freeaddrinfo(list);
  return fd < 0 ? nullptr : new Socket{fd};
}

void closeSocket(Socket* socket) {
  if (socket == nullptr) return;
  ::close(socket->fd);
  delete socket;
}

void shutdownSocket(Socket* socket) { ::shutdown(socket->fd, SHUT_RDWR); }

bool waitReadable(Socket* socket, std::uint32_t micros) {
  pollfd p{socket->fd, POLLIN, 0};
  const timespec wait{static_cast<time_t>(micros / 1000000), static_cast<long>(micros % 1000000) * 1000};
  return ::ppoll(&p, 1, &wait, nullptr) > 0;
}

Received receive(Socket* socket, std::uint8_t* buffer, std::size_t capacity, std::size_t& got, std::string& why) {
  got = 0;
  for (;;) {
    const ssize_t r = ::recv(socket->fd, buffer, capacity, 0);
    if (r > 0) {
      got = static_cast<std::size_t>(r);
      return Received::data;
    }
    if (r == 0) return Received::closed;
    if (errno == EINTR) continue;
    if (errno == EAGAIN || errno == EWOULDBLOCK) return Received::nothing;
    why = errorText(errno);
    return Received::failed;
  }
}

bool sendAll(Socket* socket, const std::uint8_t* data, std::size_t length, std::uint32_t timeoutMs, std::string& why) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
  std::size_t done = 0;
  while (done < length) {
    const ssize_t w = ::send(socket->fd, data + done, length - done, MSG_NOSIGNAL);
    if (w > 0) {
      done += static_cast<std::size_t>(w);
      continue;
    }
    if (w < 0 && errno == EINTR) continue;
    if (w < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
      why = errorText(errno);
      return false;
    }
    pollfd p{socket->fd, POLLOUT, 0};
    const int left = msUntil(deadline);
    if (left == 0 || (::poll(&p, 1, left) == 0 && msUntil(deadline) == 0)) {
      why = "the server takes no more data";
      return false;
    }
  }
  return true;
}

} // namespace netsock
