// One mouse button change per frame: a click inside one frame becomes a press in
// that frame and the release in the next; nothing is lost or reordered.
#include <gtest/gtest.h>

#include "app/ButtonQueue.h"

namespace {

ButtonChange change(bool down, int x = 10, nk_buttons button = NK_BUTTON_LEFT) {
  ButtonChange c;
  c.button = button;
  c.x = x;
  c.y = 20;
  c.down = down;
  return c;
}

} // namespace

TEST(ButtonQueue, AClickInOneFrameIsSplitOverTwo) {
  ButtonQueue queue;
  ButtonChange due;
  EXPECT_FALSE(queue.startFrame(due));
  EXPECT_TRUE(queue.offer(change(true)));   // the press now
  EXPECT_FALSE(queue.offer(change(false))); // the release waits
  EXPECT_TRUE(queue.hasPending());

  ASSERT_TRUE(queue.startFrame(due));
  EXPECT_FALSE(due.down);
  EXPECT_FALSE(queue.hasPending());
  EXPECT_FALSE(queue.startFrame(due));
}

TEST(ButtonQueue, ChangesKeepTheirOrderOverFrames) {
  ButtonQueue queue;
  ButtonChange due;
  queue.startFrame(due);
  EXPECT_TRUE(queue.offer(change(true, 1)));
  EXPECT_FALSE(queue.offer(change(false, 2)));
  EXPECT_FALSE(queue.offer(change(true, 3, NK_BUTTON_RIGHT)));

  ASSERT_TRUE(queue.startFrame(due));
  EXPECT_EQ(due.x, 2);
  // A change arriving while others wait goes behind them, even in a fresh frame.
  EXPECT_FALSE(queue.offer(change(false, 4, NK_BUTTON_RIGHT)));
  ASSERT_TRUE(queue.startFrame(due));
  EXPECT_EQ(due.x, 3);
  EXPECT_EQ(due.button, NK_BUTTON_RIGHT);
  ASSERT_TRUE(queue.startFrame(due));
  EXPECT_EQ(due.x, 4);
  EXPECT_FALSE(queue.hasPending());
}

TEST(ButtonQueue, OneChangePerFrameGoesThroughAtOnce) {
  ButtonQueue queue;
  ButtonChange due;
  for (int frame = 0; frame < 4; ++frame) {
    EXPECT_FALSE(queue.startFrame(due));
    EXPECT_TRUE(queue.offer(change(frame % 2 == 0)));
  }
  EXPECT_FALSE(queue.hasPending());
}
