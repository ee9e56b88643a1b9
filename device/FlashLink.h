#pragma once
// What the flash sequencer needs of a device session: send one request, move the
// line to another baud rate, and read the outcome of the last request. The real
// DeviceSession implements it; unit tests use a scripted double.
#include <cstdint>

class FlashLink {
public:
  virtual ~FlashLink() = default;
  // Starts one request; the outcome arrives later through isBusy/hasFailed.
  virtual void request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command,
                       std::uint32_t address, const std::uint8_t* data, std::uint32_t length,
                       std::uint32_t timeout) = 0;
  // Reopens the line with the session's baud/parity/stop-bit table entries.
  virtual void reopen(std::uint8_t baudIndex, std::uint8_t parityIndex, std::uint8_t stopIndex) = 0;
  // Brings the outcome of the last request up to date. The sequencer calls it once
  // per step before it reads isBusy/hasFailed: a link that has to judge a reply, or
  // wait for the line, does it here and not in those queries.
  virtual void update() {}
  virtual bool isBusy() const = 0;
  virtual bool hasFailed() const = 0;
  // The last request could not be written: busy and failed both set by request
  // itself. Read as a failed request, never as one still outstanding.
  virtual bool requestUnwritten() const { return isBusy() && hasFailed(); }
  // The line was lost (hang-up, unplug) during this session.
  virtual bool lineLost() const { return false; }
  // The id field i (0..2) of the last accepted reply; read only after a request ended
  // without failure.
  virtual std::uint32_t replyWord(int i) const = 0;
};
