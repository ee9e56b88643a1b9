#pragma once
// Finds the program's start and end and the five symbols of the AELF header in
// the firmware's link map. Lines of interest begin with the first ".text" line
// and end at the first ".bss" line; the address of a line is the text at its
// first '8' (at most 7 characters, the leading digit of 0x08xxxxxx).
#include <cstdint>
#include <string>

// Writes entry, loop, the three table addresses, exeAddr and exeSize into the
// 64-byte `header`. True when all were found; false after a printed failure.
bool readMapSymbols(const std::string& mapPath, uint8_t* header);
