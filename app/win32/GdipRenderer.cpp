#include "app/win32/GdipRenderer.h"

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

float measureCallback(nk_handle handle, float, const char* text, int length) {
  auto* font = static_cast<GdipFont*>(handle.ptr);
  if (!font || !font->owner) return 0.0f;
  return font->owner->textWidth(*font, text, length);
}

} // namespace

nk_context* GdipRenderer::init(HWND hwnd, unsigned width, unsigned height) {
  window = hwnd;
  GdiplusStartupInput startup;
  GdiplusStartup(&gdiplusToken, &startup, nullptr);
  GdipCreateFromHWND(hwnd, &windowGraphics);
  createSurface(width, height);
  painter.create();
  nk_init_default(&ctx, nullptr);
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
  font->font = findFont(name, size, font->family);
  font->owner = this;
  font->nk.userdata = nk_handle_ptr(font);
  font->nk.height = reportedSize(font->font, size);
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
  return painter.textWidth(memoryGraphics, font, text, length);
}

bool GdipRenderer::handleWindowMessage(HWND hwnd, UINT message, WPARAM, LPARAM lParam) {
  if (!initialised) return false; // messages sent while the window is being created
  switch (message) {
  case WM_SIZE: {
    const unsigned width = LOWORD(lParam);
    const unsigned height = HIWORD(lParam);
    if (width > 0 && height > 0) resize(width, height);
    return true;
  }
  case WM_PAINT: paint(hwnd); return true;
  default: return false;
  }
}

void GdipRenderer::paint(HWND hwnd) {
  PAINTSTRUCT paintInfo;
  HDC dc = BeginPaint(hwnd, &paintInfo);
  GpGraphics* graphics = nullptr;
  if (GdipCreateFromHDC(dc, &graphics) == Ok) {
    present(graphics);
    GdipDeleteGraphics(graphics);
  }
  EndPaint(hwnd, &paintInfo);
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
  painter.draw(memoryGraphics, &ctx);
  present(windowGraphics);
  nk_clear(&ctx);
}

void GdipRenderer::shutdown() {
  if (!initialised) return;
  nk_free(&ctx);
  initialised = false;
  painter.release();
  releaseSurface();
  if (windowGraphics) GdipDeleteGraphics(windowGraphics);
  windowGraphics = nullptr;
  GdiplusShutdown(gdiplusToken);
  gdiplusToken = 0;
  window = nullptr;
}
