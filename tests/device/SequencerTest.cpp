// The flash sequence against the shared scripted link: the test answers as the device, and checks what is sent.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "device/FlashSequencer.h"
#include "device/Frame.h"
#include "tests/support/FakeLink.h"

namespace {

constexpr std::uint32_t kA = 0x00c0ffee, kB = 0x12345678, kC = 0x9abcdef0;
const FlashPolicy kGui = FlashPolicy::gui(), kCli = FlashPolicy::cli();

// The requests from `from` on, each as "command@address:length/time-out", with "+" when it carries data.
std::string sent(const FakeLink& link, std::size_t from = 0) {
  std::ostringstream out;
  for (auto r = link.requests.begin() + static_cast<std::ptrdiff_t>(from); r < link.requests.end(); ++r)
    out << +r->command << '@' << std::hex << r->address << std::dec << ':' << r->length << '/' << r->timeout
        << (r->hasData ? "+ " : " ");
  return out.str();
}

// Lets n discovery attempts fail (time out, or stay unwritten); stops at an outcome other than Retrying.
DiscoveryOutcome failDiscovery(FlushState& s, FakeLink& link, const FlashPolicy& policy, int n = 1) {
  DiscoveryOutcome o = DiscoveryOutcome::Retrying;
  for (int i = 0; i < n && o == DiscoveryOutcome::Retrying; ++i) {
    if (!link.writeFails) link.fail();
    o = stepDiscovery(s, link, policy);
  }
  return o;
}

TEST(SequencerDiscovery, LadderUnwritableRestartFixedBaudAndLostLine) {
  for (const FlashPolicy& ladder : {kCli, kGui}) {
    FlushState s;
    FakeLink link;
    link.writeFails = true; // an unwritable request is a failed attempt
    sendDiscovery(s, link, ladder);
    EXPECT_EQ(failDiscovery(s, link, ladder, 40), DiscoveryOutcome::NotFound);
    EXPECT_TRUE(s.notFoundPopup && link.requests.size() == 30u);
    // Six attempts at each of the five rates, the first at the session's 9600.
    EXPECT_EQ(link.reopens, (std::vector<int>{0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2,
                                              2, 2, 3, 3, 3, 3, 3, 3, 4, 4, 4, 4, 4, 4}));
    for (const SentRequest& r : link.requests) // a broadcast identify, one tick on the screen
      EXPECT_TRUE(r.command == CmdIdentify && (r.id0 | r.id1 | r.id2 | r.length) == 0 && !r.hasData &&
                  (r.timeout == 1) == !ladder.scaleTimeouts);
    // Behind the pop-up discovery starts over at 9600; an answer at a later rate is kept.
    link.writeFails = false;
    EXPECT_EQ(failDiscovery(s, link, ladder, 19), DiscoveryOutcome::Retrying);
    link.answer(kA, kB, kC);
    EXPECT_EQ(stepDiscovery(s, link, ladder), DiscoveryOutcome::Found);
    EXPECT_TRUE(s.notFoundPopup && s.deviceId0 == kA && s.deviceId1 == kB && s.deviceId2 == kC);
    EXPECT_TRUE(s.answeredBaudIndex == 3 && s.lineBaudIndex == 3 && s.baudIndex == 0 && s.discoveryTries == 0);
  }
  FlashPolicy fixed = kCli;
  fixed.fixedBaudIndex = 0;
  FlushState s;
  FakeLink link;
  sendDiscovery(s, link, fixed);
  EXPECT_EQ(stepDiscovery(s, link, fixed), DiscoveryOutcome::Waiting);
  EXPECT_EQ(failDiscovery(s, link, fixed, 6), DiscoveryOutcome::NotFound);
  EXPECT_EQ(link.reopens, std::vector<int>(6, 0));
  link.lost = true;
  EXPECT_EQ(failDiscovery(s, link, fixed), DiscoveryOutcome::Lost);
}

// A device found (at answeredBaud) and Start sent for an image whose program and empty resources lie in
// a local buffer, with a block's room behind, and whose header block is the end of the image area.
struct Flash {
  std::vector<std::uint8_t> area;
  FlushState s;
  FakeLink link;
  const FlashPolicy& policy;
  Flash(const FlashPolicy& p, std::uint32_t exeSize = 256, std::uint32_t answeredBaud = 0)
      : area(exeSize + kBlockSize), policy(p) {
    for (std::size_t i = 0; i < area.size(); ++i) area[i] = static_cast<std::uint8_t>(i % 251); // no block alike
    const AelfImage image{{{0x08004000, exeSize, area.data()},
                           {0x08020000, 0, area.data() + exeSize},
                           {0x0803FE00, 64, aelfImageArea() + aelfImageAreaSize - 64}}};
    s.deviceId0 = kA, s.deviceId1 = kB, s.deviceId2 = kC;
    s.answeredBaudIndex = s.lineBaudIndex = answeredBaud;
    beginFlash(s, link, image, policy);
  }
  FlashOutcome step() { return stepFlash(s, link, policy); }
  FlashKind answer(std::uint32_t w0 = 1) { return link.answer(w0), step().kind; }
  FlashOutcome timeOut() { return link.fail(), step(); }
  // Answers every request until the flash ends or `until` is outstanding; the last step's kind.
  FlashKind run(int until = -1) {
    FlashKind k = FlashKind::Progressed;
    for (int i = 0; i < 1000 && k == FlashKind::Progressed && link.last().command != until; ++i) k = answer();
    return k;
  }
};

TEST(SequencerFlash, WholeSequenceBlocksAddressesAndTimeouts) {
  Flash f(kGui, 300);
  EXPECT_TRUE(f.s.total == 364 && f.s.offset == 364 && f.s.step == Start && f.link.last().id2 == kC);
  EXPECT_EQ(f.step().kind, FlashKind::Waiting);
  EXPECT_EQ(f.run(), FlashKind::Done);
  // A segment of size 0 is still one block.
  ASSERT_EQ(sent(f.link), "2@0:364/50 1@8004000:256/100 11@8004000:256/1000+ 1@8004100:256/100 11@8004100:256/1000+ "
                          "1@8020000:256/100 11@8020000:256/1000+ 1@803fe00:256/100 11@803fe00:256/1000+ 18@0:0/500 ");
  // Whole blocks: the partial second block of the program runs on into the resources, and the
  // header block, which ends the image area, goes out as erased flash (0xFF) past the area's end.
  EXPECT_EQ(0, std::memcmp(f.link.requests[4].data.data(), f.area.data() + 256, 256));
  std::vector<std::uint8_t> header(f.s.image.segments[2].data, f.s.image.segments[2].data + 64);
  header.resize(256, 0xFF);
  EXPECT_EQ(f.link.requests[8].data, header);
  // The command line's time-outs cover twice the wire time (a write's is 317 ms at 9600), the screen's are the floor.
  EXPECT_TRUE(kCli.timeoutFor(100, 0, 280) >= 2 * 317u && kCli.timeoutFor(100, 4, 280) == 100u);
}

// The command line ends the flash on a refused block, the seventh failure in a row, an unwritable
// request, a lost line or a cancel. The screen repeats a failed request, raising the pop-up at the
// seventh failure and then at every sixth (its stall on a refusal: the screen tests, tests/app).
TEST(SequencerFlash, FailuresRefusalsUnwrittenRequestsLostLinesAndCancel) {
  std::atomic<bool> cancel{false};
  const FlashPolicy cli = FlashPolicy::cli(&cancel);
  Flash f(cli), w(cli), z(cli, 600);
  for (int i = 0; i < 3; ++i) z.answer(); // Start, check, write: the next check at +256
  z.link.answer(0);
  const FlashOutcome refused = z.step();
  EXPECT_TRUE(refused.kind == FlashKind::Refused && refused.address == 0x08004100u);
  f.answer();
  for (int r = 1; r <= 6; ++r) EXPECT_EQ(f.timeOut().kind, FlashKind::Progressed);
  EXPECT_TRUE(f.s.retries == 6 && f.link.last().command == CmdCheckBlock && f.link.requests.size() == 8u);
  const FlashOutcome out = f.timeOut();
  EXPECT_TRUE(out.kind == FlashKind::Failed && out.message == "Device not response" && !f.s.flushErrorPopup);
  w.link.writeFails = true;
  w.answer(); // the CheckBlock cannot be written
  EXPECT_EQ(w.step().kind, FlashKind::Failed);
  for (int r = 1; r <= 13; ++r) { // retries restart at 1 behind the pop-up
    const bool popup = r == 7 || r == 13;
    EXPECT_EQ(stepFlash(w.s, w.link, kGui).kind, popup ? FlashKind::PopupRaised : FlashKind::Progressed) << r;
  }
  EXPECT_TRUE(w.s.flushErrorPopup && w.s.retries == 1 && w.link.requests.size() == 2u + 11u);
  w.link.lost = true;
  EXPECT_EQ(w.step().message, "Port lost");
  cancel = true;
  EXPECT_EQ(f.step().kind, FlashKind::Cancelled);
  EXPECT_EQ(stepDiscovery(f.s, f.link, cli), DiscoveryOutcome::Cancelled);
}

// Start and Finish repeated: the screen stays at the line's rate and shortens the waits; the command line
// alternates between the transfer rate and the rate the device answered at (115200 here).
TEST(SequencerFlash, RepeatedStartAndFinish) {
  for (const auto& [policy, command, repeat, reopens] :
       {std::tuple{&kGui, CmdStart, "2@0:999/100 ", std::vector<int>{}},
        {&kGui, CmdFinish, "18@0:0/100 ", {}},
        {&kCli, CmdStart, "2@0:999/20000 ", {4, 3, 4, 3}},
        {&kCli, CmdFinish, "18@0:0/500 ", {3, 4, 3, 4}}}) {
    SCOPED_TRACE(repeat);
    Flash f(*policy, 10, 3);
    f.run(command);
    f.s.offset = 999; // a repeated Start sends offset, not total, as its length
    std::vector<int> want = f.link.reopens;
    want.insert(want.end(), reopens.begin(), reopens.end());
    for (int r = 0; r < 4; ++r) EXPECT_EQ((f.timeOut(), sent(f.link, f.link.requests.size() - 1)), repeat);
    EXPECT_EQ(f.link.reopens, want);
    // Either answer leaves the line at the transfer rate: Start's moves it there (again).
    EXPECT_EQ(f.answer(), command == CmdFinish ? FlashKind::Done : FlashKind::Progressed);
    EXPECT_TRUE(f.link.reopens.back() == 4 && f.s.lineBaudIndex == 4);
    EXPECT_EQ(f.link.last().command, command == CmdStart ? CmdCheckBlock : CmdFinish);
  }
}

TEST(SequencerFlash, SpinnerAndTheStepsTheSequenceNeverEnters) {
  EXPECT_STREQ(spinnerText(8), "[ / ] ."); // the screen test walks all eight; the index wraps both ways
  EXPECT_STREQ(spinnerText(-1), "[ - ] ........");
  Flash f(kGui);
  f.s.segmentAddress = 0x08010000, f.s.segmentSize = 600, f.s.offset = 256, f.s.step = SegmentCommand;
  f.timeOut(); // repeated as command 9 for the segment
  EXPECT_EQ(f.answer(), FlashKind::Done);
  f.s.step = BlockCommand; // command 7 moves on first, then goes out for the new offset
  EXPECT_TRUE(f.answer() == FlashKind::Progressed && f.s.step == CheckBlock);
  EXPECT_EQ(sent(f.link, 1), "9@8010000:600/100 7@8010200:256/100 ");
  f.s.step = BlockCommand, f.s.offset = 600;
  EXPECT_EQ(f.answer(), FlashKind::Done);
}

} // namespace
