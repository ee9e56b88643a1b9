#pragma once
// The session as the command line drives it: a reply is taken as the answer only
// when it echoes the command and address of the request. The device session accepts
// any frame with a good CRC, so a reply that arrives after its request timed out
// would otherwise answer the next request, and every later reply would be one behind.
#include <cstdint>

#include "device/DeviceSession.h"
#include "device/FlashLink.h"

class CheckedLink : public FlashLink {
public:
  explicit CheckedLink(DeviceSession& session) : session_(session) {}

  void request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command, std::uint32_t address,
               const std::uint8_t* data, std::uint32_t length, std::uint32_t timeout) override;
  void reopen(std::uint8_t baudIndex, std::uint8_t parityIndex, std::uint8_t stopIndex) override;
  // Judges a reply the session has accepted. A stray reply counts as a failure of
  // the request; before that is reported, the line is given time to deliver the real
  // reply, which is then dropped, so that the repeated request gets exactly one
  // answer again.
  void update() override;
  // A reply that update has not judged yet keeps the link busy.
  bool isBusy() const override { return session_.isBusy() || (!judged_ && !session_.hasFailed()); }
  bool hasFailed() const override { return session_.hasFailed() || stray_; }
  std::uint32_t replyWord(int i) const override { return session_.replyWord(i); }
  bool requestUnwritten() const override { return session_.requestUnwritten(); }
  bool lineLost() const override { return session_.lineLost(); }

  // Replies that did not echo their request, since construction.
  std::uint32_t strayReplies() const { return strays_; }

private:
  DeviceSession& session_;
  std::uint8_t command_ = 0;
  std::uint32_t address_ = 0;
  bool judged_ = true; // nothing to judge before the first request
  bool stray_ = false;
  std::uint32_t strays_ = 0;
};
