// The flash screen while searching for a device and once one has answered.
#include "ScreenFixture.h"

using namespace StartScreenSpace;

namespace {
const char* const spinnerFrames[8] = {"[ / ] .",     "[ | ] ..",     "[ \\ ] ...",     "[ - ] ....",
                                      "[ / ] .....", "[ | ] ......", "[ \\ ] .......", "[ - ] ........"};
}

TEST_F(ScreenTest, SpinnerShowsOneFrameTextPerDrawnFrame) {
  h->frame();
  h->click("Open"); // the release frame is the first frame of the flash screen
  for (int i = 0; i < 17; ++i) {
    EXPECT_TRUE(h->shows("Wait devices"));
    EXPECT_TRUE(h->shows(spinnerFrames[i % 8])) << "frame " << i << ": " << h->dump();
    EXPECT_GE(flushState.spinner, 0);
    EXPECT_LE(flushState.spinner, 7);
    h->frame();
  }
  // Nothing answered and nothing timed out: only the request of "Open" was sent.
  EXPECT_EQ(link().requests.size(), 1u);
  EXPECT_EQ(mode(), WaitDevices);
}

TEST_F(ScreenTest, DiscoveryWalksTheBaudLadderThenShowsNotFound) {
  h->frame();
  h->click("Open");
  int frames = 0;
  while (!h->shows("Devices are not found") && frames++ < 200) {
    if (link().busy) link().fail();
    h->frame();
  }
  ASSERT_TRUE(h->shows("Devices are not found")) << h->dump();
  EXPECT_TRUE(h->shows("Flush error!"));
  EXPECT_TRUE(h->shows("Close"));
  // Six attempts at each of the five rates; the first is the request of "Open".
  EXPECT_EQ(link().requests.size(), 30u);
  std::vector<int> expected(5, 0);
  for (int baud = 1; baud <= 4; ++baud) expected.insert(expected.end(), 6, baud);
  EXPECT_EQ(link().reopens, expected);
  for (const SentRequest& r : link().requests) {
    EXPECT_EQ(r.command, 0);
    EXPECT_EQ(r.timeout, 1u);
  }
  EXPECT_EQ(mode(), WaitDevices);

  h->click("Close");
  EXPECT_EQ(mode(), PortSelect);
  EXPECT_FALSE(flushState.notFoundPopup);
  h->frame();
  EXPECT_TRUE(h->shows("Open"));
  EXPECT_FALSE(h->shows("Devices are not found"));
  EXPECT_NE(app.session, nullptr); // the session stays open
  h->click("Open");                // the start screen takes input again
  EXPECT_EQ(mode(), WaitDevices);
}

TEST_F(ScreenTest, ClosingNotFoundPopupByItsTitleBarGoesBackToPortSelect) {
  h->frame();
  h->click("Open");
  for (int frames = 0; !h->shows("Devices are not found") && frames < 200; ++frames) {
    if (link().busy) link().fail();
    h->frame();
  }
  ASSERT_TRUE(h->shows("x")) << h->dump();
  h->click("x");
  EXPECT_EQ(mode(), PortSelect);
  EXPECT_FALSE(flushState.notFoundPopup);
  h->frame();
  h->click("Open");
  EXPECT_EQ(mode(), WaitDevices);
}

TEST_F(ScreenTest, AnsweredDiscoveryShowsIdentityAndPrintsIt) {
  h->frame();
  h->click("Open");
  link().answer(0x00c0ffee, 0x12345678, 0x9abcdef0);
  testing::internal::CaptureStdout();
  h->frame();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "0x00c0ffee-12345678-9abcdef0\n");
  EXPECT_EQ(mode(), DeviceReady);
  ASSERT_EQ(deviceIds.size(), 1u);
  EXPECT_EQ(deviceIds[0], "0x00c0ffee-12345678-9abcdef0");
  EXPECT_STREQ(flushState.deviceItems[0], "0x00c0ffee-12345678-9abcdef0");

  h->frame();
  EXPECT_TRUE(h->shows("Devices: "));
  EXPECT_TRUE(h->shows("Prog path:"));
  EXPECT_TRUE(h->shows("no file"));
  EXPECT_EQ(h->count("Close"), 2);
  EXPECT_TRUE(h->shows("Flush"));
  // The combo box shows the identity, cut to its width by the test font.
  bool identityShown = false;
  for (const DrawnText& t : h->texts())
    identityShown |= t.text.size() >= 8 && std::string("0x00c0ffee-12345678-9abcdef0").rfind(t.text, 0) == 0;
  EXPECT_TRUE(identityShown) << h->dump();
  // Every later request is addressed with the identity.
  EXPECT_EQ(flushState.deviceId0, 0x00c0ffeeu);
  EXPECT_EQ(flushState.deviceId2, 0x9abcdef0u);
}

TEST_F(ScreenTest, IdentityWordsKeepLeadingZeros) {
  openAndDiscover(0, 0x1, 0xabc);
  EXPECT_EQ(deviceIds.back(), "0x00000000-00000001-00000abc");
}

TEST_F(ScreenTest, ProgramPathIsShownOnceADeviceAnswered) {
  setProgramPath("/tmp/a.alf");
  openAndDiscover();
  h->frame();
  EXPECT_TRUE(h->shows("/tmp/a.alf")) << h->dump();
  EXPECT_FALSE(h->shows("no file"));
}

TEST_F(ScreenTest, EitherCloseButtonGoesBackAndKeepsTheSession) {
  for (int which = 0; which < 2; ++which) {
    openAndDiscover();
    FlashLink* session = app.session.get();
    h->frame();
    h->click("Close", which);
    EXPECT_EQ(mode(), PortSelect) << "Close #" << which;
    EXPECT_EQ(app.session.get(), session);
    h->frame();
    EXPECT_TRUE(h->shows("Open"));
  }
}

TEST_F(ScreenTest, SecondDiscoveryAppendsButPrintsTheFirstDeviceFound) {
  openAndDiscover(1, 2, 3);
  h->frame();
  h->click("Close");
  h->frame();
  h->click("Open");
  link().answer(4, 5, 6);
  testing::internal::CaptureStdout();
  h->frame();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "0x00000001-00000002-00000003\n");
  ASSERT_EQ(deviceIds.size(), 2u);
  EXPECT_EQ(deviceIds[1], "0x00000004-00000005-00000006");
  EXPECT_STREQ(flushState.deviceItems[0], "0x00000004-00000005-00000006");
}

TEST_F(ScreenTest, DeviceAnsweringBehindNotFoundPopupLeavesTheNextScreenUsable) {
  h->frame();
  h->click("Open");
  for (int frames = 0; !h->shows("Devices are not found") && frames < 200; ++frames) {
    if (link().busy) link().fail();
    h->frame();
  }
  ASSERT_TRUE(h->shows("Devices are not found"));
  // Discovery goes on behind the pop-up; this time a device answers.
  for (int frames = 0; mode() == WaitDevices && frames < 20; ++frames) {
    if (link().busy) link().answer(7, 8, 9);
    testing::internal::CaptureStdout();
    h->frame();
    testing::internal::GetCapturedStdout();
  }
  ASSERT_EQ(mode(), DeviceReady);
  EXPECT_TRUE(flushState.notFoundPopup); // left set on purpose
  h->frame();
  EXPECT_FALSE(h->shows("Devices are not found"));
  h->click("Close");
  EXPECT_EQ(mode(), PortSelect) << "the buttons of the device screen must still work";

  // The pop-up shows again as soon as the screen waits for a device.
  h->frame();
  h->click("Open");
  h->frame();
  EXPECT_TRUE(h->shows("Devices are not found")) << h->dump();
}
