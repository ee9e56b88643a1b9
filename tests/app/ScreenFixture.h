#pragma once
// The screen drawn into a windowless Nuklear context (test font: 8 pixels a character), the GUI
// state reset, session and port list doubled, the test run in root/a/b ("./../../" is root).
#include <memory>

#include "app/Application.h"
#include "app/FlashScreen.h"
#include "app/GuiState.h"
#include "app/GuiStyle.h"
#include "app/NuklearConfig.h"
#include "app/StartScreen.h"
#include "tests/linkmap/TestFiles.h"
#include "tests/support/FakeLink.h"

namespace fs = std::filesystem;
using namespace StartScreenSpace;

struct Drawn { // a text in its colour, or a filled rectangle (empty text)
  std::string text;
  int x, y, w, h;
  nk_color color;
};

inline std::vector<std::string> testPorts;
inline FakeLink* lastLink = nullptr;

class ScreenTest : public ::testing::Test {
protected:
  void SetUp() override {
    releaseSession(app);
    programPath.clear(), portNames.clear(), deviceIds.clear(), selectedPort = 0, flushState = FlushState{};
    lastLink = nullptr, FakeLink::destroyed = 0, testPorts = {"COM1", "COM7"};
    setSessionFactory([](const char* port) -> std::unique_ptr<FlashLink> {
      FakeLink::destroyedAtLastCreate = FakeLink::destroyed;
      lastLink = new FakeLink(port);
      return std::unique_ptr<FlashLink>(lastLink);
    });
    setPortLister([](std::vector<std::string>& names) { names = testPorts; });
    font.height = 14;
    font.width = [](nk_handle, float, const char*, int length) { return static_cast<float>(length) * 8; };
    nk_init_default(&ctx, &font);
    applyGuiStyle(&ctx);
    root = testFolder(), saved = fs::current_path();
    fs::create_directories(root + "a/b");
    fs::current_path(root + "a/b");
    screen.init(nullptr);
  }
  void TearDown() override {
    fs::current_path(saved);
    nk_free(&ctx);
    releaseSession(app);
    setSessionFactory(nullptr);
    setPortLister(nullptr);
  }

  // One frame; with `at`, the left button moves to its centre and goes down or up.
  void frame(const Drawn* at = nullptr, bool down = false) {
    nk_input_begin(&ctx);
    if (at) nk_input_motion(&ctx, at->x + at->w / 2, at->y + at->h / 2);
    if (at) nk_input_button(&ctx, NK_BUTTON_LEFT, at->x + at->w / 2, at->y + at->h / 2, down);
    nk_input_end(&ctx);
    screen.draw(&ctx);
    drawn.clear();
    const nk_command* c = nullptr;
    nk_foreach(c, &ctx) {
      const auto* t = reinterpret_cast<const nk_command_text*>(c);
      const auto* r = reinterpret_cast<const nk_command_rect_filled*>(c);
      if (c->type == NK_COMMAND_TEXT)
        drawn.push_back({std::string(t->string, t->length), t->x, t->y, t->w, t->h, t->foreground});
      if (c->type == NK_COMMAND_RECT_FILLED) drawn.push_back({"", r->x, r->y, r->w, r->h, r->color});
    }
    nk_clear(&ctx);
  }
  // A press on the text in one frame and the release in the next.
  void click(const std::string& text, int occurrence = 0) {
    const Drawn* t = find(text, occurrence);
    ASSERT_NE(t, nullptr) << text << " is not on screen: " << dump();
    const Drawn at = *t;
    frame(&at, true), frame(&at, false);
  }
  const Drawn* find(const std::string& text, int occurrence = 0) const {
    for (const Drawn& d : drawn)
      if (!text.empty() && d.text == text && occurrence-- == 0) return &d;
    return nullptr;
  }
  bool shows(const std::string& text) const { return find(text) != nullptr; }
  std::string dump() const {
    std::string out;
    for (const Drawn& d : drawn) out += d.text.empty() ? "" : "[" + d.text + "]";
    return out;
  }
  // Frames until the not-found pop-up shows, every request failing.
  void runOutDiscovery() {
    for (int frames = 0; !shows("Devices are not found") && frames < 200; ++frames, frame())
      if (link().busy) link().fail();
    ASSERT_TRUE(shows("Devices are not found")) << dump();
  }
  void openAndDiscover() {
    frame(), click("Open");
    ASSERT_EQ(mode(), WaitDevices);
    link().answer(0x00c0ffee, 0x12345678, 0x9abcdef0), startCapture(), frame(), endCapture();
    ASSERT_EQ(mode(), DeviceReady);
  }
  FakeLink& link() { return *lastLink; }
  int mode() const { return screen.mode; }

  nk_user_font font{};
  nk_context ctx{};
  StartScreen screen;
  std::vector<Drawn> drawn;
  std::string root;
  fs::path saved;
};
