#pragma once
// The command line of qmload-sim.
#include "sim/DeviceModel.h"
#include "sim/Faults.h"

#include <cstdint>
#include <string>

struct SimOptions {
  std::string link; // symlink to create to the pty's slave; empty: none
  std::uint32_t baud = 115200;
  DeviceIdentity identity;
  std::string dump; // file to write the flash to; empty: none
  std::uint32_t writeMs = 1;
  std::uint32_t eraseMs = 0;   // extra time the answer to start takes (an erase)
  std::uint32_t latencyMs = 0; // an adapter's latency timer: short replies wait for its next tick
  FaultPlan faults;
  bool verbose = false;
};

// "A:B" with two decimal numbers; with allowSingle, a lone "A" leaves b as it was.
bool parsePair(const std::string& text, std::uint32_t& a, std::uint32_t& b, bool allowSingle);

// Parses argv. Returns true to run; false to exit at once with exitCode
// (0 after --help, non-zero after an error, which has been printed).
bool parseSimOptions(int argc, const char* const* argv, SimOptions& out, int& exitCode);
