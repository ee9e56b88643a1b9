#pragma once
#include <string>

#include "cli/ExitCode.h"

// Reads an AELF image and prints its header fields and segments, as a table or
// as one JSON object. Returns ExitOk, or ExitFailed after the reader's message.
ExitCode printAelfInfo(const std::string& path, bool json);
