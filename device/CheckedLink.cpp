#include "device/CheckedLink.h"

#include <chrono>
#include <thread>

#include "device/Frame.h"

void CheckedLink::request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command,
                          std::uint32_t address, const std::uint8_t* data, std::uint32_t length,
                          std::uint32_t timeout) {
  command_ = command;
  address_ = address;
  judged_ = false;
  stray_ = false;
  session_.request(id0, id1, id2, command, address, data, length, timeout);
}

void CheckedLink::reopen(std::uint8_t baudIndex, std::uint8_t parityIndex, std::uint8_t stopIndex) {
  session_.reopen(baudIndex, parityIndex, stopIndex);
}

void CheckedLink::update() {
  if (judged_ || session_.isBusy() || session_.hasFailed()) return;
  judged_ = true;
  const auto& r = session_.reply;
  stray_ = !(session_.replyLength >= kFrameHeader + 2 && r[kOffCommand] == command_ &&
             readLe32(r.data() + kOffAddress) == address_);
  if (!stray_) return;
  ++strays_;
  // Let the real answer arrive (it ends a frame within the framing's gap), then drop
  // whatever is queued.
  const auto settle =
      session_.framing() == ReplyFraming::gap ? std::chrono::milliseconds(250) : std::chrono::milliseconds(30);
  std::this_thread::sleep_for(settle);
  session_.purge();
}
