#pragma once
#include <string>

// Reads an AELF image and prints its header fields and segments, as a table or
// as one JSON object. Returns the exit code: 0, or 1 after the reader's message.
int printAelfInfo(const std::string& path, bool json);
