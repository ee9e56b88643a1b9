// The link-map reader on arbitrary text. Besides memory errors it checks what must
// hold for any map: every address taken begins with "0x" and is widened to at
// least 9 characters, and a map reads the same with LF and with CRLF line ends.
#include "linkmap/LinkMap.h"
#include "tests/fuzz/FuzzSupport.h"

#include <cstdio>
#include <cstdlib>
#include <sstream>
#include <string>

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  fuzzQuietStdout();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(data), size);

  LinkMap table;
  std::istringstream in(text);
  readLinkMap(in, table);
  for (const auto& [name, address] : table) {
    if (address.size() < 9 || address.compare(0, 2, "0x") != 0) {
      std::fprintf(stderr, "bad address text '%s' for '%s'\n", address.c_str(), name.c_str());
      std::abort();
    }
    if (name.find('\n') != std::string::npos) std::abort();
  }

  // The same map with CRLF line ends gives the same table. Only meaningful when
  // the text has no carriage returns of its own.
  if (text.find('\r') == std::string::npos) {
    std::string crlf;
    for (char c : text) {
      if (c == '\n') crlf += '\r';
      crlf += c;
    }
    LinkMap other;
    std::istringstream in2(crlf);
    readLinkMap(in2, other);
    if (other != table) {
      std::fprintf(stderr, "CRLF map reads differently\n");
      std::abort();
    }
  }

  // The address helper alone, on the first line.
  const std::string first = text.substr(0, text.find('\n'));
  if (first.find("0x") != std::string::npos) {
    const std::string address = linkMapAddress(first);
    if (address.size() < 9 || address.compare(0, 2, "0x") != 0) std::abort();
  }
  return 0;
}
