#include "app/win32/GdipRenderer.h"

#include <windowsx.h>

#include <algorithm>
#include <cmath>
#include <string>
#include <vector>

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

constexpr float radiansToDegrees = 57.29577951308232f;

ARGB toArgb(nk_color c) {
  return (static_cast<ARGB>(c.a) << 24) | (static_cast<ARGB>(c.r) << 16) | (static_cast<ARGB>(c.g) << 8) |
         static_cast<ARGB>(c.b);
}

std::wstring widen(const char* text, int length) {
  if (length <= 0) return std::wstring();
  int count = MultiByteToWideChar(CP_UTF8, 0, text, length, nullptr, 0);
  std::wstring wide(static_cast<size_t>(count), L'\0');
  MultiByteToWideChar(CP_UTF8, 0, text, length, &wide[0], count);
  return wide;
}

std::string narrow(const wchar_t* text) {
  int count = WideCharToMultiByte(CP_UTF8, 0, text, -1, nullptr, 0, nullptr, nullptr);
  if (count <= 1) return std::string();
  std::string utf8(static_cast<size_t>(count), '\0');
  WideCharToMultiByte(CP_UTF8, 0, text, -1, &utf8[0], count, nullptr, nullptr);
  utf8.resize(static_cast<size_t>(count - 1)); // without the terminating NUL
  return utf8;
}

float measureCallback(nk_handle handle, float, const char* text, int length) {
  auto* font = static_cast<GdipFont*>(handle.ptr);
  if (!font || !font->owner) return 0.0f;
  return font->owner->textWidth(*font, text, length);
}

// Nuklear's clipboard hooks, on the Windows clipboard as UTF-16 text.
void clipboardCopy(nk_handle, const char* text, int length) {
  std::wstring wide = widen(text, length);
  if (!OpenClipboard(nullptr)) return;
  EmptyClipboard();
  HGLOBAL memory = GlobalAlloc(GMEM_MOVEABLE, (wide.size() + 1) * sizeof(wchar_t));
  if (memory) {
    auto* target = static_cast<wchar_t*>(GlobalLock(memory));
    std::copy(wide.begin(), wide.end(), target);
    target[wide.size()] = L'\0';
    GlobalUnlock(memory);
    if (!SetClipboardData(CF_UNICODETEXT, memory)) GlobalFree(memory); // the clipboard owns it on success
  }
  CloseClipboard();
}

void clipboardPaste(nk_handle, nk_text_edit* edit) {
  if (!IsClipboardFormatAvailable(CF_UNICODETEXT) || !OpenClipboard(nullptr)) return;
  if (HANDLE memory = GetClipboardData(CF_UNICODETEXT)) {
    if (auto* text = static_cast<const wchar_t*>(GlobalLock(memory))) {
      std::string utf8 = narrow(text);
      nk_textedit_paste(edit, utf8.c_str(), static_cast<int>(utf8.size()));
      GlobalUnlock(memory);
    }
  }
  CloseClipboard();
}

bool controlDown() { return (GetKeyState(VK_CONTROL) & 0x8000) != 0; }

std::vector<GpPoint> toPoints(const struct nk_vec2i* points, unsigned short count) {
  std::vector<GpPoint> out;
  out.reserve(count);
  for (unsigned short i = 0; i < count; ++i) out.push_back(GpPoint(points[i].x, points[i].y));
  return out;
}

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

// The first installed family with a regular style that is not a symbol font.
GpFont* firstInstalledFont(int size) {
  GpFontCollection* installed = nullptr; // owned by GDI+, never deleted
  if (GdipNewInstalledFontCollection(&installed) != Ok || !installed) return nullptr;
  INT count = 0;
  if (GdipGetFontCollectionFamilyCount(installed, &count) != Ok || count <= 0) return nullptr;
  std::vector<GpFontFamily*> families(static_cast<size_t>(count), nullptr); // the collection's, not ours
  INT found = 0;
  if (GdipGetFontCollectionFamilyList(installed, count, families.data(), &found) != Ok) return nullptr;
  for (INT i = 0; i < found; ++i) {
    BOOL regular = FALSE;
    if (!families[i] || GdipIsStyleAvailable(families[i], FontStyleRegular, &regular) != Ok || !regular) continue;
    GpFont* font = regularFont(families[i], size);
    if (!font) continue;
    HDC dc = GetDC(nullptr);
    GpGraphics* graphics = nullptr;
    LOGFONTW logFont{};
    const bool symbol = GdipCreateFromHDC(dc, &graphics) == Ok && GdipGetLogFontW(font, graphics, &logFont) == Ok &&
                        logFont.lfCharSet == SYMBOL_CHARSET;
    if (graphics) GdipDeleteGraphics(graphics);
    ReleaseDC(nullptr, dc);
    if (!symbol) return font;
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

std::string familyName(GpFont* font) {
  GpFontFamily* family = nullptr;
  if (GdipGetFamily(font, &family) != Ok || !family) return std::string();
  WCHAR name[LF_FACESIZE] = {};
  GdipGetFamilyName(family, name, LANG_NEUTRAL);
  GdipDeleteFontFamily(family);
  return narrow(name);
}

} // namespace

nk_context* GdipRenderer::init(HWND hwnd, unsigned width, unsigned height) {
  window = hwnd;
  GdiplusStartupInput startup;
  GdiplusStartup(&gdiplusToken, &startup, nullptr);
  GdipCreateFromHWND(hwnd, &windowGraphics);
  createSurface(width, height);

  GdipCreatePen1(0xFF000000u, 1.0f, UnitPixel, &pen);
  GdipCreateSolidFill(0xFF000000u, &brush);
  GdipCreatePath(FillModeAlternate, &path);
  // Typographic layout measures and draws text without GDI+'s extra padding, so
  // the widths Nuklear lays out with are the widths that get drawn.
  GpStringFormat* typographic = nullptr;
  GdipStringFormatGetGenericTypographic(&typographic);
  GdipCloneStringFormat(typographic, &format);
  GdipSetStringFormatFlags(format,
                           StringFormatFlagsNoWrap | StringFormatFlagsMeasureTrailingSpaces | StringFormatFlagsNoClip);

  nk_init_default(&ctx, nullptr);
  ctx.clip.copy = clipboardCopy;
  ctx.clip.paste = clipboardPaste;
  initialised = true;
  return &ctx;
}

void GdipRenderer::createSurface(unsigned width, unsigned height) {
  GdipCreateBitmapFromGraphics(static_cast<INT>(width), static_cast<INT>(height), windowGraphics, &bitmap);
  GdipGetImageGraphicsContext(bitmap, &memoryGraphics);
  GdipSetTextRenderingHint(memoryGraphics, TextRenderingHintAntiAliasGridFit);
}

void GdipRenderer::releaseSurface() {
  if (memoryGraphics) GdipDeleteGraphics(memoryGraphics);
  if (bitmap) GdipDisposeImage(bitmap);
  memoryGraphics = nullptr;
  bitmap = nullptr;
}

void GdipRenderer::resize(unsigned width, unsigned height) {
  // The window's graphics keeps the size it was made with; take a new one too.
  releaseSurface();
  if (windowGraphics) GdipDeleteGraphics(windowGraphics);
  windowGraphics = nullptr;
  GdipCreateFromHWND(window, &windowGraphics);
  createSurface(width, height);
}

GdipFont* GdipRenderer::fontCreate(const wchar_t* name, int size) {
  auto* font = new GdipFont;
  font->font = namedFont(name, size);
  if (font->font) {
    font->family = narrow(name);
  } else {
    for (const wchar_t* other : fallbackFamilies)
      if ((font->font = namedFont(other, size))) break;
    if (!font->font) font->font = genericSansSerifFont(size);
    if (!font->font) font->font = firstInstalledFont(size);
    if (!font->font) font->font = stockFont(size);
    if (font->font) font->family = familyName(font->font);
  }
  REAL height = static_cast<REAL>(size);
  if (font->font) GdipGetFontSize(font->font, &height);
  font->owner = this;
  font->nk.userdata = nk_handle_ptr(font);
  font->nk.height = height > 0.0f ? height : static_cast<REAL>(size);
  font->nk.width = measureCallback;
  return font;
}

void GdipRenderer::fontDelete(GdipFont* font) {
  if (!font) return;
  if (font->font) GdipDeleteFont(font->font);
  delete font;
}

void GdipRenderer::setFont(GdipFont* font) {
  if (font) nk_style_set_font(&ctx, &font->nk);
}

float GdipRenderer::textWidth(const GdipFont& font, const char* text, int length) {
  std::wstring wide = widen(text, length);
  // Without any font the text is not drawn, but it still takes room in the layout.
  if (!font.font) return 0.5f * font.nk.height * static_cast<float>(wide.size());
  if (wide.empty() || !memoryGraphics) return 0.0f;
  RectF layout(0.0f, 0.0f, 0.0f, 0.0f); // no limit
  RectF bounds;
  GdipMeasureString(memoryGraphics, wide.c_str(), static_cast<INT>(wide.size()), font.font, &layout, format, &bounds,
                    nullptr, nullptr);
  return bounds.Width;
}

void GdipRenderer::inputBegin() {
  if (!initialised) return;
  nk_input_begin(&ctx);
  ButtonChange change;
  if (!buttons.startFrame(change)) return;
  applyButton(change);
  // This frame handles input, so another follows at once; should more changes
  // wait, a message makes sure the frame after that one comes too.
  if (buttons.hasPending()) PostMessageA(window, WM_USER, 0, 0);
}

void GdipRenderer::inputEnd() {
  if (initialised) nk_input_end(&ctx);
}

bool GdipRenderer::handleKey(WPARAM key, bool down) {
  const bool control = controlDown();
  switch (key) {
  case VK_SHIFT:
  case VK_LSHIFT:
  case VK_RSHIFT: nk_input_key(&ctx, NK_KEY_SHIFT, down); return true;
  case VK_CONTROL:
  case VK_LCONTROL:
  case VK_RCONTROL: nk_input_key(&ctx, NK_KEY_CTRL, down); return true;
  case VK_DELETE: nk_input_key(&ctx, NK_KEY_DEL, down); return true;
  case VK_RETURN: nk_input_key(&ctx, NK_KEY_ENTER, down); return true;
  case VK_TAB: nk_input_key(&ctx, NK_KEY_TAB, down); return true;
  case VK_BACK: nk_input_key(&ctx, NK_KEY_BACKSPACE, down); return true;
  case VK_UP: nk_input_key(&ctx, NK_KEY_UP, down); return true;
  case VK_DOWN: nk_input_key(&ctx, NK_KEY_DOWN, down); return true;
  case VK_LEFT: nk_input_key(&ctx, control ? NK_KEY_TEXT_WORD_LEFT : NK_KEY_LEFT, down); return true;
  case VK_RIGHT: nk_input_key(&ctx, control ? NK_KEY_TEXT_WORD_RIGHT : NK_KEY_RIGHT, down); return true;
  case VK_HOME:
    nk_input_key(&ctx, NK_KEY_TEXT_START, down);
    nk_input_key(&ctx, NK_KEY_SCROLL_START, down);
    return true;
  case VK_END:
    nk_input_key(&ctx, NK_KEY_TEXT_END, down);
    nk_input_key(&ctx, NK_KEY_SCROLL_END, down);
    return true;
  case VK_NEXT: nk_input_key(&ctx, NK_KEY_SCROLL_DOWN, down); return true;
  case VK_PRIOR: nk_input_key(&ctx, NK_KEY_SCROLL_UP, down); return true;
  case 'C':
    if (!control) return false;
    nk_input_key(&ctx, NK_KEY_COPY, down);
    return true;
  case 'V':
    if (!control) return false;
    nk_input_key(&ctx, NK_KEY_PASTE, down);
    return true;
  case 'X':
    if (!control) return false;
    nk_input_key(&ctx, NK_KEY_CUT, down);
    return true;
  case 'Z':
    if (!control) return false;
    nk_input_key(&ctx, NK_KEY_TEXT_UNDO, down);
    return true;
  case 'R':
    if (!control) return false;
    nk_input_key(&ctx, NK_KEY_TEXT_REDO, down);
    return true;
  default: return false;
  }
}

void GdipRenderer::applyButton(const ButtonChange& change) {
  nk_input_motion(&ctx, change.x, change.y);
  if (change.button == NK_BUTTON_LEFT) nk_input_button(&ctx, NK_BUTTON_DOUBLE, change.x, change.y, change.doubleClick);
  nk_input_button(&ctx, change.button, change.x, change.y, change.down);
}

bool GdipRenderer::handleButton(HWND hwnd, UINT message, LPARAM lParam) {
  const int x = GET_X_LPARAM(lParam);
  const int y = GET_Y_LPARAM(lParam);
  ButtonChange change;
  change.x = x;
  change.y = y;
  change.down = true;
  switch (message) {
  case WM_LBUTTONDBLCLK: // with CS_DBLCLKS the second press of a double click comes only as this
    change.doubleClick = true;
    break;
  case WM_LBUTTONDOWN: break;
  case WM_LBUTTONUP: change.down = false; break;
  case WM_RBUTTONDOWN:
  case WM_RBUTTONDBLCLK: change.button = NK_BUTTON_RIGHT; break;
  case WM_RBUTTONUP:
    change.button = NK_BUTTON_RIGHT;
    change.down = false;
    break;
  case WM_MBUTTONDOWN:
  case WM_MBUTTONDBLCLK: change.button = NK_BUTTON_MIDDLE; break;
  case WM_MBUTTONUP:
    change.button = NK_BUTTON_MIDDLE;
    change.down = false;
    break;
  default: return false;
  }
  // Keep the mouse while a button is held, so its release reaches us.
  if (change.down) {
    SetCapture(hwnd);
  } else {
    ReleaseCapture();
  }
  if (buttons.offer(change)) applyButton(change);
  return true;
}

bool GdipRenderer::handleEvent(HWND hwnd, UINT message, WPARAM wParam, LPARAM lParam) {
  if (!initialised) return false; // messages sent while the window is being created
  switch (message) {
  case WM_SIZE: {
    const unsigned width = LOWORD(lParam);
    const unsigned height = HIWORD(lParam);
    if (width > 0 && height > 0) resize(width, height);
    return true;
  }
  case WM_PAINT: {
    PAINTSTRUCT paint;
    HDC dc = BeginPaint(hwnd, &paint);
    GpGraphics* graphics = nullptr;
    if (GdipCreateFromHDC(dc, &graphics) == Ok) {
      present(graphics);
      GdipDeleteGraphics(graphics);
    }
    EndPaint(hwnd, &paint);
    return true;
  }
  case WM_KEYDOWN:
  case WM_SYSKEYDOWN: return handleKey(wParam, true);
  case WM_KEYUP:
  case WM_SYSKEYUP: return handleKey(wParam, false);
  case WM_CHAR:
    if (wParam < 32) return false; // control characters come as keys
    nk_input_unicode(&ctx, static_cast<nk_rune>(wParam));
    return true;
  case WM_MOUSEMOVE: nk_input_motion(&ctx, GET_X_LPARAM(lParam), GET_Y_LPARAM(lParam)); return true;
  case WM_MOUSEWHEEL:
    nk_input_scroll(&ctx, nk_vec2(0.0f, static_cast<float>(GET_WHEEL_DELTA_WPARAM(wParam)) / WHEEL_DELTA));
    return true;
  default: return handleButton(hwnd, message, lParam);
  }
}

void GdipRenderer::setPen(nk_color color, unsigned short thickness) {
  GdipSetPenColor(pen, toArgb(color));
  GdipSetPenWidth(pen, thickness > 0 ? static_cast<REAL>(thickness) : 1.0f);
}

void GdipRenderer::setBrush(nk_color color) { GdipSetSolidFillColor(brush, toArgb(color)); }

void GdipRenderer::roundedRectPath(float x, float y, float w, float h, float r) {
  r = std::min(r, std::min(w, h) / 2.0f);
  const float d = 2.0f * r;
  GdipResetPath(path);
  GdipAddPathArc(path, x, y, d, d, 180.0f, 90.0f);
  GdipAddPathArc(path, x + w - d, y, d, d, 270.0f, 90.0f);
  GdipAddPathArc(path, x + w - d, y + h - d, d, d, 0.0f, 90.0f);
  GdipAddPathArc(path, x, y + h - d, d, d, 90.0f, 90.0f);
  GdipClosePathFigure(path);
}

void GdipRenderer::drawCommands() {
  GpGraphics* g = memoryGraphics;
  const nk_command* cmd = nullptr;
  nk_foreach(cmd, &ctx) {
    switch (cmd->type) {
    case NK_COMMAND_NOP: break;
    case NK_COMMAND_SCISSOR: {
      auto* c = reinterpret_cast<const nk_command_scissor*>(cmd);
      GdipSetClipRectI(g, c->x, c->y, c->w + 1, c->h + 1, CombineModeReplace);
      break;
    }
    case NK_COMMAND_LINE: {
      auto* c = reinterpret_cast<const nk_command_line*>(cmd);
      setPen(c->color, c->line_thickness);
      GdipDrawLineI(g, pen, c->begin.x, c->begin.y, c->end.x, c->end.y);
      break;
    }
    case NK_COMMAND_CURVE: {
      auto* c = reinterpret_cast<const nk_command_curve*>(cmd);
      setPen(c->color, c->line_thickness);
      GdipDrawBezierI(g, pen, c->begin.x, c->begin.y, c->ctrl[0].x, c->ctrl[0].y, c->ctrl[1].x, c->ctrl[1].y, c->end.x,
                      c->end.y);
      break;
    }
    case NK_COMMAND_RECT: {
      auto* c = reinterpret_cast<const nk_command_rect*>(cmd);
      setPen(c->color, c->line_thickness);
      if (c->rounding == 0) {
        GdipDrawRectangleI(g, pen, c->x, c->y, c->w, c->h);
      } else {
        roundedRectPath(c->x, c->y, c->w, c->h, c->rounding);
        GdipDrawPath(g, pen, path);
      }
      break;
    }
    case NK_COMMAND_RECT_FILLED: {
      auto* c = reinterpret_cast<const nk_command_rect_filled*>(cmd);
      setBrush(c->color);
      if (c->rounding == 0) {
        GdipFillRectangleI(g, brush, c->x, c->y, c->w, c->h);
      } else {
        roundedRectPath(c->x, c->y, c->w, c->h, c->rounding);
        GdipFillPath(g, brush, path);
      }
      break;
    }
    case NK_COMMAND_RECT_MULTI_COLOR: {
      // Corner colours: left is the top-left corner, top the top-right, bottom
      // the bottom-right and right the bottom-left, as Nuklear's own converter
      // places them.
      auto* c = reinterpret_cast<const nk_command_rect_multi_color*>(cmd);
      GpPoint corners[4] = {GpPoint(c->x, c->y), GpPoint(c->x + c->w, c->y), GpPoint(c->x + c->w, c->y + c->h),
                            GpPoint(c->x, c->y + c->h)};
      ARGB colors[4] = {toArgb(c->left), toArgb(c->top), toArgb(c->bottom), toArgb(c->right)};
      nk_color centre;
      centre.r = static_cast<nk_byte>((c->left.r + c->top.r + c->bottom.r + c->right.r) / 4);
      centre.g = static_cast<nk_byte>((c->left.g + c->top.g + c->bottom.g + c->right.g) / 4);
      centre.b = static_cast<nk_byte>((c->left.b + c->top.b + c->bottom.b + c->right.b) / 4);
      centre.a = static_cast<nk_byte>((c->left.a + c->top.a + c->bottom.a + c->right.a) / 4);
      GpPathGradient* gradient = nullptr;
      if (GdipCreatePathGradientI(corners, 4, WrapModeClamp, &gradient) == Ok) {
        INT count = 4;
        GdipSetPathGradientCenterColor(gradient, toArgb(centre));
        GdipSetPathGradientSurroundColorsWithCount(gradient, colors, &count);
        GdipFillRectangleI(g, gradient, c->x, c->y, c->w, c->h);
        GdipDeleteBrush(gradient);
      }
      break;
    }
    case NK_COMMAND_CIRCLE: {
      auto* c = reinterpret_cast<const nk_command_circle*>(cmd);
      setPen(c->color, c->line_thickness);
      GdipDrawEllipseI(g, pen, c->x, c->y, c->w, c->h);
      break;
    }
    case NK_COMMAND_CIRCLE_FILLED: {
      auto* c = reinterpret_cast<const nk_command_circle_filled*>(cmd);
      setBrush(c->color);
      GdipFillEllipseI(g, brush, c->x, c->y, c->w, c->h);
      break;
    }
    case NK_COMMAND_ARC: {
      auto* c = reinterpret_cast<const nk_command_arc*>(cmd);
      setPen(c->color, c->line_thickness);
      const REAL r = c->r;
      GdipDrawArc(g, pen, c->cx - r, c->cy - r, 2 * r, 2 * r, c->a[0] * radiansToDegrees,
                  (c->a[1] - c->a[0]) * radiansToDegrees);
      break;
    }
    case NK_COMMAND_ARC_FILLED: {
      auto* c = reinterpret_cast<const nk_command_arc_filled*>(cmd);
      setBrush(c->color);
      const REAL r = c->r;
      GdipFillPie(g, brush, c->cx - r, c->cy - r, 2 * r, 2 * r, c->a[0] * radiansToDegrees,
                  (c->a[1] - c->a[0]) * radiansToDegrees);
      break;
    }
    case NK_COMMAND_TRIANGLE: {
      auto* c = reinterpret_cast<const nk_command_triangle*>(cmd);
      setPen(c->color, c->line_thickness);
      GpPoint points[3] = {GpPoint(c->a.x, c->a.y), GpPoint(c->b.x, c->b.y), GpPoint(c->c.x, c->c.y)};
      GdipDrawPolygonI(g, pen, points, 3);
      break;
    }
    case NK_COMMAND_TRIANGLE_FILLED: {
      auto* c = reinterpret_cast<const nk_command_triangle_filled*>(cmd);
      setBrush(c->color);
      GpPoint points[3] = {GpPoint(c->a.x, c->a.y), GpPoint(c->b.x, c->b.y), GpPoint(c->c.x, c->c.y)};
      GdipFillPolygonI(g, brush, points, 3, FillModeAlternate);
      break;
    }
    case NK_COMMAND_POLYGON: {
      auto* c = reinterpret_cast<const nk_command_polygon*>(cmd);
      setPen(c->color, c->line_thickness);
      std::vector<GpPoint> points = toPoints(c->points, c->point_count);
      if (!points.empty()) GdipDrawPolygonI(g, pen, points.data(), static_cast<INT>(points.size()));
      break;
    }
    case NK_COMMAND_POLYGON_FILLED: {
      auto* c = reinterpret_cast<const nk_command_polygon_filled*>(cmd);
      setBrush(c->color);
      std::vector<GpPoint> points = toPoints(c->points, c->point_count);
      if (!points.empty())
        GdipFillPolygonI(g, brush, points.data(), static_cast<INT>(points.size()), FillModeAlternate);
      break;
    }
    case NK_COMMAND_POLYLINE: {
      auto* c = reinterpret_cast<const nk_command_polyline*>(cmd);
      setPen(c->color, c->line_thickness);
      std::vector<GpPoint> points = toPoints(c->points, c->point_count);
      if (points.size() >= 2) GdipDrawLinesI(g, pen, points.data(), static_cast<INT>(points.size()));
      break;
    }
    case NK_COMMAND_TEXT: {
      auto* c = reinterpret_cast<const nk_command_text*>(cmd);
      auto* font = c->font ? static_cast<const GdipFont*>(c->font->userdata.ptr) : nullptr;
      if (!font || !font->font) break;
      if (c->background.a > 0) {
        setBrush(c->background);
        GdipFillRectangleI(g, brush, c->x, c->y, c->w, c->h);
      }
      std::wstring wide = widen(c->string, c->length);
      setBrush(c->foreground);
      RectF layout(static_cast<REAL>(c->x), static_cast<REAL>(c->y), 0.0f, 0.0f); // no limit: the scissor clips
      GdipDrawString(g, wide.c_str(), static_cast<INT>(wide.size()), font->font, &layout, format, brush);
      break;
    }
    case NK_COMMAND_IMAGE:  // the screens draw no images
    case NK_COMMAND_CUSTOM: // nor custom widgets
      break;
    }
  }
}

void GdipRenderer::present(GpGraphics* target) {
  if (target && bitmap) GdipDrawImageI(target, bitmap, 0, 0);
}

ARGB GdipRenderer::pixel(int x, int y) const {
  ARGB color = 0;
  if (bitmap) GdipBitmapGetPixel(bitmap, x, y, &color);
  return color;
}

void GdipRenderer::render(ARGB clearColor) {
  if (!initialised) return;
  GdipResetClip(memoryGraphics);
  GdipGraphicsClear(memoryGraphics, clearColor);
  GdipSetSmoothingMode(memoryGraphics, SmoothingModeAntiAlias);
  drawCommands();
  present(windowGraphics);
  nk_clear(&ctx);
}

void GdipRenderer::shutdown() {
  if (!initialised) return;
  nk_free(&ctx);
  initialised = false;
  if (format) GdipDeleteStringFormat(format);
  if (path) GdipDeletePath(path);
  if (brush) GdipDeleteBrush(brush);
  if (pen) GdipDeletePen(pen);
  releaseSurface();
  if (windowGraphics) GdipDeleteGraphics(windowGraphics);
  format = nullptr;
  path = nullptr;
  brush = nullptr;
  pen = nullptr;
  windowGraphics = nullptr;
  GdiplusShutdown(gdiplusToken);
  gdiplusToken = 0;
  window = nullptr;
}
