#pragma once
// Helpers shared by the fuzz targets: a private scratch folder for the files a
// target must hand to a path-taking reader, and a quiet standard output (the
// readers print their diagnostics there, which would only slow the fuzzer down).
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

// The scratch folder of this process, created on first use.
const std::string& fuzzScratchDir();
// Writes bytes to <scratch>/<name> and returns the full path.
std::string fuzzWriteFile(const std::string& name, const uint8_t* data, std::size_t size);
// Reads a whole file; empty when it cannot be opened.
std::vector<uint8_t> fuzzReadFile(const std::string& path);
bool fuzzFileExists(const std::string& path);
// Sends standard output to /dev/null (standard error, where libFuzzer reports, stays).
void fuzzQuietStdout();

// Splits the input at a one-byte separator into at most `parts` pieces; missing
// pieces are empty. Lets one input carry several files.
std::vector<std::string> fuzzSplit(const uint8_t* data, std::size_t size, char separator, std::size_t parts);
