#pragma once
// The client side of Telnet with the COM-PORT-OPTION (RFC 2217), as a pure engine:
// no socket and no clock. The remote port feeds it what the server sent and gets
// back the data bytes, the answers the engine owes the server, and events (the
// server took or refused the COM-PORT-OPTION, acknowledged a setting, or spoke
// nonsense). It also encodes what the client sends: escaped data and settings.
//
// What the client wants: BINARY and SUPPRESS-GO-AHEAD both ways (a device frame may
// hold CR NUL, which non-binary Telnet would change) and the COM-PORT-OPTION on its
// side. It accepts the server's offer of the COM-PORT-OPTION too and refuses every
// other option. Answers go out only when an option's state changes, so two engines
// never loop.
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace rfc2217 {

// Telnet commands and the options the client deals with.
enum : std::uint8_t {
  kSe = 240,
  kSb = 250,
  kWill = 251,
  kWont = 252,
  kDo = 253,
  kDont = 254,
  kIac = 255,
  kOptBinary = 0,
  kOptSga = 3,
  kOptComPort = 44,
};

// The client's COM-PORT-OPTION commands; the server answers with the code + 100.
enum class Command : std::uint8_t {
  setBaudRate = 1,
  setDataSize = 2,
  setParity = 3,
  setStopSize = 4,
  setControl = 5,
  purgeData = 12,
};
constexpr std::uint8_t kServerOffset = 100;
// Values of SET-PARITY, SET-STOPSIZE and PURGE-DATA.
enum : std::uint8_t { kParityNone = 1, kParityOdd = 2, kParityEven = 3, kParityMark = 4, kParitySpace = 5 };
enum : std::uint8_t { kStopOne = 1, kStopTwo = 2, kStopOneAndHalf = 3 };
enum : std::uint8_t { kPurgeReceive = 1, kPurgeTransmit = 2, kPurgeBoth = 3 };

struct Event {
  enum class Kind {
    comPortAccepted, // the server agreed to the COM-PORT-OPTION
    comPortRefused,  // it refused it (or withdrew it)
    ack,             // the server acknowledged command with value
    nonsense,        // the server broke the protocol; text says how. Nothing more is read.
  };
  Kind kind;
  Command command = Command::setBaudRate;
  std::uint32_t value = 0;
  std::string text;
  std::size_t at = 0; // data bytes of the feed's output before the event (where it came in the stream)
};

class Protocol {
public:
  // The longest subnegotiation taken from a server; a longer one is nonsense.
  static constexpr std::size_t kMaxSubnegotiation = 64;

  // The client's opening: WILL/DO BINARY, WILL/DO SGA, WILL COM-PORT-OPTION.
  std::vector<std::uint8_t> greeting();
  // Data for the server with every 0xFF doubled, appended to out.
  static void appendData(std::vector<std::uint8_t>& out, const std::uint8_t* data, std::size_t n);
  // One COM-PORT-OPTION command; the baud rate is four bytes (network order), the
  // others one byte.
  static void appendCommand(std::vector<std::uint8_t>& out, Command command, std::uint32_t value);

  // Takes bytes from the server; their data bytes are appended to data. After
  // nonsense the engine ignores everything.
  void feed(const std::uint8_t* in, std::size_t n, std::vector<std::uint8_t>& data);
  // What the engine owes the server (option answers), emptied by the call.
  std::vector<std::uint8_t> takeReplies();
  std::vector<Event> takeEvents();
  bool broken() const { return broken_; }

private:
  enum class State { data, iac, option, sub, subIac };
  struct Side {
    bool enabled = false;
    bool asked = false;
  };

  void negotiate(std::uint8_t verb, std::uint8_t option);
  void subnegotiation();
  void nonsense(const std::string& text);
  void event(Event::Kind kind, Command command = Command::setBaudRate, std::uint32_t value = 0,
             const std::string& text = {});
  void reply(std::uint8_t verb, std::uint8_t option);

  State state_ = State::data;
  std::uint8_t verb_ = 0;
  std::vector<std::uint8_t> sub_;
  Side us_[256];   // options the client performs (WILL/WONT from us)
  Side them_[256]; // options the server performs
  std::vector<std::uint8_t> replies_;
  std::vector<Event> events_;
  std::vector<std::uint8_t>* data_ = nullptr; // the output of the running feed
  bool broken_ = false;
};

} // namespace rfc2217
