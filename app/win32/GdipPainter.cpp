#include "app/win32/GdipPainter.h"

#include <algorithm>
#include <string>
#include <vector>

#include "app/win32/Utf16.h"

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

constexpr float radiansToDegrees = 57.29577951308232f;

ARGB toArgb(nk_color c) {
  return (static_cast<ARGB>(c.a) << 24) | (static_cast<ARGB>(c.r) << 16) | (static_cast<ARGB>(c.g) << 8) |
         static_cast<ARGB>(c.b);
}

nk_color average(nk_color a, nk_color b, nk_color c, nk_color d) {
  nk_color mean;
  mean.r = static_cast<nk_byte>((a.r + b.r + c.r + d.r) / 4);
  mean.g = static_cast<nk_byte>((a.g + b.g + c.g + d.g) / 4);
  mean.b = static_cast<nk_byte>((a.b + b.b + c.b + d.b) / 4);
  mean.a = static_cast<nk_byte>((a.a + b.a + c.a + d.a) / 4);
  return mean;
}

std::vector<GpPoint> toPoints(const struct nk_vec2i* points, unsigned short count) {
  std::vector<GpPoint> out;
  out.reserve(count);
  for (unsigned short i = 0; i < count; ++i) out.push_back(GpPoint(points[i].x, points[i].y));
  return out;
}

// The target and the shared GDI+ objects, for one command list.
struct Canvas {
  GpGraphics* graphics;
  GpPen* pen;
  GpSolidFill* brush;
  GpPath* path;
  GpStringFormat* format;

  GpPen* penFor(nk_color color, unsigned short thickness) const {
    GdipSetPenColor(pen, toArgb(color));
    GdipSetPenWidth(pen, thickness > 0 ? static_cast<REAL>(thickness) : 1.0f);
    return pen;
  }
  GpSolidFill* brushFor(nk_color color) const {
    GdipSetSolidFillColor(brush, toArgb(color));
    return brush;
  }
  // The path as a rectangle whose corners are quarter circles of radius r (at
  // most half the shorter side).
  GpPath* roundedRect(float x, float y, float w, float h, float r) const {
    r = std::min(r, std::min(w, h) / 2.0f);
    const float d = 2.0f * r;
    GdipResetPath(path);
    GdipAddPathArc(path, x, y, d, d, 180.0f, 90.0f);
    GdipAddPathArc(path, x + w - d, y, d, d, 270.0f, 90.0f);
    GdipAddPathArc(path, x + w - d, y + h - d, d, d, 0.0f, 90.0f);
    GdipAddPathArc(path, x, y + h - d, d, d, 90.0f, 90.0f);
    GdipClosePathFigure(path);
    return path;
  }
};

void drawScissor(const Canvas& c, const nk_command_scissor& cmd) {
  GdipSetClipRectI(c.graphics, cmd.x, cmd.y, cmd.w + 1, cmd.h + 1, CombineModeReplace);
}

void drawLine(const Canvas& c, const nk_command_line& cmd) {
  GdipDrawLineI(c.graphics, c.penFor(cmd.color, cmd.line_thickness), cmd.begin.x, cmd.begin.y, cmd.end.x, cmd.end.y);
}

void drawCurve(const Canvas& c, const nk_command_curve& cmd) {
  GdipDrawBezierI(c.graphics, c.penFor(cmd.color, cmd.line_thickness), cmd.begin.x, cmd.begin.y, cmd.ctrl[0].x,
                  cmd.ctrl[0].y, cmd.ctrl[1].x, cmd.ctrl[1].y, cmd.end.x, cmd.end.y);
}

void drawRect(const Canvas& c, const nk_command_rect& cmd) {
  GpPen* pen = c.penFor(cmd.color, cmd.line_thickness);
  if (cmd.rounding == 0)
    GdipDrawRectangleI(c.graphics, pen, cmd.x, cmd.y, cmd.w, cmd.h);
  else
    GdipDrawPath(c.graphics, pen, c.roundedRect(cmd.x, cmd.y, cmd.w, cmd.h, cmd.rounding));
}

void fillRect(const Canvas& c, const nk_command_rect_filled& cmd) {
  GpSolidFill* brush = c.brushFor(cmd.color);
  if (cmd.rounding == 0)
    GdipFillRectangleI(c.graphics, brush, cmd.x, cmd.y, cmd.w, cmd.h);
  else
    GdipFillPath(c.graphics, brush, c.roundedRect(cmd.x, cmd.y, cmd.w, cmd.h, cmd.rounding));
}

// Corner colours: left is the top-left corner, top the top-right, bottom the
// bottom-right and right the bottom-left, as Nuklear's own converter places them.
void fillRectMultiColor(const Canvas& c, const nk_command_rect_multi_color& cmd) {
  GpPoint corners[4] = {GpPoint(cmd.x, cmd.y), GpPoint(cmd.x + cmd.w, cmd.y), GpPoint(cmd.x + cmd.w, cmd.y + cmd.h),
                        GpPoint(cmd.x, cmd.y + cmd.h)};
  ARGB colors[4] = {toArgb(cmd.left), toArgb(cmd.top), toArgb(cmd.bottom), toArgb(cmd.right)};
  GpPathGradient* gradient = nullptr;
  if (GdipCreatePathGradientI(corners, 4, WrapModeClamp, &gradient) != Ok) return;
  INT count = 4;
  GdipSetPathGradientCenterColor(gradient, toArgb(average(cmd.left, cmd.top, cmd.bottom, cmd.right)));
  GdipSetPathGradientSurroundColorsWithCount(gradient, colors, &count);
  GdipFillRectangleI(c.graphics, gradient, cmd.x, cmd.y, cmd.w, cmd.h);
  GdipDeleteBrush(gradient);
}

void drawCircle(const Canvas& c, const nk_command_circle& cmd) {
  GdipDrawEllipseI(c.graphics, c.penFor(cmd.color, cmd.line_thickness), cmd.x, cmd.y, cmd.w, cmd.h);
}

void fillCircle(const Canvas& c, const nk_command_circle_filled& cmd) {
  GdipFillEllipseI(c.graphics, c.brushFor(cmd.color), cmd.x, cmd.y, cmd.w, cmd.h);
}

void drawArc(const Canvas& c, const nk_command_arc& cmd) {
  const REAL r = cmd.r;
  GdipDrawArc(c.graphics, c.penFor(cmd.color, cmd.line_thickness), cmd.cx - r, cmd.cy - r, 2 * r, 2 * r,
              cmd.a[0] * radiansToDegrees, (cmd.a[1] - cmd.a[0]) * radiansToDegrees);
}

void fillArc(const Canvas& c, const nk_command_arc_filled& cmd) {
  const REAL r = cmd.r;
  GdipFillPie(c.graphics, c.brushFor(cmd.color), cmd.cx - r, cmd.cy - r, 2 * r, 2 * r, cmd.a[0] * radiansToDegrees,
              (cmd.a[1] - cmd.a[0]) * radiansToDegrees);
}

void drawTriangle(const Canvas& c, const nk_command_triangle& cmd) {
  GpPoint points[3] = {GpPoint(cmd.a.x, cmd.a.y), GpPoint(cmd.b.x, cmd.b.y), GpPoint(cmd.c.x, cmd.c.y)};
  GdipDrawPolygonI(c.graphics, c.penFor(cmd.color, cmd.line_thickness), points, 3);
}

void fillTriangle(const Canvas& c, const nk_command_triangle_filled& cmd) {
  GpPoint points[3] = {GpPoint(cmd.a.x, cmd.a.y), GpPoint(cmd.b.x, cmd.b.y), GpPoint(cmd.c.x, cmd.c.y)};
  GdipFillPolygonI(c.graphics, c.brushFor(cmd.color), points, 3, FillModeAlternate);
}

void drawPolygon(const Canvas& c, const nk_command_polygon& cmd) {
  const std::vector<GpPoint> points = toPoints(cmd.points, cmd.point_count);
  if (points.empty()) return;
  GdipDrawPolygonI(c.graphics, c.penFor(cmd.color, cmd.line_thickness), points.data(), static_cast<INT>(points.size()));
}

void fillPolygon(const Canvas& c, const nk_command_polygon_filled& cmd) {
  const std::vector<GpPoint> points = toPoints(cmd.points, cmd.point_count);
  if (points.empty()) return;
  GdipFillPolygonI(c.graphics, c.brushFor(cmd.color), points.data(), static_cast<INT>(points.size()),
                   FillModeAlternate);
}

void drawPolyline(const Canvas& c, const nk_command_polyline& cmd) {
  const std::vector<GpPoint> points = toPoints(cmd.points, cmd.point_count);
  if (points.size() < 2) return;
  GdipDrawLinesI(c.graphics, c.penFor(cmd.color, cmd.line_thickness), points.data(), static_cast<INT>(points.size()));
}

// Text in a font without glyphs takes its room in the layout but is not drawn.
void drawText(const Canvas& c, const nk_command_text& cmd) {
  const auto* font = cmd.font ? static_cast<const GdipFont*>(cmd.font->userdata.ptr) : nullptr;
  if (!font || !font->font) return;
  if (cmd.background.a > 0) GdipFillRectangleI(c.graphics, c.brushFor(cmd.background), cmd.x, cmd.y, cmd.w, cmd.h);
  const std::wstring wide = toUtf16(cmd.string, cmd.length);
  RectF layout(static_cast<REAL>(cmd.x), static_cast<REAL>(cmd.y), 0.0f, 0.0f); // no limit: the scissor clips
  GdipDrawString(c.graphics, wide.c_str(), static_cast<INT>(wide.size()), font->font, &layout, c.format,
                 c.brushFor(cmd.foreground));
}

template <class Command>
const Command& as(const nk_command* cmd) {
  return *reinterpret_cast<const Command*>(cmd);
}

void drawCommand(const Canvas& c, const nk_command* cmd) {
  switch (cmd->type) {
  case NK_COMMAND_SCISSOR: drawScissor(c, as<nk_command_scissor>(cmd)); break;
  case NK_COMMAND_LINE: drawLine(c, as<nk_command_line>(cmd)); break;
  case NK_COMMAND_CURVE: drawCurve(c, as<nk_command_curve>(cmd)); break;
  case NK_COMMAND_RECT: drawRect(c, as<nk_command_rect>(cmd)); break;
  case NK_COMMAND_RECT_FILLED: fillRect(c, as<nk_command_rect_filled>(cmd)); break;
  case NK_COMMAND_RECT_MULTI_COLOR: fillRectMultiColor(c, as<nk_command_rect_multi_color>(cmd)); break;
  case NK_COMMAND_CIRCLE: drawCircle(c, as<nk_command_circle>(cmd)); break;
  case NK_COMMAND_CIRCLE_FILLED: fillCircle(c, as<nk_command_circle_filled>(cmd)); break;
  case NK_COMMAND_ARC: drawArc(c, as<nk_command_arc>(cmd)); break;
  case NK_COMMAND_ARC_FILLED: fillArc(c, as<nk_command_arc_filled>(cmd)); break;
  case NK_COMMAND_TRIANGLE: drawTriangle(c, as<nk_command_triangle>(cmd)); break;
  case NK_COMMAND_TRIANGLE_FILLED: fillTriangle(c, as<nk_command_triangle_filled>(cmd)); break;
  case NK_COMMAND_POLYGON: drawPolygon(c, as<nk_command_polygon>(cmd)); break;
  case NK_COMMAND_POLYGON_FILLED: fillPolygon(c, as<nk_command_polygon_filled>(cmd)); break;
  case NK_COMMAND_POLYLINE: drawPolyline(c, as<nk_command_polyline>(cmd)); break;
  case NK_COMMAND_TEXT: drawText(c, as<nk_command_text>(cmd)); break;
  case NK_COMMAND_NOP:
  case NK_COMMAND_IMAGE:  // the screens draw no images
  case NK_COMMAND_CUSTOM: // nor custom widgets
    break;
  }
}

} // namespace

void GdipPainter::create() {
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
}

void GdipPainter::release() {
  if (format) GdipDeleteStringFormat(format);
  if (path) GdipDeletePath(path);
  if (brush) GdipDeleteBrush(brush);
  if (pen) GdipDeletePen(pen);
  format = nullptr;
  path = nullptr;
  brush = nullptr;
  pen = nullptr;
}

void GdipPainter::draw(GpGraphics* graphics, nk_context* ctx) {
  const Canvas canvas{graphics, pen, brush, path, format};
  const nk_command* cmd = nullptr;
  nk_foreach(cmd, ctx) drawCommand(canvas, cmd);
}

float GdipPainter::textWidth(GpGraphics* graphics, const GdipFont& font, const char* text, int length) const {
  const std::wstring wide = toUtf16(text, length);
  // Without any font the text is not drawn, but it still takes room in the layout.
  if (!font.font) return 0.5f * font.nk.height * static_cast<float>(wide.size());
  if (wide.empty() || !graphics) return 0.0f;
  RectF layout(0.0f, 0.0f, 0.0f, 0.0f); // no limit
  RectF bounds;
  GdipMeasureString(graphics, wide.c_str(), static_cast<INT>(wide.size()), font.font, &layout, format, &bounds, nullptr,
                    nullptr);
  return bounds.Width;
}
