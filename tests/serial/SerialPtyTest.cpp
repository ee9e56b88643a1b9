// SerialPort on a pseudo-terminal: the test plays the device on the master side.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "base/Console.h"
#include "serial/SerialPort.h"
#include "tests/serial/PtyPair.h"

namespace {

using Clock = std::chrono::steady_clock;

class SerialPty : public testing::Test {
protected:
  void SetUp() override {
    ASSERT_TRUE(pty.ok());
    ASSERT_TRUE(port.open(pty.slavePath(), 115200, SerialPort::ParityNone, 8, SerialPort::StopOne));
  }
  // Waits (bounded) until count bytes are queued on the port.
  void waitQueued(std::uint32_t count) {
    const auto end = Clock::now() + std::chrono::seconds(5);
    while (port.available() < count && Clock::now() < end) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    ASSERT_GE(port.available(), count);
  }
  PtyPair pty;
  SerialPort port;
};

TEST_F(SerialPty, ReadOnAnIdlePortReturnsZeroAtOnce) {
  std::uint8_t buffer[16];
  const auto start = Clock::now();
  EXPECT_EQ(port.read(buffer, sizeof buffer), 0u);
  EXPECT_LT(Clock::now() - start, std::chrono::seconds(1)); // hang guard only
  EXPECT_EQ(port.available(), 0u);
}

TEST_F(SerialPty, ReadGathersABurstAndEndsAtTheGap) {
  pty.send(std::string("0123456789"));
  waitQueued(10);
  std::uint8_t buffer[280] = {};
  EXPECT_EQ(port.read(buffer, sizeof buffer), 10u);
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), 10), "0123456789");
  // A smaller buffer ends the read when it is full and leaves the rest queued.
  pty.send(std::string("abcdef"));
  waitQueued(6);
  EXPECT_EQ(port.read(buffer, 4), 4u);
  EXPECT_EQ(port.available(), 2u);
}

TEST_F(SerialPty, ReadJoinsBytesThatFollowWithinTheGap) {
  pty.send(std::string("abc"));
  std::thread late([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(30));
    pty.send(std::string("def"));
  });
  waitQueued(3);
  std::uint8_t buffer[32] = {};
  const std::uint32_t n = port.read(buffer, sizeof buffer);
  late.join();
  EXPECT_EQ(std::string(reinterpret_cast<char*>(buffer), n), "abcdef");
}

TEST_F(SerialPty, ReadLineKeepsTheCarriageReturnAndLeavesTheRest) {
  pty.send(std::vector<std::uint8_t>{'a', 'b', '\r', '\n', 'c', 'd'});
  waitQueued(6);
  EXPECT_EQ(port.readLine(), "ab\r");
  EXPECT_EQ(port.available(), 2u);
  std::uint8_t rest[8] = {};
  EXPECT_EQ(port.read(rest, sizeof rest), 2u);
  EXPECT_EQ(rest[0], 'c');
  EXPECT_EQ(rest[1], 'd');
}

TEST_F(SerialPty, ReadWordSkipsLeadingSpacesAndStopsAtTheNextOne) {
  pty.send(std::vector<std::uint8_t>{' ', ' ', 'x', ' ', 'y'});
  waitQueued(5);
  EXPECT_EQ(port.readWord(), "x");
  EXPECT_EQ(port.available(), 1u);
  EXPECT_EQ(port.readByte(), 'y');
  // A NUL and a LF end a word too.
  pty.send(std::vector<std::uint8_t>{'p', 'q', 0, 'r', '\n'});
  waitQueued(5);
  EXPECT_EQ(port.readWord(), "pq");
  std::string out = "old";
  EXPECT_TRUE(port.readLine(out));
  EXPECT_EQ(out, "r");
}

TEST_F(SerialPty, ReadByteWaitsForAByte) {
  std::thread late([this] {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    pty.send(std::string("Z"));
  });
  std::uint8_t byte = 0;
  EXPECT_TRUE(port.readByte(byte));
  late.join();
  EXPECT_EQ(byte, 'Z');
}

TEST_F(SerialPty, WritesSendTheirBytes) {
  const std::uint8_t raw[] = {0x00, 0xFF, 0x10};
  std::stringstream stream;
  stream << "s" << 5;
  const std::string text = "str";
  EXPECT_TRUE(port.write(raw, sizeof raw));
  EXPECT_TRUE(port.write(static_cast<std::uint8_t>('B')));
  EXPECT_TRUE(port.write("txt"));
  EXPECT_TRUE(port.write(text));
  EXPECT_TRUE(port.write(std::string("tmp")));
  EXPECT_TRUE(port.write(-42));
  EXPECT_TRUE(port.write(1.5f));
  EXPECT_TRUE(port.write(2.25));
  EXPECT_TRUE(port.write(stream));
  const std::vector<std::uint8_t> got = pty.receive(200);
  const std::string expected = std::string("\x00\xFF\x10", 3) + "Btxtstrtmp-421.5000002.250000s5";
  EXPECT_EQ(std::string(got.begin(), got.end()), expected);
}

TEST_F(SerialPty, PurgeDropsQueuedInput) {
  pty.send(std::string("junk"));
  waitQueued(4);
  port.purge();
  EXPECT_EQ(port.available(), 0u);
}

TEST_F(SerialPty, OpenAgainClosesFirstAndKeepsTheName) {
  EXPECT_TRUE(port.open(pty.slavePath(), 921600));
  EXPECT_EQ(pty.hostBaud(), 921600u);
  EXPECT_TRUE(port.open(pty.slavePath()));
  EXPECT_EQ(pty.hostBaud(), 9600u); // the stored default
  EXPECT_EQ(port.portName(), pty.slavePath());
  port.close();
  EXPECT_FALSE(port.isOpen());
  testing::internal::CaptureStdout();
  EXPECT_FALSE(port.write("x"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "com port is not open!\r\n");
}

TEST_F(SerialPty, APortHeldByOneUserDoesNotOpenForAnother) {
  SerialPort second;
  testing::internal::CaptureStdout();
  EXPECT_FALSE(second.open(pty.slavePath(), 9600));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error opening port\r\n");
  port.close();
  EXPECT_TRUE(second.open(pty.slavePath(), 9600));
}

TEST_F(SerialPty, AHungUpLineIsReportedOnceThenFailsQuietlyUntilTheNextOpen) {
  std::vector<std::string> printed;
  const ConsoleSink before =
      setConsoleSink([&](std::string_view text, std::string_view) { printed.emplace_back(text); });
  pty.hangUp();
  EXPECT_EQ(port.available(), 0u);
  EXPECT_TRUE(port.lost());
  std::uint8_t buffer[8];
  EXPECT_EQ(port.read(buffer, sizeof buffer), 0u);
  EXPECT_FALSE(port.write("x"));
  EXPECT_FALSE(port.waitForInput(1000));
  port.close();
  EXPECT_FALSE(port.write("x"));
  EXPECT_EQ(printed, std::vector<std::string>{"Port lost: " + pty.slavePath() + "\r\n"});
  // The node is gone: opening it again reports that, and nothing else.
  EXPECT_FALSE(port.open(pty.slavePath(), 9600, SerialPort::ParityNone, 6, SerialPort::StopOneAndHalf));
  EXPECT_FALSE(port.lost());
  setConsoleSink(before);
  EXPECT_EQ(printed.back(), "Error opening port\r\n");
  EXPECT_EQ(printed.size(), 2u);
}

// (A pseudo-terminal keeps no parity, so an unknown parity code cannot be seen here.)
TEST_F(SerialPty, StopBitCombinationsAreRefusedOnceThePortIsOpen) {
  testing::internal::CaptureStdout();
  EXPECT_FALSE(port.open(pty.slavePath(), 9600, SerialPort::ParityNone, 6, SerialPort::StopOneAndHalf));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Error opening port: Using five data bits with 2 stop bits - invalid combination,\r\n"
            "as well as 6, 7 or 8 data bits with 1.5 stop bits.\r\n");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(port.open(pty.slavePath(), 9600, SerialPort::ParityNone, 5, SerialPort::StopTwo));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "Error opening port: The number of data bits should be from 5 to 8 bits.\r\n");
}

TEST(SerialPorts, SimulatorLinksAreListedAfterTheMachinesPorts) {
  PtyPair pty;
  ASSERT_TRUE(pty.ok());
  char dirTemplate[] = "/tmp/qmload-serial-test-XXXXXX";
  ASSERT_NE(mkdtemp(dirTemplate), nullptr);
  const std::string dir = dirTemplate;
  const std::string good = dir + "/sim-a";
  const std::string stale = dir + "/sim-b";
  const std::string other = dir + "/not-a-pty";
  ASSERT_EQ(symlink(pty.slavePath().c_str(), good.c_str()), 0);
  ASSERT_EQ(symlink("/dev/pts/999999", stale.c_str()), 0);
  ASSERT_EQ(symlink("/dev/null", other.c_str()), 0);
  setenv("QMLOAD_SIM_DIR", dir.c_str(), 1);

  SerialPort port;
  std::vector<std::string> list;
  port.listPorts(list);
  ASSERT_FALSE(list.empty());
  EXPECT_EQ(list.back(), good);
  for (const auto& name : list) {
    EXPECT_NE(name, stale);
    EXPECT_NE(name, other);
  }

  testing::internal::CaptureStdout();
  const std::uint32_t scanned = port.printPorts();
  std::string expected;
  for (const auto& name : list) expected += name + "\n";
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
  EXPECT_EQ(scanned, expected.size());

  EXPECT_TRUE(port.findPort());
  EXPECT_EQ(port.foundPortName(), list.front());

  // The listed link opens like any serial device.
  SerialPort opened(good, 38400);
  EXPECT_TRUE(opened.isOpen());
  EXPECT_EQ(pty.hostBaud(), 38400u);

  unsetenv("QMLOAD_SIM_DIR");
  unlink(good.c_str());
  unlink(stale.c_str());
  unlink(other.c_str());
  rmdir(dir.c_str());
}

} // namespace
