#pragma once
#include <istream>
#include <string>
#include <vector>

// The lines of a text file in order, without their line ends (a carriage return
// before the line feed is dropped too); empty lines are kept. A file that cannot
// be opened gives no lines.
std::vector<std::string> readLines(const std::string& path);

// One line from a stream without its line end or a trailing carriage return,
// so that LF and CRLF files read the same on every platform.
bool readTextLine(std::istream& in, std::string& line);
