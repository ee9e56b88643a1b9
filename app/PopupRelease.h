#pragma once
// Nuklear makes a window read-only while one of its pop-ups is open and gives the
// input back only when the pop-up itself is closed. When the screen's mode changes
// behind an open pop-up (a device answers while "Devices are not found" is shown,
// or a repeated request succeeds behind "Device not response"), the pop-up is
// simply no longer drawn, and the window would stay read-only for good: no button
// of the next screen could be pressed. This gives the input back in that case.
struct nk_context;

// Called by a drawing whenever it draws a pop-up in this frame.
void notePopupDrawn();
// Called after nk_end of the screen's window, once per frame.
void releaseAbandonedPopup(nk_context* ctx, const char* windowName);
