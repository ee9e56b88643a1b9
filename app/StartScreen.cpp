#include "app/StartScreen.h"

#include "app/GuiState.h"

namespace StartScreenSpace {

void StartScreen::init(nk_context*) { refreshPortList(); }

int StartScreen::draw(nk_context* ctx) {
  if (mode == PortSelect)
    drawStartScreen(ctx, *this);
  else
    drawFlashScreen(ctx, *this);
  return 0;
}

} // namespace StartScreenSpace
