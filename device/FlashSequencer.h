#pragma once
// The flash sequence as a state machine over a FlashLink.
//
// The flash screen calls stepDiscovery / stepFlash once per drawn frame; the
// command line calls the same functions in a loop. Each call looks at the link's
// busy/failed flags and last reply and decides (and sends) the next request.
// Everything the screen needs to draw lives in FlushState.
//
// FlashPolicy::gui() is the screen's behaviour, odd corners included:
//   - a check-block answer of zero adds 256 to progress on every call and sends
//     nothing, so the sequence stalls there;
//   - after the seventh failure in a row of one request the "Device not response"
//     pop-up is raised, retries restart at 1 and the request keeps being repeated;
//   - Start is repeated with `offset` as its length, Finish with time-out 100;
//   - discovery goes on in the background while "Devices are not found" shows.
// FlashPolicy::cli() differs only where that would hang a script: a zero answer is
// a refusal naming the block address, the seventh failure ends the flash with
// "Device not response", a request that cannot be written or a lost line ends it
// at once, the answer to Start is awaited as long as an erase takes, time-outs
// grow with the wire time at the line's baud rate, a repeated Start also tries the
// transfer rate and a repeated Finish the device's own rate, and a cancel flag is
// honoured.
#include <atomic>
#include <cstdint>
#include <string>

#include "base/IdentityText.h"
#include "base/Wire.h"
#include "device/FlashLink.h"
#include "image/AelfImage.h"

enum FlushStep : std::uint32_t {
  CheckBlock = 0,     // command 1, address segmentAddress + offset, length 256, time-out 100
  Start = 1,          // command 2, address 0, length total, time-out 50
  NextSegment = 2,    // transient: the segment switch happens in the same call
  WriteBlock = 3,     // command 11, 256 data bytes at segmentAddress + offset, time-out 1000
  SegmentCommand = 4, // command 9, never entered by the sequence
  BlockCommand = 5,   // command 7, never entered by the sequence
  Finish = 6,         // command 18, address 0, length 0, time-out 500
};

// Time-outs in worker ticks, as the screen uses them.
constexpr std::uint32_t kDiscoveryTimeout = 1;
constexpr std::uint32_t kStartTimeout = 50;
constexpr std::uint32_t kCheckBlockTimeout = 100;
constexpr std::uint32_t kWriteBlockTimeout = 1000;
constexpr std::uint32_t kCommandTimeout = 100; // commands 7 and 9
constexpr std::uint32_t kFinishTimeout = 500;
constexpr std::uint32_t kFinishRetryTimeout = 100;
// The command line's default wait for the answer to Start (the device's erase), in seconds.
constexpr std::uint32_t kDefaultEraseSeconds = 20;

// The variables of the flash screen. One process-wide instance in the GUI; the
// command line keeps one per device. Nothing resets them except where the steps say.
struct FlushState {
  std::uint32_t deviceId0 = 0, deviceId1 = 0, deviceId2 = 0;
  AelfImage image;
  std::uint32_t segmentIndex = 0;
  std::uint32_t segmentAddress = 0;
  std::uint32_t segmentSize = 0;
  const std::uint8_t* segmentData = nullptr;
  std::uint32_t offset = 0;
  FlushStep step = CheckBlock;
  std::uint32_t total = 0;
  std::uint32_t progress = 0;
  std::uint32_t retries = 0;
  std::int32_t spinner = 0;
  std::uint32_t discoveryTries = 0;
  std::uint32_t baudIndex = 0;
  std::int32_t deviceChoice = 0;
  bool notFoundPopup = false;
  bool flushErrorPopup = false;
  const char* deviceItems[1] = {""};

  // Bookkeeping beyond the screen's variables (the screen never draws them).
  std::uint32_t lineBaudIndex = 0;     // baud index the line is at now (the session opens at 9600)
  std::uint32_t answeredBaudIndex = 0; // baud index at which the last discovery was answered
  bool quickPass = false;              // discovery is in its quick pass (FlashPolicy::quickPassMarginTicks)
};

struct FlashPolicy {
  // A check-block answer of zero ends the flash with Refused(address).
  bool zeroCheckIsRefusal = false;
  // The seventh failure in a row ends the flash with Failed("Device not response")
  // (and ends discovery with NotFound without starting over).
  bool boundedRetries = false;
  // A request that could not be written (busy and failed both set) ends the flash
  // with Failed instead of being repeated like any failed request.
  bool writeFailureEnds = false;
  // A lost line (hang-up, unplug) ends discovery with Lost and the flash with
  // Failed("Port lost") at once, instead of retrying on a port that is gone.
  bool lostLineEnds = false;
  // A repeated Finish waits as long as the first one.
  bool patientFinish = false;
  // Time-outs are at least twice the wire time of request and reply at the line's
  // baud rate plus timeoutMarginTicks; never shorter than the screen's.
  bool scaleTimeouts = false;
  std::uint32_t timeoutMarginTicks = 0;
  // Start and Finish are repeated alternately at the transfer rate and at the baud
  // rate the device answered discovery at. Each moves the device to the other rate
  // as it answers, so when only the answer was lost the device listens at the rate
  // the host has not tried yet: after Start at 921600, after Finish at its own.
  bool retryAlternatesBaud = false;
  // Start (first and repeated) waits at least this many ticks for its answer: the
  // device erases its flash before it answers. 0 = the screen's time-outs.
  std::uint32_t eraseTimeoutTicks = 0;
  // Discovery only at this baud index (six attempts) instead of the whole ladder; -1 = ladder.
  int fixedBaudIndex = -1;
  // Before the ladder of six attempts at each baud rate, discovery tries each rate
  // once, waiting only for the wire time of request and reply plus this many ticks:
  // a device that answers at once is found without the slower rates' repetitions.
  // 0 = no quick pass (the screen's ladder).
  std::uint32_t quickPassMarginTicks = 0;
  // Set from any thread to stop: the next step returns Cancelled.
  const std::atomic<bool>* cancel = nullptr;

  static FlashPolicy gui();
  static FlashPolicy cli(const std::atomic<bool>* cancel = nullptr);

  // The time-out to use for a request the screen sends with guiTicks, carrying
  // requestBytes on the wire and expecting a 24-byte reply at baudIndex.
  std::uint32_t timeoutFor(std::uint32_t guiTicks, std::uint32_t baudIndex, std::uint32_t requestBytes) const;
  bool cancelled() const { return cancel && cancel->load(); }
};

enum class DiscoveryOutcome {
  Waiting,  // a request is outstanding
  Retrying, // no answer; the next attempt was sent (same or next baud rate)
  NotFound, // the ladder is exhausted: notFoundPopup was raised, nothing sent
  Lost,     // (cli) the line was lost
  Found,    // a device answered: deviceId0..2 hold its identity
  Cancelled,
};

enum class FlashKind {
  Waiting,     // a request is outstanding
  Progressed,  // an answer or a failure was handled; the sequence goes on
  PopupRaised, // "Device not response" raised: the screen ends its window at once, no progress bar
  Done,        // Finish answered: the flash is over
  Refused,     // (cli) a block was refused; address says which
  Failed,      // (cli) message says why
  Cancelled,   // (cli) the cancel flag was seen
};

struct FlashOutcome {
  FlashKind kind = FlashKind::Waiting;
  std::uint32_t address = 0; // Refused: the block address
  std::string message;       // Failed: the text to show
};

// Sends the discovery request (command 0 broadcast, length 0, time-out 1): what
// "Open" sends right after creating the session. With a fixed baud index in the
// policy the line is first reopened there.
void sendDiscovery(FlushState& s, FlashLink& link, const FlashPolicy& policy);

// One frame of WaitDevices (without the spinner, which the screen draws).
DiscoveryOutcome stepDiscovery(FlushState& s, FlashLink& link, const FlashPolicy& policy);

// "Flush" after the image was read: sets total, retries, offset (= total) and
// progress, sends Start and sets step to Start. Returns false when the Start
// request could not be written (the screen ignores this; the sequence then stalls).
bool beginFlash(FlushState& s, FlashLink& link, const AelfImage& image, const FlashPolicy& policy);

// One frame of Flushing: handles the answer or failure of the outstanding request
// and, when the step is over, moves to the next segment or to Finish.
FlashOutcome stepFlash(FlushState& s, FlashLink& link, const FlashPolicy& policy);

// The spinner text for the current spinner value (index kept within 0..7).
const char* spinnerText(std::int32_t spinner);
