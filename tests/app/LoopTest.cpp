// Start-up, the frame loop's rules and the one-button-change-per-frame queue.
#include <deque>
#include <tuple>

#include "ScreenFixture.h"
#include "app/AppMain.h"
#include "app/ButtonQueue.h"
#include "app/FrameLoop.h"

TEST_F(ScreenTest, OnlyTheFirstArgumentBecomesTheProgramPath) {
  static std::string seen; // what the GUI would start with: the path, the screens and the ports init listed
  char prog[] = "qmload", first[] = "first.alf", second[] = "second.alf";
  char* argv[] = {prog, first, second, nullptr};
  testPorts = {"COM4"};
  for (int argc : {1, 3}) {
    const auto runGui = [](Application& a) { seen = programPath + std::to_string(a.screens.size()) + portNames.at(0); };
    EXPECT_EQ(appMain(argc, argv, runGui), 0);
    EXPECT_EQ(seen, argc == 1 ? "1COM4" : "first.alf1COM4");
    EXPECT_TRUE(app.screens.empty()); // the screen lived in appMain's frame
  }
}

// The loop's calls as letters: B begin input, W wait, P/Q a message/the quit message taken,
// E end input, D draw. Before the k-th wait arrivals[k] messages join the queue; the wait
// returns waits[k] (0, the window closed, when none is left).
struct Pump : FramePump {
  std::string log;
  std::deque<int> waits, arrivals;
  int queued = 0, quitAt = -1, taken = 0;
  void beginInput() override { log += log.empty() ? "B" : " B"; }
  int waitMessage() override {
    log += 'W';
    if (!arrivals.empty()) queued += arrivals.front(), arrivals.pop_front();
    const int result = waits.empty() ? 0 : waits.front();
    return waits.empty() ? 0 : (waits.pop_front(), result);
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
  const std::tuple<int, std::deque<int>, std::deque<int>, int, const char*> rows[] = {
      {0, {}, {}, -1, "BED BWED"},                          // the wait ends with WM_QUIT
      {2, {1}, {}, -1, "BPPED BED BWED BED BWED"},          // input handled: one more frame at once
      {0, {1, 1, 0}, {}, -1, "BED BWED BED BWED BED BWED"}, // wake-ups draw two frames
      {0, {1}, {3}, 1, "BED BWPQPED"},                      // quit found while draining: ends after that frame
      {0, {-1}, {}, -1, "BED BWED"},                        // a failed wait: one more frame
  };
  for (const auto& [queued, waits, arrivals, quitAt, log] : rows) {
    Pump pump;
    pump.queued = queued, pump.waits = waits, pump.arrivals = arrivals, pump.quitAt = quitAt;
    runFrameLoop(pump);
    EXPECT_EQ(pump.log, log);
  }
}

TEST(ButtonQueue, OneChangePerFrameInOrder) {
  ButtonQueue queue;
  ButtonChange due, c;
  const auto offer = [&](bool down, int x, nk_buttons button = NK_BUTTON_LEFT) {
    return c.button = button, c.x = x, c.y = 20, c.down = down, queue.offer(c);
  };
  EXPECT_FALSE(queue.startFrame(due));
  EXPECT_TRUE(offer(true, 1));   // the press now
  EXPECT_FALSE(offer(false, 2)); // the release waits, and what comes behind it
  EXPECT_FALSE(offer(true, 3, NK_BUTTON_RIGHT));
  ASSERT_TRUE(queue.startFrame(due));
  EXPECT_FALSE(offer(false, 4)); // behind the waiting ones, even in a fresh frame
  std::string order = std::to_string(due.x);
  while (queue.startFrame(due)) order += std::to_string(due.x) + (due.button == NK_BUTTON_RIGHT ? "R" : "");
  EXPECT_EQ(order, "23R4");
  EXPECT_FALSE(due.down || queue.hasPending());
  EXPECT_TRUE(offer(true, 5)); // one change in a frame goes through at once
}
