// The flash screen: waiting for a device, the device found, and the flash itself.
// The sequence is decided by the flash sequencer, one step per drawn frame; this
// file draws and turns its outcomes into mode changes and pop-ups.
#include <iostream>
#include <string>

#include "app/FlashScreen.h"
#include "app/GuiState.h"
#include "app/PopupRelease.h"
#include "app/ScreenWindow.h"
#include "app/StartScreen.h"
#include "image/AelfImage.h"

FlushState flushState;

namespace StartScreenSpace {

namespace {

const FlashPolicy guiPolicy = FlashPolicy::gui();
constexpr const char* defaultImagePath = "./../../prog.alf";

// The "Flush error!" pop-up with one message. Closing it, by its button or by its
// title bar, goes back to the start screen and clears the flag.
void drawErrorPopup(nk_context* ctx, StartScreen& screen, bool& flag, const char* message) {
  notePopupDrawn();
  if (nk_popup_begin(ctx, NK_POPUP_STATIC, "Flush error!", NK_WINDOW_CLOSABLE, nk_rect(20, 20, 200, 100))) {
    nk_layout_row_dynamic(ctx, 20, 1);
    nk_label(ctx, message, NK_TEXT_CENTERED);
    if (nk_button_label(ctx, "Close")) {
      screen.mode = PortSelect;
      flag = false;
      nk_popup_close(ctx);
    }
    nk_popup_end(ctx);
  } else {
    screen.mode = PortSelect;
    flag = false;
  }
}

void drawWaitDevices(nk_context* ctx, StartScreen& screen, std::string& deviceLabel) {
  FlushState& s = flushState;
  nk_layout_row_dynamic(ctx, 25, 2);
  nk_label(ctx, "Wait devices", alignTopLeft);
  nk_label(ctx, spinnerText(s.spinner), alignTopLeft);
  // One frame text per drawn frame; the counter stays within the eight frames.
  s.spinner = (s.spinner + 1) % 8;

  if (app.session && stepDiscovery(s, *app.session, guiPolicy) == DiscoveryOutcome::Found) {
    const std::string identity = formatIdentity(s.deviceId0, s.deviceId1, s.deviceId2);
    deviceIds.push_back(identity);
    // Always the first device found in this run.
    std::cout << deviceIds.front() << "\n" << std::flush;
    deviceLabel = identity;
    s.deviceItems[0] = deviceLabel.c_str();
    screen.mode = DeviceReady;
  }

  if (s.notFoundPopup) drawErrorPopup(ctx, screen, s.notFoundPopup, "Devices are not found");
}

void startFlush(StartScreen& screen) {
  const std::string path = programPath.empty() ? defaultImagePath : programPath;
  AelfImage image;
  if (readAelfImage(path, image) != aelfOk) return; // the reader has said why
  if (!app.session) return;
  beginFlash(flushState, *app.session, image, guiPolicy);
  screen.mode = Flushing;
}

void drawDeviceReady(nk_context* ctx, StartScreen& screen) {
  FlushState& s = flushState;
  nk_layout_row_dynamic(ctx, 20, 2);
  nk_label(ctx, "Devices: ", NK_TEXT_LEFT);
  s.deviceChoice = nk_combo(ctx, s.deviceItems, 1, s.deviceChoice, 25, nk_vec2(200, 100));
  nk_label(ctx, "Prog path:", NK_TEXT_LEFT);
  nk_label(ctx, programPath.empty() ? "no file" : programPath.c_str(), NK_TEXT_LEFT);

  // Both "Close" buttons go back to the start screen; the session stays open.
  nk_layout_row_dynamic(ctx, 20, 3);
  if (nk_button_label(ctx, "Close")) screen.mode = PortSelect;
  if (nk_button_label(ctx, "Flush")) startFlush(screen);
  if (nk_button_label(ctx, "Close")) screen.mode = PortSelect;
}

void drawFlushing(nk_context* ctx, StartScreen& screen) {
  FlushState& s = flushState;
  if (s.flushErrorPopup) drawErrorPopup(ctx, screen, s.flushErrorPopup, "Device not response");

  FlashOutcome outcome;
  if (app.session) outcome = stepFlash(s, *app.session, guiPolicy);
  // The frame that raises the pop-up ends without the progress bar.
  if (outcome.kind == FlashKind::PopupRaised) return;

  nk_layout_row_dynamic(ctx, 45, 1);
  nk_size current = s.progress;
  nk_progress(ctx, &current, s.total, nk_false);

  if (outcome.kind == FlashKind::Done) screen.mode = PortSelect;
}

} // namespace

void drawFlashScreen(nk_context* ctx, StartScreen& screen) {
  static std::string deviceLabel;
  if (nk_begin(ctx, screenWindowName, screenWindowRect(), screenWindowFlags)) {
    switch (screen.mode) {
    case WaitDevices: drawWaitDevices(ctx, screen, deviceLabel); break;
    case DeviceReady: drawDeviceReady(ctx, screen); break;
    case Flushing: drawFlushing(ctx, screen); break;
    default: break;
    }
  }
  nk_end(ctx);
  releaseAbandonedPopup(ctx, screenWindowName);
}

} // namespace StartScreenSpace
