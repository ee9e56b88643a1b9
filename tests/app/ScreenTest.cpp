// The screens clicked in a windowless Nuklear context; start-up, the frame loop and the button queue.
#include "app/AppMain.h"
#include "app/ButtonQueue.h"
#include "app/FlashScreen.h"
#include "app/FrameLoop.h"
#include "app/GuiState.h"
#include "app/GuiStyle.h"
#include "app/StartScreen.h"
#include "image/AelfImage.h"
#include "tests/support/FakeLink.h"
#include "tests/support/TestFiles.h"

namespace fs = std::filesystem;
using namespace StartScreenSpace;

std::vector<std::string> testPorts;
FakeLink* lastLink = nullptr;

class ScreenTest : public ::testing::Test {
protected:
  void SetUp() override {
    programPath.clear(), portNames.clear(), deviceIds.clear(), selectedPort = 0, flushState = FlushState{};
    lastLink = nullptr, FakeLink::destroyed = 0, testPorts = {"COM1", "COM7"};
    setSessionFactory([](const char* port) -> std::unique_ptr<FlashLink> {
      FakeLink::destroyedAtLastCreate = FakeLink::destroyed;
      return std::unique_ptr<FlashLink>(lastLink = new FakeLink(port));
    });
    setPortLister([](std::vector<std::string>& names) { names = testPorts; });
    nk_init_default(&ctx, &font), applyGuiStyle(&ctx);
    fs::create_directories(root + "a/b"), fs::current_path(root + "a/b"); // so "./../../" is root
    screen.init(nullptr);
  }
  void TearDown() override {
    fs::current_path(saved), nk_free(&ctx), releaseSession(app), setSessionFactory(nullptr), setPortLister(nullptr);
  }

  // One frame; with x >= 0 the left button moves there and goes down or up.
  void frame(int x = -1, int y = 0, bool down = false) {
    nk_input_begin(&ctx);
    if (x >= 0) nk_input_motion(&ctx, x, y), nk_input_button(&ctx, NK_BUTTON_LEFT, x, y, down);
    nk_input_end(&ctx);
    screen.draw(&ctx);
    drawn.clear(), texts.clear(), fill = -1;
    const nk_command* c = nullptr;
    nk_foreach(c, &ctx) {
      const auto* t = reinterpret_cast<const nk_command_text*>(c);
      const auto* r = reinterpret_cast<const nk_command_rect_filled*>(c);
      if (c->type == NK_COMMAND_TEXT)
        texts += "[" + drawn.emplace_back(std::string(t->string, t->length), *t).first + "]";
      if (c->type == NK_COMMAND_RECT_FILLED && r->h > 20 && (r->color.r == 51 || r->color.r == 181))
        fill = std::max(fill, r->color.r == 181 ? int(r->w) : 0); // the progress bar's track or its filled part
    }
    nk_clear(&ctx);
  }
  // A press on the text's centre in one frame and the release in the next.
  void click(const std::string& text, int occurrence = 0) {
    const nk_command_text* t = find(text, occurrence);
    ASSERT_NE(t, nullptr) << text << " is not on screen: " << texts;
    const int x = t->x + t->w / 2, y = t->y + t->h / 2;
    frame(x, y, true), frame(x, y, false);
  }
  const nk_command_text* find(const std::string& text, int occurrence = 0) const {
    for (const auto& [shown, command] : drawn)
      if (shown == text && occurrence-- == 0) return &command;
    return nullptr;
  }
  bool shows(const std::string& text) const { return find(text) != nullptr; }
  // Frames until the not-found pop-up shows, every request failing; whether it showed.
  bool runOutDiscovery() {
    for (int frames = 0; !shows("Devices are not found") && frames < 200; ++frames, frame())
      if (link().busy) link().fail();
    return shows("Devices are not found");
  }
  // Frames, each request answered with this identity, until the device screen is drawn; returns what was printed.
  std::string discover(std::uint32_t id0 = 0x00c0ffee, std::uint32_t id1 = 0x12345678, std::uint32_t id2 = 0x9abcdef0) {
    std::string printed;
    for (int frames = 0; mode() == WaitDevices && frames < 20; ++frames, frame())
      if (link().busy) link().answer(id0, id1, id2), startCapture(), frame(), printed += endCapture();
    return printed;
  }
  // An image with exeSize bytes at 0x08004000 and resSize bytes at 0x08010000, flashed.
  void startFlush(std::uint32_t exeSize, std::uint32_t resSize) {
    std::string bytes = "AELF" + std::string(64, '\0') + std::string(exeSize + resSize, 'Z');
    for (const auto& [at, value] :
         {std::pair<int, std::uint32_t>{28, 0x08004000}, {32, exeSize}, {40, 0x08010000}, {44, resSize}})
      for (int i = 0; i < 4; ++i) bytes[4 + at + i] = static_cast<char>(value >> (8 * i));
    writeFile("image.alf", bytes), setProgramPath("image.alf");
    frame(), click("Open"), discover(), click("Flush");
    ASSERT_EQ(mode(), Flushing);
  }
  FakeLink& link() { return *lastLink; }
  int mode() const { return screen.mode; }

  nk_user_font font{{}, 14, [](nk_handle, float, const char*, int length) { return length * 8.0f; }, {}, {}};
  nk_context ctx{};
  StartScreen screen;
  std::vector<std::pair<std::string, nk_command_text>> drawn; // the last frame's texts
  std::string texts;                                          // the same, each in brackets
  int fill = -1; // the width of the progress bar's filled part, 0 for its track alone, -1 when no bar was drawn
  std::string root = testFolder();
  fs::path saved = fs::current_path();
};

TEST_F(ScreenTest, StartScreenRowsRefreshAndThePortTable) {
  frame();
  EXPECT_EQ(texts, "[Port][COM1][Refresh][Open][parse map1][build aelf]");
  EXPECT_TRUE(find("Port")->y < find("Open")->y && find("Open")->y < find("build aelf")->y);
  // The documented text colour (190, 190, 190, 255) and background.
  EXPECT_TRUE(nk_color_u32(find("Port")->foreground) == 0xFFBEBEBEu && guiClearColor == 0xFF1E1E1Eu);
  testPorts.clear(), click("Refresh");
  EXPECT_EQ(texts, "[Port][NO PORTS][Refresh][parse map1][build aelf]");
  selectedPort = 1; // kept inside a shorter list
  testPorts = {"/dev/ttyS0", "/dev/ttyUSB0", "/tmp/qmload-sim/dev0", "COM12"};
  click("Refresh"); // the new list shows in the same frame, each name's last component
  EXPECT_TRUE(shows("ttyUS") && shows("Open")) << texts; // the test font is wider than the real one
  const char* shown[] = {"ttyS0", "ttyUSB0", "dev0", "COM12"};
  for (int i = 0; i < 4; ++i) EXPECT_STREQ(portItems[i], shown[i]);
  testPorts = {"COM9"}, refreshPortList();
  EXPECT_TRUE(selectedPort == 0 && portItems[1] == nullptr);
  for (int i = 0; i < 60; ++i) testPorts.push_back("T" + std::to_string(i));
  selectedPort = 55, refreshPortList();
  EXPECT_TRUE(portNames.size() == 50 && selectedPort == 49);
  setProgramPath("/tmp/dropped.alf"), frame(); // what a dropped file does: the row goes from the next frame on
  EXPECT_TRUE(!shows("parse map1") && !shows("build aelf") && shows("T48")) << texts;
}

TEST_F(ScreenTest, OpenSpinsWalksTheBaudLadderToNotFoundWhileDiscoveryGoesOnAndShowsTheDevicesFound) {
  selectedPort = 1;
  frame(), click("Open"); // the release frame is the first frame of the flash screen
  EXPECT_EQ(link().portName, "COM7");
  const char* const spinner[8] = {"[ / ] .",     "[ | ] ..",     "[ \\ ] ...",     "[ - ] ....",
                                  "[ / ] .....", "[ | ] ......", "[ \\ ] .......", "[ - ] ........"};
  for (int i = 0; i < 17; ++i, frame()) EXPECT_TRUE(shows("Wait devices") && shows(spinner[i % 8])) << i << texts;
  EXPECT_EQ(link().requests.size(), 1u); // one text per drawn frame, nothing sent while the request runs
  for (const char* closer : {"Close", "x"}) {
    ASSERT_TRUE(runOutDiscovery()) << texts;
    EXPECT_TRUE(shows("Flush error!") && shows(closer)) << texts;
    // Six tries at each of five rates, the first by "Open"; the second run starts a try in (it went on behind).
    const bool second = closer[0] == 'x';
    EXPECT_EQ(link().requests.size(), second ? 29u : 30u);
    std::vector<int> ladder(second ? 4 : 5, 0);
    for (int baud = 1; baud <= 4; ++baud) ladder.insert(ladder.end(), 6, baud);
    EXPECT_EQ(link().reopens, ladder);
    for (const SentRequest& r : link().requests) // broadcast identify requests, one tick each
      EXPECT_TRUE((r.command | r.id0 | r.id1 | r.id2 | r.address | r.length) == 0 && !r.hasData && r.timeout == 1);
    click(closer);
    EXPECT_TRUE(mode() == PortSelect && !flushState.notFoundPopup && app.session);
    frame(), click("Open"); // the start screen takes input again; the old session goes first
    EXPECT_TRUE(mode() == WaitDevices && app.session.get() == lastLink);
    EXPECT_EQ(FakeLink::destroyedAtLastCreate, second ? 2 : 1);
  }
  ASSERT_TRUE(runOutDiscovery()) << texts;
  EXPECT_EQ(discover(7, 8, 9), "0x00000007-00000008-00000009\n");
  EXPECT_TRUE(flushState.notFoundPopup && !shows("Devices are not found")); // the flag left set on purpose
  click("Close");
  EXPECT_EQ(mode(), PortSelect) << "the buttons of the device screen must still work";
  frame(), click("Open"), frame();
  EXPECT_TRUE(shows("Devices are not found")) << texts;               // shown again as soon as the screen waits
  EXPECT_EQ(discover(0, 1, 0xabc), "0x00000007-00000008-00000009\n"); // another device; the first one printed
  EXPECT_EQ(deviceIds, (std::vector<std::string>{"0x00000007-00000008-00000009", "0x00000000-00000001-00000abc"}));
  EXPECT_TRUE(flushState.deviceItems[0] == deviceIds.back() && flushState.deviceId2 == 0xabcu); // later requests' id
  EXPECT_EQ(texts, "[Devices: ][0x00000000-][Prog path:][no file][Close][Flush][Close]");       // the id cut to the box
  click("Close", 1); // two buttons that do the same
  EXPECT_TRUE(mode() == PortSelect && app.session.get() == lastLink);
}

TEST_F(ScreenTest, FlushWritesEverySegmentBlockByBlockThenFinishes) {
  ASSERT_NO_FATAL_FAILURE(startFlush(600, 100)); // 3 + 1 program/resource blocks, 1 header block
  std::vector<int> fills;
  for (int frames = 0; mode() == Flushing && frames < 100; ++frames) {
    if (link().busy) link().answer(1); // every block is writable
    frame(), fills.push_back(fill);
  }
  EXPECT_TRUE(std::is_sorted(fills.begin(), fills.end()) && fills[0] >= 0 && fills.back() > fills[0]); // it fills up
  EXPECT_TRUE(mode() == PortSelect && link().reopens.back() == 4); // done; 921600 baud for the transfer
  std::ostringstream sent; // command@address:length/time-out of each request, ! when not addressed to the device
  for (const SentRequest& r : link().requests)
    sent << +r.command << '@' << std::hex << r.address << std::dec << ':' << r.length << '/' << r.timeout
         << (r.id0 == 0x00c0ffee && r.hasData == (r.command == 11) ? " " : "! ");
  EXPECT_EQ(sent.str(),
            "0@0:0/1! 2@0:764/50 1@8004000:256/100 11@8004000:256/1000 1@8004100:256/100 11@8004100:256/1000 "
            "1@8004200:256/100 11@8004200:256/1000 1@8010000:256/100 11@8010000:256/1000 "
            "1@803fe00:256/100 11@803fe00:256/1000 18@0:0/500 ");
  EXPECT_EQ(flushState.progress, 1280u); // 256 a block: more than the image's 764 bytes
}

TEST_F(ScreenTest, FlushRefusedBlocksAddProgressAndTheSeventhFailureRaisesDeviceNotResponseWhileRetriesGoOn) {
  ASSERT_NO_FATAL_FAILURE(startFlush(300, 0)); // two program blocks and the header block
  link().answer(0), frame();                   // Start
  const std::size_t sent = link().requests.size();
  link().answer(0), frame(), frame(); // the block is refused: progress grows every frame, nothing is sent
  EXPECT_TRUE(flushState.progress == 2 * 256 && link().requests.size() == sent);
  for (int i = 0; i < 6; ++i, frame()) link().fail(); // the request and five repetitions
  EXPECT_TRUE(link().requests.size() == sent + 6 && fill >= 0 && !flushState.flushErrorPopup);
  link().fail(), frame(); // the seventh failure: the pop-up, and no progress bar in that frame
  EXPECT_TRUE(fill == -1 && flushState.flushErrorPopup && flushState.retries == 1);
  frame();
  EXPECT_TRUE(shows("Device not response") && shows("Flush error!")) << texts;
  EXPECT_TRUE(link().requests.size() == sent + 7 && link().last().command == 1); // sent again behind it
  for (int frames = 0; mode() == Flushing && frames < 50; ++frames, frame())
    if (link().busy) link().answer(1);
  EXPECT_TRUE(mode() == PortSelect && link().last().command == 18); // finished behind the pop-up
  frame();
  EXPECT_TRUE(flushState.flushErrorPopup && !shows("Device not response")) << texts; // the flag stays set...
  ASSERT_NO_FATAL_FAILURE(startFlush(300, 0));
  frame(), click("Close"); // ...so the next flash shows it at once; closing it clears the flag and leaves the flash
  EXPECT_TRUE(mode() == PortSelect && !flushState.flushErrorPopup);
}

TEST_F(ScreenTest, ToolchainRowAndFlushWorkOnTheFilesTwoFoldersUp) {
  for (const char* path : {"missing.alf", ""}) { // no path: the default two folders up
    setProgramPath(path), frame(), click("Open"), discover();
    EXPECT_TRUE(shows(*path ? path : "no file")) << texts;
    startCapture(), click("Flush");
    EXPECT_EQ(endCapture(), "Can't open aelf file '" + std::string(*path ? path : "./../../prog.alf") + "'\n");
    EXPECT_TRUE(mode() == DeviceReady && link().requests.size() == 1); // nothing else happens
    click("Close");
  }
  frame(), startCapture(), click("build aelf"); // no inputs: only the console talks
  EXPECT_TRUE(endCapture() != "" && mode() == PortSelect && shows("build aelf") && shows("Open"));
  const std::string examples = QMLOAD_EXAMPLES_DIR "/";
  for (const char* f : {"__output__.map", "test.cpp_CFG.bin", "__target_out__.o", "test.cpp_RES.bin", "funcList.txt",
                        "out.map", "target.ld"})
    fs::copy_file(examples + f, root + f);
  startCapture(), click("build aelf"), click("parse map1"), endCapture();
  AelfImage image;
  EXPECT_EQ(readAelfImage(root + "project.alf", image), aelfOk);
  EXPECT_EQ(readFile(root + "target_out.ld", std::ios::in), readFile(examples + "golden/target_out.ld"));
}

TEST_F(ScreenTest, OnlyTheFirstArgumentBecomesTheProgramPathAndInfoOptionsOpenNoWindow) {
  static std::string seen; // what the GUI would start with: the path, the screens and the ports init listed
  char prog[] = "qmload", first[] = "first.alf", second[] = "second.alf";
  char* argv[] = {prog, first, second, nullptr};
  testPorts = {"COM4"};
  for (int argc : {1, 3}) {
    const auto runGui = [](Application& a) { seen = programPath + std::to_string(a.screens.size()) + portNames.at(0); };
    EXPECT_TRUE(appMain(argc, argv, runGui) == 0 && app.screens.empty()); // the screen lived in appMain's frame
    EXPECT_EQ(seen, argc == 1 ? "1COM4" : "first.alf1COM4");
  }
  for (std::string option : {"--version", "--help", "-h"}) { // answered on stdout before any window opens
    char* args[] = {prog, option.data(), nullptr};
    const auto [result, out] = captured([&] { // the flush stands for the program's exit that follows
      const int exitCode = appMain(2, args, [](Application&) { seen = "window"; });
      std::fflush(stdout);
      return exitCode;
    });
    EXPECT_TRUE(result == 0 && seen != "window" && out.rfind(option == "--version" ? "qmload 1." : "Usage:", 0) == 0);
  }
}

// The loop's calls as letters: B begin input, W wait, P/Q a message/the quit message taken, E end input,
// D draw. The k-th wait queues arrivals[k] messages and returns waits[k] (0, the window closed, when none left).
struct Pump : FramePump {
  Pump(int queued, std::vector<int> waits, std::vector<int> arrivals, int quitAt)
      : waits(waits), arrivals(arrivals), queued(queued), quitAt(quitAt) {}
  std::string log;
  std::vector<int> waits, arrivals;
  int queued, quitAt, taken = 0, k = 0;
  void beginInput() override { log += log.empty() ? "B" : " B"; }
  int waitMessage() override {
    log += 'W', queued += k < int(arrivals.size()) ? arrivals[k] : 0;
    return k < int(waits.size()) ? waits[k++] : 0;
  }
  bool peekMessage(bool& quit) override {
    if (queued == 0) return false;
    --queued, quit = taken++ == quitAt, log += quit ? 'Q' : 'P';
    return true;
  }
  void endInput() override { log += 'E'; }
  void drawFrame() override { log += 'D'; }
};

TEST(FrameLoop, FirstFrameAtOnceAFrameAfterInputWithoutWaitingThenBlocking) {
  std::pair<Pump, const char*> rows[] = {
      {{0, {}, {}, -1}, "BED BWED"},                          // the wait ends with WM_QUIT
      {{2, {1}, {}, -1}, "BPPED BED BWED BED BWED"},          // input handled: one more frame at once
      {{0, {1, 1, 0}, {}, -1}, "BED BWED BED BWED BED BWED"}, // wake-ups draw two frames
      {{0, {1}, {3}, 1}, "BED BWPQPED"},                      // quit found while draining: ends after that frame
      {{0, {-1}, {}, -1}, "BED BWED"},                        // a failed wait: one more frame
  };
  for (auto& [pump, log] : rows) {
    runFrameLoop(pump);
    EXPECT_EQ(pump.log, log);
  }
}

TEST(ButtonQueue, OneChangePerFrameInOrder) {
  ButtonQueue queue;
  ButtonChange due;
  const auto offer = [&](bool down, int x, nk_buttons b = NK_BUTTON_LEFT) { return queue.offer({b, x, 20, down}); };
  EXPECT_TRUE(!queue.startFrame(due) && offer(true, 1));            // nothing due; the press now
  EXPECT_FALSE(offer(false, 2) || offer(true, 3, NK_BUTTON_RIGHT)); // the release waits, and what comes behind it
  ASSERT_TRUE(queue.startFrame(due));
  EXPECT_FALSE(offer(false, 4)); // behind the waiting ones, even in a fresh frame
  std::string order = std::to_string(due.x);
  while (queue.startFrame(due)) order += std::to_string(due.x) + (due.button == NK_BUTTON_RIGHT ? "R" : "");
  EXPECT_EQ(order, "23R4");
  EXPECT_FALSE(due.down || queue.hasPending());
  EXPECT_TRUE(offer(true, 5)); // one change in a frame goes through at once
}
