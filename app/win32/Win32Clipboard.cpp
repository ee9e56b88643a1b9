#include "app/win32/Win32Clipboard.h"

#include <windows.h>

#include <algorithm>
#include <string>

#include "app/NuklearConfig.h"
#include "app/win32/Utf16.h"

namespace {

// A movable global block holding the text and its terminating NUL, or null.
HGLOBAL globalCopy(const std::wstring& text) {
  HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, (text.size() + 1) * sizeof(wchar_t));
  if (!memory) return nullptr;
  auto* target = static_cast<wchar_t*>(GlobalLock(memory));
  std::copy(text.begin(), text.end(), target);
  target[text.size()] = L'\0';
  GlobalUnlock(memory);
  return memory;
}

void copyToClipboard(nk_handle, const char* text, int length) {
  const std::wstring wide = toUtf16(text, length);
  if (!OpenClipboard(nullptr)) return;
  EmptyClipboard();
  if (HGLOBAL memory = globalCopy(wide)) {
    if (!SetClipboardData(CF_UNICODETEXT, memory)) GlobalFree(memory); // the clipboard owns it on success
  }
  CloseClipboard();
}

void pasteFromClipboard(nk_handle, nk_text_edit* edit) {
  if (!IsClipboardFormatAvailable(CF_UNICODETEXT) || !OpenClipboard(nullptr)) return;
  if (HANDLE memory = GetClipboardData(CF_UNICODETEXT)) {
    if (auto* text = static_cast<const wchar_t*>(GlobalLock(memory))) {
      const std::string utf8 = toUtf8(text);
      nk_textedit_paste(edit, utf8.c_str(), static_cast<int>(utf8.size()));
      GlobalUnlock(memory);
    }
  }
  CloseClipboard();
}

} // namespace

void connectClipboard(nk_context* ctx) {
  ctx->clip.copy = copyToClipboard;
  ctx->clip.paste = pasteFromClipboard;
}
