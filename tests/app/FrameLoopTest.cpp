// The frame loop's rules, with a scripted message source in place of Windows.
#include <gtest/gtest.h>

#include <deque>
#include <string>

#include "app/FrameLoop.h"

namespace {

// Records the loop's calls as letters: B begin input, W wait, P a message taken
// from the queue, E end input, D draw. Waits answer from waitResults; before each
// wait, arrivals[k] messages are put into the queue for the k-th wait (messages
// that came in together with the one that woke the loop).
class ScriptedPump : public FramePump {
public:
  std::string log;
  std::deque<int> waitResults;
  std::deque<int> arrivals;
  int queued = 0;
  int quitAt = -1; // the queue position (counted over all takes) that is WM_QUIT
  int taken = 0;

  void beginInput() override { log += 'B'; }
  int waitMessage() override {
    log += 'W';
    if (!arrivals.empty()) {
      queued += arrivals.front();
      arrivals.pop_front();
    }
    if (waitResults.empty()) return 0; // nothing scripted: the window was closed
    int result = waitResults.front();
    waitResults.pop_front();
    return result;
  }
  bool peekMessage(bool& quit) override {
    if (queued == 0) return false;
    --queued;
    quit = taken == quitAt;
    ++taken;
    log += quit ? 'Q' : 'P';
    return true;
  }
  void endInput() override { log += 'E'; }
  void drawFrame() override { log += 'D'; }
};

} // namespace

TEST(FrameLoop, FirstFrameIsDrawnWithoutWaitingThenTheLoopBlocks) {
  ScriptedPump pump;
  // After the first frame the loop waits; the wait ends with WM_QUIT (0).
  runFrameLoop(pump);
  EXPECT_EQ(pump.log, "BED"    // first frame at once
                      "BWED"); // blocked, then the last frame for the quit
}

TEST(FrameLoop, AFrameThatHandledInputIsFollowedByOneMoreWithoutWaiting) {
  ScriptedPump pump;
  pump.queued = 2; // two messages waiting when the loop starts
  pump.waitResults = {1};
  runFrameLoop(pump);
  EXPECT_EQ(pump.log, "BPPED"  // first frame drains both
                      "BED"    // input was handled: one more frame at once
                      "BWED"   // settled: block; a message wakes it
                      "BED"    // the woken frame handled input: one more
                      "BWED"); // block again; WM_QUIT ends the loop after its frame
}

TEST(FrameLoop, AWakeUpDrawsTwoFramesThenBlocksAgain) {
  ScriptedPump pump;
  pump.waitResults = {1, 1, 0}; // two wake-ups (WM_USER), then the window closes
  runFrameLoop(pump);
  EXPECT_EQ(pump.log, "BED"
                      "BWED"
                      "BED"
                      "BWED"
                      "BED"
                      "BWED");
}

TEST(FrameLoop, QuitFoundWhileDrainingEndsTheLoopAfterThatFrame) {
  ScriptedPump pump;
  pump.waitResults = {1};
  pump.arrivals = {3}; // the wake-up brings three more, the second is WM_QUIT
  pump.quitAt = 1;
  runFrameLoop(pump);
  EXPECT_EQ(pump.log, "BED"
                      "BWPQPED");
}

TEST(FrameLoop, AFailedWaitEndsTheLoopAfterOneMoreFrame) {
  ScriptedPump pump;
  pump.waitResults = {-1};
  runFrameLoop(pump);
  EXPECT_EQ(pump.log, "BED"
                      "BWED");
}

TEST(FrameLoop, FlagsAfterEachKindOfIteration) {
  ScriptedPump pump;
  FrameFlags flags;
  // Start: no wait, nothing queued.
  EXPECT_TRUE(runFrame(pump, flags));
  EXPECT_FALSE(flags.refresh);
  EXPECT_TRUE(flags.running);

  // A message arrives while blocked: the next frame must not wait.
  pump.waitResults = {1};
  EXPECT_TRUE(runFrame(pump, flags));
  EXPECT_TRUE(flags.refresh);

  // That frame runs without waiting and settles.
  const std::string before = pump.log;
  EXPECT_TRUE(runFrame(pump, flags));
  EXPECT_EQ(pump.log.substr(before.size()), "BED");
  EXPECT_FALSE(flags.refresh);

  // A quit while refreshing: the frame is drawn and the loop stops.
  flags.refresh = true;
  pump.queued = 1;
  pump.quitAt = pump.taken;
  EXPECT_FALSE(runFrame(pump, flags));
  EXPECT_FALSE(flags.running);
  EXPECT_EQ(pump.log.back(), 'D');
}
