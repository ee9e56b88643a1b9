#include "cli/PortInfo.h"

#include "serial/FileLink.h"

namespace {

std::string baseName(const std::string& path) {
  const auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace

// A link (the simulator's) is described by its target; a real device by the driver
// that sysfs names for it.
std::string describePort(const std::string& name) {
  const std::string target = readLink(name);
  if (target.rfind("/dev/pts/", 0) == 0) return "pseudo-terminal " + target + " (simulated device)";
  if (!target.empty()) return "link to " + target;
  const std::string tty = baseName(name);
  const std::string driver = baseName(readLink("/sys/class/tty/" + tty + "/device/driver"));
  return driver.empty() ? std::string("serial device") : "serial device, driver " + driver;
}
