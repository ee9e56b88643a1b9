#pragma once
// The simulated device: its identity, its flash and its line speed, and what it
// does with one request frame. Pure logic, no I/O: the pty front end feeds it
// frames and writes out the replies it returns.
#include <cstddef>
#include <cstdint>
#include <vector>

struct DeviceIdentity {
  std::uint32_t id0 = 0x00c0ffee;
  std::uint32_t id1 = 0x12345678;
  std::uint32_t id2 = 0x9abcdef0;
};

constexpr std::uint32_t kFlashBase = 0x08000000;
constexpr std::uint32_t kFlashSize = 256 * 1024;
constexpr std::uint32_t kBootloaderSize = 16 * 1024;

// What the device makes of one request.
struct DeviceAnswer {
  bool answered = false;           // false: the request was not for this device
  std::vector<std::uint8_t> reply; // the reply frame, CRC included
  std::uint8_t command = 0;
  std::uint32_t nextBaud = 0; // baud rate to switch to once the reply is out; 0 = stay
  bool finished = false;      // command 18 completed an image
};

class DeviceModel {
public:
  explicit DeviceModel(DeviceIdentity identity = {}, std::uint32_t ownBaud = 115200);

  // Handles one complete request frame (n bytes, CRC included and already checked
  // by the caller or not: a bad CRC is not answered). Changes flash as the command
  // says. The baud switch is left to the caller (applyBaud), so that a reply that
  // never reaches the wire does not move the device to another speed.
  DeviceAnswer handle(const std::uint8_t* frame, std::size_t n);

  void applyBaud(std::uint32_t baud) { currentBaud_ = baud; }
  std::uint32_t currentBaud() const { return currentBaud_; }
  std::uint32_t ownBaud() const { return ownBaud_; }

  // The whole flash as the device holds it, from kFlashBase, kFlashSize bytes.
  const std::vector<std::uint8_t>& flash() const { return flash_; }

  // True when every byte of [address, address + size) is writable flash.
  static bool writable(std::uint32_t address, std::uint32_t size);

private:
  void eraseWritable();
  void writeBlock(std::uint32_t address, const std::uint8_t* data, std::uint32_t size);

  DeviceIdentity identity_;
  std::uint32_t ownBaud_;
  std::uint32_t currentBaud_;
  std::vector<std::uint8_t> flash_;
};
