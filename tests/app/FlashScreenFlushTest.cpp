// The flash screen while writing an image: the request sequence, the progress bar
// and the "Device not response" pop-up.
#include <cstdio>
#include <filesystem>
#include <fstream>

#include "ScreenFixture.h"

using namespace StartScreenSpace;

namespace {

// Writes an AELF file: program of exeSize bytes at 0x08004000, resources of resSize
// bytes at 0x08010000. Named after the running test: ctest runs tests in parallel
// processes, and one must not read the file while another rewrites it.
std::string writeImage(std::uint32_t exeSize, std::uint32_t resSize) {
  const std::string name =
      std::string("qmload-screen-") + testing::UnitTest::GetInstance()->current_test_info()->name() + ".alf";
  const std::string path = (std::filesystem::temp_directory_path() / name).string();
  std::vector<std::uint8_t> bytes(4 + 64 + exeSize + resSize, 0x5A);
  auto put = [&](std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<std::uint8_t>(v >> (8 * i));
  };
  put(0, 0x464C4541); // "AELF"
  for (std::size_t i = 4; i < 68; ++i) bytes[i] = 0;
  put(4 + 28, 0x08004000);
  put(4 + 32, exeSize);
  put(4 + 40, 0x08010000);
  put(4 + 44, resSize);
  std::ofstream(path, std::ios::binary)
      .write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  return path;
}

bool sameColor(nk_color a, nk_color b) { return a.r == b.r && a.g == b.g && a.b == b.b && a.a == b.a; }

// Width of the progress bar's filled part in the last frame, -1 when no bar was drawn.
float progressFill(const ScreenHarness& h) {
  const nk_color track{51, 55, 67, 255};   // slider colour: the bar's background
  const nk_color cursor{181, 45, 69, 255}; // slider cursor colour: its filled part
  bool bar = false;
  float fill = 0;
  for (const DrawnRect& r : h.filledRects()) {
    if (sameColor(r.color, track) && r.h > 20) bar = true;
    if (sameColor(r.color, cursor) && r.h > 20) fill = r.w;
  }
  return bar ? fill : -1;
}

class FlushTest : public ScreenTest {
protected:
  void startFlush(std::uint32_t exeSize, std::uint32_t resSize) {
    setProgramPath(writeImage(exeSize, resSize));
    openAndDiscover();
    h->frame();
    h->click("Flush");
    ASSERT_EQ(mode(), Flushing);
  }
};

} // namespace

TEST_F(FlushTest, FlushWritesEverySegmentBlockByBlockThenFinishes) {
  ASSERT_NO_FATAL_FAILURE(startFlush(600, 100)); // 3 + 1 program/resource blocks, 1 header block
  ASSERT_GE(link().requests.size(), 2u);
  const SentRequest start = link().requests.back();
  EXPECT_EQ(start.command, 2);
  EXPECT_EQ(start.length, 764u); // 600 + 100 + 64
  EXPECT_EQ(start.timeout, 50u);
  EXPECT_EQ(start.id0, 0x00c0ffeeu);
  const std::size_t firstFlashRequest = link().requests.size() - 1;

  std::vector<float> fills;
  for (int frames = 0; mode() == Flushing && frames < 100; ++frames) {
    if (link().busy) link().answer(1); // every block is writable
    h->frame();
    if (mode() == Flushing) fills.push_back(progressFill(*h));
  }
  ASSERT_EQ(mode(), PortSelect);
  EXPECT_EQ(link().reopens.back(), 4); // 921600 baud for the transfer

  struct Expect {
    int command;
    std::uint32_t address;
  };
  const std::vector<Expect> expected = {{2, 0},           {1, 0x08004000}, {11, 0x08004000}, {1, 0x08004100},
                                        {11, 0x08004100}, {1, 0x08004200}, {11, 0x08004200}, {1, 0x08010000},
                                        {11, 0x08010000}, {1, 0x0803FE00}, {11, 0x0803FE00}, {18, 0}};
  ASSERT_EQ(link().requests.size() - firstFlashRequest, expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i) {
    const SentRequest& r = link().requests[firstFlashRequest + i];
    EXPECT_EQ(r.command, expected[i].command) << "request " << i;
    EXPECT_EQ(r.address, expected[i].address) << "request " << i;
    if (r.command == 11) {
      EXPECT_TRUE(r.hasData);
      EXPECT_EQ(r.length, 256u);
      EXPECT_EQ(r.timeout, 1000u);
    }
    if (r.command == 1) {
      EXPECT_EQ(r.timeout, 100u);
    }
    if (r.command == 18) {
      EXPECT_EQ(r.timeout, 500u);
    }
  }
  // 256 per block: five blocks count 1280, more than the image's 764 bytes.
  EXPECT_EQ(flushState.total, 764u);
  EXPECT_EQ(flushState.progress, 1280u);

  // The bar was drawn in every frame of the flash and only ever filled up.
  ASSERT_FALSE(fills.empty());
  for (std::size_t i = 0; i < fills.size(); ++i) {
    EXPECT_GE(fills[i], 0) << "frame " << i;
    if (i > 0) {
      EXPECT_GE(fills[i], fills[i - 1]) << "frame " << i;
    }
  }
  EXPECT_GT(fills.back(), fills.front());
  h->frame();
  EXPECT_TRUE(h->shows("Open"));
}

TEST_F(FlushTest, ZeroCheckAnswerAddsProgressEveryFrameAndSendsNothing) {
  ASSERT_NO_FATAL_FAILURE(startFlush(600, 0));
  link().answer(0); // Start
  h->frame();       // reopen, first check-block sent
  ASSERT_EQ(link().requests.back().command, 1);
  const std::size_t sent = link().requests.size();
  link().answer(0); // the block is refused
  const std::uint32_t before = flushState.progress;
  h->frames(5);
  EXPECT_EQ(flushState.progress, before + 5 * 256);
  EXPECT_EQ(link().requests.size(), sent);
  EXPECT_EQ(mode(), Flushing);
}

TEST_F(FlushTest, SeventhFailureRaisesDeviceNotResponseAndRetriesGoOn) {
  ASSERT_NO_FATAL_FAILURE(startFlush(600, 0));
  link().answer(0); // Start
  h->frame();
  ASSERT_EQ(link().requests.back().command, 1);
  const std::size_t sent = link().requests.size();

  // The check-block request and five repetitions fail: each is sent again.
  for (int i = 0; i < 6; ++i) {
    link().fail();
    h->frame();
    EXPECT_GE(progressFill(*h), 0) << "failure " << i;
  }
  EXPECT_EQ(link().requests.size(), sent + 6);
  EXPECT_FALSE(flushState.flushErrorPopup);
  // The sixth repetition fails too: seven failures in a row raise the pop-up, and
  // that frame has no progress bar.
  link().fail();
  h->frame();
  EXPECT_EQ(progressFill(*h), -1.0f);
  EXPECT_TRUE(flushState.flushErrorPopup);
  EXPECT_EQ(link().requests.size(), sent + 6);
  EXPECT_EQ(flushState.retries, 1u);

  h->frame();
  EXPECT_TRUE(h->shows("Device not response")) << h->dump();
  EXPECT_TRUE(h->shows("Flush error!"));
  // Behind the pop-up the request is sent again.
  EXPECT_EQ(link().requests.size(), sent + 7);
  EXPECT_EQ(link().requests.back().command, 1);

  h->click("Close");
  EXPECT_EQ(mode(), PortSelect);
  EXPECT_FALSE(flushState.flushErrorPopup);
}

TEST_F(FlushTest, RetrySucceedingBehindThePopupFinishesTheFlash) {
  ASSERT_NO_FATAL_FAILURE(startFlush(300, 0)); // two program blocks and the header block
  link().answer(0);                            // Start
  h->frame();
  for (int i = 0; i < 7; ++i) {
    link().fail();
    h->frame();
  }
  h->frame();
  ASSERT_TRUE(h->shows("Device not response"));
  for (int frames = 0; mode() == Flushing && frames < 50; ++frames) {
    if (link().busy) link().answer(1);
    h->frame();
  }
  ASSERT_EQ(mode(), PortSelect);
  EXPECT_EQ(link().requests.back().command, 18);
  EXPECT_TRUE(flushState.flushErrorPopup); // only closing the pop-up clears it
  h->frame();
  EXPECT_FALSE(h->shows("Device not response"));
  h->click("Open");
  EXPECT_EQ(mode(), WaitDevices) << "the start screen must take input again";
}

TEST_F(FlushTest, UnreadableImageLeavesTheScreenAsItWas) {
  setProgramPath("/nonexistent/qmload-none.alf");
  openAndDiscover();
  h->frame();
  const std::size_t sent = link().requests.size();
  testing::internal::CaptureStdout();
  h->click("Flush");
  const std::string out = testing::internal::GetCapturedStdout();
  EXPECT_EQ(out, "Can't open aelf file '/nonexistent/qmload-none.alf'\n");
  EXPECT_EQ(mode(), DeviceReady);
  EXPECT_EQ(link().requests.size(), sent);
}

TEST_F(ScreenTest, FlushWithoutProgramPathReadsTheDefaultImage) {
  openAndDiscover();
  h->frame();
  ASSERT_TRUE(h->shows("no file"));
  testing::internal::CaptureStdout();
  h->click("Flush");
  const std::string out = testing::internal::GetCapturedStdout();
  if (!std::filesystem::exists("./../../prog.alf")) {
    EXPECT_EQ(out, "Can't open aelf file './../../prog.alf'\n");
    EXPECT_EQ(mode(), DeviceReady);
  }
}
