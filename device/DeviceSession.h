#pragma once
// An open serial port plus a worker thread that picks up reply frames and runs
// request time-outs. The owner's thread sends requests and watches busy/failed:
//
//   busy  failed
//   true  false   request outstanding
//   false false   reply accepted (reply/replyLength hold it)
//   false true    timed out, short frame, CRC error or refused request
//   true  true    the write failed; nothing more happens until the next request
//
// The owner reads the last pair as a failed request (requestUnwritten): the session
// wakes it once the request's time-out (at least kUnwrittenWakeTicks) has passed, so
// a screen goes on retrying at the pace of a silent device, never faster.
//
// A lost line (hang-up, unplug) is reported once by the serial layer; the worker
// then closes the port and ends the outstanding request as failed.
//
// The reply is published through busy/failed: read it only after seeing busy false
// and failed false. The port is guarded by a lock so that reopen never overlaps a
// read of the worker.
#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <shared_mutex>
#include <sstream>
#include <thread>

#include "device/FlashLink.h"
#include "device/Frame.h"
#include "device/ReplyFramer.h"
#include "serial/SerialPort.h"

class DeviceSession : public SerialPort, public FlashLink {
public:
  // reopen's baud index is an index of kLadderBauds (base/Wire.h).
  static constexpr int kParityCount = 3;
  static constexpr int kStopCount = 2;
  static const std::uint32_t kParityTable[kParityCount]; // none, even, odd
  static const std::uint32_t kStopTable[kStopCount];     // one, two

  // When the worker first polls a port the constructor opened.
  enum class FirstPoll {
    afterOneSecond, // the screen's session: the worker's first pass sleeps a second
    atOnce,         // as soon as the port is open (and after each reopen that opens it)
  };

  // Starts the worker, then opens portName (may be null: the port stays closed) at
  // 9600 baud 8N1. A port that will not open sets failed.
  explicit DeviceSession(const char* portName, FirstPoll firstPoll = FirstPoll::afterOneSecond);
  // Stops and joins the worker, which closes the port.
  ~DeviceSession() override;

  // Sends one request frame; the outcome arrives through busy/failed. timeout is in
  // worker ticks (about 1 ms each). Data that would not fit a frame is refused.
  void request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command, std::uint32_t address,
               const std::uint8_t* data, std::uint32_t length, std::uint32_t timeout) override;
  // Reopens the port with entries of the baud, parity and stop-bit tables, 8 data
  // bits. Fails (failed set) when the open fails or an index is out of range.
  void reopen(std::uint8_t baudIndex, std::uint8_t parityIndex, std::uint8_t stopIndex) override;

  bool isBusy() const override { return busy.load(); }
  bool hasFailed() const override { return failed.load(); }
  // True once an unwritten request's wait has passed (its busy and failed are set at once).
  bool requestUnwritten() const override { return unwritten_.load() && unwrittenWake_.load() == 0; }
  bool lineLost() const override { return lineLost_.load(); }

  // The shortest wait, in ticks, before the owner is woken after a request that
  // could not be written.
  static constexpr std::uint32_t kUnwrittenWakeTicks = 100;
  // Id word i (0..2) of the last accepted reply, little-endian at offsets 1, 5, 9.
  std::uint32_t replyWord(int i) const override;

  // Called from the worker whenever the owner should look at the flags again (a reply,
  // a time-out, and every 10 ticks while a time-out runs). Callable at any time.
  void setWakeCallback(std::function<void()> wake);
  void setFraming(ReplyFraming framing) { framing_.store(framing); }
  ReplyFraming framing() const { return framing_.load(); }
  // The baud rate the line was last opened with.
  std::uint32_t lineBaud() const { return lineBaud_.load(); }

  std::atomic<bool> stop{false};
  std::atomic<std::uint32_t> ticksLeft{0};
  std::atomic<bool> busy{false};
  std::atomic<bool> failed{false};
  std::uint32_t replyLength = 0;
  std::array<std::uint8_t, kFrameMax> reply{};

private:
  void workerLoop();
  void sleepClosed();
  void receiveUntil(std::chrono::steady_clock::time_point tickEnd);
  void receive();
  void timeoutStep();
  bool unwrittenWakeStep();
  void closeLostLine();
  FrameVerdict readFrame(ReplyFraming framing);
  void reportCrcError();
  std::uint32_t lockedAvailable();
  std::uint32_t lockedRead(std::uint8_t* buffer, std::uint32_t size);
  void wake();

  std::shared_mutex portLock_; // shared: read/write/available; exclusive: open/close
  std::mutex stopMutex_;
  std::condition_variable stopCv_; // wakes a worker asleep on a closed port
  const FirstPoll firstPoll_;
  bool constructed_ = false; // under stopMutex_: the constructor has tried to open the port
  std::mutex wakeMutex_;
  std::function<void()> wake_;
  std::atomic<ReplyFraming> framing_{ReplyFraming::gap};
  std::atomic<std::uint32_t> lineBaud_{9600};
  std::atomic<bool> unwritten_{false};
  std::atomic<std::uint32_t> unwrittenWake_{0}; // ticks until the owner is woken
  std::atomic<bool> lineLost_{false};
  std::stringstream log_;
  std::array<std::uint8_t, kFrameMax> request_{};
  std::array<std::uint8_t, kFrameMax> scratch_{};
  ReplyFramer framer_; // the worker's alone
  std::thread worker_;
};
