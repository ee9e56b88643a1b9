#pragma once
// Draws Nuklear's command list on a GDI+ graphics, each command type by its own
// function, and measures text the way it is drawn.
#include <windows.h>

#include <gdiplus.h>

#include "app/NuklearConfig.h"
#include "app/win32/GdipFonts.h"

class GdipPainter {
public:
  // Makes the pen, brush, path and text layout every command shares.
  void create();
  // Deletes them.
  void release();

  // Draws ctx's command list on graphics, in order.
  void draw(Gdiplus::GpGraphics* graphics, nk_context* ctx);
  // Width of a UTF-8 text in pixels with the font, measured on graphics.
  float textWidth(Gdiplus::GpGraphics* graphics, const GdipFont& font, const char* text, int length) const;

private:
  Gdiplus::GpPen* pen = nullptr;
  Gdiplus::GpSolidFill* brush = nullptr;
  Gdiplus::GpPath* path = nullptr;
  Gdiplus::GpStringFormat* format = nullptr;
};
