#include "app/AppMain.h"

#include "app/GuiState.h"
#include "app/StartScreen.h"

int appMain(int argc, char** argv, RunGui runGui) {
  if (argc >= 2) programPath = argv[1]; // further arguments are ignored

  StartScreenSpace::StartScreen startScreen;
  app.screens.push_back(&startScreen);
  app.current = 0;
  app.screens[0]->init(app.ctx);

  runGui(app);
  // The screen lives in this frame: nothing may draw it after we return.
  app.screens.clear();
  return 0;
}
