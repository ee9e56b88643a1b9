#pragma once
// One device on one port: open a session, find the device (or address a given
// identity), and optionally flash an image into it, reporting as it goes.
#include <atomic>
#include <cstdint>
#include <string>

#include "cli/ExitCode.h"
#include "device/DeviceSession.h"
#include "device/FlashSequencer.h"
#include "image/AelfImage.h"

struct DeviceJob {
  std::string port;
  int baudIndex = -1;  // -1: the discovery ladder
  bool haveId = false; // address this identity instead of the one that answers
  std::uint32_t id[3] = {0, 0, 0};
  ReplyFraming framing = ReplyFraming::fast;
  const AelfImage* image = nullptr; // null: identify only
  const std::atomic<bool>* cancel = nullptr;
  std::uint32_t eraseTimeoutMs = kDefaultEraseSeconds * 1000; // how long Start's answer may take
};

// What a job reports while it runs; called from the job's thread.
class JobReporter {
public:
  virtual ~JobReporter() = default;
  virtual void found(const std::string& port, const std::string& identity, std::uint32_t baud) = 0;
  virtual void progress(const std::string& port, std::uint64_t done, std::uint64_t total) = 0;
  // Start was sent: the device erases before it answers.
  virtual void erasing(const std::string& port) = 0;
};

struct JobResult {
  ExitCode exitCode = ExitFailed; // ExitOk, ExitFailed or ExitInterrupted
  std::string message;            // why it failed
  std::string identity;           // "0x%08x-%08x-%08x" of the device found or addressed
  std::uint32_t baud = 0;         // where the device answered
  double seconds = 0;             // of the flash proper (Start to Finish answered)
  std::uint64_t bytes = 0;
  std::uint32_t strayReplies = 0;
};

JobResult runDeviceJob(const DeviceJob& job, JobReporter& reporter);
