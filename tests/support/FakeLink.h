#pragma once
// The one scripted link of the tests: records every request and reopen; the test ends each request.
#include <cstdint>
#include <string>
#include <vector>

#include "device/FlashLink.h"
#include "device/Frame.h"

// A request's fields, its time-out and the bytes sent (when hasData).
struct SentRequest : FrameFields {
  bool hasData;
  std::uint32_t timeout;
  std::vector<std::uint8_t> data;
};

class FakeLink : public FlashLink {
public:
  explicit FakeLink(std::string port = "") : portName(std::move(port)) {}
  ~FakeLink() override { ++destroyed; }
  void request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command, std::uint32_t address,
               const std::uint8_t* bytes, std::uint32_t length, std::uint32_t timeout) override {
    requests.push_back({{0, id0, id1, id2, command, address, length}, bytes != nullptr, timeout, {}});
    if (bytes) requests.back().data.assign(bytes, bytes + length);
    busy = true;
    failed = writeFails; // both set: the request could not be written
  }
  void reopen(std::uint8_t baudIndex, std::uint8_t, std::uint8_t) override { reopens.push_back(baudIndex); }
  bool isBusy() const override { return busy; }
  bool hasFailed() const override { return failed; }
  bool lineLost() const override { return lost; }
  std::uint32_t replyWord(int i) const override { return words[i]; }
  // Ends the outstanding request with a reply carrying these id words, or without one (time-out).
  void answer(std::uint32_t w0, std::uint32_t w1 = 0, std::uint32_t w2 = 0) {
    words[0] = w0, words[1] = w1, words[2] = w2, busy = failed = false;
  }
  void fail() { busy = false, failed = true; }
  const SentRequest& last() const { return requests.back(); }

  std::string portName;
  std::vector<SentRequest> requests;
  std::vector<int> reopens;
  bool busy = false, failed = false;
  bool writeFails = false; // every request from now on cannot be written
  bool lost = false;       // the line reports itself lost
  std::uint32_t words[3] = {0, 0, 0};
  // Links destroyed so far, and that count when a factory made its last link.
  inline static int destroyed = 0, destroyedAtLastCreate = 0;
};
