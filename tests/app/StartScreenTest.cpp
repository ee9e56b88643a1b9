// The start screen: port list, "Refresh", "Open" and the toolchain row.
#include "ScreenFixture.h"

using namespace StartScreenSpace;

TEST_F(ScreenTest, StartScreenShowsPortsOpenAndToolchainRowWhileNoProgramPath) {
  h->frame();
  EXPECT_EQ(mode(), PortSelect);
  EXPECT_TRUE(h->shows("Port"));
  EXPECT_TRUE(h->shows("COM1")) << h->dump(); // the combo box shows the chosen port
  EXPECT_TRUE(h->shows("Refresh"));
  EXPECT_TRUE(h->shows("Open"));
  EXPECT_TRUE(h->shows("parse map1"));
  EXPECT_TRUE(h->shows("build aelf"));
  EXPECT_FALSE(h->shows("NO PORTS"));
  // The toolchain row lies below the "Open" row, which lies below the port row.
  EXPECT_LT(h->find("Port")->y, h->find("Open")->y);
  EXPECT_LT(h->find("Open")->y, h->find("build aelf")->y);
}

TEST_F(ScreenTest, NoPortsShowsLabelInsteadOfComboAndNoOpenRow) {
  testPorts.clear();
  refreshPortList();
  h->frame();
  EXPECT_TRUE(h->shows("NO PORTS"));
  EXPECT_FALSE(h->shows("Open"));
  EXPECT_TRUE(h->shows("Refresh"));
  EXPECT_TRUE(h->shows("parse map1"));
}

TEST_F(ScreenTest, RefreshFindsNewPortsWithinTheSameFrame) {
  testPorts.clear();
  refreshPortList();
  h->frame();
  ASSERT_TRUE(h->shows("NO PORTS"));
  testPorts = {"COM3"};
  h->click("Refresh");
  EXPECT_TRUE(h->shows("COM3")) << h->dump();
  EXPECT_TRUE(h->shows("Open"));
}

TEST_F(ScreenTest, ProgramPathHidesToolchainRowFromTheNextFrameOn) {
  h->frame();
  ASSERT_TRUE(h->shows("parse map1"));
  setProgramPath("/tmp/dropped.alf"); // what a dropped file does
  h->frame();
  EXPECT_FALSE(h->shows("parse map1"));
  EXPECT_FALSE(h->shows("build aelf"));
  EXPECT_TRUE(h->shows("Open"));
}

TEST_F(ScreenTest, RefreshKeepsTheChosenIndexInsideAShorterList) {
  selectedPort = 1;
  h->frame();
  EXPECT_TRUE(h->shows("COM7"));
  testPorts = {"COM9"};
  h->click("Refresh");
  EXPECT_EQ(selectedPort, 0);
  h->frame();
  EXPECT_TRUE(h->shows("COM9")) << h->dump();
  EXPECT_EQ(portItems[1], nullptr);

  testPorts.clear();
  h->click("Refresh");
  EXPECT_EQ(selectedPort, 0);
  EXPECT_TRUE(h->shows("NO PORTS"));
}

TEST_F(ScreenTest, PortTableHoldsAtMostFiftyNames) {
  testPorts.clear();
  for (int i = 0; i < 60; ++i) testPorts.push_back("T" + std::to_string(i));
  selectedPort = 55;
  refreshPortList();
  EXPECT_EQ(portNames.size(), 50u);
  EXPECT_STREQ(portItems[49], "T49");
  EXPECT_EQ(selectedPort, 49);
  h->frame();
  EXPECT_TRUE(h->shows("T49")) << h->dump();
}

TEST_F(ScreenTest, PathsShowTheirLastComponentAndOpenTheFullPath) {
  testPorts = {"/dev/ttyS0", "/dev/ttyUSB0", "/tmp/qmload-sim/dev0", "COM12"};
  refreshPortList();
  const char* shown[] = {"ttyS0", "ttyUSB0", "dev0", "COM12"};
  for (int i = 0; i < 4; ++i) EXPECT_STREQ(portItems[i], shown[i]);
  selectedPort = 1;
  h->frame();
  EXPECT_TRUE(h->shows("ttyUS")) << h->dump(); // the test font is wider than the real one
  h->click("Open");
  ASSERT_NE(lastFakeLink, nullptr);
  EXPECT_EQ(link().portName, "/dev/ttyUSB0");
}

TEST_F(ScreenTest, OpenCreatesSessionOnChosenPortAndBroadcastsIdentify) {
  selectedPort = 1;
  h->frame();
  h->click("Open");
  ASSERT_NE(lastFakeLink, nullptr);
  EXPECT_EQ(link().portName, "COM7");
  ASSERT_EQ(link().requests.size(), 1u);
  const SentRequest& r = link().requests[0];
  EXPECT_EQ(r.command, 0);
  EXPECT_EQ(r.id0 | r.id1 | r.id2, 0u);
  EXPECT_EQ(r.address, 0u);
  EXPECT_EQ(r.length, 0u);
  EXPECT_FALSE(r.hasData);
  EXPECT_EQ(r.timeout, 1u);
  EXPECT_EQ(mode(), WaitDevices);
  EXPECT_TRUE(h->shows("Wait devices"));
}

TEST_F(ScreenTest, OpeningAgainDestroysTheOldSessionFirst) {
  h->frame();
  h->click("Open");
  h->screen.mode = PortSelect; // as after closing a pop-up
  h->frame();
  h->click("Open");
  EXPECT_EQ(lastFakeLink->requests.size(), 1u);
  EXPECT_EQ(FakeLink::destroyed, 1);
  EXPECT_EQ(FakeLink::destroyedAtLastCreate, 1); // gone before the new one was made
  EXPECT_EQ(app.session.get(), lastFakeLink);
}
