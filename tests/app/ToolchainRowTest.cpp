// The toolchain buttons run their jobs on the fixed paths two folders up.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "ScreenFixture.h"
#include "image/AelfImage.h"

namespace fs = std::filesystem;

namespace {

std::string slurp(const fs::path& p) {
  std::ifstream in(p, std::ios::binary);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Runs the test body in root/a/b so that "./../../" is root.
class ToolchainTest : public ScreenTest {
protected:
  void SetUp() override {
    ScreenTest::SetUp();
    root = fs::temp_directory_path() /
           ("qmload-toolchain-" + std::to_string(::testing::UnitTest::GetInstance()->random_seed()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    fs::remove_all(root);
    fs::create_directories(root / "a" / "b");
    saved = fs::current_path();
    fs::current_path(root / "a" / "b");
  }
  void TearDown() override {
    fs::current_path(saved);
    fs::remove_all(root);
    ScreenTest::TearDown();
  }
  void copyExample(const char* name) { fs::copy_file(fs::path(QMLOAD_EXAMPLES_DIR) / name, root / name); }

  fs::path root, saved;
};

} // namespace

TEST_F(ToolchainTest, ParseMapRewritesTheLinkerScript) {
  copyExample("funcList.txt");
  copyExample("out.map");
  copyExample("target.ld");
  h->frame();
  testing::internal::CaptureStdout();
  h->click("parse map1");
  testing::internal::GetCapturedStdout();
  ASSERT_TRUE(fs::exists(root / "target_out.ld"));
  // Text files: on Windows the lines end in CR LF.
  std::string written = slurp(root / "target_out.ld");
  written.erase(std::remove(written.begin(), written.end(), '\r'), written.end());
  EXPECT_EQ(written, slurp(fs::path(QMLOAD_EXAMPLES_DIR) / "golden" / "target_out.ld"));
  EXPECT_EQ(mode(), StartScreenSpace::PortSelect);
}

TEST_F(ToolchainTest, BuildAelfWritesAnImageTheFlashScreenCanRead) {
  for (const char* f : {"__output__.map", "test.cpp_CFG.bin", "__target_out__.o", "test.cpp_RES.bin"}) copyExample(f);
  h->frame();
  testing::internal::CaptureStdout();
  h->click("build aelf");
  testing::internal::GetCapturedStdout();
  ASSERT_TRUE(fs::exists(root / "project.alf"));
  AelfImage image;
  EXPECT_EQ(readAelfImage((root / "project.alf").string(), image), aelfOk);
}

TEST_F(ToolchainTest, BuildAelfWithoutInputsOnlyTalksOnTheConsole) {
  h->frame();
  testing::internal::CaptureStdout();
  h->click("build aelf");
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_FALSE(out.empty());
  EXPECT_FALSE(fs::exists(root / "project.alf"));
  h->frame();
  EXPECT_EQ(mode(), StartScreenSpace::PortSelect);
  EXPECT_TRUE(h->shows("build aelf"));
  EXPECT_TRUE(h->shows("Open"));
}
