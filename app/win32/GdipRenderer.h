#pragma once
// Sets up GDI+ and Nuklear for one window, draws each frame's commands into an
// off-screen bitmap and copies it to the window, and makes the fonts.
//
// Only the flat GDI+ C API is used (gdiplus.dll); one renderer serves one window.
// Keyboard and mouse input is Win32Input's.
#include <windows.h>

#include <gdiplus.h>

#include "app/NuklearConfig.h"
#include "app/win32/GdipFonts.h"
#include "app/win32/GdipPainter.h"

class GdipRenderer {
public:
  // Starts GDI+, takes the window's graphics, creates the off-screen bitmap of
  // width by height compatible with it, and sets up a Nuklear context with the
  // default style. Returns that context.
  nk_context* init(HWND hwnd, unsigned width, unsigned height);

  // A font of the named family, size in pixels, regular style (findFont says
  // which family it falls back to). Its height for Nuklear is the size GDI+
  // reports for it. Never null: should even the stock font fail, font is null,
  // the text takes room but is not drawn.
  GdipFont* fontCreate(const wchar_t* name, int size);
  // Deletes the GDI+ font and frees the object.
  static void fontDelete(GdipFont* font);
  // Makes the font the context's style font.
  void setFont(GdipFont* font);

  // WM_SIZE makes a bitmap of the new size, WM_PAINT copies the bitmap to the
  // window; true when the message was one of these.
  bool handleWindowMessage(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);

  // Clears the bitmap with clearColor (ARGB), draws the context's command list
  // with anti-aliasing, copies the bitmap to the window and clears the context.
  void render(Gdiplus::ARGB clearColor);

  // Frees the context and every GDI+ object, then shuts GDI+ down.
  void shutdown();

  // The colour of one pixel of the off-screen bitmap as last rendered (ARGB).
  Gdiplus::ARGB pixel(int x, int y) const;
  // Width of a UTF-8 text in pixels with the font, as Nuklear asks for it.
  float textWidth(const GdipFont& font, const char* text, int length);

private:
  void resize(unsigned width, unsigned height);
  void createSurface(unsigned width, unsigned height);
  void releaseSurface();
  void paint(HWND hwnd);
  void present(Gdiplus::GpGraphics* target);

  nk_context ctx{};
  bool initialised = false;
  HWND window = nullptr;
  ULONG_PTR gdiplusToken = 0;
  Gdiplus::GpGraphics* windowGraphics = nullptr;
  Gdiplus::GpBitmap* bitmap = nullptr;
  Gdiplus::GpGraphics* memoryGraphics = nullptr;
  GdipPainter painter;
};
