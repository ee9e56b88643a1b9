#include "cli/PortInfo.h"

#include <windows.h>

std::string describePort(const std::string& name) {
  char target[1024];
  if (QueryDosDeviceA(name.c_str(), target, sizeof target) == 0) return std::string();
  return std::string("device ") + target;
}
