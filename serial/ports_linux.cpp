// Serial ports on Linux: the real serial devices that sysfs lists, then the links
// the device simulator leaves in its folder ($QMLOAD_SIM_DIR, default /tmp/qmload-sim).
#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <fstream>

#include "serial/FileLink.h"
#include "serial/PortSystem.h"

namespace {

std::vector<std::string> entriesOf(const std::string& dir) {
  std::vector<std::string> names;
  if (DIR* d = opendir(dir.c_str())) {
    while (const dirent* e = readdir(d)) {
      const std::string name = e->d_name;
      if (name != "." && name != "..") names.push_back(name);
    }
    closedir(d);
  }
  std::sort(names.begin(), names.end());
  return names;
}

bool exists(const std::string& path) { return access(path.c_str(), F_OK) == 0; }

// A tty with a device behind it is a serial port, except the legacy 8250 slots that
// have no UART (their "type" reads 0, the kernel's PORT_UNKNOWN).
bool isRealSerial(const std::string& ttyDir) {
  if (!exists(ttyDir + "/device")) return false;
  std::ifstream typeFile(ttyDir + "/type");
  int type = -1;
  if (typeFile >> type) return type != 0;
  return true;
}

} // namespace

std::string readLink(const std::string& path) {
  char target[PATH_MAX];
  const ssize_t n = readlink(path.c_str(), target, sizeof target);
  return n > 0 ? std::string(target, static_cast<std::size_t>(n)) : std::string();
}

namespace portsys {

PortScan scanPorts() {
  PortScan scan;
  const std::string sysTty = "/sys/class/tty";
  for (const auto& name : entriesOf(sysTty)) {
    if (isRealSerial(sysTty + "/" + name) && exists("/dev/" + name)) scan.names.push_back("/dev/" + name);
  }
  const char* env = std::getenv("QMLOAD_SIM_DIR");
  const std::string simDir = env != nullptr && *env != '\0' ? env : "/tmp/qmload-sim";
  for (const auto& name : entriesOf(simDir)) {
    const std::string path = simDir + "/" + name;
    const std::string target = readLink(path);
    if (target.rfind("/dev/pts/", 0) == 0 && exists(target)) scan.names.push_back(path);
  }
  for (const auto& name : scan.names) scan.scanned += static_cast<std::uint32_t>(name.size() + 1);
  return scan;
}

} // namespace portsys
