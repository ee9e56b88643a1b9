#pragma once
// The TCP connection of a remote port: one file per platform (Rfc2217Socket_posix.cpp,
// Rfc2217Socket_win32.cpp with Winsock). The client only connects; nothing listens.
// The socket is non-blocking: receive never waits, waitReadable and sendAll wait at
// most the time they are given.
#include <cstddef>
#include <cstdint>
#include <string>

namespace netsock {

struct Socket;

// Connects to host:port (a name or a numeric address, IPv4 or IPv6) within timeoutMs.
// On failure returns null and sets why ("connection refused", "timed out", ...).
Socket* connectTcp(const std::string& host, const std::string& port, std::uint32_t timeoutMs, std::string& why);
void closeSocket(Socket* socket);
// Ends the connection in both directions but keeps the socket until closeSocket, so
// that another thread's wait on it ends at once. Safe from any thread.
void shutdownSocket(Socket* socket);

// Waits at most micros for bytes, an end of stream or an error; true when one is there.
bool waitReadable(Socket* socket, std::uint32_t micros);

enum class Received { data, nothing, closed, failed };
// Takes what has arrived, at most capacity bytes, without waiting.
Received receive(Socket* socket, std::uint8_t* buffer, std::size_t capacity, std::size_t& got, std::string& why);

// Sends every byte, waiting at most timeoutMs for room. False (why set) on an error
// or when the time ran out.
bool sendAll(Socket* socket, const std::uint8_t* data, std::size_t length, std::uint32_t timeoutMs, std::string& why);

} // namespace netsock
