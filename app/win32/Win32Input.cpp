#include "app/win32/Win32Input.h"

#include <windowsx.h>

#include "app/win32/Win32Clipboard.h"

namespace {

// The Nuklear keys one virtual key stands for: Home and End move both the text
// cursor and the scroll position, so they give two.
struct NuklearKeys {
  nk_keys first = NK_KEY_NONE;
  nk_keys second = NK_KEY_NONE;
};

// Keys that move the cursor or edit text; with Ctrl, left and right go by word.
NuklearKeys editingKeys(WPARAM key, bool control) {
  switch (key) {
  case VK_SHIFT:
  case VK_LSHIFT:
  case VK_RSHIFT: return {NK_KEY_SHIFT};
  case VK_CONTROL:
  case VK_LCONTROL:
  case VK_RCONTROL: return {NK_KEY_CTRL};
  case VK_DELETE: return {NK_KEY_DEL};
  case VK_RETURN: return {NK_KEY_ENTER};
  case VK_TAB: return {NK_KEY_TAB};
  case VK_BACK: return {NK_KEY_BACKSPACE};
  case VK_UP: return {NK_KEY_UP};
  case VK_DOWN: return {NK_KEY_DOWN};
  case VK_LEFT: return {control ? NK_KEY_TEXT_WORD_LEFT : NK_KEY_LEFT};
  case VK_RIGHT: return {control ? NK_KEY_TEXT_WORD_RIGHT : NK_KEY_RIGHT};
  case VK_HOME: return {NK_KEY_TEXT_START, NK_KEY_SCROLL_START};
  case VK_END: return {NK_KEY_TEXT_END, NK_KEY_SCROLL_END};
  case VK_NEXT: return {NK_KEY_SCROLL_DOWN};
  case VK_PRIOR: return {NK_KEY_SCROLL_UP};
  default: return {};
  }
}

// The Ctrl shortcuts: copy, paste, cut, undo and redo.
nk_keys shortcutKey(WPARAM key) {
  switch (key) {
  case 'C': return NK_KEY_COPY;
  case 'V': return NK_KEY_PASTE;
  case 'X': return NK_KEY_CUT;
  case 'Z': return NK_KEY_TEXT_UNDO;
  case 'R': return NK_KEY_TEXT_REDO;
  default: return NK_KEY_NONE;
  }
}

NuklearKeys keysFor(WPARAM key) {
  const bool control = (GetKeyState(VK_CONTROL) & 0x8000) != 0;
  NuklearKeys keys = editingKeys(key, control);
  if (keys.first == NK_KEY_NONE && control) keys.first = shortcutKey(key);
  return keys;
}

// The button change a mouse button message stands for; false for other messages.
bool buttonChangeFor(UINT message, LPARAM lParam, ButtonChange& change) {
  change.x = GET_X_LPARAM(lParam);
  change.y = GET_Y_LPARAM(lParam);
  change.down = true;
  switch (message) {
  case WM_LBUTTONDBLCLK: // with CS_DBLCLKS the second press of a double click comes only as this
    change.doubleClick = true;
    return true;
  case WM_LBUTTONDOWN: return true;
  case WM_LBUTTONUP: change.down = false; return true;
  case WM_RBUTTONDOWN:
  case WM_RBUTTONDBLCLK: change.button = NK_BUTTON_RIGHT; return true;
  case WM_RBUTTONUP:
    change.button = NK_BUTTON_RIGHT;
    change.down = false;
    return true;
  case WM_MBUTTONDOWN:
  case WM_MBUTTONDBLCLK: change.button = NK_BUTTON_MIDDLE; return true;
  case WM_MBUTTONUP:
    change.button = NK_BUTTON_MIDDLE;
    change.down = false;
    return true;
  default: return false;
  }
}

} // namespace

void Win32Input::attach(HWND hwnd, nk_context* context) {
  window = hwnd;
  ctx = context;
  connectClipboard(ctx);
}

void Win32Input::detach() {
  ctx = nullptr;
  window = nullptr;
}

void Win32Input::begin() {
  if (!ctx) return;
  nk_input_begin(ctx);
  ButtonChange change;
  if (!buttons.startFrame(change)) return;
  applyButton(change);
  // This frame handles input, so another follows at once; should more changes
  // wait, a message makes sure the frame after that one comes too.
  if (buttons.hasPending()) PostMessageA(window, WM_USER, 0, 0);
}

void Win32Input::end() {
  if (ctx) nk_input_end(ctx);
}

bool Win32Input::handleKey(WPARAM key, bool down) {
  const NuklearKeys keys = keysFor(key);
  if (keys.first == NK_KEY_NONE) return false;
  nk_input_key(ctx, keys.first, down);
  if (keys.second != NK_KEY_NONE) nk_input_key(ctx, keys.second, down);
  return true;
}

void Win32Input::applyButton(const ButtonChange& change) {
  nk_input_motion(ctx, change.x, change.y);
  if (change.button == NK_BUTTON_LEFT) nk_input_button(ctx, NK_BUTTON_DOUBLE, change.x, change.y, change.doubleClick);
  nk_input_button(ctx, change.button, change.x, change.y, change.down);
}

bool Win32Input::handleButton(HWND hwnd, UINT message, LPARAM lParam) {
  ButtonChange change;
  if (!buttonChangeFor(message, lParam, change)) return false;
  // Keep the mouse while a button is held, so its release reaches us.
  if (change.down) {
    SetCapture(hwnd);
  } else {
    ReleaseCapture();
  }
  if (buttons.offer(change)) applyButton(change);
  return true;
}

bool Win32Input::handleMessage(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  if (!ctx) return false; // messages sent while the window is being created
  switch (message) {
  case WM_KEYDOWN:
  case WM_SYSKEYDOWN: return handleKey(wParam, true);
  case WM_KEYUP:
  case WM_SYSKEYUP: return handleKey(wParam, false);
  case WM_CHAR:
    if (wParam < 32) return false; // control characters come as keys
    nk_input_unicode(ctx, static_cast<nk_rune>(wParam));
    return true;
  case WM_MOUSEMOVE: nk_input_motion(ctx, GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)); return true;
  case WM_MOUSEWHEEL:
    nk_input_scroll(ctx, nk_vec2(0.0f, static_cast<float>(GET_WHEEL_DELTA_WPARAM(wParam)) / WHEEL_DELTA));
    return true;
  default: return handleButton(hwnd, message, lParam);
  }
}
