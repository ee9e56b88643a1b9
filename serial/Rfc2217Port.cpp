#include "serial/Rfc2217Port.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <utility>

#include "base/Console.h"
#include "serial/Rfc2217Socket.h"

using rfc2217::Command;
using Clock = std::chrono::steady_clock;

namespace {

// Input is taken from the socket only while fewer bytes than this wait to be read,
// so a server that floods a reader that does not read costs bounded memory.
constexpr std::size_t kInboxLimit = 64 * 1024;
// A read ends when this long passes without a byte, as on a local line.
constexpr std::chrono::milliseconds kReadGap{100};

using CommandList = std::vector<std::pair<Command, std::uint32_t>>;

const char* commandName(Command c) {
  switch (c) {
  case Command::setBaudRate: return "SET-BAUDRATE";
  case Command::setDataSize: return "SET-DATASIZE";
  case Command::setParity: return "SET-PARITY";
  case Command::setStopSize: return "SET-STOPSIZE";
  case Command::setControl: return "SET-CONTROL";
  case Command::purgeData: return "PURGE-DATA";
  }
  return "?";
}

// SerialPort's parity code (even, mark, none, odd, space) as RFC 2217 spells it; 0
// for an unknown code, which keeps the server's parity.
std::uint8_t parityValue(std::uint32_t code) {
  static const std::uint8_t table[] = {rfc2217::kParityEven, rfc2217::kParityMark, rfc2217::kParityNone,
                                       rfc2217::kParityOdd, rfc2217::kParitySpace};
  return code < 5 ? table[code] : 0;
}

// SerialPort's stop-bit code (one, one and a half, two); 0 keeps the server's.
std::uint8_t stopValue(std::uint32_t code) {
  static const std::uint8_t table[] = {rfc2217::kStopOne, rfc2217::kStopOneAndHalf, rfc2217::kStopTwo};
  return code < 3 ? table[code] : 0;
}

// host and port of rfc2217://HOST:PORT or rfc2217://[IPv6]:PORT.
bool parseUrl(const std::string& url, std::string& host, std::string& port) {
  const std::string rest = url.substr(std::char_traits<char>::length(Rfc2217Port::kScheme));
  std::size_t colon;
  if (!rest.empty() && rest[0] == '[') {
    const std::size_t close = rest.find(']');
    if (close == std::string::npos || close + 1 >= rest.size() || rest[close + 1] != ':') return false;
    host = rest.substr(1, close - 1);
    colon = close + 1;
  } else {
    colon = rest.rfind(':');
    if (colon == std::string::npos) return false;
    host = rest.substr(0, colon);
  }
  port = rest.substr(colon + 1);
  if (host.empty() || port.empty() || port.size() > 5 || port.find_first_not_of("0123456789") != std::string::npos)
    return false;
  const long number = std::strtol(port.c_str(), nullptr, 10);
  return number >= 1 && number <= 65535;
}

std::uint32_t microsSince(Clock::time_point start) {
  return static_cast<std::uint32_t>(
      std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count());
}

std::uint32_t microsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::microseconds>(deadline - Clock::now()).count();
  return left <= 0 ? 0 : static_cast<std::uint32_t>(left);
}

} // namespace

bool Rfc2217Port::isUrl(const std::string& name) { return name.rfind(kScheme, 0) == 0; }

Rfc2217Port::Rfc2217Port(std::string url, netsock::Socket* socket) : url_(std::move(url)), socket_(socket) {}

Rfc2217Port::~Rfc2217Port() { netsock::closeSocket(socket_); }

Rfc2217Port* Rfc2217Port::open(const std::string& url, const portsys::LineSettings& line) {
  std::string host, service, why;
  if (!parseUrl(url, host, service)) {
    consolePrint("Error opening port: " + url + ": expected rfc2217://HOST:PORT\r\n", url);
    return nullptr;
  }
  netsock::Socket* socket = netsock::connectTcp(host, service, kConnectTimeoutMs, why);
  if (socket == nullptr) {
    consolePrint("Error opening port: " + url + ": " + why + "\r\n", url);
    return nullptr;
  }
  auto* port = new Rfc2217Port(url, socket);
  bool ok;
  {
    std::lock_guard<std::mutex> lock(port->receiveLock_);
    ok = port->send(port->protocol_.greeting());
    // A server may take the connection before it serves it (one that serves one
    // client at a time first finishes with the last), so this wait is the longer one.
    const auto deadline = Clock::now() + std::chrono::milliseconds(kConnectTimeoutMs);
    while (ok && !port->accepted_ && !port->ended_.load()) {
      const std::uint32_t left = microsUntil(deadline);
      if (left == 0) {
        port->lose("the server did not agree to the COM-PORT-OPTION within " + std::to_string(kConnectTimeoutMs) +
                   " ms (is it an RFC 2217 server?)");
        break;
      }
      port->pump(left);
    }
    ok = !port->ended_.load();
  }
  if (ok) ok = port->configure(line);
  if (!ok) {
    delete port;
    return nullptr;
  }
  return port;
}

bool Rfc2217Port::configure(const portsys::LineSettings& line) {
  std::lock_guard<std::mutex> lock(receiveLock_);
  if (ended_.load()) return false;
  CommandList commands;
  if (!haveLine_ || line.baud != line_.baud) commands.emplace_back(Command::setBaudRate, line.baud);
  if (!haveLine_ || line.dataBits != line_.dataBits) commands.emplace_back(Command::setDataSize, line.dataBits);
  const std::uint8_t parity = parityValue(line.parity);
  if (parity != 0 && (!haveLine_ || line.parity != line_.parity)) commands.emplace_back(Command::setParity, parity);
  const std::uint8_t stop = stopValue(line.stopBits);
  if (stop != 0 && (!haveLine_ || line.stopBits != line_.stopBits)) commands.emplace_back(Command::setStopSize, stop);
  if (!commands.empty()) {
    std::uint32_t before[16];
    std::copy(std::begin(ackCount_), std::end(ackCount_), before);
    const auto sent = Clock::now();
    if (!sendCommands(commands) || !awaitAcks(commands, before)) return false;
    if (!haveLine_) roundTrip_ = microsSince(sent);
  }
  haveLine_ = true;
  line_ = line;
  pump(0);
  inbox_.clear();
  return true;
}

bool Rfc2217Port::sendCommands(const CommandList& commands) {
  std::vector<std::uint8_t> bytes;
  for (const auto& c : commands) rfc2217::Protocol::appendCommand(bytes, c.first, c.second);
  return send(bytes);
}

// Waits (receiving) until every command has been acknowledged since `before`. The
// baud rate must come back as asked; the server may answer the other settings with
// its own view of them.
bool Rfc2217Port::awaitAcks(const CommandList& commands, const std::uint32_t (&before)[16]) {
  const auto deadline = Clock::now() + std::chrono::milliseconds(kAnswerTimeoutMs);
  for (const auto& c : commands) {
    const auto index = static_cast<std::size_t>(c.first);
    while (ackCount_[index] == before[index]) {
      if (ended_.load()) return false;
      const std::uint32_t left = microsUntil(deadline);
      if (left == 0) {
        lose(std::string("the server did not acknowledge ") + commandName(c.first) + " " + std::to_string(c.second) +
             " within " + std::to_string(kAnswerTimeoutMs) + " ms");
        return false;
      }
      pump(left);
    }
    if (c.first == Command::setBaudRate && ackValue_[index] != c.second) {
      lose("the server set " + std::to_string(ackValue_[index]) + " baud when asked for " + std::to_string(c.second));
      return false;
    }
  }
  return true;
}

// Takes what the server sent, waiting at most waitMicros for it to begin. Called
// with receiveLock_ held.
void Rfc2217Port::pump(std::uint32_t waitMicros) {
  if (ended_.load() || inbox_.size() >= kInboxLimit) return;
  if (waitMicros != 0 && !netsock::waitReadable(socket_, waitMicros)) return;
  std::uint8_t chunk[4096];
  // A bounded number of chunks per call: a server that never stops sending does not
  // keep a caller here.
  for (int i = 0; i < 16 && inbox_.size() < kInboxLimit && !ended_.load(); ++i) {
    std::size_t got = 0;
    std::string why;
    switch (netsock::receive(socket_, chunk, sizeof chunk, got, why)) {
    case netsock::Received::nothing: return;
    case netsock::Received::closed: lose("the server closed the connection"); return;
    case netsock::Received::failed: lose("connection lost: " + why); return;
    case netsock::Received::data: break;
    }
    protocol_.feed(chunk, got, inbox_);
    const std::vector<std::uint8_t> replies = protocol_.takeReplies();
    if (!replies.empty()) send(replies);
    for (const rfc2217::Event& e : protocol_.takeEvents()) handle(e);
  }
}

void Rfc2217Port::handle(const rfc2217::Event& event) {
  switch (event.kind) {
  case rfc2217::Event::Kind::comPortAccepted: accepted_ = true; break;
  case rfc2217::Event::Kind::comPortRefused: lose("the server refused the COM-PORT-OPTION (RFC 2217)"); break;
  case rfc2217::Event::Kind::nonsense: lose("the server broke the Telnet protocol: " + event.text); break;
  case rfc2217::Event::Kind::ack: {
    const auto index = static_cast<std::size_t>(event.command);
    ++ackCount_[index];
    ackValue_[index] = event.value;
    if (event.command == Command::purgeData && purgePending_) {
      // What came before the acknowledgement was sent before the server purged.
      inbox_.erase(inbox_.begin(), inbox_.begin() + static_cast<std::ptrdiff_t>(std::min(event.at, inbox_.size())));
      purgePending_ = false;
    }
    break;
  }
  }
}

bool Rfc2217Port::send(const std::vector<std::uint8_t>& bytes) {
  std::lock_guard<std::mutex> lock(sendLock_);
  if (ended_.load()) return false;
  std::string why;
  if (netsock::sendAll(socket_, bytes.data(), bytes.size(), kAnswerTimeoutMs, why)) return true;
  lose("connection lost: " + why);
  return false;
}

// Ends the connection once, saying why. Takes no lock of the port (the console's only).
void Rfc2217Port::lose(const std::string& why) {
  if (ended_.exchange(true)) return;
  consolePrint(url_ + ": " + why + "\r\n", url_);
  netsock::shutdownSocket(socket_);
}

std::uint32_t Rfc2217Port::queued() {
  std::lock_guard<std::mutex> lock(receiveLock_);
  pump(0);
  return static_cast<std::uint32_t>(inbox_.size());
}

bool Rfc2217Port::waitReadable(std::uint32_t micros) {
  std::lock_guard<std::mutex> lock(receiveLock_);
  if (inbox_.empty()) pump(micros);
  return !inbox_.empty() || ended_.load();
}

bool Rfc2217Port::readSome(std::uint8_t* buffer, std::uint32_t size, std::uint32_t& got) {
  std::lock_guard<std::mutex> lock(receiveLock_);
  got = 0;
  auto lastByte = Clock::now();
  while (got < size) {
    if (!inbox_.empty()) {
      const auto n = static_cast<std::uint32_t>(std::min<std::size_t>(size - got, inbox_.size()));
      std::copy(inbox_.begin(), inbox_.begin() + n, buffer + got);
      inbox_.erase(inbox_.begin(), inbox_.begin() + n);
      got += n;
      lastByte = Clock::now();
      continue;
    }
    const std::uint32_t left = microsUntil(lastByte + kReadGap);
    if (ended_.load() || left == 0) break;
    pump(left);
  }
  return got != 0 || !ended_.load();
}

portsys::WriteResult Rfc2217Port::writeAll(const std::uint8_t* data, std::size_t length) {
  std::vector<std::uint8_t> bytes;
  bytes.reserve(length + 8);
  rfc2217::Protocol::appendData(bytes, data, length);
  return send(bytes) ? portsys::WriteResult::ok : portsys::WriteResult::writeFailed;
}

void Rfc2217Port::purge() {
  std::lock_guard<std::mutex> lock(receiveLock_);
  inbox_.clear();
  std::uint32_t before[16];
  std::copy(std::begin(ackCount_), std::end(ackCount_), before);
  purgePending_ = true;
  const CommandList purge = {{Command::purgeData, rfc2217::kPurgeBoth}};
  if (sendCommands(purge)) awaitAcks(purge, before);
  purgePending_ = false;
}
