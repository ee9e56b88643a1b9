// SerialPort behaviour that needs no device: a closed port and refused line settings.
#include <gtest/gtest.h>

#include <sstream>

#include "base/Console.h"
#include "serial/SerialPort.h"

namespace {

const char* const kNotOpen = "com port is not open!\r\n";
const char* const kDataBits = "Error opening port: The number of data bits should be from 5 to 8 bits.\r\n";

TEST(SerialClosed, EveryWriteOnAClosedPortFailsWithTheSameText) {
  SerialPort port;
  std::stringstream stream;
  stream << "abc";
  const std::uint8_t bytes[] = {1, 2, 3};
  const std::string text = "text";

  testing::internal::CaptureStdout();
  EXPECT_FALSE(port.write(bytes, sizeof bytes));
  EXPECT_FALSE(port.write(static_cast<std::uint8_t>(7)));
  EXPECT_FALSE(port.write("text"));
  EXPECT_FALSE(port.write(text));
  EXPECT_FALSE(port.write(std::string("temporary")));
  EXPECT_FALSE(port.write(42));
  EXPECT_FALSE(port.write(1.5f));
  EXPECT_FALSE(port.write(2.5));
  EXPECT_FALSE(port.write(stream));
  std::string expected;
  for (int i = 0; i < 9; ++i) expected += kNotOpen;
  EXPECT_EQ(testing::internal::GetCapturedStdout(), expected);
}

TEST(SerialClosed, ReadsOnAClosedPortReportAndReturnNothing) {
  SerialPort port;
  std::uint8_t buffer[8];
  testing::internal::CaptureStdout();
  EXPECT_EQ(port.read(buffer, sizeof buffer), 0u);
  EXPECT_EQ(port.readByte(), 0);
  EXPECT_EQ(port.readLine(), "");
  EXPECT_EQ(port.readWord(), "");
  EXPECT_EQ(port.available(), 0u);
  port.purge();
  port.close();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), std::string(kNotOpen) + kNotOpen + kNotOpen + kNotOpen);
  EXPECT_FALSE(port.isOpen());
}

TEST(SerialClosed, AMissingPortReportsOnlyThatUnlessTheDataBitsAreOutOfRange) {
  // The name does not exist. A data-bit count out of range is refused before the
  // device is touched; the stop-bit combinations are checked once it is open.
  const std::string name = "no-such-port-for-qmload-tests";
  struct Case {
    std::uint8_t dataBits;
    std::uint32_t stopBits;
    std::string text;
  };
  const Case cases[] = {
      {9, 0, kDataBits},
      {4, 0, kDataBits},
      {5, 2, "Error opening port\r\n"},
      {6, 1, "Error opening port\r\n"},
      {8, 1, "Error opening port\r\n"},
  };
  for (const Case& c : cases) {
    SerialPort port;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(port.open(name, 9600, SerialPort::ParityNone, c.dataBits, c.stopBits));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), c.text)
        << int(c.dataBits) << " data bits, stop code " << c.stopBits;
    EXPECT_FALSE(port.isOpen());
    EXPECT_EQ(port.portName(), name);
  }
}

TEST(SerialClosed, AMissingDeviceFailsToOpenAndTheMessageNamesIt) {
  std::string text, about;
  const ConsoleSink before = setConsoleSink([&](std::string_view t, std::string_view p) {
    text += t;
    about = p;
  });
  SerialPort port("no-such-port-for-qmload-tests");
  setConsoleSink(before);
  EXPECT_EQ(text, "Error opening port\r\n");
  EXPECT_EQ(about, "no-such-port-for-qmload-tests");
  EXPECT_FALSE(port.isOpen());
}

TEST(SerialClosed, ListingReplacesTheCallersList) {
  SerialPort port;
  std::vector<std::string> list = {"stale entry"};
  port.listPorts(list);
  for (const auto& name : list) EXPECT_NE(name, "stale entry");
  EXPECT_EQ(port.findPort(), !list.empty());
}

} // namespace
