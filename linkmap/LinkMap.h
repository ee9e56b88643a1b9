#pragma once
// The link map of the base firmware as a table from symbol name to address text.
// Symbol lines hold "0x80" and write addresses with an apostrophe between the
// digit groups ("0x800'4000"); a name too long for its column stands on its own
// line and the next, blank-led line carries its address.
#include <istream>
#include <map>
#include <string>

using LinkMap = std::map<std::string, std::string>;

// Reads every line of `in` into `table` (last one wins for a repeated name).
void readLinkMap(std::istream& in, LinkMap& table);

// The address text of a symbol line: "0x" + high group + low group, widened to
// at least 9 characters by zeros after the third digit.
std::string linkMapAddress(const std::string& line);
