#pragma once
// The one scripted link of the tests: records every request and reopen, and lets
// the test decide when and how each request ends.
#include <cstdint>
#include <string>
#include <vector>

#include "device/FlashLink.h"

struct SentRequest {
  std::uint32_t id0, id1, id2;
  std::uint8_t command;
  std::uint32_t address;
  bool hasData;
  std::uint32_t length, timeout;
  std::vector<std::uint8_t> data; // the bytes sent, when hasData
};

class FakeLink : public FlashLink {
public:
  explicit FakeLink(std::string port = "") : portName(std::move(port)) {}
  ~FakeLink() override { ++destroyed; }

  void request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command, std::uint32_t address,
               const std::uint8_t* bytes, std::uint32_t length, std::uint32_t timeout) override {
    requests.push_back({id0, id1, id2, command, address, bytes != nullptr, length, timeout, {}});
    if (bytes) requests.back().data.assign(bytes, bytes + length);
    busy = true;
    failed = writeFails; // busy and failed both set: the request could not be written
  }
  void reopen(std::uint8_t baudIndex, std::uint8_t, std::uint8_t) override { reopens.push_back(baudIndex); }
  bool isBusy() const override { return busy; }
  bool hasFailed() const override { return failed; }
  bool lineLost() const override { return lost; }
  std::uint32_t replyWord(int i) const override { return words[i]; }

  // Ends the outstanding request with a reply carrying these id words.
  void answer(std::uint32_t w0, std::uint32_t w1 = 0, std::uint32_t w2 = 0) {
    words[0] = w0, words[1] = w1, words[2] = w2;
    busy = failed = false;
  }
  // Ends the outstanding request without a reply (time-out).
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
  inline static int destroyed = 0;
  inline static int destroyedAtLastCreate = 0;
};
