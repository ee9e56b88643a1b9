#include "device/DeviceSession.h"

#include <algorithm>
#include <chrono>
#include <cstring>
#include <string>

#include "base/Console.h"
#include "base/Wire.h"

using Clock = std::chrono::steady_clock;
using std::chrono::microseconds;
using std::chrono::milliseconds;

const std::uint32_t DeviceSession::kParityTable[kParityCount] = {SerialPort::ParityNone, SerialPort::ParityEven,
                                                                 SerialPort::ParityOdd};
const std::uint32_t DeviceSession::kStopTable[kStopCount] = {SerialPort::StopOne, SerialPort::StopTwo};

namespace {

// The longest single wait on the port inside a frame. Where waiting for input is a
// plain sleep (Windows), a frame then still ends within a millisecond of its silence.
constexpr std::uint32_t kFrameWaitSliceUs = 1000;

// Sleeps until the steady clock reaches deadline. Loops, because a single sleep may
// end early (mingw's sleep under Wine returns after a fraction of a millisecond).
void sleepUntil(Clock::time_point deadline) {
  for (auto now = Clock::now(); now < deadline; now = Clock::now()) std::this_thread::sleep_until(deadline);
}

std::uint32_t microsUntil(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<microseconds>(deadline - Clock::now()).count();
  return left <= 0 ? 0 : static_cast<std::uint32_t>(left);
}

} // namespace

DeviceSession::DeviceSession(const char* portName, FirstPoll firstPoll) : SerialPort(), firstPoll_(firstPoll) {
  worker_ = std::thread(&DeviceSession::workerLoop, this);
  if (portName != nullptr) {
    std::unique_lock<std::shared_mutex> lock(portLock_);
    if (!SerialPort::open(std::string(portName), 9600, ParityNone, 8, StopOne)) failed.exchange(true);
  }
  {
    std::lock_guard<std::mutex> lock(stopMutex_);
    constructed_ = true;
  }
  stopCv_.notify_all();
}

DeviceSession::~DeviceSession() {
  stop.exchange(true);
  { std::lock_guard<std::mutex> lock(stopMutex_); }
  stopCv_.notify_all();
  worker_.join();
}

void DeviceSession::setWakeCallback(std::function<void()> wake) {
  std::lock_guard<std::mutex> lock(wakeMutex_);
  wake_ = std::move(wake);
}

void DeviceSession::wake() {
  std::function<void()> callback;
  {
    std::lock_guard<std::mutex> lock(wakeMutex_);
    callback = wake_;
  }
  if (callback) callback();
}

std::uint32_t DeviceSession::replyWord(int i) const {
  if (i < 0 || i > 2) return 0;
  return readLe32(reply.data() + kOffId0 + 4 * static_cast<std::size_t>(i));
}

void DeviceSession::request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command,
                            std::uint32_t address, const std::uint8_t* data, std::uint32_t length,
                            std::uint32_t timeout) {
  unwritten_.store(false);
  unwrittenWake_.store(0);
  busy.exchange(true);
  failed.exchange(false);
  FrameFields fields;
  fields.id0 = id0;
  fields.id1 = id1;
  fields.id2 = id2;
  fields.command = command;
  fields.address = address;
  fields.length = length;
  const std::size_t n = encodeFrame(request_.data(), fields, data);
  if (n == 0) {
    // Too much data for one frame: refused, and the request is over.
    failed.exchange(true);
    busy.exchange(false);
    return;
  }
  // Armed before the write: a reply taken before the write returns disarms it, and a
  // counter armed afterwards would later fail a request that succeeded.
  ticksLeft.store(timeout);
  bool written;
  {
    std::shared_lock<std::shared_mutex> lock(portLock_);
    written = SerialPort::write(request_.data(), n);
  }
  if (written) return;
  ticksLeft.store(0);
  failed.exchange(true); // busy stays set: the owner reads the pair as a failed request
  unwrittenWake_.store(std::max(timeout, kUnwrittenWakeTicks));
  unwritten_.store(true);
  { std::lock_guard<std::mutex> lock(stopMutex_); }
  stopCv_.notify_all(); // a worker asleep on a closed port starts counting
}

void DeviceSession::reopen(std::uint8_t baudIndex, std::uint8_t parityIndex, std::uint8_t stopIndex) {
  if (baudIndex >= kLadderBauds.size() || parityIndex >= kParityCount || stopIndex >= kStopCount) {
    failed.exchange(true);
    return;
  }
  const std::string name = portName();
  bool opened;
  {
    std::unique_lock<std::shared_mutex> lock(portLock_);
    opened = SerialPort::open(name, kLadderBauds[baudIndex], kParityTable[parityIndex], 8, kStopTable[stopIndex]);
  }
  if (!opened) {
    failed.exchange(true);
    return;
  }
  lineBaud_.store(kLadderBauds[baudIndex]);
  if (firstPoll_ == FirstPoll::atOnce) {
    // A worker asleep on the port that was closed starts polling now.
    { std::lock_guard<std::mutex> lock(stopMutex_); }
    stopCv_.notify_all();
  }
}

std::uint32_t DeviceSession::lockedAvailable() {
  std::shared_lock<std::shared_mutex> lock(portLock_);
  return available();
}

std::uint32_t DeviceSession::lockedRead(std::uint8_t* buffer, std::uint32_t size) {
  std::shared_lock<std::shared_mutex> lock(portLock_);
  return read(buffer, size);
}

// Sleeps a second, or less when the session is being destroyed or an unwritten
// request's wake-up is counting; a session that polls at once also wakes when its
// port opens.
void DeviceSession::sleepClosed() {
  std::unique_lock<std::mutex> lock(stopMutex_);
  stopCv_.wait_until(lock, Clock::now() + std::chrono::seconds(1), [this] {
    return stop.load() || unwrittenWake_.load() != 0 || (firstPoll_ == FirstPoll::atOnce && constructed_ && isOpen());
  });
}

// Counts an unwritten request's wait down and wakes the owner at its end. True while
// it counts.
bool DeviceSession::unwrittenWakeStep() {
  std::uint32_t left = unwrittenWake_.load();
  if (left == 0) return false;
  if (unwrittenWake_.compare_exchange_strong(left, left - 1) && left == 1) wake();
  return true;
}

// The line is gone: the port is closed (the loss was reported once by the serial
// layer) and a request still outstanding ends as failed.
void DeviceSession::closeLostLine() {
  {
    std::unique_lock<std::shared_mutex> lock(portLock_);
    close();
  }
  lineLost_.store(true);
  if (busy.load() && !failed.load()) {
    ticksLeft.store(0);
    failed.exchange(true);
    busy.exchange(false);
  }
  wake();
}

// One pass is a tick: receive, run the time-out, wait 1 ms. While the port is closed
// the worker sleeps a second at a time. The first pass always counts as closed (the
// port opens after the worker starts), so polling begins about 1 s after construction
// and a reply that came meanwhile is taken before any time-out runs. Deliberate: the
// screen's session keeps that second; a session made to poll at once ends the first
// sleep as soon as the constructor has opened its port.
void DeviceSession::workerLoop() {
  if (!stop.load()) sleepClosed();
  while (!stop.load()) {
    if (isOpen() && lost()) {
      closeLostLine();
    } else if (isOpen()) {
      if (!failed.load()) receive();
      timeoutStep();
      unwrittenWakeStep();
      const auto tickEnd = Clock::now() + milliseconds(1);
      if (framing_.load() == ReplyFraming::fast)
        receiveUntil(tickEnd);
      else
        sleepUntil(tickEnd);
    } else if (unwrittenWakeStep()) {
      sleepUntil(Clock::now() + milliseconds(1));
    } else {
      sleepClosed();
    }
  }
  std::unique_lock<std::shared_mutex> lock(portLock_);
  close();
}

// The fast framing's wait between ticks: a reply that begins to arrive is taken at
// once rather than at the next tick. The ticks themselves keep their length, so
// time-outs last as long as with the gap framing.
void DeviceSession::receiveUntil(Clock::time_point tickEnd) {
  for (std::uint32_t left = microsUntil(tickEnd); left != 0 && !stop.load(); left = microsUntil(tickEnd)) {
    bool readable;
    {
      std::shared_lock<std::shared_mutex> lock(portLock_);
      readable = waitForInput(left);
    }
    if (!readable) {
      if (lost()) break;
      continue;
    }
    // Nothing waits for these bytes now, or the wake was a hang-up and not input.
    if (failed.load() || !busy.load() || lockedAvailable() == 0) break;
    receive();
    if (lockedAvailable() != 0) break; // left for the next tick, not spun on
  }
  sleepUntil(tickEnd);
}

// Reads one frame: whatever is queued goes to the framer, and while the line is
// quiet the worker waits on it until the framer's deadline. No tick runs meanwhile,
// so a reply that has begun to arrive is never cut short by its request's time-out.
FrameVerdict DeviceSession::readFrame(ReplyFraming framing) {
  framer_.begin(framing, lineBaud_.load());
  for (;;) {
    const std::uint32_t queued = framer_.room() == 0 ? 0 : lockedAvailable();
    if (queued != 0) {
      const auto want = static_cast<std::uint32_t>(std::min<std::size_t>(queued, framer_.room()));
      const std::uint32_t got = lockedRead(scratch_.data(), want);
      if (got == 0) return framer_.cut(); // a read error: the frame is what came before it
      framer_.feed(scratch_.data(), got, Clock::now());
      continue;
    }
    const FrameVerdict verdict = framer_.poll(Clock::now());
    if (verdict != FrameVerdict::open) return verdict;
    if (!isOpen() || lost()) return framer_.cut();
    bool readable;
    {
      std::shared_lock<std::shared_mutex> lock(portLock_);
      readable = waitForInput(std::min(microsUntil(framer_.deadline()), kFrameWaitSliceUs));
    }
    if (!readable || lockedAvailable() != 0) continue;
    // Woken without input: the line hung up. The gap framing's read ends its frame
    // there; the fast framing waits out its deadline without spinning.
    if (framing == ReplyFraming::gap) return framer_.cut();
    std::this_thread::sleep_for(microseconds(250));
  }
}

void DeviceSession::reportCrcError() {
  std::string port;
  {
    std::shared_lock<std::shared_mutex> lock(portLock_);
    port = portName();
  }
  consolePrint("CRC error!\n", port);
  log_ << "CRC error!\n";
}

// Takes the frames that are arriving. A short or corrupt frame fails the request
// and ends the call; bytes after it wait in the port until a new request clears
// failed (the worker does not receive while failed is set).
void DeviceSession::receive() {
  if (lockedAvailable() == 0) return;
  for (;;) {
    const ReplyFraming framing = framing_.load();
    const FrameVerdict verdict = readFrame(framing);
    if (verdict == FrameVerdict::empty) return;
    if (verdict != FrameVerdict::good) {
      if (verdict == FrameVerdict::badCrc) reportCrcError();
      failed.exchange(true);
      busy.exchange(false);
      return;
    }
    std::memcpy(reply.data(), framer_.bytes(), framer_.size());
    replyLength = static_cast<std::uint32_t>(framer_.size());
    ticksLeft.store(0);
    busy.exchange(false);
    wake();
    // Frames that arrived together are all taken now; the last good one wins. The
    // fast framing has already waited for the line to fall quiet.
    if (framing == ReplyFraming::gap) sleepUntil(Clock::now() + milliseconds(1));
    if (lockedAvailable() == 0) return;
  }
}

// Counts the outstanding request's ticks down; a request made meanwhile re-arms the
// counter and is not touched.
void DeviceSession::timeoutStep() {
  std::uint32_t left = ticksLeft.load();
  if (left == 0) return;
  if (left % 10 == 0) wake();
  if (!ticksLeft.compare_exchange_strong(left, left - 1)) return;
  if (left - 1 == 0) {
    failed.exchange(true);
    busy.exchange(false);
    wake();
  }
}
