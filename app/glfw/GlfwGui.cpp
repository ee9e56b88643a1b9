// The Linux window. The shared frame loop (app/FrameLoop.h) draws a frame at once
// at start, one more after every frame that handled input, and otherwise blocks in
// glfwWaitEvents until input arrives or another thread calls wakeGui.
#include "app/glfw/GlfwGui.h"

#include <GLFW/glfw3.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <vector>

#include "app/ButtonQueue.h"
#include "app/FrameLoop.h"
#include "app/GuiState.h"
#include "app/GuiStyle.h"
#include "app/glfw/GlBackend.h"

namespace {

constexpr int clientWidth = 280;
constexpr int clientHeight = 160;
constexpr const char* windowTitle = "qmload .::Vantorix::..::v1.0::.";
constexpr const char* fontPath = "/usr/share/fonts/truetype/liberation/LiberationSans-Regular.ttf";
constexpr float fontPixels = 14.0f;

// Left-button changes, at most one per frame (see ButtonQueue), and the one this
// frame gives to the GUI.
ButtonQueue buttons;
ButtonChange frameButton;
bool haveFrameButton = false;
// Window events seen since the counter was last cleared.
unsigned eventsSeen = 0;
std::atomic<bool> wakeRequested{false};

void wakeFromAnyThread() {
  wakeRequested.store(true);
  glfwPostEmptyEvent();
}

void onMouseButton(GLFWwindow* window, int button, int action, int) {
  ++eventsSeen;
  if (button != GLFW_MOUSE_BUTTON_LEFT) return;
  ButtonChange change;
  change.down = action == GLFW_PRESS;
  double x = 0, y = 0;
  glfwGetCursorPos(window, &x, &y);
  change.x = static_cast<int>(x);
  change.y = static_cast<int>(y);
  if (buttons.offer(change)) {
    frameButton = change;
    haveFrameButton = true;
  }
}
void onCursor(GLFWwindow*, double, double) { ++eventsSeen; }
void onScroll(GLFWwindow*, double dx, double dy) {
  ++eventsSeen;
  glBackendScroll(dx, dy);
}
void onChar(GLFWwindow*, unsigned int codepoint) {
  ++eventsSeen;
  glBackendChar(codepoint);
}
void onKey(GLFWwindow*, int, int, int, int) { ++eventsSeen; }
void onDrop(GLFWwindow*, int count, const char** paths) {
  ++eventsSeen;
  for (int i = 0; i < count; ++i) setProgramPath(paths[i]); // the last one wins
}
void onWindow(GLFWwindow*) { ++eventsSeen; }
void onSize(GLFWwindow*, int, int) { ++eventsSeen; }
void onFlag(GLFWwindow*, int) { ++eventsSeen; }

void installCallbacks(GLFWwindow* window) {
  glfwSetMouseButtonCallback(window, onMouseButton);
  glfwSetCursorPosCallback(window, onCursor);
  glfwSetScrollCallback(window, onScroll);
  glfwSetCharCallback(window, onChar);
  glfwSetKeyCallback(window, onKey);
  glfwSetDropCallback(window, onDrop);
  glfwSetWindowRefreshCallback(window, onWindow);
  glfwSetWindowCloseCallback(window, onWindow);
  glfwSetWindowSizeCallback(window, onSize);
  glfwSetFramebufferSizeCallback(window, onSize);
  glfwSetWindowFocusCallback(window, onFlag);
  glfwSetCursorEnterCallback(window, onFlag);
  glfwSetWindowIconifyCallback(window, onFlag);
}

std::vector<char> readFontFile() {
  std::ifstream in(fontPath, std::ios::binary);
  if (!in) return {};
  return std::vector<char>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void printGlfwError(int code, const char* text) { std::fprintf(stderr, "qmload: GLFW error %d: %s\n", code, text); }

// The loop's window side. GLFW has no single-message peek: the first peek of a
// frame polls every pending event and reports whether there were any (or a
// wake-up), the next one reports the queue empty.
class GlfwPump : public FramePump {
public:
  GlfwPump(Application& application, GLFWwindow* window) : application(application), window(window) {
    const char* frameLog = std::getenv("QMLOAD_FRAME_LOG");
    logFrames = frameLog && *frameLog && *frameLog != '0';
  }

  void beginInput() override {
    polled = false;
    ButtonChange kept;
    if (buttons.startFrame(kept)) {
      frameButton = kept;
      haveFrameButton = true;
    }
    // More kept changes: the next frame must come without waiting for input.
    if (buttons.hasPending()) wakeFromAnyThread();
  }
  int waitMessage() override {
    glfwWaitEvents();
    wakeRequested.store(false); // that wait is what the wake-up was for
    return glfwWindowShouldClose(window) ? 0 : 1;
  }
  bool peekMessage(bool& quit) override {
    if (polled) return false;
    polled = true;
    eventsSeen = 0;
    glfwPollEvents();
    quit = glfwWindowShouldClose(window);
    return eventsSeen > 0 || wakeRequested.exchange(false) || quit;
  }
  void endInput() override {
    glBackendInput(haveFrameButton ? &frameButton : nullptr);
    haveFrameButton = false;
  }
  void drawFrame() override {
    application.drawCurrent();
    glBackendRender(guiClearColor);
    glfwSwapBuffers(window);
    if (logFrames) std::fprintf(stderr, "frame %lu\n", ++frames);
  }

private:
  Application& application;
  GLFWwindow* window;
  bool polled = false;
  bool logFrames = false;
  unsigned long frames = 0;
};

} // namespace

void runGui(Application& application) {
  glfwSetErrorCallback(printGlfwError);
  if (!glfwInit()) {
    std::fprintf(stderr, "qmload: cannot start GLFW (is DISPLAY set?)\n");
    return;
  }
  glfwWindowHint(GLFW_CONTEXT_VERSION_MAJOR, 2);
  glfwWindowHint(GLFW_CONTEXT_VERSION_MINOR, 1);
  GLFWwindow* window = glfwCreateWindow(clientWidth, clientHeight, windowTitle, nullptr, nullptr);
  if (!window) {
    std::fprintf(stderr, "qmload: cannot create the window\n");
    releaseSession(application);
    glfwTerminate();
    return;
  }
  glfwMakeContextCurrent(window);
  glfwSwapInterval(0);

  application.ctx = glBackendInit(window);
  // Liberation Sans has Arial's metrics; the atlas keeps pointing into this buffer.
  static std::vector<char> fontFile = readFontFile();
  glBackendLoadFont(fontFile.empty() ? nullptr : fontFile.data(), static_cast<int>(fontFile.size()), fontPixels);
  applyGuiStyle(application.ctx);
  installCallbacks(window);
  setWakeHandler(wakeFromAnyThread);

  GlfwPump pump(application, window);
  runFrameLoop(pump);

  // The worker may still call wakeGui until it is joined.
  releaseSession(application);
  setWakeHandler(nullptr);
  glBackendShutdown();
  application.ctx = nullptr;
  glfwDestroyWindow(window);
  glfwTerminate();
}
