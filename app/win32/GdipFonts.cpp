#include "app/win32/GdipFonts.h"

#include <vector>

#include "app/win32/Utf16.h"

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

// Families tried in order when the one asked for is missing: Arial's metric twin
// that Linux systems (and so Wine) usually have, then common sans-serif families.
constexpr const wchar_t* fallbackFamilies[] = {L"Liberation Sans", L"Arial",   L"DejaVu Sans",         L"Segoe UI",
                                               L"Tahoma",          L"Verdana", L"Microsoft Sans Serif"};

// The family's regular font, size pixels high, or null.
GpFont* regularFont(GpFontFamily* family, int size) {
  GpFont* font = nullptr;
  if (GdipCreateFont(family, static_cast<REAL>(size), FontStyleRegular, UnitPixel, &font) != Ok) return nullptr;
  return font;
}

GpFont* namedFont(const wchar_t* name, int size) {
  GpFontFamily* family = nullptr;
  if (GdipCreateFontFamilyFromName(name, nullptr, &family) != Ok || !family) return nullptr;
  GpFont* font = regularFont(family, size);
  GdipDeleteFontFamily(family);
  return font;
}

GpFont* genericSansSerifFont(int size) {
  GpFontFamily* family = nullptr;
  if (GdipGetGenericFontFamilySansSerif(&family) != Ok || !family) return nullptr;
  GpFont* font = regularFont(family, size);
  GdipDeleteFontFamily(family);
  return font;
}

bool isSymbolFont(GpFont* font) {
  HDC dc = GetDC(nullptr);
  GpGraphics* graphics = nullptr;
  LOGFONTW logFont{};
  const bool symbol = GdipCreateFromHDC(dc, &graphics) == Ok && GdipGetLogFontW(font, graphics, &logFont) == Ok &&
                      logFont.lfCharSet == SYMBOL_CHARSET;
  if (graphics) GdipDeleteGraphics(graphics);
  ReleaseDC(nullptr, dc);
  return symbol;
}

// The installed families; the collection's, not ours to delete.
std::vector<GpFontFamily*> installedFamilies() {
  GpFontCollection* installed = nullptr; // owned by GDI+, never deleted
  if (GdipNewInstalledFontCollection(&installed) != Ok || !installed) return {};
  INT count = 0;
  if (GdipGetFontCollectionFamilyCount(installed, &count) != Ok || count <= 0) return {};
  std::vector<GpFontFamily*> families(static_cast<size_t>(count), nullptr);
  INT found = 0;
  if (GdipGetFontCollectionFamilyList(installed, count, families.data(), &found) != Ok) return {};
  families.resize(static_cast<size_t>(found));
  return families;
}

// The first installed family with a regular style that is not a symbol font.
GpFont* firstInstalledFont(int size) {
  for (GpFontFamily* family : installedFamilies()) {
    BOOL regular = FALSE;
    if (!family || GdipIsStyleAvailable(family, FontStyleRegular, &regular) != Ok || !regular) continue;
    GpFont* font = regularFont(family, size);
    if (!font) continue;
    if (!isSymbolFont(font)) return font;
    GdipDeleteFont(font);
  }
  return nullptr;
}

// The system's stock GUI font at size pixels: there whenever Windows (or Wine)
// can draw text at all.
GpFont* stockFont(int size) {
  LOGFONTW logFont{};
  if (!GetObjectW(GetStockObject(DEFAULT_GUI_FONT), sizeof logFont, &logFont)) return nullptr;
  logFont.lfHeight = -size; // negative: the character height, as GDI+'s em size
  HDC dc = GetDC(nullptr);
  GpFont* font = nullptr;
  if (GdipCreateFontFromLogfontW(dc, &logFont, &font) != Ok) font = nullptr;
  ReleaseDC(nullptr, dc);
  return font;
}

GpFont* fallbackFont(int size) {
  for (const wchar_t* other : fallbackFamilies)
    if (GpFont* font = namedFont(other, size)) return font;
  if (GpFont* font = genericSansSerifFont(size)) return font;
  if (GpFont* font = firstInstalledFont(size)) return font;
  return stockFont(size);
}

std::string familyName(GpFont* font) {
  GpFontFamily* family = nullptr;
  if (GdipGetFamily(font, &family) != Ok || !family) return std::string();
  WCHAR name[LF_FACESIZE] = {};
  GdipGetFamilyName(family, name, LANG_NEUTRAL);
  GdipDeleteFontFamily(family);
  return toUtf8(name);
}

} // namespace

GpFont* findFont(const wchar_t* name, int size, std::string& family) {
  if (GpFont* font = namedFont(name, size)) {
    family = toUtf8(name);
    return font;
  }
  GpFont* font = fallbackFont(size);
  family = font ? familyName(font) : std::string();
  return font;
}

float reportedSize(GpFont* font, int size) {
  REAL height = static_cast<REAL>(size);
  if (font) GdipGetFontSize(font, &height);
  return height > 0.0f ? height : static_cast<REAL>(size);
}
