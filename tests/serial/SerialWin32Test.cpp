// The Windows backend against a stand-in communications API, so that the exact DCB, time-outs, port scan
// and the texts of failures a real port seldom has can be seen.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <tuple>
#include <utility>

#include "base/Console.h"
#include "serial/SerialPort.h"

// This program's import slots (the linker names each __imp_<function>), pointed at the recorders below.
extern "C" void *__imp_CreateFileA, *__imp_CloseHandle, *__imp_GetCommState, *__imp_SetCommState,
    *__imp_GetCommTimeouts, *__imp_SetCommTimeouts, *__imp_ClearCommError, *__imp_ReadFile, *__imp_WriteFile,
    *__imp_FlushFileBuffers, *__imp_QueryDosDeviceA;
// What the calls printed (SerialTest.cpp).
std::string printed(const std::function<void()>& run, std::string* about = nullptr);

namespace {

HANDLE const kFake = reinterpret_cast<HANDLE>(0x5150);
std::string failAt, openedPath, dosNames;
DCB setDcb;
COMMTIMEOUTS setTimeouts;
decltype(&CloseHandle) realClose;

// The call named by failAt fails, with an error that does not mean a lost line.
BOOL result(const char* call) { return failAt == call ? (SetLastError(ERROR_GEN_FAILURE), FALSE) : TRUE; }
// Ports named QM... and COM... are the stand-in's; any other is missing.
HANDLE WINAPI createFile(LPCSTR path, DWORD, DWORD, LPSECURITY_ATTRIBUTES, DWORD, DWORD, HANDLE) {
  const bool ours = std::strncmp(path, "\\\\.\\QM", 6) == 0 || std::strncmp(path, "\\\\.\\COM", 7) == 0;
  return ours ? (openedPath = path, kFake) : INVALID_HANDLE_VALUE;
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

// Points an import slot at a recorder; returns what it pointed at.
void* hook(void*& slot, void* recorder) {
  DWORD was;
  VirtualProtect(&slot, sizeof slot, PAGE_READWRITE, &was);
  return std::exchange(slot, recorder);
}

class SerialWin32 : public testing::Test {
protected:
  static void SetUpTestSuite() {
    realClose = reinterpret_cast<decltype(&CloseHandle)>(hook(__imp_CloseHandle, (void*)closeHandle));
    hook(__imp_CreateFileA, (void*)createFile);
    const std::pair<void**, void*> hooks[] = {
        {&__imp_GetCommState, (void*)getState},       {&__imp_SetCommState, (void*)setState},
        {&__imp_GetCommTimeouts, (void*)getTimeouts}, {&__imp_SetCommTimeouts, (void*)setTimeoutsHook},
        {&__imp_ClearCommError, (void*)clearError},   {&__imp_ReadFile, (void*)readFile},
        {&__imp_WriteFile, (void*)writeFile},         {&__imp_FlushFileBuffers, (void*)flush},
        {&__imp_QueryDosDeviceA, (void*)queryDos}};
    for (const auto& [slot, recorder] : hooks) hook(*slot, recorder);
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
  const std::pair<const char*, std::string> cases[] = {{"GetCommState", "Error opening port: GetCommState\r\n"},
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

} // namespace
