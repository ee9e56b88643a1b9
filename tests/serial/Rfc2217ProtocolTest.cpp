// The Telnet / RFC 2217 engine fed a server's bytes, whole and one at a time: the
// data, the answers and the events it reports.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <vector>

#include "serial/Rfc2217Protocol.h"

using namespace rfc2217;
using Bytes = std::vector<std::uint8_t>;

namespace {

// Events in a short text: "+" accepted, "-" refused, "ack1=115200", "!" nonsense.
std::string describe(const std::vector<Event>& events) {
  std::string out;
  for (const Event& e : events) {
    if (!out.empty()) out += ' ';
    switch (e.kind) {
    case Event::Kind::comPortAccepted: out += '+'; break;
    case Event::Kind::comPortRefused: out += '-'; break;
    case Event::Kind::nonsense: out += '!'; break;
    case Event::Kind::ack:
      out += "ack" + std::to_string(static_cast<int>(e.command)) + "=" + std::to_string(e.value) + "@" +
             std::to_string(e.at);
      break;
    }
  }
  return out;
}

struct Case {
  const char* name;
  Bytes in;
  Bytes data;
  Bytes replies;
  const char* events;
};

// The client has sent its greeting (WILL/DO BINARY, WILL/DO SGA, WILL COM-PORT).
const Case kCases[] = {
    {"plain data", {1, 2, 3}, {1, 2, 3}, {}, ""},
    {"escaped 0xFF", {kIac, kIac, 7, kIac, kIac}, {0xFF, 7, 0xFF}, {}, ""},
    {"answers to the greeting need no reply", {kIac, kDo, 0, kIac, kWill, 0, kIac, kDo, 44}, {}, {}, "+"},
    {"server's own offers are agreed", {kIac, kWill, 44, kIac, kDo, 44, kIac, kDo, 44}, {}, {kIac, kDo, 44}, "+"},
    {"unknown options refused", {kIac, kWill, 1, kIac, kDo, 24}, {}, {kIac, kDont, 1, kIac, kWont, 24}, ""},
    {"refusal of COM-PORT", {kIac, kDont, 44}, {}, {}, "-"},
    {"withdrawal acknowledged", {kIac, kDo, 3, kIac, kDont, 3}, {}, {kIac, kWont, 3}, ""},
    {"one-byte commands skipped", {kIac, 241, 5, kIac, 249, kIac, kSe, 6}, {5, 6}, {}, ""},
    {"baud ack", {9, kIac, kSb, 44, 101, 0, 1, 0xC2, 0, kIac, kSe}, {9}, {}, "ack1=115200@1"},
    {"ack with escaped 0xFF", {kIac, kSb, 44, 101, 0, 0, kIac, kIac, 0, kIac, kSe}, {}, {}, "ack1=65280@0"},
    {"settings and purge acks",
     {kIac, kSb, 44, 102, 8, kIac, kSe, kIac, kSb, 44, 103, 1, kIac, kSe,
      kIac, kSb, 44, 104, 1, kIac, kSe, kIac, kSb, 44, 112, 3, kIac, kSe},
     {},
     {},
     "ack2=8@0 ack3=1@0 ack4=1@0 ack12=3@0"},
    {"notices and other options ignored",
     {kIac, kSb, 44, 106, 0, kIac, kSe, kIac, kSb, 44, 100, 'x', kIac, kSe, kIac, kSb, 24, 1, kIac, kSe, 4},
     {4},
     {},
     ""},
    {"ack of the wrong length", {kIac, kSb, 44, 101, 0, 1, kIac, kSe, 5}, {}, {}, "!"},
    {"command inside a subnegotiation", {kIac, kSb, 44, 101, kIac, kWill, 5}, {}, {}, "!"},
};

} // namespace

TEST(Rfc2217Protocol, ServerStreamsWholeAndByteByByte) {
  for (const Case& c : kCases) {
    for (const std::size_t step : {c.in.size(), std::size_t{1}}) {
      SCOPED_TRACE(testing::Message() << c.name << ", pieces of " << step);
      Protocol p;
      p.greeting();
      Bytes data, replies;
      std::vector<Event> events;
      for (std::size_t i = 0; i < c.in.size(); i += step) {
        p.feed(c.in.data() + i, std::min(step, c.in.size() - i), data);
        const Bytes r = p.takeReplies();
        replies.insert(replies.end(), r.begin(), r.end());
        for (Event& e : p.takeEvents()) events.push_back(e);
      }
      EXPECT_EQ(data, c.data);
      EXPECT_EQ(replies, c.replies);
      EXPECT_EQ(describe(events), c.events);
    }
  }
}

TEST(Rfc2217Protocol, EncodesGreetingDataAndCommands) {
  Protocol p;
  EXPECT_EQ(p.greeting(), (Bytes{kIac, kWill, 0, kIac, kDo, 0, kIac, kWill, 3, kIac, kDo, 3, kIac, kWill, 44}));
  Bytes out;
  const std::uint8_t data[] = {1, 0xFF, 0xFF, 2};
  Protocol::appendData(out, data, sizeof data);
  Protocol::appendCommand(out, Command::setBaudRate, 921600);
  Protocol::appendCommand(out, Command::setParity, kParityNone);
  Protocol::appendCommand(out, Command::setBaudRate, 0xFF00);
  EXPECT_EQ(out, (Bytes{1,   0xFF, 0xFF, 0xFF, 0xFF, 2,   kIac, kSb, 44, 1, 0, 0x0E, 0x10, 0,    kIac, kSe,  kIac,
                        kSb, 44,   3,    1,    kIac, kSe, kIac, kSb, 44, 1, 0, 0,    0xFF, 0xFF, 0,    kIac, kSe}));
}

TEST(Rfc2217Protocol, EndlessSubnegotiationIsNonsenseAndEndsReading) {
  Protocol p;
  Bytes in = {kIac, kSb, 44}, data;
  in.resize(in.size() + Protocol::kMaxSubnegotiation + 1, 7);
  in.insert(in.end(), {1, 2});
  p.feed(in.data(), in.size(), data);
  EXPECT_TRUE(p.broken() && data.empty());
  EXPECT_EQ(describe(p.takeEvents()), "!");
}
