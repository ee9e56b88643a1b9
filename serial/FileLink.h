#pragma once
// Symbolic links as the serial layer meets them on Linux: the simulator's port
// links and the driver links of sysfs. Defined with the Linux port scan.
#include <string>

// The target of the link at path as stored in it, "" when path is not a link.
std::string readLink(const std::string& path);
