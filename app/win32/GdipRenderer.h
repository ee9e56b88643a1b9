#pragma once
// Draws Nuklear's command list with GDI+ into an off-screen bitmap and copies it
// to the window, and turns the window's messages into Nuklear input.
//
// Only the flat GDI+ C API is used (gdiplus.dll); one renderer serves one window.
#include <windows.h>

#include <gdiplus.h>

#include <string>

#include "app/ButtonQueue.h"

#include "app/NuklearConfig.h"

class GdipRenderer;

// A GDI+ font as Nuklear's user font: height, text-width callback and handle.
struct GdipFont {
  nk_user_font nk{};
  Gdiplus::GpFont* font = nullptr; // null only when the system has no font at all
  GdipRenderer* owner = nullptr;   // whose off-screen graphics measures the text
  std::string family;              // the family in use (UTF-8), empty without a font
};

class GdipRenderer {
public:
  // Starts GDI+, takes the window's graphics, creates the off-screen bitmap of
  // width by height compatible with it, and sets up a Nuklear context with the
  // default style. Returns that context.
  nk_context* init(HWND hwnd, unsigned width, unsigned height);

  // A font of the named family, size in pixels, regular style. Its height for
  // Nuklear is the size GDI+ reports for it. When the family is missing it takes
  // another: a few common sans-serif families, GDI+'s generic sans-serif, the first
  // installed family, the stock GUI font; family says which. Never null: should
  // even the stock font fail, font is null, the text takes room but is not drawn.
  GdipFont* fontCreate(const wchar_t* name, int size);
  // Deletes the GDI+ font and frees the object.
  static void fontDelete(GdipFont* font);
  // Makes the font the context's style font.
  void setFont(GdipFont* font);

  // Turns a window message into Nuklear input; true when the message was used.
  bool handleEvent(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam);
  void inputBegin();
  void inputEnd();

  // Clears the bitmap with clearColor (ARGB), draws the context's command list
  // with anti-aliasing, copies the bitmap to the window and clears the context.
  void render(Gdiplus::ARGB clearColor);

  // Frees the context and every GDI+ object, then shuts GDI+ down.
  void shutdown();

  nk_context* context() { return initialised ? &ctx : nullptr; }
  // The colour of one pixel of the off-screen bitmap as last rendered (ARGB).
  Gdiplus::ARGB pixel(int x, int y) const;
  // Width of a UTF-8 text in pixels with the font, as Nuklear asks for it.
  float textWidth(const GdipFont& font, const char* text, int length);

private:
  void resize(unsigned width, unsigned height);
  void createSurface(unsigned width, unsigned height);
  void releaseSurface();
  void present(Gdiplus::GpGraphics* target);
  void drawCommands();
  void setPen(nk_color color, unsigned short thickness);
  void setBrush(nk_color color);
  void roundedRectPath(float x, float y, float w, float h, float r);
  bool handleKey(WPARAM key, bool down);
  bool handleButton(HWND hwnd, UINT message, LPARAM lParam);

  void applyButton(const ButtonChange& change);
  ButtonQueue buttons; // one button change per frame

  nk_context ctx{};
  bool initialised = false;
  HWND window = nullptr;
  ULONG_PTR gdiplusToken = 0;
  Gdiplus::GpGraphics* windowGraphics = nullptr;
  Gdiplus::GpBitmap* bitmap = nullptr;
  Gdiplus::GpGraphics* memoryGraphics = nullptr;
  Gdiplus::GpPen* pen = nullptr;
  Gdiplus::GpSolidFill* brush = nullptr;
  Gdiplus::GpPath* path = nullptr;
  Gdiplus::GpStringFormat* format = nullptr;
};
