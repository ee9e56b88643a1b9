// The window asks GDI+ for "Arial". The Wine prefix of the tests maps that name to
// Liberation Sans (scripts/wine-env.sh); without the mapping GDI+ finds no family.
#include <gtest/gtest.h>

#include <windows.h>

#include <gdiplus.h>

#include <string>

using namespace Gdiplus;
using namespace Gdiplus::DllExports;

namespace {

class GdiplusSession : public ::testing::Test {
protected:
  void SetUp() override {
    GdiplusStartupInput input;
    ASSERT_EQ(GdiplusStartup(&token, &input, nullptr), Ok);
  }
  void TearDown() override { GdiplusShutdown(token); }
  ULONG_PTR token = 0;
};

} // namespace

TEST_F(GdiplusSession, ArialIsAvailableAsA14PixelRegularFont) {
  GpFontFamily* family = nullptr;
  ASSERT_EQ(GdipCreateFontFamilyFromName(L"Arial", nullptr, &family), Ok);
  GpFont* font = nullptr;
  ASSERT_EQ(GdipCreateFont(family, 14.0f, FontStyleRegular, UnitPixel, &font), Ok);
  REAL size = 0;
  EXPECT_EQ(GdipGetFontSize(font, &size), Ok);
  EXPECT_FLOAT_EQ(size, 14.0f);
  GdipDeleteFont(font);
  GdipDeleteFontFamily(family);
}
