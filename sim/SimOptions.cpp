#include "sim/SimOptions.h"

#include <CLI/CLI.hpp>

#include "base/IdentityText.h"
#include "base/Version.h"

#include <cctype>
#include <cstdlib>

namespace {

bool parseDecimal(const std::string& s, std::uint32_t& out) {
  if (s.empty() || s.size() > 10) return false;
  std::uint64_t v = 0;
  for (char c : s) {
    if (!std::isdigit(static_cast<unsigned char>(c))) return false;
    v = v * 10 + static_cast<std::uint64_t>(c - '0');
  }
  if (v > 0xFFFFFFFFu) return false;
  out = static_cast<std::uint32_t>(v);
  return true;
}

} // namespace

bool parsePair(const std::string& text, std::uint32_t& a, std::uint32_t& b, bool allowSingle) {
  const auto colon = text.find(':');
  if (colon == std::string::npos) return allowSingle && parseDecimal(text, a);
  std::uint32_t x = 0, y = 0;
  if (!parseDecimal(text.substr(0, colon), x) || !parseDecimal(text.substr(colon + 1), y)) return false;
  a = x;
  b = y;
  return true;
}

bool parseSimOptions(int argc, const char* const* argv, SimOptions& out, int& exitCode) {
  CLI::App app{"qmload-sim: a simulated device on a pseudo-terminal.\n"
               "Prints \"READY <port>\" when it listens; SIGTERM or SIGINT end it."};
  std::string id, late, garbage, stall;
  app.add_option("--link", out.link, "Symlink to create to the pty (removed at exit)");
  app.add_option("--baud", out.baud, "The device's own baud rate")->check(CLI::Range(1u, 4000000u));
  app.add_option("--id", id, "Identity, 0xAAAAAAAA-BBBBBBBB-CCCCCCCC");
  app.add_option("--dump", out.dump, "Write the 256 KiB flash here after each finish and at exit");
  app.add_option("--write-ms", out.writeMs, "Time the device spends on each write-block")
      ->check(CLI::Range(0u, 60000u));
  app.add_option("--drop-reply", out.faults.dropReply, "Do not send the Nth reply");
  app.add_option("--drop-every", out.faults.dropEvery, "Do not send every Kth reply");
  app.add_option("--corrupt-reply", out.faults.corruptReply, "Send the Nth reply with a bad CRC");
  app.add_option("--late-reply", late, "N:MS - send the Nth reply MS milliseconds late");
  app.add_option("--silent-after-writes", out.faults.silentAfterWrites, "After N write-blocks, ignore every request");
  app.add_option("--garbage", garbage, "N[:R] - send N garbage bytes right before reply R (default 1)");
  app.add_option("--erase-ms", out.eraseMs, "Extra time the answer to start takes (the erase)")
      ->check(CLI::Range(0u, 600000u));
  app.add_option("--latency-ms", out.latencyMs, "Hold short replies until the next tick of this timer (a USB adapter)")
      ->check(CLI::Range(0u, 1000u));
  app.add_option("--hangup-after", out.faults.hangupAfter, "Close the pty's device side once reply N is out");
  app.add_option("--vanish-after", out.faults.vanishAfter, "Remove the pty and the link once reply N is out");
  app.add_option("--stall-ms", stall, "N:MS - stop reading the line for MS once request N is handled");
  app.add_flag("--verbose", out.verbose, "Log each request and reply on stderr");
  app.set_version_flag("--version", "qmload-sim " QMLOAD_VERSION);

  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    exitCode = app.exit(e);
    return false;
  }
  if (!id.empty() && !parseIdentity(id, out.identity.id0, out.identity.id1, out.identity.id2)) {
    std::fprintf(stderr, "--id: expected 0xAAAAAAAA-BBBBBBBB-CCCCCCCC, got '%s'\n", id.c_str());
    exitCode = 2;
    return false;
  }
  if (!late.empty() && (!parsePair(late, out.faults.lateReply, out.faults.lateMs, false))) {
    std::fprintf(stderr, "--late-reply: expected N:MS, got '%s'\n", late.c_str());
    exitCode = 2;
    return false;
  }
  if (!garbage.empty() && (!parsePair(garbage, out.faults.garbageBytes, out.faults.garbageBefore, true) ||
                           out.faults.garbageBytes > 65536)) {
    std::fprintf(stderr, "--garbage: expected N[:R] with N up to 65536, got '%s'\n", garbage.c_str());
    exitCode = 2;
    return false;
  }
  if (!stall.empty() && !parsePair(stall, out.faults.stallAfter, out.faults.stallMs, false)) {
    std::fprintf(stderr, "--stall-ms: expected N:MS, got '%s'\n", stall.c_str());
    exitCode = 2;
    return false;
  }
  exitCode = 0;
  return true;
}
