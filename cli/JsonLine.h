#pragma once
// The one JSON writer of qmload-cli: every --json output is one object (or array)
// on one line of stdout.
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string>

// Keys keep the order in which they are set.
using Json = nlohmann::ordered_json;

// Writes value and a line end in one call (so that lines from several threads never
// mix) and flushes. Bytes that are not UTF-8 (a port name can hold any) are replaced
// rather than refused.
inline void printJsonLine(const Json& value) {
  const std::string line = value.dump(-1, ' ', false, Json::error_handler_t::replace) + "\n";
  std::fwrite(line.data(), 1, line.size(), stdout);
  std::fflush(stdout);
}
