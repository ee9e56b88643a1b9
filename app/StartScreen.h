#pragma once
// The one screen of the window. What the user sees as the start screen and as the
// flash screen are two drawings of it, chosen by its mode.
#include <cstdint>

#include "app/Application.h"

namespace StartScreenSpace {

enum ScreenMode : std::int32_t {
  PortSelect = 0,  // choose and open a port
  WaitDevices = 1, // searching for a device
  DeviceReady = 2, // a device answered; flashing can start
  Flushing = 3,    // an image is being written
};

class StartScreen : public IScreen {
public:
  std::int32_t mode = PortSelect;

  void init(nk_context* ctx) override;
  int draw(nk_context* ctx) override;
};

// The two drawings (StartScreenDraw.cpp, FlashScreenDraw.cpp) and the toolchain
// row of the start screen (ToolchainRow.cpp).
void drawStartScreen(nk_context* ctx, StartScreen& screen);
void drawFlashScreen(nk_context* ctx, StartScreen& screen);
void drawToolchainRow(nk_context* ctx);

} // namespace StartScreenSpace
