#pragma once
// The rules of the window's frame loop, shared by both window shells and kept apart
// from the platform's calls so that they can be tested with a scripted message
// source. The names follow the Win32 shell (GetMessageW, PeekMessageW, WM_QUIT);
// the GLFW shell maps its event waiting and polling onto them.
//
// The loop draws the first frame at once. After every frame that handled input it
// draws one more without waiting; otherwise it blocks until a message arrives.
// The message that ends the loop (WM_QUIT) still gets its frame.

// What the loop needs from the window: message waiting and draining, input
// bracketing, and drawing one frame.
class FramePump {
public:
  // Resets the GUI's per-frame input.
  virtual void beginInput() = 0;
  // Blocks until a message arrives and returns what GetMessageW returned
  // (> 0 a message, translated and dispatched; 0 WM_QUIT; -1 an error).
  virtual int waitMessage() = 0;
  // Takes one queued message without blocking and dispatches it. Returns false
  // when the queue was empty; quit tells whether the message was WM_QUIT.
  virtual bool peekMessage(bool& quit) = 0;
  // Closes the GUI's per-frame input.
  virtual void endInput() = 0;
  // Draws the current screen and renders it.
  virtual void drawFrame() = 0;

protected:
  ~FramePump() = default;
};

// The loop's two flags between iterations.
struct FrameFlags {
  bool refresh = true; // draw the next frame without waiting
  bool running = true; // go on after this frame
};

// One iteration: input, messages, frame. Returns whether the loop goes on.
bool runFrame(FramePump& pump, FrameFlags& flags);

// Runs frames until the loop ends.
void runFrameLoop(FramePump& pump);
