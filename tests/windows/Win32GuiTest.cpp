// The Windows GUI under Wine: the GDI+ renderer's bitmap (on Xvfb), the window procedure and position.
#include <gtest/gtest.h>

#include <windows.h>

#include <shlobj.h>

#include <array>
#include <cstring>
#include <functional>
#include <tuple>
#include <vector>

#include "app/GuiState.h"
#include "app/win32/GdipRenderer.h"
#include "app/win32/Win32Gui.h"

namespace {

constexpr Gdiplus::ARGB red = 0xFFFF0000u, green = 0xFF00FF00u, blue = 0xFF0000FFu, yellow = 0xFFFFFF00u,
                        white = 0xFFFFFFFFu, black = 0xFF000000u;
constexpr const wchar_t* className = L"RendererTestWindow";

class RendererTest : public ::testing::Test {
protected:
  void SetUp() override {
    const WNDCLASSW windowClass{0, DefWindowProcW, 0, 0, GetModuleHandleW(nullptr), {}, {}, {}, {}, className};
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
    DestroyWindow(hwnd); // the class stays registered for the next test
  }

  // One frame: the commands on the canvas of a borderless window over the whole area.
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

// A drop handle as the shell makes it: DROPFILES, the names (ANSI or wide) each ended by a NUL, one more NUL.
template <class Char>
HDROP makeDrop(const std::vector<std::basic_string<Char>>& names) {
  std::basic_string<Char> list;
  for (const auto& name : names) list += name + Char(0);
  list += Char(0);
  HGLOBAL memory = GlobalAlloc(GHND, sizeof(DROPFILES) + list.size() * sizeof(Char));
  auto* header = static_cast<DROPFILES*>(GlobalLock(memory));
  header->pFiles = sizeof(DROPFILES);
  header->fWide = sizeof(Char) > 1;
  std::memcpy(header + 1, list.data(), list.size() * sizeof(Char));
  GlobalUnlock(memory);
  return static_cast<HDROP>(memory);
}

LRESULT drop(HDROP handle) { return windowProc(nullptr, WM_DROPFILES, reinterpret_cast<WPARAM>(handle), 0); }

} // namespace

// One frame of every kind of command; each pixel is inside (or just outside) one shape.
TEST_F(RendererTest, ShapesLandWhereNuklearPutsThemInTheirColoursClippedByTheScissor) {
  frame(
      [](nk_command_buffer* c) {
        nk_fill_rect(c, nk_rect(10, 10, 20, 20), 0, nk_rgb(255, 0, 0));
        nk_fill_rect(c, nk_rect(40, 10, 30, 30), 10, nk_rgb(0, 255, 0));
        nk_fill_circle(c, nk_rect(80, 10, 20, 20), nk_rgb(0, 0, 255));
        nk_fill_triangle(c, 110, 10, 130, 10, 110, 30, nk_rgb(255, 255, 0));
        nk_fill_arc(c, 160, 40, 20, 0.0f, 3.14159265f / 2, nk_rgb(255, 255, 255));
        nk_stroke_line(c, 0, 50, 199, 50, 3, nk_rgb(255, 255, 255));
        nk_stroke_rect(c, nk_rect(10, 60, 30, 30), 0, 2, nk_rgb(255, 0, 0));
        nk_fill_polygon(c, std::array<float, 8>{60, 60, 90, 60, 90, 90, 60, 90}.data(), 4, nk_rgb(0, 255, 0));
        nk_stroke_polyline(c, std::array<float, 6>{110, 60, 140, 90, 170, 60}.data(), 3, 3, nk_rgb(0, 0, 255));
        nk_push_scissor(c, nk_rect(180, 60, 10, 10));
        nk_fill_rect(c, nk_rect(175, 55, 20, 20), 0, nk_rgb(255, 255, 0));
      },
      0xFF1E1E1Eu);
  // Each shape, and (false) a corner cut, a box, a half, other quarters, the hollow, between points, outside.
  const std::tuple<int, int, Gdiplus::ARGB, bool> pixels[] = {
      {5, 5, 0xFF1E1E1Eu, true}, {199, 99, 0xFF1E1E1Eu, true}, {20, 20, red, true},     {55, 25, green, true},
      {40, 10, green, false},    {90, 20, blue, true},         {81, 11, blue, false},   {114, 14, yellow, true},
      {128, 28, yellow, false},  {168, 48, white, true},       {152, 32, white, false}, {168, 32, white, false},
      {100, 50, white, true},    {10, 75, red, true},          {25, 75, red, false},    {75, 75, green, true},
      {140, 89, blue, true},     {140, 65, blue, false},       {185, 65, yellow, true}, {192, 72, yellow, false}};
  for (const auto& [x, y, colour, is] : pixels) EXPECT_EQ(renderer.pixel(x, y) == colour, is) << "at " << x << "," << y;
}

// A family the system lacks falls back to another: windows.gui_no_arial shows that font naming itself and drawing.
TEST_F(RendererTest, TextIsDrawnAndMeasuredInTheFont) {
  ASSERT_NE(font->font, nullptr);
  EXPECT_EQ(font->family, "Arial"); // the test prefix maps it to Liberation Sans
  EXPECT_FLOAT_EQ(font->nk.height, 14.0f);
  const float open = font->nk.width(font->nk.userdata, font->nk.height, "Open", 4);
  EXPECT_TRUE(open > 20.0f && open < 40.0f) << open;
  EXPECT_NEAR(font->nk.width(font->nk.userdata, font->nk.height, "OpenOpen", 8), 2 * open, 2.0f);
  frame([this](nk_command_buffer* c) {
    nk_draw_text(c, nk_rect(10, 10, 100, 20), "Open", 4, &font->nk, nk_rgb(0, 0, 0), nk_rgb(255, 255, 255));
  });
  int lit = 0;
  for (int y = 10; y < 30; ++y)
    for (int x = 10; x < 10 + static_cast<int>(open); ++x)
      if ((renderer.pixel(x, y) & 0xFFu) > 128) ++lit;
  EXPECT_GT(lit, 20) << "white glyph pixels";
  for (int y = 10; y < 30; ++y) EXPECT_EQ(renderer.pixel(10 + static_cast<int>(open) + 6, y) & 0xFFFFFFu, 0u);
}

TEST(WindowProc, LastDropReplacesTheProgramPathWakeUpDoesNothingDestroyPostsQuitZero) {
  setProgramPath("./from/the/command/line.alf");
  HDROP handle = makeDrop<char>({"C:\\fw\\first.alf", "C:\\fw\\second.alf", "D:\\images\\third one.alf"});
  EXPECT_EQ(drop(handle), 0);
  EXPECT_EQ(programPath, "D:\\images\\third one.alf");
  EXPECT_EQ(GlobalFlags(handle), static_cast<UINT>(GMEM_INVALID_HANDLE));
  drop(makeDrop<wchar_t>({L"C:\\a.alf", L"C:\\dir\\b.alf"}));
  EXPECT_EQ(programPath, "C:\\dir\\b.alf") << "wide names from the shell arrive as ANSI";
  const std::string longName = "C:\\" + std::string(400, 'x') + ".alf";
  drop(makeDrop<char>({longName}));
  EXPECT_EQ(programPath, longName.substr(0, 259)) << "cut to the buffer: 260 characters with the NUL";
  EXPECT_TRUE(windowProc(nullptr, WM_USER, 0, 0) == 0 && programPath == longName.substr(0, 259)); // wake-up: no change
  EXPECT_EQ(windowProc(nullptr, WM_DESTROY, 0, 0), 0);
  MSG msg;
  ASSERT_TRUE(PeekMessageW(&msg, nullptr, 0, 0, PM_REMOVE));
  EXPECT_EQ(std::pair(msg.message, msg.wParam), std::pair(UINT(WM_QUIT), WPARAM(0)));
}

TEST(WindowPosition, SitsHalfTheWidthLeftAndTheFullHeightAboveTheCentre) {
  // {screen width, height, x, y}; the halves truncate.
  for (const auto& [width, height, x, y] :
       {std::array{1920, 1080, 820, 380}, {1366, 768, 543, 224}, {1023, 767, 371, 223}}) {
    const POINT p = windowPosition(width, height);
    EXPECT_EQ(std::pair(p.x, p.y), std::pair(LONG(x), LONG(y))) << width << "x" << height;
  }
}
