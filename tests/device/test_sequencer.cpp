// The flash sequencer against a scripted link: every request it sends is
// recorded, and each test decides how the "device" answers.
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "device/FlashSequencer.h"
#include "device/Frame.h"

namespace {

struct Sent {
  std::uint32_t id0, id1, id2;
  std::uint8_t command;
  std::uint32_t address;
  std::uint32_t length;
  std::uint32_t timeout;
  bool hasData;
  std::vector<std::uint8_t> data;
};

class ScriptedLink : public FlashLink {
public:
  std::vector<Sent> sent;
  std::vector<int> reopens;
  bool busy = false;
  bool failed = false;
  bool writeFails = false;
  bool lost = false;
  std::uint32_t words[3] = {0, 0, 0};

  void request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command, std::uint32_t address,
               const std::uint8_t* data, std::uint32_t length, std::uint32_t timeout) override {
    Sent s{id0, id1, id2, command, address, length, timeout, data != nullptr, {}};
    if (data) s.data.assign(data, data + length);
    sent.push_back(s);
    busy = true;
    failed = writeFails;
  }
  void reopen(std::uint8_t baudIndex, std::uint8_t, std::uint8_t) override { reopens.push_back(baudIndex); }
  bool isBusy() const override { return busy; }
  bool hasFailed() const override { return failed; }
  std::uint32_t replyWord(int i) const override { return words[i]; }
  bool lineLost() const override { return lost; }

  void answer(std::uint32_t w0, std::uint32_t w1 = 0, std::uint32_t w2 = 0) {
    busy = false;
    failed = false;
    words[0] = w0;
    words[1] = w1;
    words[2] = w2;
  }
  void timeOut() {
    busy = false;
    failed = true;
  }
  const Sent& last() const { return sent.back(); }
};

constexpr std::uint32_t kA = 0x00c0ffee, kB = 0x12345678, kC = 0x9abcdef0;

// An image in a local buffer laid out like the image area: header | program | resources.
struct TestImage {
  std::vector<std::uint8_t> area;
  AelfImage image;
  TestImage(std::uint32_t exeAddr, std::uint32_t exeSize, std::uint32_t resAddr, std::uint32_t resSize)
      : area(64 + exeSize + resSize + 512) {
    for (std::size_t i = 0; i < area.size(); ++i) area[i] = static_cast<std::uint8_t>(i * 7 + 3);
    image.segments[0] = {exeAddr, exeSize, area.data() + 64};
    image.segments[1] = {resAddr, resSize, area.data() + 64 + exeSize};
    image.segments[2] = {0x0803FE00, 64, area.data()};
  }
};

FlushState foundState() {
  FlushState s;
  s.deviceId0 = kA;
  s.deviceId1 = kB;
  s.deviceId2 = kC;
  return s;
}

// Answers every request positively until the flash is over; returns the outcome.
FlashOutcome runToEnd(FlushState& s, ScriptedLink& link, const FlashPolicy& policy, int limit = 10000) {
  FlashOutcome out;
  for (int i = 0; i < limit; ++i) {
    if (link.busy) link.answer(1, kB, kC);
    out = stepFlash(s, link, policy);
    if (out.kind != FlashKind::Progressed && out.kind != FlashKind::Waiting) return out;
  }
  ADD_FAILURE() << "flash did not end";
  return out;
}

} // namespace

TEST(SequencerDiscovery, LadderOfFiveBaudsWithSixAttemptsEachThenPopupAndBackgroundRestart) {
  const FlashPolicy gui = FlashPolicy::gui();
  FlushState s;
  ScriptedLink link;
  sendDiscovery(s, link, gui); // what "Open" sends
  ASSERT_EQ(link.sent.size(), 1u);
  EXPECT_TRUE(link.reopens.empty()); // the first attempt goes out at the session's 9600
  EXPECT_EQ(link.last().command, CmdIdentify);
  EXPECT_EQ(link.last().timeout, 1u);
  EXPECT_EQ(link.last().length, 0u);
  EXPECT_FALSE(link.last().hasData);

  EXPECT_EQ(stepDiscovery(s, link, gui), DiscoveryOutcome::Waiting);
  std::vector<int> expectedReopens;
  for (int attempt = 2; attempt <= 30; ++attempt) {
    link.timeOut();
    ASSERT_EQ(stepDiscovery(s, link, gui), DiscoveryOutcome::Retrying) << attempt;
    expectedReopens.push_back((attempt - 1) / 6);
  }
  EXPECT_EQ(link.reopens, expectedReopens);
  EXPECT_EQ(link.sent.size(), 30u);
  for (const Sent& r : link.sent) {
    EXPECT_EQ(r.command, CmdIdentify);
    EXPECT_EQ(r.id0 | r.id1 | r.id2, 0u);
    EXPECT_EQ(r.timeout, 1u);
  }

  link.timeOut();
  EXPECT_EQ(stepDiscovery(s, link, gui), DiscoveryOutcome::NotFound);
  EXPECT_TRUE(s.notFoundPopup);
  EXPECT_EQ(s.baudIndex, 0u);
  EXPECT_EQ(link.sent.size(), 30u); // nothing sent with the pop-up

  // The pop-up stays up while discovery starts over at 9600 behind it.
  EXPECT_EQ(stepDiscovery(s, link, gui), DiscoveryOutcome::Retrying);
  EXPECT_EQ(link.reopens.back(), 0);
  EXPECT_EQ(link.sent.size(), 31u);
  link.answer(kA, kB, kC);
  EXPECT_EQ(stepDiscovery(s, link, gui), DiscoveryOutcome::Found);
  EXPECT_TRUE(s.notFoundPopup); // left set, shown next time
  EXPECT_EQ(s.deviceId0, kA);
  EXPECT_EQ(s.deviceId1, kB);
  EXPECT_EQ(s.deviceId2, kC);
  EXPECT_EQ(s.discoveryTries, 0u);
  EXPECT_EQ(s.answeredBaudIndex, 0u);
}

TEST(SequencerDiscovery, AnswerAtALaterBaudIsReportedAndResetsTheLadder) {
  const FlashPolicy gui = FlashPolicy::gui();
  FlushState s;
  ScriptedLink link;
  sendDiscovery(s, link, gui);
  for (int i = 0; i < 6 * 3; ++i) { // 9600, 19200, 38400 all silent
    link.timeOut();
    stepDiscovery(s, link, gui);
  }
  EXPECT_EQ(link.reopens.back(), 3);
  link.answer(1, 2, 3);
  EXPECT_EQ(stepDiscovery(s, link, gui), DiscoveryOutcome::Found);
  EXPECT_EQ(s.answeredBaudIndex, 3u);
  EXPECT_EQ(s.baudIndex, 0u);
  EXPECT_EQ(s.lineBaudIndex, 3u); // the line stays where the device answered
}

TEST(SequencerDiscovery, CliFixedBaudTriesSixTimesWithWireSizedTimeouts) {
  FlashPolicy cli = FlashPolicy::cli();
  cli.fixedBaudIndex = 0;
  FlushState s;
  ScriptedLink link;
  sendDiscovery(s, link, cli);
  ASSERT_EQ(link.reopens, std::vector<int>{0});
  // 48 bytes at 9600 baud are 50 ms on the wire: one tick cannot be enough.
  EXPECT_GE(link.last().timeout, 100u);
  for (int i = 0; i < 5; ++i) {
    link.timeOut();
    EXPECT_EQ(stepDiscovery(s, link, cli), DiscoveryOutcome::Retrying);
  }
  link.timeOut();
  EXPECT_EQ(stepDiscovery(s, link, cli), DiscoveryOutcome::NotFound);
  EXPECT_EQ(link.sent.size(), 6u);
  for (int r : link.reopens) EXPECT_EQ(r, 0);

  // An unwritable request (a port that cannot be opened) counts as a failed
  // attempt with either policy: the ladder runs out into "Devices are not found".
  for (const FlashPolicy& ladder : {FlashPolicy::cli(), FlashPolicy::gui()}) {
    FlushState s2;
    ScriptedLink dead;
    dead.writeFails = true;
    sendDiscovery(s2, dead, ladder);
    DiscoveryOutcome o = DiscoveryOutcome::Waiting;
    for (int i = 0; i < 40 && o != DiscoveryOutcome::NotFound; ++i) o = stepDiscovery(s2, dead, ladder);
    EXPECT_EQ(o, DiscoveryOutcome::NotFound);
    EXPECT_TRUE(s2.notFoundPopup);
    EXPECT_EQ(dead.sent.size(), 30u);
  }
  // A lost line ends the command line's discovery at its failed attempt.
  ScriptedLink gone;
  gone.lost = true;
  gone.timeOut();
  EXPECT_EQ(stepDiscovery(s, gone, cli), DiscoveryOutcome::Lost);
}

TEST(SequencerFlash, WholeSequenceBlocksAddressesAndTimeouts) {
  const FlashPolicy gui = FlashPolicy::gui();
  TestImage img(0x08004000, 300, 0x08020000, 0);
  FlushState s = foundState();
  ScriptedLink link;
  ASSERT_TRUE(beginFlash(s, link, img.image, gui));
  EXPECT_EQ(s.total, 364u);
  EXPECT_EQ(s.offset, 364u);
  EXPECT_EQ(s.step, Start);
  ASSERT_EQ(link.sent.size(), 1u);
  EXPECT_EQ(link.last().command, CmdStart);
  EXPECT_EQ(link.last().length, 364u);
  EXPECT_EQ(link.last().timeout, 50u);
  EXPECT_EQ(link.last().id0, kA);
  EXPECT_EQ(link.last().id2, kC);

  EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::Waiting);
  FlashOutcome out = runToEnd(s, link, gui);
  EXPECT_EQ(out.kind, FlashKind::Done);
  EXPECT_EQ(link.reopens, std::vector<int>{4});

  struct Want {
    std::uint8_t command;
    std::uint32_t address;
    std::uint32_t timeout;
  };
  const std::vector<Want> want = {
      {CmdStart, 0, 50},
      {CmdCheckBlock, 0x08004000, 100},
      {CmdWriteBlock, 0x08004000, 1000},
      {CmdCheckBlock, 0x08004100, 100},
      {CmdWriteBlock, 0x08004100, 1000},
      {CmdCheckBlock, 0x08020000, 100},
      {CmdWriteBlock, 0x08020000, 1000}, // size 0: still one block
      {CmdCheckBlock, 0x0803FE00, 100},
      {CmdWriteBlock, 0x0803FE00, 1000},
      {CmdFinish, 0, 500},
  };
  ASSERT_EQ(link.sent.size(), want.size());
  for (std::size_t i = 0; i < want.size(); ++i) {
    EXPECT_EQ(link.sent[i].command, want[i].command) << i;
    EXPECT_EQ(link.sent[i].address, want[i].address) << i;
    EXPECT_EQ(link.sent[i].timeout, want[i].timeout) << i;
    EXPECT_EQ(link.sent[i].length, link.sent[i].command == CmdStart    ? 364u
                                   : link.sent[i].command == CmdFinish ? 0u
                                                                       : 256u)
        << i;
  }
  // Whole blocks: the partial second block of the program runs on into the resources.
  EXPECT_EQ(0, std::memcmp(link.sent[2].data.data(), img.area.data() + 64, 256));
  EXPECT_EQ(0, std::memcmp(link.sent[4].data.data(), img.area.data() + 64 + 256, 256));
  EXPECT_EQ(0, std::memcmp(link.sent[8].data.data(), img.area.data(), 256));
  EXPECT_FALSE(link.sent[1].hasData);
  EXPECT_EQ(s.progress, 4u * 256u); // above total
  EXPECT_GT(s.progress, s.total);
}

TEST(SequencerFlash, ZeroSizedImageStillVisitsEveryFirstBlock) {
  const FlashPolicy gui = FlashPolicy::gui();
  TestImage img(0x08004000, 0, 0x08010000, 0);
  img.image.segments[2].size = 0;
  FlushState s = foundState();
  ScriptedLink link;
  beginFlash(s, link, img.image, gui);
  EXPECT_EQ(link.last().length, 0u);
  EXPECT_EQ(runToEnd(s, link, gui).kind, FlashKind::Done);
  int checks = 0;
  for (const Sent& r : link.sent) checks += r.command == CmdCheckBlock;
  EXPECT_EQ(checks, 3);
}

TEST(SequencerFlash, ZeroCheckAnswerStallsAddingProgressEachFrameInGui) {
  const FlashPolicy gui = FlashPolicy::gui();
  TestImage img(0x08000000, 512, 0x08020000, 16);
  FlushState s = foundState();
  ScriptedLink link;
  beginFlash(s, link, img.image, gui);
  link.answer(1);
  stepFlash(s, link, gui); // Start answered: first CheckBlock out
  ASSERT_EQ(link.last().command, CmdCheckBlock);
  link.answer(0);
  const std::size_t before = link.sent.size();
  for (int frame = 1; frame <= 5; ++frame) {
    EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::Progressed);
    EXPECT_EQ(s.progress, 256u * frame);
    EXPECT_EQ(s.step, CheckBlock);
  }
  EXPECT_EQ(link.sent.size(), before);
}

TEST(SequencerFlash, CliRefusesAZeroCheckAnswerNamingTheBlock) {
  const FlashPolicy cli = FlashPolicy::cli();
  TestImage img(0x08000000, 600, 0x08020000, 16);
  FlushState s = foundState();
  ScriptedLink link;
  beginFlash(s, link, img.image, cli);
  link.answer(1);
  stepFlash(s, link, cli);
  link.answer(1);
  stepFlash(s, link, cli); // write
  link.answer(1);
  stepFlash(s, link, cli); // next check at +256
  link.answer(0);
  FlashOutcome out = stepFlash(s, link, cli);
  EXPECT_EQ(out.kind, FlashKind::Refused);
  EXPECT_EQ(out.address, 0x08000100u);
}

TEST(SequencerFlash, GuiRetriesSevenTimesThenRaisesPopupAndKeepsRetryingFromOne) {
  const FlashPolicy gui = FlashPolicy::gui();
  TestImage img(0x08004000, 256, 0x08020000, 0);
  FlushState s = foundState();
  ScriptedLink link;
  beginFlash(s, link, img.image, gui);
  link.answer(1);
  stepFlash(s, link, gui);
  link.answer(1);
  stepFlash(s, link, gui); // WriteBlock out
  ASSERT_EQ(link.last().command, CmdWriteBlock);
  for (int r = 1; r <= 6; ++r) {
    link.timeOut();
    EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::Progressed);
    EXPECT_EQ(s.retries, static_cast<std::uint32_t>(r));
    EXPECT_EQ(link.last().command, CmdWriteBlock);
    EXPECT_EQ(link.last().address, 0x08004000u);
    EXPECT_EQ(link.last().timeout, 1000u);
  }
  const std::size_t sent = link.sent.size();
  link.timeOut();
  EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::PopupRaised);
  EXPECT_TRUE(s.flushErrorPopup);
  EXPECT_EQ(s.retries, 1u);
  EXPECT_EQ(link.sent.size(), sent); // nothing sent in the frame that raises it
  // Behind the pop-up: five more attempts, then the pop-up is raised again.
  for (int r = 2; r <= 6; ++r) {
    EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::Progressed);
    EXPECT_EQ(s.retries, static_cast<std::uint32_t>(r));
    link.timeOut();
  }
  EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::PopupRaised);
  EXPECT_EQ(link.sent.size(), sent + 5);
  // A retry that succeeds lets the sequence go on behind the pop-up.
  stepFlash(s, link, gui);
  link.answer(1);
  EXPECT_EQ(runToEnd(s, link, gui).kind, FlashKind::Done);
  EXPECT_TRUE(s.flushErrorPopup);
}

TEST(SequencerFlash, RepeatedStartAndFinishUseTheirRetryForms) {
  const FlashPolicy gui = FlashPolicy::gui();
  TestImage img(0x08004000, 10, 0x08020000, 0);
  FlushState s = foundState();
  ScriptedLink link;
  beginFlash(s, link, img.image, gui);
  s.offset = 999; // Start is repeated with offset, not total, as its length
  link.timeOut();
  stepFlash(s, link, gui);
  EXPECT_EQ(link.last().command, CmdStart);
  EXPECT_EQ(link.last().length, 999u);
  EXPECT_EQ(link.last().timeout, 100u);
  // Run to Finish, then fail it once.
  while (!(link.busy && link.last().command == CmdFinish)) {
    link.answer(1);
    ASSERT_NE(stepFlash(s, link, gui).kind, FlashKind::Done);
  }
  EXPECT_EQ(link.last().timeout, 500u);
  link.timeOut();
  stepFlash(s, link, gui);
  EXPECT_EQ(link.last().command, CmdFinish);
  EXPECT_EQ(link.last().timeout, 100u);
  link.answer(1);
  EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::Done);
}

TEST(SequencerFlash, CliEndsAfterTheSixthRepetitionAndOnWriteFailureAndCancel) {
  std::atomic<bool> cancel{false};
  const FlashPolicy cli = FlashPolicy::cli(&cancel);
  TestImage img(0x08004000, 256, 0x08020000, 0);
  {
    FlushState s = foundState();
    ScriptedLink link;
    beginFlash(s, link, img.image, cli);
    link.answer(1);
    stepFlash(s, link, cli);
    for (int r = 1; r <= 6; ++r) {
      link.timeOut();
      EXPECT_EQ(stepFlash(s, link, cli).kind, FlashKind::Progressed);
    }
    link.timeOut();
    FlashOutcome out = stepFlash(s, link, cli);
    EXPECT_EQ(out.kind, FlashKind::Failed);
    EXPECT_EQ(out.message, "Device not response");
    EXPECT_EQ(link.sent.size(), 1u + 7u);
    EXPECT_FALSE(s.flushErrorPopup);
  }
  {
    FlushState s = foundState();
    ScriptedLink link;
    beginFlash(s, link, img.image, cli);
    link.answer(1);
    link.writeFails = true;
    stepFlash(s, link, cli); // the CheckBlock cannot be written
    EXPECT_EQ(stepFlash(s, link, cli).kind, FlashKind::Failed);
    // The screen reads it as a failed request: repeated, then the pop-up.
    for (int r = 1; r <= 6; ++r) EXPECT_EQ(stepFlash(s, link, FlashPolicy::gui()).kind, FlashKind::Progressed);
    EXPECT_EQ(stepFlash(s, link, FlashPolicy::gui()).kind, FlashKind::PopupRaised);
    EXPECT_TRUE(s.flushErrorPopup);
    // A lost line ends the command line's flash at the failed request.
    link.lost = true;
    const FlashOutcome out = stepFlash(s, link, cli);
    EXPECT_EQ(out.kind, FlashKind::Failed);
    EXPECT_EQ(out.message, "Port lost");
  }
  {
    FlushState s = foundState();
    ScriptedLink link;
    beginFlash(s, link, img.image, cli);
    cancel = true;
    EXPECT_EQ(stepFlash(s, link, cli).kind, FlashKind::Cancelled);
    EXPECT_EQ(stepDiscovery(s, link, cli), DiscoveryOutcome::Cancelled);
  }
}

TEST(SequencerFlash, CliTimeoutsFollowTheWireButNeverGoBelowTheScreens) {
  const FlashPolicy cli = FlashPolicy::cli();
  const FlashPolicy gui = FlashPolicy::gui();
  EXPECT_EQ(gui.timeoutFor(1, 0, 24), 1u);
  EXPECT_EQ(cli.timeoutFor(1000, 4, 280), 1000u);
  EXPECT_GT(cli.timeoutFor(1, 0, 24), cli.timeoutFor(1, 4, 24));
  EXPECT_GE(cli.timeoutFor(1, 0, 24), 100u);         // 50 ms of wire time at 9600
  EXPECT_GE(cli.timeoutFor(100, 0, 280), 2u * 317u); // a write's wire time at 9600

  // Start, first and repeated, waits as long as an erase may take.
  TestImage img(0x08004000, 256, 0x08020000, 0);
  FlushState s = foundState();
  ScriptedLink link;
  beginFlash(s, link, img.image, cli);
  EXPECT_EQ(link.last().timeout, kDefaultEraseSeconds * 1000);
  link.timeOut();
  stepFlash(s, link, cli);
  EXPECT_EQ(link.last().command, CmdStart);
  EXPECT_EQ(link.last().timeout, kDefaultEraseSeconds * 1000);
}

TEST(SequencerText, Spinner) {
  EXPECT_STREQ(spinnerText(0), "[ / ] .");
  EXPECT_STREQ(spinnerText(7), "[ - ] ........");
  EXPECT_STREQ(spinnerText(8), "[ / ] .");
  EXPECT_STREQ(spinnerText(-1), "[ - ] ........");
}

// Steps 4 and 5 are never entered by the sequence itself; when they are current
// they still behave as the screen's tables say.
TEST(SequencerFlash, SegmentAndBlockCommandStepsKeepTheirTables) {
  const FlashPolicy gui = FlashPolicy::gui();
  FlushState s = foundState();
  ScriptedLink link;
  s.segmentAddress = 0x08010000;
  s.segmentSize = 600;
  s.offset = 256;

  s.step = SegmentCommand;
  link.timeOut();
  stepFlash(s, link, gui);
  EXPECT_EQ(link.last().command, CmdSegment);
  EXPECT_EQ(link.last().address, 0x08010000u);
  EXPECT_EQ(link.last().length, 600u);
  EXPECT_EQ(link.last().timeout, 100u);
  link.answer(1);
  EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::Done);

  s.step = BlockCommand;
  link.timeOut();
  stepFlash(s, link, gui);
  EXPECT_EQ(link.last().command, CmdBlock);
  EXPECT_EQ(link.last().address, 0x08010100u);
  link.answer(1);
  EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::Progressed);
  EXPECT_EQ(s.offset, 512u); // moved on first, then sent for the new offset
  EXPECT_EQ(link.last().command, CmdBlock);
  EXPECT_EQ(link.last().address, 0x08010200u);
  EXPECT_EQ(link.last().timeout, 100u);
  EXPECT_EQ(s.step, CheckBlock);

  s.step = BlockCommand;
  s.offset = 600;
  link.answer(1);
  EXPECT_EQ(stepFlash(s, link, gui).kind, FlashKind::Done);
}

// Start sent for a small image to a device that answered discovery at 115200.
struct StartedFlash {
  TestImage img{0x08004000, 10, 0x08020000, 0};
  FlushState s = foundState();
  ScriptedLink link;
  explicit StartedFlash(const FlashPolicy& policy) {
    s.answeredBaudIndex = 3;
    s.lineBaudIndex = 3;
    beginFlash(s, link, img.image, policy);
  }
  // Times the outstanding request out four times; each time it is sent again.
  void timeOutFourTimes(const FlashPolicy& policy, std::uint8_t command) {
    for (int r = 0; r < 4; ++r) {
      link.timeOut();
      stepFlash(s, link, policy);
      EXPECT_EQ(link.last().command, command);
    }
  }
};

TEST(SequencerFlash, CliRepeatsFinishAlsoAtTheDevicesOwnBaud) {
  for (const bool cli : {false, true}) {
    const FlashPolicy policy = cli ? FlashPolicy::cli() : FlashPolicy::gui();
    StartedFlash f(policy);
    while (!(f.link.busy && f.link.last().command == CmdFinish)) {
      f.link.answer(1);
      stepFlash(f.s, f.link, policy);
    }
    ASSERT_EQ(f.link.reopens, std::vector<int>{4});
    f.timeOutFourTimes(policy, CmdFinish);
    if (cli)
      EXPECT_EQ(f.link.reopens, (std::vector<int>{4, 3, 4, 3, 4}));
    else
      EXPECT_EQ(f.link.reopens, std::vector<int>{4}); // the screen stays at 921600
    f.link.answer(1);
    EXPECT_EQ(stepFlash(f.s, f.link, policy).kind, FlashKind::Done);
  }
}

TEST(SequencerFlash, CliRepeatsStartAlsoAtTheTransferBaud) {
  for (const bool cli : {false, true}) {
    const FlashPolicy policy = cli ? FlashPolicy::cli() : FlashPolicy::gui();
    StartedFlash f(policy);
    ASSERT_EQ(f.link.last().command, CmdStart);
    f.timeOutFourTimes(policy, CmdStart);
    if (cli)
      EXPECT_EQ(f.link.reopens, (std::vector<int>{4, 3, 4, 3})); // the device may have moved on
    else
      EXPECT_TRUE(f.link.reopens.empty()); // the screen repeats at the device's own rate
    // Answered at 921600: the line is (again) at the transfer rate and blocks follow.
    f.link.answer(1);
    stepFlash(f.s, f.link, policy);
    EXPECT_EQ(f.link.reopens.back(), 4);
    EXPECT_EQ(f.s.lineBaudIndex, 4u);
    EXPECT_EQ(f.link.last().command, CmdCheckBlock);
  }
}
