#pragma once
// A device identity as text, "0x%08x-%08x-%08x", and the hex words it is made of.
// The GUI shows it, the command line prints and parses it, the simulator parses it.
#include <cstdint>
#include <string>
#include <string_view>

// One to eight hex digits, nothing else (no prefix, no sign, no blanks).
bool parseHexWord(std::string_view text, std::uint32_t& out);

// "0x%08x-%08x-%08x".
std::string formatIdentity(std::uint32_t id0, std::uint32_t id1, std::uint32_t id2);
// Parses that form, also without the 0x prefix; false when it does not fit, and
// then the words are left as they were.
bool parseIdentity(std::string_view text, std::uint32_t& id0, std::uint32_t& id1, std::uint32_t& id2);
