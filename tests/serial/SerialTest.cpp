// SerialPort: a closed port; on POSIX a pseudo-terminal, the test playing the device; on Windows a stand-in
// communications API, so that the exact DCB, time-outs, port scan and the texts of failures a real port seldom
// has can be seen.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>
#include <tuple>
#include <utility>

#include "base/Console.h"
#include "serial/SerialPort.h"
#ifdef _WIN32
#include <windows.h>
// This program's import slots (the linker names each __imp_<function>), pointed at the stand-ins below.
extern "C" void *__imp_CreateFileA, *__imp_CloseHandle, *__imp_GetCommState, *__imp_SetCommState,
    *__imp_GetCommTimeouts, *__imp_SetCommTimeouts, *__imp_ClearCommError, *__imp_ReadFile, *__imp_WriteFile,
    *__imp_FlushFileBuffers, *__imp_QueryDosDeviceA;
#else
#include "tests/serial/PtyPair.h"
#endif

namespace {

// What the calls printed, each message with the port it names.
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

const std::string kNotOpen = "com port is not open!\r\n";
const std::string kDataBits = "Error opening port: The number of data bits should be from 5 to 8 bits.\r\n";

TEST(SerialClosed, CallsReportAndFail) {
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
  sendAndWait(std::string("ab\r\ncd  x ypq\0r\n", 16));
  const std::vector<std::string> reads{port.readLine(), port.readWord(), port.readWord(), // read left to right
                                       std::string(1, char(port.readByte())), port.readWord()};
  EXPECT_EQ(reads, (std::vector<std::string>{"ab\r", "cd", "x", "y", "pq"}));
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

TEST_F(SerialPty, ReopenHeldPortAndHangUp) {
  // Each open closes the port first (its own hold would refuse it); without settings, the stored defaults.
  EXPECT_TRUE(port.open(pty.slavePath(), 921600) && pty.hostLine() == "921600 none 1") << pty.hostLine();
  ASSERT_TRUE(port.open(pty.slavePath()) && pty.hostLine() == "9600 none 1") << pty.hostLine();
  SerialPort second;
  EXPECT_EQ(printed([&] { EXPECT_FALSE(second.open(pty.slavePath(), 9600)); }), "Error opening port\r\n");
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

// Opened by open() with stored data bits (those it uses) that the line cannot take.
struct FourDataBits : SerialPort {
  FourDataBits() {
    dataBits_ = 4;
    open();
  }
};

TEST(SerialPorts, SimulatorLinksAreListedAfterTheMachinesPortsAndEachOverloadOpensItsLine) {
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

  // Each constructor opens the line with the settings it was given, or says why not, naming the port. Those that
  // take the first port, and open(), get data bits refused before the device is touched: it may be a real one.
  using P = SerialPort;
  const std::string slave = pty.slavePath(), first = list.front();
  const auto opened = [&](const std::function<SerialPort*()>& open) {
    std::string about;
    std::unique_ptr<SerialPort> made;
    const std::string text = printed([&] { made.reset(open()); }, &about);
    EXPECT_EQ(about, text.empty() ? "" : made->portName());
    return made->portName() + ": " + text + (made->isOpen() ? pty.hostLine() : "");
  };
  EXPECT_EQ(opened([&] { return new P(good); }), good + ": 9600 none 1");
  EXPECT_EQ(opened([&] { return new P(slave, 38400); }), slave + ": 38400 none 1");
  EXPECT_EQ(opened([&] { return new P(slave, 19200, P::ParityMark, 7, P::StopTwo); }), slave + ": 19200 mark 2");
  EXPECT_EQ(opened([&] { return new P(slave, 9600, P::ParityOdd, 5, P::StopOneAndHalf); }), slave + ": 9600 odd 2");
  EXPECT_EQ(opened([] { return new P(9600, P::ParityOdd, 9, P::StopOne); }), first + ": " + kDataBits);
  EXPECT_EQ(opened([] { return new FourDataBits; }), first + ": " + kDataBits);
  EXPECT_EQ(opened([&] { return new P(slave, 9600, P::ParityOdd, 5, P::StopTwo); }), slave + ": " + kDataBits);
  EXPECT_EQ(opened([&] { return new P(slave, 9600, P::ParityOdd, 6, P::StopOneAndHalf); }),
            slave + ": Error opening port: Using five data bits with 2 stop bits - invalid combination,\r\n"
                    "as well as 6, 7 or 8 data bits with 1.5 stop bits.\r\n");
  unsetenv("QMLOAD_SIM_DIR");
  for (const auto& f : {good, stale, other}) unlink(f.c_str());
  rmdir(dir);
}

#else
HANDLE const kFake = reinterpret_cast<HANDLE>(0x5150);
std::string failAt, openedPath, dosNames;
DCB setDcb;
COMMTIMEOUTS setTimeouts;
decltype(&CloseHandle) realClose;

// The call named by failAt fails, with an error that does not mean a lost line.
BOOL result(const char* call) { return failAt == call ? (SetLastError(ERROR_GEN_FAILURE), FALSE) : TRUE; }
// Every port exists unless failAt names CreateFileA.
HANDLE WINAPI createFile(LPCSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
  return failAt == "CreateFileA" ? INVALID_HANDLE_VALUE : (openedPath = path, kFake);
}
// What the driver reports: every bit of the 24 bytes after the length the caller gave set.
BOOL WINAPI getState(HANDLE, LPDCB dcb) { return std::memset(&dcb->BaudRate, 0xFF, 24), result("GetCommState"); }
BOOL WINAPI setState(HANDLE, LPDCB dcb) { return setDcb = *dcb, result("SetCommState"); }
BOOL WINAPI getTimeouts(HANDLE, LPCOMMTIMEOUTS t) { return std::memset(t, 0x77, sizeof *t), result("GetCommTimeouts"); }
BOOL WINAPI setTimeoutsHook(HANDLE, LPCOMMTIMEOUTS t) { return setTimeouts = *t, result("SetCommTimeouts"); }
BOOL WINAPI clearError(HANDLE, LPDWORD, LPCOMSTAT s) { return s->cbInQue = 4, TRUE; }
BOOL WINAPI readFile(HANDLE, LPVOID, DWORD, LPDWORD n, LPOVERLAPPED) { return *n = 0, result("ReadFile"); }
BOOL WINAPI writeFile(HANDLE, LPCVOID, DWORD size, LPDWORD n, LPOVERLAPPED) { return *n = size, result("WriteFile"); }
BOOL WINAPI flush(HANDLE) { return result("FlushFileBuffers"); }
BOOL WINAPI closeHandle(HANDLE h) { return h == kFake ? TRUE : realClose(h); }
DWORD WINAPI queryDos(LPCSTR, LPSTR out, DWORD) {
  return std::memcpy(out, dosNames.data(), dosNames.size()), static_cast<DWORD>(dosNames.size());
}

class SerialWin32 : public testing::Test {
protected:
  // Points each import slot at its recorder.
  static void SetUpTestSuite() {
    realClose = reinterpret_cast<decltype(&CloseHandle)>(__imp_CloseHandle);
    const std::pair<void**, void*> hooks[] = {
        {&__imp_CreateFileA, (void*)createFile},      {&__imp_CloseHandle, (void*)closeHandle},
        {&__imp_GetCommState, (void*)getState},       {&__imp_SetCommState, (void*)setState},
        {&__imp_GetCommTimeouts, (void*)getTimeouts}, {&__imp_SetCommTimeouts, (void*)setTimeoutsHook},
        {&__imp_ClearCommError, (void*)clearError},   {&__imp_ReadFile, (void*)readFile},
        {&__imp_WriteFile, (void*)writeFile},         {&__imp_FlushFileBuffers, (void*)flush},
        {&__imp_QueryDosDeviceA, (void*)queryDos}};
    for (const auto& [slot, recorder] : hooks) {
      DWORD was;
      VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &was);
      *slot = recorder;
    }
  }
  void SetUp() override { failAt.clear(); }
};

TEST_F(SerialWin32, OpenWritesTheLineSettingsFlagWordAndTimeouts) {
  // Parity code -> DCB.Parity (an unknown code keeps the driver's), stop code -> DCB.StopBits.
  const struct {
    std::uint32_t parity, stop;
    BYTE dataBits, dcbParity, dcbStop;
  } cases[] = {{0, 0, 8, EVENPARITY, ONESTOPBIT},  {1, 2, 8, MARKPARITY, TWOSTOPBITS}, {2, 0, 7, NOPARITY, ONESTOPBIT},
               {3, 1, 5, ODDPARITY, ONE5STOPBITS}, {4, 0, 6, SPACEPARITY, ONESTOPBIT}, {5, 3, 8, 0xFF, 0xFF}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.parity);
    SerialPort port;
    ASSERT_TRUE(port.open("QMCOM12", 921600, c.parity, c.dataBits, c.stop) && openedPath == "\\\\.\\QMCOM12");
    std::uint32_t flags; // DSR sensitivity, TX-continue-on-XOFF and reserved bits kept, binary set
    std::memcpy(&flags, reinterpret_cast<const BYTE*>(&setDcb) + offsetof(DCB, BaudRate) + 4, 4);
    const DCB& d = setDcb;
    EXPECT_EQ(std::tuple(d.Parity, d.StopBits, d.ByteSize, d.BaudRate, d.DCBlength, flags, d.wReserved, d.XonLim,
                         d.XoffLim, d.XonChar, d.XoffChar, d.ErrorChar, BYTE(d.EofChar)),
              std::tuple(c.dcbParity, c.dcbStop, c.dataBits, DWORD(921600), DWORD(sizeof(DCB)), 0xFFFF80C1u, WORD(0),
                         WORD(128), WORD(128), char(0x11), char(0x13), char(0), BYTE(0xFF))); // EofChar: the driver's
    const COMMTIMEOUTS want{100, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&setTimeouts, &want, sizeof want), 0);
  }
}

TEST_F(SerialWin32, RareFailuresHaveTheirOwnTexts) {
  const std::pair<const char*, std::string> cases[] = {{"CreateFileA", "Error opening port\r\n"},
                                                       {"GetCommState", "Error opening port: GetCommState\r\n"},
                                                       {"SetCommState", "Error opening port: SetCommState\r\n"},
                                                       {"GetCommTimeouts", "Error opening port: GetCommTimeouts\r\n"},
                                                       {"SetCommTimeouts", "Error opening port: SetCommTimeouts\r\n"},
                                                       {"WriteFile", "write error\r\n"},
                                                       {"FlushFileBuffers", "write error: FlushFileBuffers\r\n"},
                                                       {"ReadFile", "read error\r\nread error\r\n"}};
  for (const auto& [call, expected] : cases) {
    SCOPED_TRACE(call);
    SerialPort port;
    failAt = call;
    const std::string text = printed([&] {
      std::uint8_t buffer[8];
      if (!port.open("QMCOM1", 9600)) return;
      EXPECT_EQ(port.write("x"), failAt != "WriteFile" && failAt != "FlushFileBuffers");
      EXPECT_EQ(port.read(buffer, sizeof buffer), 0u);
      if (failAt == "ReadFile") {
        EXPECT_EQ(port.readLine(), "");
      }
    });
    EXPECT_EQ(text, expected);
    EXPECT_FALSE(port.lost());
  }
}

TEST_F(SerialWin32, ScanKeepsComNamesInTheSystemsOrder) {
  dosNames = std::string("COM3\0XCOM2\0COM\0LPT1\0COM1\0\0", 27);
  SerialPort port;
  std::vector<std::string> list{"stale"};
  port.listPorts(list);
  EXPECT_EQ(list, (std::vector<std::string>{"COM3", "XCOM2", "COM1"}));
  EXPECT_EQ(printed([&] { EXPECT_EQ(port.printPorts(), 25u); }), "COM3\nXCOM2\nCOM1\n");
  EXPECT_TRUE(port.findPort() && port.foundPortName() == "COM3" && port.portNumber() == 3) << port.foundPortName();
  EXPECT_TRUE(port.open() && openedPath == "\\\\.\\COM3") << openedPath;

  dosNames = std::string("COM9\0\0", 6);
  EXPECT_TRUE(port.findPort() && port.foundPortName() == "COM3"); // once found, only asks whether any port exists
  dosNames = std::string("LPT1\0COM\0\0", 10);
  SerialPort none;
  EXPECT_FALSE(none.findPort());
  EXPECT_EQ(printed([&] { EXPECT_FALSE(none.open()); }), "Error: port is not found!\r\n");
  EXPECT_EQ(printed([] { SerialPort(9600, 2, 8, 0); }), "Error: port is not found!\r\n");
}

#endif
} // namespace
