#include "app/AppMain.h"

#include "app/GuiState.h"
#include "app/StartScreen.h"
#include "base/Version.h"

#include <cstdio>
#include <cstring>

namespace {

// "--help" and "--version" as the only argument answer on stdout and end the
// program before any window opens (the manual page is made from this text).
// Everything else keeps the documented meaning: the first argument is the image.
bool answeredInfoOption(int argc, char** argv) {
  if (argc != 2) return false;
  if (std::strcmp(argv[1], "--version") == 0) {
    std::printf("qmload %s\n", QMLOAD_VERSION);
    return true;
  }
  if (std::strcmp(argv[1], "--help") == 0 || std::strcmp(argv[1], "-h") == 0) {
    std::printf("Usage: qmload [IMAGE]\n"
                "Opens the qmload window, which flashes IMAGE (default ./../../prog.alf)\n"
                "into a controller over a serial line. Further arguments are ignored.\n"
                "\n"
                "Options:\n"
                "  -h, --help     print this help and exit\n"
                "  --version      print the version and exit\n");
    return true;
  }
  return false;
}

} // namespace

int appMain(int argc, char** argv, RunGui runGui) {
  if (answeredInfoOption(argc, argv)) return 0;
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
