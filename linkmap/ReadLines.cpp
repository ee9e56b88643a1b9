#include "linkmap/ReadLines.h"

#include <fstream>

bool readTextLine(std::istream& in, std::string& line) {
  if (!std::getline(in, line)) return false;
  if (!line.empty() && line.back() == '\r') line.pop_back();
  return true;
}

std::vector<std::string> readLines(const std::string& path) {
  std::vector<std::string> lines;
  std::ifstream in(path);
  if (!in.is_open()) return lines;
  std::string line;
  while (readTextLine(in, line)) lines.push_back(line);
  return lines;
}
