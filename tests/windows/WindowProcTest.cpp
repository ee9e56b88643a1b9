// The window procedure's own messages and the window's position, without a window:
// the procedure is called directly, and a drop is a DROPFILES block made here.
#include <gtest/gtest.h>

#include <windows.h>

#include <shlobj.h>

#include <cstring>
#include <string>
#include <vector>

#include "app/GuiState.h"
#include "app/win32/Win32Gui.h"

namespace {

// A drop handle as the shell makes it: DROPFILES, then the names, each ended by
// a NUL, and one more NUL. DragFinish frees it.
HDROP makeDrop(const std::vector<std::string>& names) {
  std::string list;
  for (const std::string& name : names) list += name + '\0';
  list += '\0';
  HGLOBAL memory = GlobalAlloc(GHND, sizeof(DROPFILES) + list.size());
  auto* header = static_cast<DROPFILES*>(GlobalLock(memory));
  header->pFiles = sizeof(DROPFILES);
  header->fWide = FALSE;
  std::memcpy(reinterpret_cast<char*>(header) + sizeof(DROPFILES), list.data(), list.size());
  GlobalUnlock(memory);
  return static_cast<HDROP>(memory);
}

HDROP makeWideDrop(const std::vector<std::wstring>& names) {
  std::wstring list;
  for (const std::wstring& name : names) list += name + L'\0';
  list += L'\0';
  HGLOBAL memory = GlobalAlloc(GHND, sizeof(DROPFILES) + list.size() * sizeof(wchar_t));
  auto* header = static_cast<DROPFILES*>(GlobalLock(memory));
  header->pFiles = sizeof(DROPFILES);
  header->fWide = TRUE;
  std::memcpy(reinterpret_cast<char*>(header) + sizeof(DROPFILES), list.data(), list.size() * sizeof(wchar_t));
  GlobalUnlock(memory);
  return static_cast<HDROP>(memory);
}

LRESULT drop(HDROP handle) { return windowProc(nullptr, WM_DROPFILES, reinterpret_cast<WPARAM>(handle), 0); }

} // namespace

TEST(DropFiles, TheLastOfSeveralDroppedFilesBecomesTheProgramPath) {
  setProgramPath("");
  EXPECT_EQ(drop(makeDrop({"C:\\fw\\first.alf", "C:\\fw\\second.alf", "D:\\images\\third one.alf"})), 0);
  EXPECT_EQ(programPath, "D:\\images\\third one.alf");
}

TEST(DropFiles, OneFileReplacesAPathGivenEarlier) {
  setProgramPath("./from/the/command/line.alf");
  drop(makeDrop({"C:\\prog.alf"}));
  EXPECT_EQ(programPath, "C:\\prog.alf");
}

TEST(DropFiles, TheDropHandleIsReleased) {
  HDROP handle = makeDrop({"C:\\one.alf", "C:\\two.alf"});
  drop(handle);
  EXPECT_EQ(GlobalFlags(handle), static_cast<UINT>(GMEM_INVALID_HANDLE));
}

TEST(DropFiles, WideNamesFromTheShellArriveAsAnsi) {
  setProgramPath("");
  drop(makeWideDrop({L"C:\\a.alf", L"C:\\dir\\b.alf"}));
  EXPECT_EQ(programPath, "C:\\dir\\b.alf");
}

TEST(DropFiles, ANameLongerThanTheBufferIsCutToIt) {
  setProgramPath("");
  const std::string longName = "C:\\" + std::string(400, 'x') + ".alf";
  drop(makeDrop({longName}));
  EXPECT_EQ(programPath, longName.substr(0, 259)); // 260 characters with the NUL
}

TEST(WindowProc, WakeUpIsAcceptedAndDoesNothing) {
  setProgramPath("C:\\same.alf");
  EXPECT_EQ(windowProc(nullptr, WM_USER, 0, 0), 0);
  EXPECT_EQ(programPath, "C:\\same.alf");
}

TEST(WindowProc, DestroyPostsQuitWithExitCodeZero) {
  EXPECT_EQ(windowProc(nullptr, WM_DESTROY, 0, 0), 0);
  MSG msg;
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(msg.message, static_cast<UINT>(WM_QUIT));
  EXPECT_EQ(msg.wParam, 0u);
}

TEST(WindowPosition, SitsHalfTheWidthLeftAndTheFullHeightAboveTheCentre) {
  POINT p = windowPosition(1920, 1080);
  EXPECT_EQ(p.x, 820);
  EXPECT_EQ(p.y, 380);
  p = windowPosition(1366, 768);
  EXPECT_EQ(p.x, 543);
  EXPECT_EQ(p.y, 224);
  p = windowPosition(1023, 767); // odd sizes: the halves truncate
  EXPECT_EQ(p.x, 371);
  EXPECT_EQ(p.y, 223);
}
