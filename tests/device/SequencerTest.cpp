// The flash sequence against the shared scripted link: each test decides how the
// "device" answers and checks what the sequence sends.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <iterator>
#include <vector>

#include "device/FlashSequencer.h"
#include "device/Frame.h"
#include "tests/support/FakeLink.h"

namespace {

constexpr std::uint32_t kA = 0x00c0ffee, kB = 0x12345678, kC = 0x9abcdef0;
const FlashPolicy kGui = FlashPolicy::gui(), kCli = FlashPolicy::cli();

// A device found (at answeredBaud) and Start sent for an image laid out like the
// image area in a local buffer: header | program | resources (empty).
struct Flash {
  std::vector<std::uint8_t> area;
  FlushState s;
  FakeLink link;
  const FlashPolicy& policy;
  Flash(const FlashPolicy& p, std::uint32_t exeSize = 256, std::uint32_t answeredBaud = 0)
      : area(64 + exeSize + 512), policy(p) {
    for (std::size_t i = 0; i < area.size(); ++i) area[i] = static_cast<std::uint8_t>(i * 7 + 3);
    AelfImage image;
    image.segments[0] = {0x08004000, exeSize, area.data() + 64};
    image.segments[1] = {0x08020000, 0, area.data() + 64 + exeSize};
    image.segments[2] = {0x0803FE00, 64, area.data()};
    s.deviceId0 = kA, s.deviceId1 = kB, s.deviceId2 = kC;
    s.answeredBaudIndex = s.lineBaudIndex = answeredBaud;
    beginFlash(s, link, image, policy);
  }
  FlashOutcome step() { return stepFlash(s, link, policy); }
  FlashKind answer(std::uint32_t w0 = 1) { return link.answer(w0), step().kind; }
  FlashOutcome timeOut() { return link.fail(), step(); }
  // Answers every request until the flash ends or `until` is outstanding.
  FlashKind run(int until = -1) {
    for (int i = 0; i < 10000; ++i) {
      if (link.busy && link.last().command == until) return FlashKind::Waiting;
      const FlashKind k = answer();
      if (k != FlashKind::Progressed && k != FlashKind::Waiting) return k;
    }
    return FlashKind::Waiting;
  }
};

TEST(SequencerDiscovery, LadderPopupAndBackgroundRestart) {
  FlushState s;
  FakeLink link;
  sendDiscovery(s, link, kGui);
  EXPECT_EQ(stepDiscovery(s, link, kGui), DiscoveryOutcome::Waiting);
  std::vector<int> reopens;
  for (int attempt = 2; attempt <= 30; ++attempt) {
    link.fail();
    ASSERT_EQ(stepDiscovery(s, link, kGui), DiscoveryOutcome::Retrying) << attempt;
    reopens.push_back((attempt - 1) / 6);
  }
  EXPECT_EQ(link.reopens, reopens); // six attempts at each of the five rates, the first at the session's 9600
  for (const SentRequest& r : link.requests)
    EXPECT_TRUE(r.command == CmdIdentify && (r.id0 | r.id1 | r.id2 | r.length) == 0 && r.timeout == 1 && !r.hasData);
  EXPECT_EQ((link.fail(), stepDiscovery(s, link, kGui)), DiscoveryOutcome::NotFound);
  EXPECT_TRUE(s.notFoundPopup && link.requests.size() == 30u);
  // Behind the pop-up discovery starts over at 9600; an answer at a later rate is kept.
  for (int i = 0; i < 19; ++i, link.fail()) EXPECT_EQ(stepDiscovery(s, link, kGui), DiscoveryOutcome::Retrying);
  link.answer(kA, kB, kC);
  EXPECT_EQ(stepDiscovery(s, link, kGui), DiscoveryOutcome::Found);
  EXPECT_TRUE(s.notFoundPopup && s.deviceId0 == kA && s.deviceId1 == kB && s.deviceId2 == kC);
  EXPECT_TRUE(s.answeredBaudIndex == 3 && s.lineBaudIndex == 3 && s.baudIndex == 0 && s.discoveryTries == 0);
}

TEST(SequencerDiscovery, CliFixedBaudUnwritableAndLostLine) {
  FlashPolicy cli = kCli;
  cli.fixedBaudIndex = 0;
  FlushState s;
  FakeLink link;
  sendDiscovery(s, link, cli);
  EXPECT_GE(link.last().timeout, 100u); // 48 bytes at 9600 are 50 ms on the wire
  for (int i = 0; i < 5; ++i) EXPECT_EQ((link.fail(), stepDiscovery(s, link, cli)), DiscoveryOutcome::Retrying);
  EXPECT_EQ((link.fail(), stepDiscovery(s, link, cli)), DiscoveryOutcome::NotFound);
  EXPECT_EQ(link.reopens, std::vector<int>(6, 0));
  for (const FlashPolicy& ladder : {kCli, kGui}) { // an unwritable request is a failed attempt
    FlushState s2;
    FakeLink dead;
    dead.writeFails = true;
    sendDiscovery(s2, dead, ladder);
    DiscoveryOutcome o = DiscoveryOutcome::Waiting;
    for (int i = 0; i < 40 && o != DiscoveryOutcome::NotFound; ++i) o = stepDiscovery(s2, dead, ladder);
    EXPECT_TRUE(o == DiscoveryOutcome::NotFound && s2.notFoundPopup && dead.requests.size() == 30u);
  }
  link.lost = true;
  EXPECT_EQ((link.fail(), stepDiscovery(s, link, cli)), DiscoveryOutcome::Lost);
}

TEST(SequencerFlash, WholeSequenceBlocksAddressesAndTimeouts) {
  Flash f(kGui, 300);
  EXPECT_TRUE(f.s.total == 364 && f.s.offset == 364 && f.s.step == Start && f.link.last().id2 == kC);
  EXPECT_EQ(f.step().kind, FlashKind::Waiting);
  EXPECT_EQ(f.run(), FlashKind::Done);
  EXPECT_EQ(f.link.reopens, std::vector<int>{4});
  const struct {
    std::uint8_t command;
    std::uint32_t address, timeout, length;
  } want[] = {{CmdStart, 0, 50, 364},
              {CmdCheckBlock, 0x08004000, 100, 256},
              {CmdWriteBlock, 0x08004000, 1000, 256},
              {CmdCheckBlock, 0x08004100, 100, 256},
              {CmdWriteBlock, 0x08004100, 1000, 256},
              {CmdCheckBlock, 0x08020000, 100, 256},
              {CmdWriteBlock, 0x08020000, 1000, 256}, // size 0: still one block
              {CmdCheckBlock, 0x0803FE00, 100, 256},
              {CmdWriteBlock, 0x0803FE00, 1000, 256},
              {CmdFinish, 0, 500, 0}};
  ASSERT_EQ(f.link.requests.size(), std::size(want));
  for (std::size_t i = 0; i < std::size(want); ++i) {
    const SentRequest& r = f.link.requests[i];
    EXPECT_TRUE(r.command == want[i].command && r.address == want[i].address && r.timeout == want[i].timeout &&
                r.length == want[i].length && r.hasData == (r.command == CmdWriteBlock))
        << i;
  }
  // Whole blocks: the partial second block of the program runs on into the resources.
  EXPECT_EQ(0, std::memcmp(f.link.requests[4].data.data(), f.area.data() + 64 + 256, 256));
  EXPECT_EQ(0, std::memcmp(f.link.requests[8].data.data(), f.area.data(), 256));
  EXPECT_EQ(f.s.progress, 4u * 256u); // above total
}

TEST(SequencerFlash, ZeroCheckAnswerStallsTheScreenAndIsARefusalForTheCli) {
  Flash gui(kGui, 512), cli(kCli, 600);
  gui.answer(); // Start answered: first CheckBlock out
  const std::size_t sent = gui.link.requests.size();
  for (std::uint32_t frame = 1; frame <= 3; ++frame) {
    EXPECT_EQ(gui.answer(0), FlashKind::Progressed);
    EXPECT_TRUE(gui.s.progress == 256 * frame && gui.s.step == CheckBlock && gui.link.requests.size() == sent);
  }
  for (int i = 0; i < 3; ++i) cli.answer(); // Start, check, write: the next check at +256
  const FlashOutcome out = (cli.link.answer(0), cli.step());
  EXPECT_TRUE(out.kind == FlashKind::Refused && out.address == 0x08004100u);
}

TEST(SequencerFlash, GuiRetriesSevenTimesThenRaisesPopupAndKeepsRetrying) {
  Flash f(kGui);
  f.answer();
  f.answer(); // WriteBlock out
  for (std::uint32_t r = 1; r <= 6; ++r) {
    EXPECT_EQ(f.timeOut().kind, FlashKind::Progressed);
    EXPECT_TRUE(f.s.retries == r && f.link.last().command == CmdWriteBlock && f.link.last().timeout == 1000);
  }
  const std::size_t sent = f.link.requests.size();
  EXPECT_EQ(f.timeOut().kind, FlashKind::PopupRaised);
  EXPECT_TRUE(f.s.flushErrorPopup && f.s.retries == 1 && f.link.requests.size() == sent);
  for (std::uint32_t r = 2; r <= 6; ++r, f.link.fail()) {
    EXPECT_EQ(f.step().kind, FlashKind::Progressed);
    EXPECT_EQ(f.s.retries, r);
  }
  EXPECT_EQ(f.step().kind, FlashKind::PopupRaised);
  EXPECT_EQ(f.link.requests.size(), sent + 5);
  f.step();
  EXPECT_EQ(f.run(), FlashKind::Done); // a retry that succeeds goes on behind the pop-up
}

TEST(SequencerFlash, RepeatedStartAndFinishUseTheirRetryForms) {
  Flash f(kGui, 10);
  f.s.offset = 999; // Start is repeated with offset, not total, as its length
  f.timeOut();
  EXPECT_TRUE(f.link.last().command == CmdStart && f.link.last().length == 999 && f.link.last().timeout == 100);
  f.run(CmdFinish);
  f.timeOut();
  EXPECT_TRUE(f.link.last().command == CmdFinish && f.link.last().timeout == 100);
  EXPECT_EQ(f.answer(), FlashKind::Done);
}

TEST(SequencerFlash, CliEndsOnTheSeventhFailureAnUnwrittenRequestALostLineAndCancel) {
  std::atomic<bool> cancel{false};
  const FlashPolicy cli = FlashPolicy::cli(&cancel);
  Flash f(cli), w(cli);
  f.answer();
  for (int r = 1; r <= 6; ++r) EXPECT_EQ(f.timeOut().kind, FlashKind::Progressed);
  const FlashOutcome out = f.timeOut();
  EXPECT_TRUE(out.kind == FlashKind::Failed && out.message == "Device not response" && !f.s.flushErrorPopup);
  EXPECT_EQ(f.link.requests.size(), 8u);
  w.link.writeFails = true;
  w.answer(); // the CheckBlock cannot be written
  EXPECT_EQ(w.step().kind, FlashKind::Failed);
  // The screen reads it as a failed request: repeated, then the pop-up.
  for (int r = 1; r <= 6; ++r) EXPECT_EQ(stepFlash(w.s, w.link, kGui).kind, FlashKind::Progressed);
  EXPECT_EQ(stepFlash(w.s, w.link, kGui).kind, FlashKind::PopupRaised);
  w.link.lost = true;
  EXPECT_EQ(w.step().message, "Port lost");
  cancel = true;
  EXPECT_EQ(f.step().kind, FlashKind::Cancelled);
  EXPECT_EQ(stepDiscovery(f.s, f.link, cli), DiscoveryOutcome::Cancelled);
}

TEST(SequencerFlash, CliTimeoutsFollowTheWireAndStartWaitsForTheErase) {
  EXPECT_EQ(kGui.timeoutFor(1, 0, 24), 1u);
  EXPECT_EQ(kCli.timeoutFor(1000, 4, 280), 1000u);
  EXPECT_GT(kCli.timeoutFor(1, 0, 24), kCli.timeoutFor(1, 4, 24));
  EXPECT_GE(kCli.timeoutFor(100, 0, 280), 2u * 317u); // a write's wire time at 9600
  Flash f(kCli);
  EXPECT_EQ(f.link.last().timeout, kDefaultEraseSeconds * 1000);
  EXPECT_EQ((f.timeOut(), f.link.last().timeout), kDefaultEraseSeconds * 1000);
}

TEST(SequencerFlash, SpinnerAndTheStepsTheSequenceNeverEnters) {
  EXPECT_STREQ(spinnerText(0), "[ / ] .");
  EXPECT_STREQ(spinnerText(7), "[ - ] ........");
  EXPECT_STREQ(spinnerText(8), "[ / ] .");
  EXPECT_STREQ(spinnerText(-1), "[ - ] ........");
  FlushState s;
  FakeLink link;
  s.segmentAddress = 0x08010000, s.segmentSize = 600, s.offset = 256, s.step = SegmentCommand;
  link.fail();
  stepFlash(s, link, kGui);
  EXPECT_TRUE(link.last().command == CmdSegment && link.last().address == 0x08010000 && link.last().length == 600 &&
              link.last().timeout == 100);
  EXPECT_EQ((link.answer(1), stepFlash(s, link, kGui).kind), FlashKind::Done);
  s.step = BlockCommand;
  EXPECT_EQ((link.answer(1), stepFlash(s, link, kGui).kind), FlashKind::Progressed);
  EXPECT_EQ(s.offset, 512u); // moved on first, then sent for the new offset
  EXPECT_TRUE(link.last().command == CmdBlock && link.last().address == 0x08010200 && link.last().timeout == 100);
  EXPECT_EQ(s.step, CheckBlock);
  s.step = BlockCommand, s.offset = 600;
  EXPECT_EQ((link.answer(1), stepFlash(s, link, kGui).kind), FlashKind::Done);
}

// The command line repeats Start and Finish alternately at the transfer rate and
// the rate the device answered at (115200 here); the screen stays where it is.
TEST(SequencerFlash, CliRepeatsStartAndFinishAtBothRates) {
  for (const FlashPolicy* policy : {&kGui, &kCli}) {
    for (const int command : {CmdStart, CmdFinish}) {
      SCOPED_TRACE(testing::Message() << (policy == &kCli) << " " << command);
      Flash f(*policy, 10, 3);
      f.run(command);
      std::vector<int> want = f.link.reopens;
      for (int r = 0; r < 4; ++r) EXPECT_EQ((f.timeOut(), f.link.last().command), command);
      const int first = command == CmdStart ? 4 : 3, second = 7 - first;
      if (policy == &kCli) want.insert(want.end(), {first, second, first, second});
      EXPECT_EQ(f.link.reopens, want);
      if (command == CmdFinish) {
        EXPECT_EQ(f.answer(), FlashKind::Done);
      } else { // answered at 921600: the line is (again) at the transfer rate
        f.answer();
        EXPECT_TRUE(f.link.reopens.back() == 4 && f.s.lineBaudIndex == 4 && f.link.last().command == CmdCheckBlock);
      }
    }
  }
}

} // namespace
