// Start-up: the command line, the one screen and the first port scan.
#include "ScreenFixture.h"
#include "app/AppMain.h"

namespace {

std::string pathSeen;
std::size_t screensSeen = 0;
std::vector<std::string> portsSeen;

void recordingRunGui(Application& application) {
  pathSeen = programPath;
  screensSeen = application.screens.size();
  portsSeen = portNames;
}

} // namespace

TEST_F(ScreenTest, OnlyTheFirstArgumentBecomesTheProgramPath) {
  char prog[] = "qmload", first[] = "first.alf", second[] = "second.alf";
  char* argv[] = {prog, first, second, nullptr};
  testPorts = {"COM4"};
  EXPECT_EQ(appMain(3, argv, recordingRunGui), 0);
  EXPECT_EQ(pathSeen, "first.alf");
  EXPECT_EQ(screensSeen, 1u);
  EXPECT_EQ(portsSeen, std::vector<std::string>{"COM4"}); // init listed the ports once
  EXPECT_TRUE(app.screens.empty());                       // the screen lived in appMain's frame
}

TEST_F(ScreenTest, NoArgumentLeavesTheProgramPathEmpty) {
  char prog[] = "qmload";
  char* argv[] = {prog, nullptr};
  EXPECT_EQ(appMain(1, argv, recordingRunGui), 0);
  EXPECT_EQ(pathSeen, "");
}
