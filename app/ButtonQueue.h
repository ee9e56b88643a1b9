#pragma once
// Mouse button changes for Nuklear, at most one per frame.
//
// Nuklear looks at a button once per frame: a press and its release that fall into
// the same frame (a quick click, or a synthetic one) leave the button "up" and the
// click is lost. So the first change of a frame goes to the GUI at once and any
// further ones wait, in order, for the following frames.
#include <deque>

#include "app/NuklearConfig.h"

struct ButtonChange {
  nk_buttons button = NK_BUTTON_LEFT;
  int x = 0;
  int y = 0;
  bool down = false;
  bool doubleClick = false; // the press of a double click
};

class ButtonQueue {
public:
  // A change arrived. True when it may be given to the GUI now; otherwise it was
  // kept for a later frame.
  bool offer(const ButtonChange& change);
  // A new frame starts. True, with the change, when a kept one is due now.
  bool startFrame(ButtonChange& change);
  // Whether changes are still kept after this frame's one.
  bool hasPending() const { return !pending.empty(); }

private:
  std::deque<ButtonChange> pending;
  bool givenThisFrame = false;
};
