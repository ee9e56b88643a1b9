// SerialPort: a closed port and refused settings; on POSIX a pseudo-terminal, the test playing the device.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <functional>
#include <thread>

#include "base/Console.h"
#include "serial/SerialPort.h"
#ifndef _WIN32
#include "tests/serial/PtyPair.h"
#endif

// What the calls printed, each message with the port it names (also used by SerialWin32Test.cpp).
std::string printed(const std::function<void()>& run, std::string* about = nullptr) {
  std::string text;
  const ConsoleSink before = setConsoleSink([&](std::string_view t, std::string_view port) {
    text += t;
    if (about) *about = port;
  });
  run();
  setConsoleSink(before);
  return text;
}

namespace {

const std::string kNotOpen = "com port is not open!\r\n";
const std::string kDataBits = "Error opening port: The number of data bits should be from 5 to 8 bits.\r\n";
const std::string kMissing = "no-such-port-for-qmload-tests";

TEST(SerialClosed, CallsReportAndFailOpensCheckDataBitsFirst) {
  SerialPort port;
  std::stringstream stream("abc");
  std::uint8_t buffer[8] = {1, 2, 3};
  const std::string calls = printed([&] {
    EXPECT_FALSE(port.write(buffer, 3) || port.write(std::uint8_t{7}) || port.write("t") ||
                 port.write(std::string("s")) || port.write(42) || port.write(1.5f) || port.write(2.5) ||
                 port.write(stream) || port.read(buffer, 8) != 0 || port.readByte() != 0 || port.readLine() != "" ||
                 port.readWord() != "" || port.available() != 0);
    port.purge();
  });
  std::string expected;
  for (int i = 0; i < 12; ++i) expected += kNotOpen; // every call ran: each returned its failure
  EXPECT_EQ(calls, expected);
  // The data bits are checked first, then the device is looked for.
  const std::tuple<int, std::uint32_t, std::string> opens[] = {
      {9, 0, kDataBits}, {4, 0, kDataBits}, {5, 2, "Error opening port\r\n"}, {6, 1, "Error opening port\r\n"}};
  for (const auto& [dataBits, stop, text] : opens) {
    std::string about;
    EXPECT_EQ(printed([&] { EXPECT_FALSE(port.open(kMissing, 9600, 2, std::uint8_t(dataBits), stop)); }, &about), text);
    EXPECT_EQ(about, kMissing);
    EXPECT_TRUE(port.portName() == kMissing && !port.isOpen()) << port.portName();
  }
}

#ifndef _WIN32
using std::chrono::milliseconds;

class SerialPty : public testing::Test {
protected:
  void SetUp() override { ASSERT_TRUE(pty.ok() && port.open(pty.slavePath(), 115200, 2, 8, 0)); }
  void sendAndWait(const std::string& bytes) {
    pty.send(bytes);
    for (int i = 0; i < 5000 && port.available() < bytes.size(); ++i) std::this_thread::sleep_for(milliseconds(1));
    ASSERT_EQ(port.available(), bytes.size());
  }
  std::string read(std::uint32_t size) {
    std::string out(size, '\0');
    out.resize(port.read(out.data(), size));
    return out;
  }
  PtyPair pty;
  SerialPort port;
};

TEST_F(SerialPty, ReadsEndAtAFullBufferOrTheGapWritesSendTheirBytes) {
  EXPECT_EQ(read(16), ""); // idle: at once
  sendAndWait("0123456789");
  EXPECT_EQ(read(4), "0123");
  EXPECT_EQ(read(280), "456789");
  std::thread late([this] {
    std::this_thread::sleep_for(milliseconds(30));
    pty.send(std::string("def"));
  });
  sendAndWait("abc");
  EXPECT_EQ(read(32), "abcdef"); // joined: 30 ms is within the gap
  late.join();
  sendAndWait(std::string("ab\r\ncd  x y", 11));
  EXPECT_EQ(port.readLine(), "ab\r");
  EXPECT_EQ(port.readWord(), "cd");
  EXPECT_EQ(port.readWord(), "x");
  EXPECT_EQ(port.readByte(), 'y');
  sendAndWait(std::string("pq\0r\n", 5));
  EXPECT_EQ(port.readWord(), "pq");
  std::string out = "old";
  EXPECT_TRUE(port.readLine(out) && out == "r") << out;
  sendAndWait("junk");
  port.purge();
  EXPECT_EQ(port.available(), 0u);
  std::thread byte([this] {
    std::this_thread::sleep_for(milliseconds(50));
    pty.send(std::string("Z"));
  });
  std::uint8_t z = 0;
  EXPECT_TRUE(port.readByte(z) && z == 'Z') << z; // waits
  byte.join();

  const std::uint8_t raw[] = {0x00, 0xFF, 0x10};
  const std::stringstream stream("s5");
  const std::string text = "str";
  EXPECT_TRUE(port.write(raw, sizeof raw) && port.write(std::uint8_t{'B'}) && port.write("txt") && port.write(text) &&
              port.write(std::string("tmp")) && port.write(-42) && port.write(1.5f) && port.write(2.25) &&
              port.write(stream));
  const auto got = pty.receive(200);
  EXPECT_EQ(std::string(got.begin(), got.end()), std::string("\0\xFF\x10", 3) + "Btxtstrtmp-421.5000002.250000s5");
}

TEST_F(SerialPty, ReopenHeldPortStopBitsAndHangUp) {
  EXPECT_TRUE(port.open(pty.slavePath(), 921600) && pty.hostBaud() == 921600) << pty.hostBaud();
  EXPECT_TRUE(port.open(pty.slavePath()) && pty.hostBaud() == 9600) << pty.hostBaud(); // the stored default
  SerialPort second;
  EXPECT_EQ(printed([&] { EXPECT_FALSE(second.open(pty.slavePath(), 9600)); }), "Error opening port\r\n");
  EXPECT_EQ(printed([&] { EXPECT_FALSE(port.open(pty.slavePath(), 9600, 2, 6, 1)); }),
            "Error opening port: Using five data bits with 2 stop bits - invalid combination,\r\n"
            "as well as 6, 7 or 8 data bits with 1.5 stop bits.\r\n");
  EXPECT_EQ(printed([&] { EXPECT_FALSE(port.open(pty.slavePath(), 9600, 2, 5, 2)); }), kDataBits);
  ASSERT_TRUE(port.open(pty.slavePath()));
  const std::string text = printed([&] {
    pty.hangUp();
    std::uint8_t buffer[8];
    EXPECT_EQ(port.available() + port.read(buffer, 8), 0u);
    EXPECT_TRUE(port.lost() && !port.write("x") && !port.waitForInput(1000));
    port.close();
    EXPECT_FALSE(port.write("x"));
    EXPECT_FALSE(port.open(pty.slavePath(), 9600, 2, 6, 1)); // the node is gone: only that is reported
    EXPECT_FALSE(port.lost());
  });
  EXPECT_EQ(text, "Port lost: " + pty.slavePath() + "\r\nError opening port\r\n");
}

TEST(SerialPorts, SimulatorLinksAreListedAfterTheMachinesPorts) {
  PtyPair pty;
  char dir[] = "/tmp/qmload-serial-test-XXXXXX";
  ASSERT_TRUE(pty.ok() && mkdtemp(dir));
  const std::string good = std::string(dir) + "/sim-a", stale = good + "-stale", other = good + "-not-a-pty";
  ASSERT_EQ(symlink(pty.slavePath().c_str(), good.c_str()) | symlink("/dev/pts/999999", stale.c_str()) |
                symlink("/dev/null", other.c_str()),
            0);
  setenv("QMLOAD_SIM_DIR", dir, 1);
  SerialPort port;
  std::vector<std::string> list{stale}; // replaced
  port.listPorts(list);
  ASSERT_TRUE(!list.empty() && list.back() == good);
  EXPECT_EQ(std::count(list.begin(), list.end(), stale) + std::count(list.begin(), list.end(), other), 0);
  std::string expected;
  for (const auto& name : list) expected += name + "\n";
  EXPECT_EQ(printed([&] { EXPECT_EQ(port.printPorts(), expected.size()); }), expected);
  EXPECT_TRUE(port.findPort() && port.foundPortName() == list.front()) << port.foundPortName();
  EXPECT_TRUE(SerialPort(good, 38400).isOpen() && pty.hostBaud() == 38400) << pty.hostBaud();
  unsetenv("QMLOAD_SIM_DIR");
  for (const auto& f : {good, stale, other}) unlink(f.c_str());
  rmdir(dir);
}

#endif
} // namespace
