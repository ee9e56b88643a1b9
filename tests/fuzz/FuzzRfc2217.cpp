// The receive path of a remote port: the Telnet / RFC 2217 engine fed whatever a
// server might send (garbage, truncated or endless subnegotiations, runs of IAC,
// options never asked for), once whole and once in pieces. No socket: the engine
// is pure, and nothing here listens or connects.
//
// Both feeds must give the same data, answers and events; the output never
// outgrows the input (bounded memory); answers are well-formed option replies; and
// nonsense is reported once, with a reason, after which nothing more is taken.
//
// Input: byte 0 sets the piece length (1..64) of the second feed; the rest is the
// server's stream.
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "serial/Rfc2217Protocol.h"

using namespace rfc2217;

namespace {

void fail(const char* what) {
  std::fprintf(stderr, "rfc2217: %s\n", what);
  std::abort();
}

struct Outcome {
  std::vector<std::uint8_t> data, replies;
  std::string events;
  bool broken = false;
};

Outcome run(const std::uint8_t* in, std::size_t n, std::size_t piece) {
  Protocol p;
  p.greeting();
  Outcome o;
  std::size_t nonsense = 0;
  for (std::size_t at = 0; at < n; at += piece) {
    p.feed(in + at, std::min(piece, n - at), o.data);
    const std::vector<std::uint8_t> r = p.takeReplies();
    o.replies.insert(o.replies.end(), r.begin(), r.end());
    for (const Event& e : p.takeEvents()) {
      if (e.kind == Event::Kind::nonsense) {
        ++nonsense;
        if (e.text.empty()) fail("nonsense without a reason");
      }
      if (e.at > o.data.size()) fail("event placed after the data");
      o.events += std::to_string(static_cast<int>(e.kind)) + ":" + std::to_string(static_cast<int>(e.command)) + ":" +
                  std::to_string(e.value) + ":" + std::to_string(e.at) + ":" + e.text + ";";
    }
  }
  o.broken = p.broken();
  if (nonsense > 1 || (nonsense == 1) != o.broken) fail("nonsense not reported exactly once");
  if (o.data.size() > n || o.replies.size() > n) fail("output outgrew the input");
  if (o.replies.size() % 3 != 0) fail("a reply is not three bytes");
  for (std::size_t i = 0; i < o.replies.size(); i += 3)
    if (o.replies[i] != kIac || o.replies[i + 1] < kWill || o.replies[i + 1] > kDont) fail("malformed reply");
  return o;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  if (size < 1) return 0;
  const std::size_t piece = (data[0] & 63u) + 1u;
  const Outcome whole = run(data + 1, size - 1, size);
  const Outcome pieces = run(data + 1, size - 1, piece);
  if (whole.data != pieces.data || whole.replies != pieces.replies || whole.events != pieces.events ||
      whole.broken != pieces.broken)
    fail("the split of the stream changed the outcome");
  return 0;
}
