#include "cli/PortInfo.h"

#include <climits>
#include <cstdlib>
#include <unistd.h>

namespace {

std::string readLink(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t n = readlink(path.c_str(), target, sizeof target - 1);
  return n > 0 ? std::string(target, static_cast<std::size_t>(n)) : std::string();
}

std::string baseName(const std::string& path) {
  const auto slash = path.find_last_of('/');
  return slash == std::string::npos ? path : path.substr(slash + 1);
}

} // namespace

std::string describePort(const std::string& name) {
  const std::string target = readLink(name);
  if (target.rfind("/dev/pts/", 0) == 0) return "pseudo-terminal " + target + " (simulated device)";
  if (!target.empty()) return "link to " + target;
  const std::string tty = baseName(name);
  const std::string driver = baseName(readLink("/sys/class/tty/" + tty + "/device/driver"));
  return driver.empty() ? std::string("serial device") : "serial device, driver " + driver;
}
