#pragma once
// A scripted device session: records every request and reopen, and lets the test
// decide when and how each request ends.
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "device/FlashLink.h"

struct SentRequest {
  std::uint32_t id0, id1, id2;
  std::uint8_t command;
  std::uint32_t address;
  bool hasData;
  std::uint32_t length;
  std::uint32_t timeout;
};

class FakeLink : public FlashLink {
public:
  explicit FakeLink(std::string port) : portName(std::move(port)) {}
  ~FakeLink() override { ++destroyed; }

  void request(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2, std::uint8_t command, std::uint32_t address,
               const std::uint8_t* data, std::uint32_t length, std::uint32_t timeout) override {
    requests.push_back({id0, id1, id2, command, address, data != nullptr, length, timeout});
    busy = true;
    failed = false;
  }
  void reopen(std::uint8_t baudIndex, std::uint8_t, std::uint8_t) override { reopens.push_back(baudIndex); }
  bool isBusy() const override { return busy; }
  bool hasFailed() const override { return failed; }
  std::uint32_t replyWord(int i) const override { return words[i]; }

  // Ends the outstanding request with a reply carrying these id words.
  void answer(std::uint32_t w0, std::uint32_t w1 = 0, std::uint32_t w2 = 0) {
    words[0] = w0;
    words[1] = w1;
    words[2] = w2;
    busy = false;
    failed = false;
  }
  // Ends the outstanding request without a reply (time-out).
  void fail() {
    busy = false;
    failed = true;
  }

  std::string portName;
  std::vector<SentRequest> requests;
  std::vector<int> reopens;
  bool busy = false;
  bool failed = false;
  std::uint32_t words[3] = {0, 0, 0};

  static int destroyed;
  // The value of `destroyed` when the factory made its last link.
  static int destroyedAtLastCreate;
};

// The factory createSession uses in the tests; remembers the link it made last.
std::unique_ptr<FlashLink> makeFakeLink(const char* portName);
extern FakeLink* lastFakeLink;
