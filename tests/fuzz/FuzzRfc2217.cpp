// The receive path of a remote port: the Telnet / RFC 2217 engine (pure, no socket)
// fed a server's stream once whole and once in pieces of 1..64 bytes (input byte 0).
#include "serial/Rfc2217Protocol.h"
#include "tests/fuzz/FuzzSupport.h"

#include <algorithm>

using namespace rfc2217;

namespace {

// Everything the engine gave: data, answers, events, broken or not.
std::string run(const uint8_t* in, std::size_t n, std::size_t piece) {
  Protocol p;
  p.greeting();
  std::vector<uint8_t> data, replies;
  std::string events;
  std::size_t nonsense = 0;
  for (std::size_t at = 0; at < n; at += piece) {
    p.feed(in + at, std::min(piece, n - at), data);
    const std::vector<uint8_t> r = p.takeReplies();
    replies.insert(replies.end(), r.begin(), r.end());
    for (const Event& e : p.takeEvents()) {
      nonsense += e.kind == Event::Kind::nonsense;
      fuzzCheck(e.at <= data.size() && (e.kind != Event::Kind::nonsense || !e.text.empty()),
                "event placed after the data, or nonsense without a reason");
      events += std::to_string(int(e.kind)) + ":" + std::to_string(int(e.command)) + ":" + std::to_string(e.value) +
                ":" + std::to_string(e.at) + ":" + e.text + ";";
    }
  }
  fuzzCheck(nonsense <= 1 && (nonsense == 1) == p.broken(), "nonsense not reported exactly once");
  fuzzCheck(data.size() <= n && replies.size() <= n && replies.size() % 3 == 0, "output outgrew the input, or torn");
  for (std::size_t i = 0; i < replies.size(); i += 3)
    fuzzCheck(replies[i] == kIac && replies[i + 1] >= kWill && replies[i + 1] <= kDont, "malformed reply");
  return std::to_string(data.size()) + ":" + std::to_string(replies.size()) + ":" + events + (p.broken() ? "!" : "") +
         std::string(data.begin(), data.end()) + std::string(replies.begin(), replies.end());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  fuzzCheck(run(data + 1, size - 1, size) == run(data + 1, size - 1, (data[0] & 63u) + 1u),
            "the split of the stream changed the outcome");
  return 0;
}
