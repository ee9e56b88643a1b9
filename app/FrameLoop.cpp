#include "app/FrameLoop.h"

bool runFrame(FramePump& pump, FrameFlags& flags) {
  pump.beginInput();
  if (flags.refresh) {
    flags.refresh = false;
    flags.running = true;
  } else {
    flags.running = pump.waitMessage() > 0;
    flags.refresh = true;
  }

  bool drained = false;
  bool quit = false;
  while (pump.peekMessage(quit)) {
    drained = true;
    if (quit) flags.running = false;
  }
  if (drained) flags.refresh = true;
  pump.endInput();

  pump.drawFrame();
  return flags.running;
}

void runFrameLoop(FramePump& pump) {
  FrameFlags flags;
  while (runFrame(pump, flags)) {}
}
