// The Windows backend against a stand-in communications API: this program's own
// import slots are pointed at recorders, so the exact DCB, time-outs, port scan and
// the failure texts of calls a real port seldom fails can be seen.
#include <windows.h>

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>

#include "base/Console.h"
#include "serial/SerialPort.h"

namespace {

HANDLE const kFake = reinterpret_cast<HANDLE>(0x5150);
std::string failAt, openedPath, dosNames; // failAt: the one call that fails
DCB setDcb;
COMMTIMEOUTS setTimeouts;
decltype(&CloseHandle) realClose;
decltype(&CreateFileA) realCreate;

BOOL result(const char* call) {
  if (failAt != call) return TRUE;
  SetLastError(ERROR_GEN_FAILURE); // not a lost-line code
  return FALSE;
}
// Ports named QM... and COM... are the stand-in's; any other name is the system's.
HANDLE WINAPI createFile(LPCSTR path, DWORD access, DWORD share, LPSECURITY_ATTRIBUTES security, DWORD how, DWORD flags,
                         HANDLE from) {
  if (std::strncmp(path, "\\\\.\\QM", 6) != 0 && std::strncmp(path, "\\\\.\\COM", 7) != 0)
    return realCreate(path, access, share, security, how, flags, from);
  openedPath = path;
  return kFake;
}
BOOL WINAPI getState(HANDLE, LPDCB dcb) {
  const DWORD length = dcb->DCBlength;
  std::memset(dcb, 0xFF, sizeof *dcb); // what the driver reports: every bit set
  dcb->DCBlength = length;
  return result("GetCommState");
}
BOOL WINAPI setState(HANDLE, LPDCB dcb) { return setDcb = *dcb, result("SetCommState"); }
BOOL WINAPI getTimeouts(HANDLE, LPCOMMTIMEOUTS t) { return std::memset(t, 0x77, sizeof *t), result("GetCommTimeouts"); }
BOOL WINAPI setTimeoutsHook(HANDLE, LPCOMMTIMEOUTS t) { return setTimeouts = *t, result("SetCommTimeouts"); }
BOOL WINAPI clearError(HANDLE, LPDWORD, LPCOMSTAT s) { return s->cbInQue = 4, TRUE; }
BOOL WINAPI readFile(HANDLE, LPVOID, DWORD, LPDWORD n, LPOVERLAPPED) { return *n = 0, result("ReadFile"); }
BOOL WINAPI writeFile(HANDLE, LPCVOID, DWORD size, LPDWORD n, LPOVERLAPPED) { return *n = size, result("WriteFile"); }
BOOL WINAPI flush(HANDLE) { return result("FlushFileBuffers"); }
BOOL WINAPI closeHandle(HANDLE h) { return h == kFake ? TRUE : realClose(h); }
DWORD WINAPI queryDos(LPCSTR, LPSTR out, DWORD) {
  std::memcpy(out, dosNames.data(), dosNames.size());
  return static_cast<DWORD>(dosNames.size());
}

// Points this program's import slot of `name` at `hook`; returns what it pointed at.
void* hookImport(const char* name, void* hook) {
  auto* base = reinterpret_cast<BYTE*>(GetModuleHandleA(nullptr));
  auto* nt = reinterpret_cast<IMAGE_NT_HEADERS*>(base + reinterpret_cast<IMAGE_DOS_HEADER*>(base)->e_lfanew);
  const DWORD imports = nt->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT].VirtualAddress;
  for (auto* dll = reinterpret_cast<IMAGE_IMPORT_DESCRIPTOR*>(base + imports); dll->Name != 0; ++dll) {
    auto* names = reinterpret_cast<IMAGE_THUNK_DATA*>(base + dll->OriginalFirstThunk);
    auto* slot = reinterpret_cast<IMAGE_THUNK_DATA*>(base + dll->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++slot) {
      if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal) ||
          std::strcmp(reinterpret_cast<IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData)->Name, name) != 0)
        continue;
      DWORD was;
      VirtualProtect(slot, sizeof *slot, PAGE_READWRITE, &was);
      void* old = reinterpret_cast<void*>(slot->u1.Function);
      slot->u1.Function = reinterpret_cast<ULONG_PTR>(hook);
      VirtualProtect(slot, sizeof *slot, was, &was);
      return old;
    }
  }
  ADD_FAILURE() << name << " is not imported";
  return nullptr;
}

std::string printed(const std::function<void()>& run) {
  std::string text;
  const ConsoleSink before = setConsoleSink([&](std::string_view t, std::string_view) { text += t; });
  run();
  setConsoleSink(before);
  return text;
}

class SerialWin32 : public testing::Test {
protected:
  static void SetUpTestSuite() {
    realClose = reinterpret_cast<decltype(&CloseHandle)>(hookImport("CloseHandle", (void*)closeHandle));
    realCreate = reinterpret_cast<decltype(&CreateFileA)>(hookImport("CreateFileA", (void*)createFile));
    const std::pair<const char*, void*> hooks[] = {
        {"GetCommState", (void*)getState},       {"SetCommState", (void*)setState},
        {"GetCommTimeouts", (void*)getTimeouts}, {"SetCommTimeouts", (void*)setTimeoutsHook},
        {"ClearCommError", (void*)clearError},   {"ReadFile", (void*)readFile},
        {"WriteFile", (void*)writeFile},         {"FlushFileBuffers", (void*)flush},
        {"QueryDosDeviceA", (void*)queryDos}};
    for (const auto& [name, hook] : hooks) hookImport(name, hook);
  }
  void SetUp() override { failAt.clear(); }
};

TEST_F(SerialWin32, OpenWritesTheLineSettingsFlagWordAndTimeouts) {
  // Parity code -> DCB.Parity (an unknown code keeps the driver's), stop code -> DCB.StopBits.
  const struct {
    std::uint32_t parity, stop;
    std::uint8_t dataBits;
    BYTE dcbParity, dcbStop;
  } cases[] = {{0, 0, 8, EVENPARITY, ONESTOPBIT},  {1, 2, 8, MARKPARITY, TWOSTOPBITS}, {2, 0, 7, NOPARITY, ONESTOPBIT},
               {3, 1, 5, ODDPARITY, ONE5STOPBITS}, {4, 0, 6, SPACEPARITY, ONESTOPBIT}, {5, 3, 8, 0xFF, 0xFF}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.parity);
    SerialPort port;
    ASSERT_TRUE(port.open("QMCOM12", 921600, c.parity, c.dataBits, c.stop));
    EXPECT_EQ(openedPath, "\\\\.\\QMCOM12");
    EXPECT_EQ(setDcb.Parity, c.dcbParity);
    EXPECT_EQ(setDcb.StopBits, c.dcbStop);
    EXPECT_EQ(setDcb.ByteSize, c.dataBits);
    EXPECT_EQ(setDcb.BaudRate, 921600u);
    EXPECT_EQ(setDcb.DCBlength, sizeof(DCB));
    std::uint32_t flags;
    std::memcpy(&flags, reinterpret_cast<const BYTE*>(&setDcb) + offsetof(DCB, BaudRate) + 4, 4);
    EXPECT_EQ(flags, 0xFFFF80C1u); // DSR sensitivity, TX-continue-on-XOFF and reserved bits kept, binary set
    EXPECT_EQ(setDcb.wReserved, 0);
    EXPECT_EQ(setDcb.XonLim, 128);
    EXPECT_EQ(setDcb.XoffLim, 128);
    EXPECT_EQ(setDcb.XonChar, 0x11);
    EXPECT_EQ(setDcb.XoffChar, 0x13);
    EXPECT_EQ(setDcb.ErrorChar, 0);
    EXPECT_EQ(static_cast<BYTE>(setDcb.EofChar), 0xFF); // the driver's
    const COMMTIMEOUTS want{100, 0, 0, 0, 0};
    EXPECT_EQ(std::memcmp(&setTimeouts, &want, sizeof want), 0);
  }
}

TEST_F(SerialWin32, RareFailuresHaveTheirOwnTexts) {
  const struct {
    const char* call;
    std::string text;
  } cases[] = {{"GetCommState", "Error opening port: GetCommState\r\n"},
               {"SetCommState", "Error opening port: SetCommState\r\n"},
               {"GetCommTimeouts", "Error opening port: GetCommTimeouts\r\n"},
               {"SetCommTimeouts", "Error opening port: SetCommTimeouts\r\n"},
               {"WriteFile", "write error\r\n"},
               {"FlushFileBuffers", "write error: FlushFileBuffers\r\n"},
               {"ReadFile", "read error\r\nread error\r\n"}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.call);
    SerialPort port;
    failAt = c.call;
    const std::string text = printed([&] {
      std::uint8_t buffer[8];
      if (!port.open("QMCOM1", 9600)) return;
      EXPECT_EQ(port.write("x"), failAt != "WriteFile" && failAt != "FlushFileBuffers");
      EXPECT_EQ(port.read(buffer, sizeof buffer), 0u);
      if (failAt == "ReadFile") {
        EXPECT_EQ(port.readLine(), "");
      }
    });
    EXPECT_EQ(text, c.text);
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
  EXPECT_TRUE(port.findPort());
  EXPECT_EQ(port.foundPortName(), "COM3");
  EXPECT_EQ(port.portNumber(), 3);
  EXPECT_TRUE(port.open());
  EXPECT_EQ(openedPath, "\\\\.\\COM3");

  dosNames = std::string("COM9\0\0", 6);
  EXPECT_TRUE(port.findPort()); // once found, only asks whether any port exists
  EXPECT_EQ(port.foundPortName(), "COM3");
  dosNames = std::string("LPT1\0COM\0\0", 10);
  SerialPort none;
  EXPECT_FALSE(none.findPort());
  EXPECT_EQ(printed([&] { EXPECT_FALSE(none.open()); }), "Error: port is not found!\r\n");
  EXPECT_EQ(printed([] { SerialPort(9600, 2, 8, 0); }), "Error: port is not found!\r\n");
}

} // namespace
