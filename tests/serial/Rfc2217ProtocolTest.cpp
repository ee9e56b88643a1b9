// The Telnet / RFC 2217 engine: a server's bytes fed whole and one at a time, and what the client encodes.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "serial/Rfc2217Protocol.h"

using namespace rfc2217;
using Bytes = std::vector<std::uint8_t>;

namespace {

// Events in a short text: "+" accepted, "-" refused, "!" nonsense, "ack1=115200@1" (command=value@data bytes before).
std::string describe(const std::vector<Event>& events) {
  std::string out;
  for (const Event& e : events) {
    out += out.empty() ? "" : " ";
    if (e.kind == Event::Kind::ack)
      out += "ack" + std::to_string(int(e.command)) + "=" + std::to_string(e.value) + "@" + std::to_string(e.at);
    else
      out += e.kind == Event::Kind::comPortAccepted ? '+' : e.kind == Event::Kind::comPortRefused ? '-' : '!';
  }
  return out;
}

} // namespace

TEST(Rfc2217Protocol, ServerStreamsWholeAndByteByByte) {
  Bytes endless(Protocol::kMaxSubnegotiation + 2, 7); // one byte too many for a subnegotiation, then one more
  endless.insert(endless.begin(), {kIac, kSb, 44});
  // The client has sent its greeting (WILL/DO BINARY, WILL/DO SGA, WILL COM-PORT).
  const struct {
    const char* name;
    Bytes in, data, replies;
    const char* events;
  } kCases[] = {
      {"data, escaped 0xFF", {1, 2, kIac, kIac, 7, kIac, kIac}, {1, 2, 0xFF, 7, 0xFF}, {}, ""},
      {"answers to the greeting need no reply", {kIac, kDo, 0, kIac, kWill, 0, kIac, kDo, 44}, {}, {}, "+"},
      {"server's own offers are agreed", {kIac, kWill, 44, kIac, kDo, 44, kIac, kDo, 44}, {}, {kIac, kDo, 44}, "+"},
      {"unknown options refused", {kIac, kWill, 1, kIac, kDo, 24}, {}, {kIac, kDont, 1, kIac, kWont, 24}, ""},
      {"SGA withdrawn, COM-PORT refused", {kIac, kDo, 3, kIac, kDont, 3, kIac, kDont, 44}, {}, {kIac, kWont, 3}, "-"},
      {"one-byte commands skipped", {kIac, 241, 5, kIac, 249, kIac, kSe, 6}, {5, 6}, {}, ""},
      {"baud ack", {9, kIac, kSb, 44, 101, 0, 1, 0xC2, 0, kIac, kSe}, {9}, {}, "ack1=115200@1"},
      {"ack with escaped 0xFF", {kIac, kSb, 44, 101, 0, 0, kIac, kIac, 0, kIac, kSe}, {}, {}, "ack1=65280@0"},
      {"sizes", {kIac, kSb, 44, 102, 8, kIac, kSe, kIac, kSb, 44, 104, 1, kIac, kSe}, {}, {}, "ack2=8@0 ack4=1@0"},
      {"parity", {kIac, kSb, 44, 103, 1, kIac, kSe}, {}, {}, "ack3=1@0"},
      {"purge", {kIac, kSb, 44, 112, 3, kIac, kSe}, {}, {}, "ack12=3@0"},
      {"notices ignored", {kIac, kSb, 44, 106, 0, kIac, kSe, kIac, kSb, 44, 100, 'x', kIac, kSe, 4}, {4}, {}, ""},
      {"other options ignored", {kIac, kSb, 24, 1, kIac, kSe, 4}, {4}, {}, ""},
      {"ack of the wrong length", {kIac, kSb, 44, 101, 0, 1, kIac, kSe, 5}, {}, {}, "!"},
      {"command inside a subnegotiation", {kIac, kSb, 44, 101, kIac, kWill, 5}, {}, {}, "!"},
      {"endless subnegotiation", endless, {}, {}, "!"},
  };
  for (const auto& c : kCases) {
    for (const std::size_t step : {c.in.size(), std::size_t{1}}) {
      SCOPED_TRACE(testing::Message() << c.name << ", pieces of " << step);
      Protocol p;
      p.greeting();
      Bytes data, replies;
      std::vector<Event> events;
      for (std::size_t i = 0; i < c.in.size(); i += step) {
        p.feed(c.in.data() + i, std::min(step, c.in.size() - i), data);
        for (const std::uint8_t b : p.takeReplies()) replies.push_back(b);
        for (Event& e : p.takeEvents()) events.push_back(e);
      }
      EXPECT_EQ(data, c.data);
      EXPECT_EQ(replies, c.replies);
      EXPECT_EQ(describe(events), c.events);
      EXPECT_EQ(p.broken(), c.events == std::string("!")); // nonsense ends reading
    }
  }
}

TEST(Rfc2217Protocol, EncodesGreetingDataAndCommands) {
  EXPECT_EQ(Protocol().greeting(),
            (Bytes{kIac, kWill, 0, kIac, kDo, 0, kIac, kWill, 3, kIac, kDo, 3, kIac, kWill, 44}));
  Bytes out;
  const std::uint8_t data[] = {1, 0xFF, 0xFF, 2};
  Protocol::appendData(out, data, sizeof data);
  Protocol::appendCommand(out, Command::setBaudRate, 921600);
  Protocol::appendCommand(out, Command::setParity, kParityNone);
  Protocol::appendCommand(out, Command::setBaudRate, 0xFF00);
  EXPECT_EQ(out, (Bytes{1,   0xFF, 0xFF, 0xFF, 0xFF, 2,   kIac, kSb, 44, 1, 0, 0x0E, 0x10, 0,    kIac, kSe,  kIac,
                        kSb, 44,   3,    1,    kIac, kSe, kIac, kSb, 44, 1, 0, 0,    0xFF, 0xFF, 0,    kIac, kSe}));
}
