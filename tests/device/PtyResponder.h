#pragma once
// A small device on the master side of a pseudo-terminal: it gathers request frames,
// ignores those sent at another baud rate than its own (noise to a real device), and
// answers the others according to its mode.
#include <atomic>
#include <chrono>
#include <mutex>
#include <thread>
#include <vector>

#include "device/Frame.h"
#include "tests/serial/PtyPair.h"

class PtyResponder {
public:
  enum class Mode {
    answer,   // a good reply: the request echoed with frameType 1 and our identity
    silent,   // no reply
    corrupt,  // a reply with a broken CRC
    twoBytes, // two stray bytes
  };

  PtyResponder(PtyPair& pty, std::uint32_t baud) : baud(baud), pty_(pty) {
    thread_ = std::thread([this] { run(); });
  }
  ~PtyResponder() {
    stop_.store(true);
    thread_.join();
  }

  std::vector<std::vector<std::uint8_t>> requests() {
    std::lock_guard<std::mutex> lock(mutex_);
    return requests_;
  }

  std::atomic<Mode> mode{Mode::answer};
  std::atomic<std::uint32_t> baud;
  std::atomic<int> ignored{0};
  std::uint32_t id[3] = {0x00c0ffee, 0x12345678, 0x9abcdef0};

private:
  void run() {
    std::vector<std::uint8_t> pending;
    while (!stop_.load()) {
      pollfd p{pty_.master(), POLLIN, 0};
      const int ready = ::poll(&p, 1, 20);
      if (ready <= 0 || (p.revents & POLLIN) == 0) {
        pending.clear(); // a pause ends whatever was not a frame
        continue;
      }
      std::uint8_t buf[512];
      const ssize_t n = ::read(pty_.master(), buf, sizeof buf);
      if (n <= 0) continue;
      pending.insert(pending.end(), buf, buf + n);
      if (pending.size() >= kFrameHeader + 2 && frameCrcOk(pending.data(), pending.size())) {
        handle(pending);
        pending.clear();
      } else if (pending.size() > kFrameMax) {
        pending.clear();
      }
    }
  }

  void handle(const std::vector<std::uint8_t>& request) {
    if (pty_.hostBaud() != baud.load()) {
      ++ignored;
      return;
    }
    {
      std::lock_guard<std::mutex> lock(mutex_);
      requests_.push_back(request);
    }
    const FrameFields asked = decodeFields(request.data());
    FrameFields fields;
    fields.frameType = 1;
    fields.id0 = id[0];
    fields.id1 = id[1];
    fields.id2 = id[2];
    fields.command = asked.command;
    fields.address = asked.address;
    fields.length = asked.length;
    std::vector<std::uint8_t> reply(kFrameMax);
    reply.resize(encodeFrame(reply.data(), fields, nullptr));
    switch (mode.load()) {
    case Mode::answer: pty_.send(reply); break;
    case Mode::silent: break;
    case Mode::corrupt:
      reply.back() ^= 0x5A;
      pty_.send(reply);
      break;
    case Mode::twoBytes: pty_.send(std::vector<std::uint8_t>{0x01, 0x02}); break;
    }
  }

  PtyPair& pty_;
  std::atomic<bool> stop_{false};
  std::mutex mutex_;
  std::vector<std::vector<std::uint8_t>> requests_;
  std::thread thread_;
};
