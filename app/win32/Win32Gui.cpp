#include "app/win32/Win32Gui.h"

#include <shellapi.h>

#include <iostream>

#include "app/GuiState.h"
#include "app/GuiStyle.h"
#include "app/FrameLoop.h"
#include "app/win32/GdipRenderer.h"
#include "app/win32/Win32Input.h"

namespace {

constexpr int clientWidth = 280;
constexpr int clientHeight = 160;
constexpr const wchar_t* windowClassName = L"NuklearWindowClass";
constexpr const wchar_t* windowTitle = L"qmload .::Vantorix::..::v1.0::.";
constexpr const wchar_t* fontName = L"Arial";
constexpr const char* fontNameUtf8 = "Arial";
constexpr int fontPixels = 14;
constexpr DWORD windowStyle = WS_OVERLAPPEDWINDOW | WS_VISIBLE;
constexpr DWORD windowExStyle = WS_EX_APPWINDOW | WS_EX_ACCEPTFILES;

// The main window, for wakeGui from the session's worker thread.
HWND mainWindow = nullptr;
GdipRenderer renderer;
Win32Input input;

void postWake() { PostMessageA(mainWindow, WM_USER, 0, 0); }

// One line on stdout when the window draws with another font than it asks for;
// nothing when it has its own, so the usual console text stays as it is.
void reportFont(const GdipFont& font) {
  if (font.family == fontNameUtf8) return;
  if (font.family.empty())
    std::cout << "font \"" << fontNameUtf8 << "\" not found and no other font either: text is not drawn\n";
  else
    std::cout << "font \"" << fontNameUtf8 << "\" not found, using \"" << font.family << "\"\n";
  std::cout << std::flush;
}

// The loop's window side: GetMessageW/PeekMessageW, the input bracketing, the
// current screen's drawing and the render.
class WindowPump : public FramePump {
public:
  explicit WindowPump(Application& application) : application(application) {}

  void beginInput() override { input.begin(); }
  int waitMessage() override {
    MSG msg;
    const BOOL result = GetMessageW(&msg, nullptr, 0, 0);
    if (result > 0) {
      TranslateMessage(&msg);
      DispatchMessageW(&msg);
    }
    return result;
  }
  bool peekMessage(bool& quit) override {
    MSG msg;
    if (!PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE)) return false;
    quit = msg.message == WM_QUIT;
    TranslateMessage(&msg);
    DispatchMessageW(&msg);
    return true;
  }
  void endInput() override { input.end(); }
  void drawFrame() override {
    application.drawCurrent();
    renderer.render(guiClearColor);
  }

private:
  Application& application;
};

} // namespace

POINT windowPosition(int screenWidth, int screenHeight) {
  POINT position;
  position.x = screenWidth / 2 - clientWidth / 2;
  position.y = screenHeight / 2 - clientHeight;
  return position;
}

void handleDropFiles(HDROP drop) {
  const UINT count = DragQueryFileA(drop, 0xFFFFFFFF, nullptr, 0);
  for (UINT i = 0; i < count; ++i) {
    char name[260];
    DragQueryFileA(drop, i, name, sizeof name);
    setProgramPath(name);
  }
  DragFinish(drop);
}

LRESULT CALLBACK windowProc(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  switch (message) {
  case WM_USER: return 0;
  case WM_DROPFILES: handleDropFiles(reinterpret_cast<HDROP>(wParam)); return 0;
  case WM_DESTROY: PostQuitMessage(0); return 0;
  default: break;
  }
  if (renderer.handleWindowMessage(hwnd, message, wParam, lParam) || input.handleMessage(hwnd, message, wParam, lParam))
    return 0;
  return DefWindowProcW(hwnd, message, wParam, lParam);
}

void runGui(Application& application) {
  HINSTANCE instance = GetModuleHandleW(nullptr);
  WNDCLASSW windowClass = {};
  windowClass.style = CS_DBLCLKS;
  windowClass.lpfnWndProc = windowProc;
  windowClass.hInstance = instance;
  windowClass.hIcon = LoadIconA(nullptr, IDI_APPLICATION);
  windowClass.hCursor = LoadCursorA(nullptr, IDC_ARROW);
  windowClass.lpszClassName = windowClassName;
  RegisterClassW(&windowClass);

  RECT rect = {0, 0, clientWidth, clientHeight};
  AdjustWindowRectEx(&rect, WS_OVERLAPPEDWINDOW, FALSE, windowExStyle);
  const POINT position = windowPosition(GetSystemMetrics(SM_CXSCREEN), GetSystemMetrics(SM_CYSCREEN));
  mainWindow = CreateWindowExW(windowExStyle, windowClassName, windowTitle, windowStyle, position.x, position.y,
                               rect.right - rect.left, rect.bottom - rect.top, nullptr, nullptr, instance, nullptr);
  setWakeHandler(postWake);

  application.ctx = renderer.init(mainWindow, clientWidth, clientHeight);
  input.attach(mainWindow, application.ctx);
  GdipFont* font = renderer.fontCreate(fontName, fontPixels);
  reportFont(*font);
  renderer.setFont(font);
  applyGuiStyle(application.ctx);

  WindowPump pump(application);
  runFrameLoop(pump);

  // The worker may call wakeGui until it has been joined.
  releaseSession(application);
  setWakeHandler(nullptr);
  GdipRenderer::fontDelete(font);
  input.detach();
  renderer.shutdown();
  application.ctx = nullptr;
  mainWindow = nullptr;
  UnregisterClassW(windowClassName, instance);
}
