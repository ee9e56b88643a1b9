// Start-up, the frame loop's rules and the one-button-change-per-frame queue.
#include <deque>

#include "ScreenFixture.h"
#include "app/AppMain.h"
#include "app/ButtonQueue.h"
#include "app/FrameLoop.h"

TEST_F(ScreenTest, OnlyTheFirstArgumentBecomesTheProgramPath) {
  static std::string seen;
  char prog[] = "qmload", first[] = "first.alf", second[] = "second.alf";
  for (int argc : {1, 3}) {
    char* argv[] = {prog, first, second, nullptr};
    testPorts = {"COM4"};
    EXPECT_EQ(appMain(argc, argv,
                      [](Application& application) {
                        seen = programPath + "|" + std::to_string(application.screens.size()) + "|" + portNames.at(0);
                      }),
              0);
    EXPECT_EQ(seen, argc == 1 ? "|1|COM4" : "first.alf|1|COM4"); // one screen; init listed the ports
    EXPECT_TRUE(app.screens.empty());                            // the screen lived in appMain's frame
  }
}

namespace {

// Records the loop's calls as letters: B begin input, W wait, P a message taken, Q
// the quit message taken, E end input, D draw. Before the k-th wait, arrivals[k]
// messages join the queue; the wait returns waits[k] (0, the window closed, when none is left).
struct Pump : FramePump {
  std::string log;
  std::deque<int> waits, arrivals;
  int queued = 0, quitAt = -1, taken = 0;
  void beginInput() override { log += log.empty() ? "B" : " B"; }
  int waitMessage() override {
    log += 'W';
    if (!arrivals.empty()) queued += arrivals.front(), arrivals.pop_front();
    const int result = waits.empty() ? 0 : waits.front();
    if (!waits.empty()) waits.pop_front();
    return result;
  }
  bool peekMessage(bool& quit) override {
    if (queued == 0) return false;
    --queued;
    quit = taken++ == quitAt;
    log += quit ? 'Q' : 'P';
    return true;
  }
  void endInput() override { log += 'E'; }
  void drawFrame() override { log += 'D'; }
};

} // namespace

TEST(FrameLoop, FirstFrameAtOnceAFrameAfterInputWithoutWaitingThenBlocking) {
  const struct {
    int queued;
    std::deque<int> waits, arrivals;
    int quitAt;
    const char* log;
  } cases[] = {
      {0, {}, {}, -1, "BED BWED"},                          // the wait ends with WM_QUIT
      {2, {1}, {}, -1, "BPPED BED BWED BED BWED"},          // input handled: one more frame at once
      {0, {1, 1, 0}, {}, -1, "BED BWED BED BWED BED BWED"}, // wake-ups draw two frames
      {0, {1}, {3}, 1, "BED BWPQPED"},                      // quit found while draining: ends after that frame
      {0, {-1}, {}, -1, "BED BWED"},                        // a failed wait: one more frame
  };
  for (const auto& c : cases) {
    Pump pump;
    pump.queued = c.queued, pump.waits = c.waits, pump.arrivals = c.arrivals, pump.quitAt = c.quitAt;
    runFrameLoop(pump);
    EXPECT_EQ(pump.log, c.log);
  }
}

TEST(ButtonQueue, OneChangePerFrameInOrder) {
  const auto change = [](bool down, int x, nk_buttons button = NK_BUTTON_LEFT) {
    ButtonChange c;
    c.button = button, c.x = x, c.y = 20, c.down = down;
    return c;
  };
  ButtonQueue queue;
  ButtonChange due;
  EXPECT_FALSE(queue.startFrame(due));
  EXPECT_TRUE(queue.offer(change(true, 1)));   // the press now
  EXPECT_FALSE(queue.offer(change(false, 2))); // the release waits, and what comes behind it
  EXPECT_FALSE(queue.offer(change(true, 3, NK_BUTTON_RIGHT)));
  ASSERT_TRUE(queue.startFrame(due));
  EXPECT_EQ(due.x, 2);
  EXPECT_FALSE(queue.offer(change(false, 4))); // behind the waiting ones, even in a fresh frame
  for (int x : {3, 4}) {
    ASSERT_TRUE(queue.startFrame(due));
    EXPECT_EQ(due.x, x);
  }
  EXPECT_EQ(due.down, false);
  EXPECT_FALSE(queue.hasPending() || queue.startFrame(due));
  EXPECT_TRUE(queue.offer(change(true, 5))); // one change in a frame goes through at once
}
