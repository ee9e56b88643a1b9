// The start screen: port choice, "Open", and the toolchain row while no program
// path is set.
#include "app/GuiState.h"
#include "app/PopupRelease.h"
#include "app/ScreenWindow.h"
#include "app/StartScreen.h"

namespace StartScreenSpace {

namespace {

// Opens the chosen port and sends the broadcast identify request.
void openChosenPort(StartScreen& screen) {
  createSession(app, portNames[selectedPort].c_str()); // the full path; the box shows its label
  app.session->request(0, 0, 0, 0, 0, nullptr, 0, 1);
  screen.mode = WaitDevices;
}

} // namespace

void drawStartScreen(nk_context* ctx, StartScreen& screen) {
  if (nk_begin(ctx, screenWindowName, screenWindowRect(), screenWindowFlags)) {
    nk_layout_row_dynamic(ctx, 25, 3);
    nk_label(ctx, "Port", alignTopLeft);
    if (!portNames.empty())
      selectedPort = nk_combo(ctx, portItems, static_cast<int>(portNames.size()), selectedPort, 25, nk_vec2(180, 100));
    else
      nk_label(ctx, "NO PORTS", alignTopLeft);
    if (nk_button_label(ctx, "Refresh")) refreshPortList();

    if (!portNames.empty()) {
      nk_layout_row_dynamic(ctx, 25, 1);
      if (nk_button_label(ctx, "Open")) openChosenPort(screen);
    }

    if (programPath.empty()) drawToolchainRow(ctx);
  }
  nk_end(ctx);
  releaseAbandonedPopup(ctx, screenWindowName);
}

} // namespace StartScreenSpace
