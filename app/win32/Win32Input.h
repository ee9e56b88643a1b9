#pragma once
// Turns the window's keyboard and mouse messages into Nuklear input. Mouse button
// changes reach Nuklear at most one per frame (ButtonQueue); copy and paste use
// the Windows clipboard.
#include <windows.h>

#include "app/ButtonQueue.h"
#include "app/NuklearConfig.h"

class Win32Input {
public:
  // Feeds ctx from now on and connects its clipboard hooks. The window is the one
  // that takes the mouse while a button is held and is woken when button changes
  // still wait for their frames.
  void attach(HWND window, nk_context* ctx);
  // Stops feeding the context (before it is freed); messages are then left alone.
  void detach();

  // Turns a keyboard, character, mouse or wheel message into Nuklear input; true
  // when the message was used.
  bool handleMessage(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
  // Opens a frame's input, with the next waiting button change if there is one.
  void begin();
  // Closes the frame's input.
  void end();

private:
  bool handleKey(WPARAM key, bool down);
  bool handleButton(HWND hwnd, UINT message, LPARAM lParam);
  void applyButton(const ButtonChange& change);

  nk_context* ctx = nullptr;
  HWND window = nullptr;
  ButtonQueue buttons; // one button change per frame
};
