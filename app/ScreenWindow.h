#pragma once
// The one Nuklear window both drawings of the screen live in.
#include "app/NuklearConfig.h"

namespace StartScreenSpace {

constexpr const char* screenWindowName = "ZQR_STARTUP";
// Border, movable, no scroll bar, no title bar.
constexpr nk_flags screenWindowFlags = NK_WINDOW_BORDER | NK_WINDOW_MOVABLE | NK_WINDOW_NO_SCROLLBAR;
static_assert(screenWindowFlags == 35, "window flags changed");
inline struct nk_rect screenWindowRect() { return nk_rect(15, 15, 250, 130); }

// Left, not vertically centred.
constexpr nk_flags alignTopLeft = NK_TEXT_ALIGN_LEFT;
static_assert(NK_TEXT_ALIGN_LEFT == 1 && NK_TEXT_LEFT == 17 && NK_TEXT_CENTERED == 18, "alignments changed");

} // namespace StartScreenSpace
