// The start screen, the flash screen and the toolchain row, driven by clicks.
#include "ScreenFixture.h"
#include "image/AelfImage.h"

TEST_F(ScreenTest, StartScreenRowsRefreshAndThePortTable) {
  frame();
  for (const char* text : {"Port", "COM1", "Refresh", "Open", "parse map1", "build aelf"})
    EXPECT_TRUE(shows(text)) << text;
  EXPECT_TRUE(find("Port")->y < find("Open")->y && find("Open")->y < find("build aelf")->y);
  const nk_color text = find("Port")->color; // the documented text colour and background
  EXPECT_TRUE(text.r == 190 && text.g == 190 && text.b == 190 && text.a == 255 && guiClearColor == 0xFF1E1E1Eu);
  testPorts.clear(), click("Refresh");
  EXPECT_TRUE(shows("NO PORTS") && !shows("Open") && shows("Refresh") && shows("parse map1")) << dump();
  selectedPort = 1; // kept inside a shorter list
  testPorts = {"/dev/ttyS0", "/dev/ttyUSB0", "/tmp/qmload-sim/dev0", "COM12"};
  click("Refresh"); // the new list shows in the same frame, each name's last component
  EXPECT_TRUE(shows("ttyUS") && shows("Open")) << dump(); // the test font is wider than the real one
  const char* shown[] = {"ttyS0", "ttyUSB0", "dev0", "COM12"};
  for (int i = 0; i < 4; ++i) EXPECT_STREQ(portItems[i], shown[i]);
  testPorts = {"COM9"}, refreshPortList();
  EXPECT_TRUE(selectedPort == 0 && portItems[1] == nullptr);
  for (int i = 0; i < 60; ++i) testPorts.push_back("T" + std::to_string(i));
  selectedPort = 55, refreshPortList();
  EXPECT_TRUE(portNames.size() == 50 && selectedPort == 49);
  setProgramPath("/tmp/dropped.alf"), frame(); // what a dropped file does: the row goes from the next frame on
  EXPECT_TRUE(!shows("parse map1") && !shows("build aelf") && shows("T48")) << dump();
}

TEST_F(ScreenTest, OpenSpinsThenWalksTheBaudLadderToNotFoundWhileDiscoveryGoesOnBehindThePopup) {
  selectedPort = 1;
  frame(), click("Open"); // the release frame is the first frame of the flash screen
  EXPECT_EQ(link().portName, "COM7");
  const SentRequest& r = link().last();
  EXPECT_TRUE(r.command == 0 && (r.id0 | r.id1 | r.id2 | r.address | r.length) == 0 && !r.hasData && r.timeout == 1);
  const char* const spinner[8] = {"[ / ] .",     "[ | ] ..",     "[ \\ ] ...",     "[ - ] ....",
                                  "[ / ] .....", "[ | ] ......", "[ \\ ] .......", "[ - ] ........"};
  for (int i = 0; i < 17; ++i, frame()) EXPECT_TRUE(shows("Wait devices") && shows(spinner[i % 8])) << i << dump();
  EXPECT_EQ(link().requests.size(), 1u); // one text per drawn frame, nothing sent while the request runs
  for (const char* closer : {"Close", "x"}) {
    ASSERT_NO_FATAL_FAILURE(runOutDiscovery());
    EXPECT_TRUE(shows("Flush error!") && shows(closer)) << dump();
    // Six attempts at each of the five rates, the first the request of "Open". Discovery goes on
    // behind the pop-up, so after the first one the second run starts one attempt in.
    const bool second = closer[0] == 'x';
    EXPECT_EQ(link().requests.size(), second ? 29u : 30u);
    std::vector<int> ladder(second ? 4 : 5, 0);
    for (int baud = 1; baud <= 4; ++baud) ladder.insert(ladder.end(), 6, baud);
    EXPECT_EQ(link().reopens, ladder);
    for (const SentRequest& r : link().requests) EXPECT_TRUE(r.command == 0 && r.timeout == 1);
    click(closer);
    EXPECT_TRUE(mode() == PortSelect && !flushState.notFoundPopup && app.session);
    frame(), click("Open"); // the start screen takes input again; the old session goes first
    EXPECT_TRUE(mode() == WaitDevices && app.session.get() == lastLink);
    EXPECT_EQ(FakeLink::destroyedAtLastCreate, second ? 2 : 1);
  }
  ASSERT_NO_FATAL_FAILURE(runOutDiscovery());
  for (int frames = 0; mode() == WaitDevices && frames < 20; ++frames, frame()) // a device answers behind the pop-up
    if (link().busy) link().answer(7, 8, 9), startCapture(), frame(), endCapture();
  ASSERT_EQ(mode(), DeviceReady);
  EXPECT_TRUE(flushState.notFoundPopup && !shows("Devices are not found")); // the flag left set on purpose
  click("Close");
  EXPECT_EQ(mode(), PortSelect) << "the buttons of the device screen must still work";
  frame(), click("Open"), frame();
  EXPECT_TRUE(shows("Devices are not found")) << dump(); // shown again as soon as the screen waits
}

TEST_F(ScreenTest, AnsweredDiscoveriesShowTheDeviceAndPrintTheFirstIdentity) {
  for (const std::uint32_t id0 : {0x00c0ffeeu, 0u}) {
    if (id0 == 0) setProgramPath("/tmp/a.alf");
    frame(), click("Open");
    link().answer(id0, id0 ? 0x12345678 : 1, id0 ? 0x9abcdef0 : 0xabc), startCapture(), frame();
    EXPECT_EQ(endCapture(), "0x00c0ffee-12345678-9abcdef0\n"); // the first device ever found, both times
    EXPECT_EQ(deviceIds.back(), id0 ? "0x00c0ffee-12345678-9abcdef0" : "0x00000000-00000001-00000abc");
    EXPECT_EQ(flushState.deviceItems[0], deviceIds.back());
    EXPECT_EQ(flushState.deviceId2, id0 ? 0x9abcdef0u : 0xabcu); // later requests are addressed with it
    frame();
    for (const char* text : {"Devices: ", "Prog path:", id0 ? "no file" : "/tmp/a.alf", "Flush", "Close"})
      EXPECT_TRUE(shows(text)) << text << dump();
    EXPECT_TRUE(std::any_of(drawn.begin(), drawn.end(), [&](const Drawn& d) { // cut to the combo box's width
      return d.text.size() >= 8 && deviceIds.back().rfind(d.text, 0) == 0;
    })) << dump();
    FlashLink* session = app.session.get();
    click("Close", id0 ? 1 : 0); // two buttons that do the same
    EXPECT_TRUE(mode() == PortSelect && app.session.get() == session);
  }
  EXPECT_EQ(deviceIds.size(), 2u);
}

namespace {

// The width of the progress bar's filled part, -1 when no bar was drawn.
int progressFill(const std::vector<Drawn>& drawn) {
  int fill = -1;
  for (const Drawn& d : drawn) {
    const auto is = [&](int r, int g, int b) { return d.color.r == r && d.color.g == g && d.color.b == b && d.h > 20; };
    if (is(51, 55, 67)) fill = std::max(fill, 0); // the bar's track
    if (is(181, 45, 69)) fill = d.w;              // its filled part
  }
  return fill;
}

class FlushTest : public ScreenTest {
protected:
  // An image with exeSize bytes at 0x08004000 and resSize bytes at 0x08010000.
  void startFlush(std::uint32_t exeSize, std::uint32_t resSize) {
    std::string bytes = "AELF" + std::string(64, '\0') + std::string(exeSize + resSize, 'Z');
    for (const auto& [at, value] :
         {std::pair<int, std::uint32_t>{28, 0x08004000}, {32, exeSize}, {40, 0x08010000}, {44, resSize}})
      for (int i = 0; i < 4; ++i) bytes[4 + at + i] = static_cast<char>(value >> (8 * i));
    writeFile("image.alf", bytes);
    setProgramPath("image.alf");
    openAndDiscover();
    frame(), click("Flush");
    ASSERT_EQ(mode(), Flushing);
  }
};

} // namespace

TEST_F(FlushTest, WritesEverySegmentBlockByBlockThenFinishes) {
  ASSERT_NO_FATAL_FAILURE(startFlush(600, 100)); // 3 + 1 program/resource blocks, 1 header block
  const std::size_t first = link().requests.size() - 1;
  std::vector<int> fills;
  for (int frames = 0; mode() == Flushing && frames < 100; ++frames, fills.push_back(progressFill(drawn))) {
    if (link().busy) link().answer(1); // every block is writable
    frame();
  }
  ASSERT_EQ(mode(), PortSelect);
  EXPECT_EQ(link().reopens.back(), 4); // 921600 baud for the transfer
  std::string sent;                    // command@address:length/time-out of each request, all addressed to the device
  for (auto r = link().requests.begin() + first; r != link().requests.end(); ++r) {
    char text[64];
    std::snprintf(text, sizeof text, "%u@%x:%u/%u%s ", r->command, r->address, r->length, r->timeout,
                  r->id0 == 0x00c0ffee && r->hasData == (r->command == 11) ? "" : "!");
    sent += text;
  }
  EXPECT_EQ(sent, "2@0:764/50 1@8004000:256/100 11@8004000:256/1000 1@8004100:256/100 11@8004100:256/1000 "
                  "1@8004200:256/100 11@8004200:256/1000 1@8010000:256/100 11@8010000:256/1000 "
                  "1@803fe00:256/100 11@803fe00:256/1000 18@0:0/500 ");
  EXPECT_EQ(flushState.progress, 1280u); // 256 a block: more than the image's 764 bytes
  fills.pop_back();                      // the start screen's frame
  for (std::size_t i = 0; i < fills.size(); ++i) EXPECT_GE(fills[i], i ? fills[i - 1] : 0) << i; // only fills up
  EXPECT_GT(fills.back(), fills.front());
}

TEST_F(FlushTest, RefusedBlocksAddProgressAndTheSeventhFailureRaisesDeviceNotResponseWhileRetriesGoOn) {
  for (const bool closeIt : {true, false}) {
    ASSERT_NO_FATAL_FAILURE(startFlush(300, 0)); // two program blocks and the header block
    link().answer(0), frame();                   // Start
    const std::size_t sent = link().requests.size();
    link().answer(0); // the block is refused: progress grows every frame, nothing is sent
    const std::uint32_t before = flushState.progress;
    frame(), frame();
    EXPECT_EQ(flushState.progress, before + 2 * 256);
    EXPECT_EQ(link().requests.size(), sent);
    for (int i = 0; i < 6; ++i, frame()) link().fail(); // the request and five repetitions
    EXPECT_EQ(link().requests.size(), sent + 6);
    EXPECT_TRUE(progressFill(drawn) >= 0 && !flushState.flushErrorPopup);
    link().fail(), frame(); // the seventh failure: the pop-up, and no progress bar in that frame
    EXPECT_TRUE(progressFill(drawn) == -1 && flushState.flushErrorPopup && flushState.retries == 1);
    frame();
    EXPECT_TRUE(shows("Device not response") && shows("Flush error!")) << dump();
    EXPECT_TRUE(link().requests.size() == sent + 7 && link().last().command == 1); // sent again behind it
    if (closeIt) click("Close");
    for (int frames = 0; mode() == Flushing && frames < 50; ++frames, frame())
      if (link().busy) link().answer(1);
    EXPECT_EQ(mode(), PortSelect);
    EXPECT_EQ(flushState.flushErrorPopup, !closeIt); // only closing the pop-up clears it
    EXPECT_EQ(link().last().command, closeIt ? 1 : 18);
    frame();
    EXPECT_FALSE(shows("Device not response"));
  }
}

TEST_F(ScreenTest, ToolchainRowAndFlushWorkOnTheFilesTwoFoldersUp) {
  for (const char* path : {"missing.alf", ""}) { // no path: the default two folders up
    setProgramPath(path);
    openAndDiscover();
    frame();
    const std::size_t sent = link().requests.size();
    startCapture(), click("Flush");
    EXPECT_EQ(endCapture(), "Can't open aelf file '" + std::string(*path ? path : "./../../prog.alf") + "'\n");
    EXPECT_TRUE(mode() == DeviceReady && link().requests.size() == sent); // nothing else happens
    click("Close");
  }
  frame(), startCapture(), click("build aelf"); // no inputs: only the console talks
  EXPECT_NE(endCapture(), "");
  frame();
  EXPECT_TRUE(mode() == PortSelect && shows("build aelf") && shows("Open"));
  const std::string examples = QMLOAD_EXAMPLES_DIR "/";
  for (const char* f : {"__output__.map", "test.cpp_CFG.bin", "__target_out__.o", "test.cpp_RES.bin", "funcList.txt",
                        "out.map", "target.ld"})
    fs::copy_file(examples + f, root + f);
  startCapture(), click("build aelf"), click("parse map1"), endCapture();
  AelfImage image;
  EXPECT_EQ(readAelfImage(root + "project.alf", image), aelfOk);
  EXPECT_EQ(readFile(root + "target_out.ld", std::ios::in), readFile(examples + "golden/target_out.ld"));
}
