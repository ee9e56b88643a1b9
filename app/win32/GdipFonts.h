#pragma once
// GDI+ fonts as Nuklear's user fonts, found by family name with fallbacks for a
// family the system does not have.
#include <windows.h>

#include <gdiplus.h>

#include <string>

#include "app/NuklearConfig.h"

class GdipRenderer;

// A GDI+ font as Nuklear's user font: height, text-width callback and handle.
struct GdipFont {
  nk_user_font nk{};
  Gdiplus::GpFont* font = nullptr; // null only when the system has no font at all
  GdipRenderer* owner = nullptr;   // whose off-screen graphics measures the text
  std::string family;              // the family in use (UTF-8), empty without a font
};

// A regular font of the named family, size pixels high. When the family is
// missing it takes another: a few common sans-serif families, GDI+'s generic
// sans-serif, the first installed family, the stock GUI font. family receives the
// name of the family in use, or is left empty when even the stock font fails and
// the result is null.
Gdiplus::GpFont* findFont(const wchar_t* name, int size, std::string& family);

// The font's size as GDI+ reports it, in pixels; size itself without a font or
// a usable report.
float reportedSize(Gdiplus::GpFont* font, int size);
