// The GDI+ renderer draws Nuklear's commands into its off-screen bitmap: shapes at
// their places and in their colours, clipped by the scissor, text in the font, and
// in another installed font when the family asked for is missing.
// Needs a display: ctest runs it under Xvfb.
#include <gtest/gtest.h>

#include <windows.h>

#include <functional>
#include <string>

#include "app/win32/GdipRenderer.h"

namespace {

constexpr Gdiplus::ARGB red = 0xFFFF0000u, green = 0xFF00FF00u, blue = 0xFF0000FFu, yellow = 0xFFFFFF00u,
                        white = 0xFFFFFFFFu, black = 0xFF000000u;
constexpr const wchar_t* className = L"RendererTestWindow";

class RendererTest : public ::testing::Test {
protected:
  void SetUp() override {
    WNDCLASSW windowClass = {};
    windowClass.lpfnWndProc = DefWindowProcW;
    windowClass.hInstance = GetModuleHandleW(nullptr);
    windowClass.lpszClassName = className;
    RegisterClassW(&windowClass);
    hwnd = CreateWindowExW(0, className, L"renderer test", WS_POPUP | WS_VISIBLE, 0, 0, 200, 100, nullptr, nullptr,
                           GetModuleHandleW(nullptr), nullptr);
    ASSERT_NE(hwnd, nullptr) << "no window: these tests need a display (ctest runs them under Xvfb)";
    ctx = renderer.init(hwnd, 200, 100);
    font = renderer.fontCreate(L"Arial", 14);
    ASSERT_NE(font, nullptr);
    renderer.setFont(font);
  }
  void TearDown() override {
    if (!hwnd) return;
    GdipRenderer::fontDelete(font);
    renderer.shutdown();
    DestroyWindow(hwnd);
    UnregisterClassW(className, GetModuleHandleW(nullptr));
  }

  // One frame: a borderless Nuklear window over the whole area whose canvas gets
  // the commands, rendered on a black clear colour.
  void frame(const std::function<void(nk_command_buffer*)>& draw, Gdiplus::ARGB clear = black) {
    nk_input_begin(ctx);
    nk_input_end(ctx);
    ctx->style.window.fixed_background = nk_style_item_color(nk_rgba(0, 0, 0, 0));
    if (nk_begin(ctx, "canvas", nk_rect(0, 0, 200, 100), NK_WINDOW_NO_SCROLLBAR)) draw(nk_window_get_canvas(ctx));
    nk_end(ctx);
    renderer.render(clear);
  }

  HWND hwnd = nullptr;
  GdipRenderer renderer;
  nk_context* ctx = nullptr;
  GdipFont* font = nullptr;
};

} // namespace

TEST_F(RendererTest, ClearsWithTheClearColour) {
  frame([](nk_command_buffer*) {}, 0xFF1E1E1Eu);
  EXPECT_EQ(renderer.pixel(5, 5), 0xFF1E1E1Eu);
  EXPECT_EQ(renderer.pixel(199, 99), 0xFF1E1E1Eu);
}

TEST_F(RendererTest, FilledShapesLandWhereNuklearPutsThem) {
  frame([](nk_command_buffer* c) {
    nk_fill_rect(c, nk_rect(10, 10, 20, 20), 0, nk_rgb(255, 0, 0));
    nk_fill_rect(c, nk_rect(40, 10, 30, 30), 10, nk_rgb(0, 255, 0));
    nk_fill_circle(c, nk_rect(80, 10, 20, 20), nk_rgb(0, 0, 255));
    nk_fill_triangle(c, 110, 10, 130, 10, 110, 30, nk_rgb(255, 255, 0));
    nk_fill_arc(c, 160, 40, 20, 0.0f, 3.14159265f / 2, nk_rgb(255, 255, 255));
  });
  EXPECT_EQ(renderer.pixel(20, 20), red);
  EXPECT_EQ(renderer.pixel(55, 25), green);
  EXPECT_NE(renderer.pixel(40, 10), green) << "the rounded corner is cut";
  EXPECT_EQ(renderer.pixel(90, 20), blue);
  EXPECT_NE(renderer.pixel(81, 11), blue) << "a circle, not its box";
  EXPECT_EQ(renderer.pixel(114, 14), yellow);
  EXPECT_NE(renderer.pixel(128, 28), yellow) << "the other half of the box";
  EXPECT_EQ(renderer.pixel(168, 48), white) << "angles from 0 to pi/2 fill the lower right quarter";
  EXPECT_NE(renderer.pixel(152, 32), white);
  EXPECT_NE(renderer.pixel(168, 32), white);
}

TEST_F(RendererTest, StrokesAndPolygons) {
  frame([](nk_command_buffer* c) {
    nk_stroke_line(c, 0, 50, 199, 50, 3, nk_rgb(255, 255, 255));
    nk_stroke_rect(c, nk_rect(10, 60, 30, 30), 0, 2, nk_rgb(255, 0, 0));
    float points[] = {60, 60, 90, 60, 90, 90, 60, 90};
    nk_fill_polygon(c, points, 4, nk_rgb(0, 255, 0));
    float line[] = {110, 60, 140, 90, 170, 60};
    nk_stroke_polyline(c, line, 3, 3, nk_rgb(0, 0, 255));
  });
  EXPECT_EQ(renderer.pixel(100, 50), white);
  EXPECT_EQ(renderer.pixel(10, 75), red);
  EXPECT_NE(renderer.pixel(25, 75), red) << "a stroked rectangle is hollow";
  EXPECT_EQ(renderer.pixel(75, 75), green);
  EXPECT_EQ(renderer.pixel(140, 89), blue);
  EXPECT_NE(renderer.pixel(140, 65), blue);
}

TEST_F(RendererTest, TheScissorClips) {
  frame([](nk_command_buffer* c) {
    nk_push_scissor(c, nk_rect(0, 0, 15, 15));
    nk_fill_rect(c, nk_rect(5, 5, 40, 40), 0, nk_rgb(255, 0, 0));
  });
  EXPECT_EQ(renderer.pixel(10, 10), red);
  EXPECT_NE(renderer.pixel(30, 30), red);
}

// A missing family gives another installed one, never a font without glyphs.
class RendererFontTest : public RendererTest, public ::testing::WithParamInterface<const char*> {};

TEST_P(RendererFontTest, TextIsDrawnAndMeasuredInTheFont) {
  const std::string asked = GetParam();
  GdipFont* used = renderer.fontCreate(std::wstring(asked.begin(), asked.end()).c_str(), 14);
  ASSERT_NE(used, nullptr);
  ASSERT_NE(used->font, nullptr);
  if (asked == "Arial")
    EXPECT_EQ(used->family, asked) << "the test prefix maps Arial to Liberation Sans";
  else
    EXPECT_TRUE(!used->family.empty() && used->family != asked) << used->family;
  EXPECT_FLOAT_EQ(used->nk.height, 14.0f);
  const float open = used->nk.width(used->nk.userdata, used->nk.height, "Open", 4);
  const float twice = used->nk.width(used->nk.userdata, used->nk.height, "OpenOpen", 8);
  EXPECT_GT(open, 20.0f);
  EXPECT_LT(open, 40.0f);
  EXPECT_NEAR(twice, 2 * open, 2.0f);

  frame([used](nk_command_buffer* c) {
    nk_draw_text(c, nk_rect(10, 10, 100, 20), "Open", 4, &used->nk, nk_rgb(0, 0, 0), nk_rgb(255, 255, 255));
  });
  int lit = 0;
  for (int y = 10; y < 30; ++y)
    for (int x = 10; x < 10 + static_cast<int>(open); ++x)
      if ((renderer.pixel(x, y) & 0xFFu) > 128) ++lit;
  EXPECT_GT(lit, 20) << "white glyph pixels";
  for (int y = 10; y < 30; ++y) EXPECT_EQ(renderer.pixel(10 + static_cast<int>(open) + 6, y) & 0xFFFFFFu, 0u);
  GdipRenderer::fontDelete(used);
}

INSTANTIATE_TEST_SUITE_P(Families, RendererFontTest, ::testing::Values("Arial", "No Such Family 7f3a"));
