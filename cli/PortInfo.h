#pragma once
// What the platform knows of a serial port, in a few words ("" when nothing).
#include <string>

std::string describePort(const std::string& name);
