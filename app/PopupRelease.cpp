#include "app/PopupRelease.h"

#include "app/NuklearConfig.h"

namespace {
bool drawnThisFrame = false;
bool drawnLastFrame = false;
} // namespace

void notePopupDrawn() { drawnThisFrame = true; }

void releaseAbandonedPopup(nk_context* ctx, const char* windowName) {
  if (drawnLastFrame && !drawnThisFrame) {
    if (nk_window* window = nk_window_find(ctx, windowName)) {
      window->flags &= ~static_cast<nk_flags>(NK_WINDOW_ROM);
      window->popup.active = 0;
    }
  }
  drawnLastFrame = drawnThisFrame;
  drawnThisFrame = false;
}
