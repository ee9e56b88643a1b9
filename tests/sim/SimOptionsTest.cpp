#include "sim/SimOptions.h"

#include <gtest/gtest.h>

namespace {

bool parse(std::vector<const char*> args, SimOptions& out, int& code) {
  args.insert(args.begin(), "qmload-sim");
  return parseSimOptions(static_cast<int>(args.size()), args.data(), out, code);
}

TEST(SimOptions, AllFlags) {
  SimOptions o;
  int code = -1;
  ASSERT_TRUE(parse({"--link",
                     "/tmp/x",
                     "--baud",
                     "9600",
                     "--id",
                     "0x1-2-3",
                     "--dump",
                     "d.bin",
                     "--write-ms",
                     "0",
                     "--drop-reply",
                     "3",
                     "--drop-every",
                     "4",
                     "--corrupt-reply",
                     "5",
                     "--late-reply",
                     "6:250",
                     "--silent-after-writes",
                     "7",
                     "--garbage",
                     "8:9",
                     "--erase-ms",
                     "3000",
                     "--latency-ms",
                     "16",
                     "--hangup-after",
                     "10",
                     "--vanish-after",
                     "11",
                     "--stall-ms",
                     "12:500",
                     "--verbose"},
                    o, code));
  EXPECT_EQ(o.link, "/tmp/x");
  EXPECT_EQ(o.baud, 9600u);
  EXPECT_EQ(o.identity.id0, 1u);
  EXPECT_EQ(o.dump, "d.bin");
  EXPECT_EQ(o.writeMs, 0u);
  EXPECT_EQ(o.faults.dropReply, 3u);
  EXPECT_EQ(o.faults.dropEvery, 4u);
  EXPECT_EQ(o.faults.corruptReply, 5u);
  EXPECT_EQ(o.faults.lateReply, 6u);
  EXPECT_EQ(o.faults.lateMs, 250u);
  EXPECT_EQ(o.faults.silentAfterWrites, 7u);
  EXPECT_EQ(o.faults.garbageBytes, 8u);
  EXPECT_EQ(o.faults.garbageBefore, 9u);
  EXPECT_EQ(o.eraseMs, 3000u);
  EXPECT_EQ(o.latencyMs, 16u);
  EXPECT_EQ(o.faults.hangupAfter, 10u);
  EXPECT_EQ(o.faults.vanishAfter, 11u);
  EXPECT_EQ(o.faults.stallAfter, 12u);
  EXPECT_EQ(o.faults.stallMs, 500u);
  EXPECT_TRUE(o.verbose);
}

TEST(SimOptions, DefaultsAndErrors) {
  SimOptions o;
  int code = -1;
  ASSERT_TRUE(parse({"--garbage", "12"}, o, code));
  EXPECT_EQ(o.baud, 115200u);
  EXPECT_EQ(o.writeMs, 1u);
  EXPECT_EQ(o.identity.id0, 0x00c0ffeeu);
  EXPECT_EQ(o.faults.garbageBytes, 12u);
  EXPECT_EQ(o.faults.garbageBefore, 1u);
  EXPECT_FALSE(o.verbose);

  for (std::vector<const char*> bad : {std::vector<const char*>{"--id", "nope"},
                                       {"--late-reply", "5"},
                                       {"--late-reply", "5:x"},
                                       {"--baud", "0"},
                                       {"--bogus"},
                                       {"--garbage", "999999"}}) {
    SimOptions b;
    code = 0;
    EXPECT_FALSE(parse(bad, b, code)) << bad[0];
    EXPECT_NE(code, 0) << bad[0];
  }
}

} // namespace
