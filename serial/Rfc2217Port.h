#pragma once
// A serial line behind a server that speaks RFC 2217 (ser2net, serial device
// servers), named rfc2217://HOST:PORT. SerialPort uses it in place of the platform's
// device when the name is such a URL: the same calls, with the line settings and
// purges sent to the server as COM-PORT-OPTION commands and the data Telnet-escaped.
//
// Every message names the URL. A connection that is lost, refused, or whose server
// breaks the protocol or leaves a setting unacknowledged is ended and stays ended:
// reads then find nothing, writes fail, and every wait is bounded.
//
// Threads: one thread may read (queued, waitReadable, readSome) while another
// writes; configure and purge may come from either.
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "serial/PortSystem.h"
#include "serial/Rfc2217Protocol.h"

namespace netsock {
struct Socket;
}

class Rfc2217Port {
public:
  static constexpr const char* kScheme = "rfc2217://";
  // How long the connection, the agreement on the COM-PORT-OPTION, and each
  // acknowledgement of a setting may take.
  static constexpr std::uint32_t kConnectTimeoutMs = 5000;
  static constexpr std::uint32_t kAnswerTimeoutMs = 3000;

  static bool isUrl(const std::string& name);
  // Connects, agrees on the COM-PORT-OPTION and sets the line. Null on failure,
  // after a console message naming the URL.
  static Rfc2217Port* open(const std::string& url, const portsys::LineSettings& line);
  ~Rfc2217Port();
  Rfc2217Port(const Rfc2217Port&) = delete;
  Rfc2217Port& operator=(const Rfc2217Port&) = delete;

  const std::string& url() const { return url_; }
  // True once the connection has ended (the reason was printed then).
  bool ended() const { return ended_.load(); }
  // Sends the settings that differ from the ones the server has and waits until
  // each is acknowledged; the input that came before is dropped (it was read at the
  // old settings). False when the connection has ended or ends here.
  bool configure(const portsys::LineSettings& line);
  // The time the server took to acknowledge the first settings, measured at connect.
  std::uint32_t roundTripMicros() const { return roundTrip_; }

  // The platform backends' calls (PortSystem.h), with the same meaning.
  std::uint32_t queued();
  // True when data is queued, or at once when the connection has ended (as a hung-up line).
  bool waitReadable(std::uint32_t micros);
  bool readSome(std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got);
  portsys::WriteResult writeAll(const std::uint8_t* data, std::size_t length);
  // Drops the queued input here and, with PURGE-DATA, in the server; what the server
  // sent before acknowledging the purge is dropped too.
  void purge();

private:
  Rfc2217Port(std::string url, netsock::Socket* socket);
  void pump(std::uint32_t waitMicros);
  void handle(const rfc2217::Event& event);
  bool sendCommands(const std::vector<std::pair<rfc2217::Command, std::uint32_t>>& commands);
  bool awaitAcks(const std::vector<std::pair<rfc2217::Command, std::uint32_t>>& commands,
                 const std::uint32_t (&before)[16]);
  bool send(const std::vector<std::uint8_t>& bytes);
  void lose(const std::string& why);

  const std::string url_;
  netsock::Socket* socket_;
  std::atomic<bool> ended_{false};
  std::mutex receiveLock_; // protocol_, inbox_ and the acknowledgements; taken before sendLock_
  std::mutex sendLock_;
  rfc2217::Protocol protocol_;
  std::vector<std::uint8_t> inbox_; // data bytes not read yet
  bool accepted_ = false;           // the server agreed to the COM-PORT-OPTION
  std::uint32_t ackCount_[16] = {};
  std::uint32_t ackValue_[16] = {};
  bool purgePending_ = false;
  bool haveLine_ = false;
  portsys::LineSettings line_{};
  std::uint32_t roundTrip_ = 0;
};
