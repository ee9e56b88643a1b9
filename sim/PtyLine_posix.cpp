#include "sim/PtyLine.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <limits.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

// Creates the folders above path that are missing (like mkdir -p of its parent).
void makeParents(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos; slash = path.find('/', slash + 1))
    ::mkdir(path.substr(0, slash).c_str(), 0755);
}

} // namespace

PtyLine::~PtyLine() { close(); }

bool PtyLine::open(const std::string& link, std::uint32_t baud, std::string& error) {
  master_ = posix_openpt(O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (master_ < 0) {
    error = std::string("posix_openpt: ") + std::strerror(errno);
    return false;
  }
  if (grantpt(master_) != 0 || unlockpt(master_) != 0) {
    error = std::string("grantpt/unlockpt: ") + std::strerror(errno);
    close();
    return false;
  }
  char name[PATH_MAX];
  if (ptsname_r(master_, name, sizeof name) != 0) {
    error = "ptsname failed";
    close();
    return false;
  }
  slavePath_ = name;
  slave_ = ::open(name, O_RDWR | O_NOCTTY | O_NONBLOCK);
  if (slave_ < 0) {
    error = "cannot open " + slavePath_ + ": " + std::strerror(errno);
    close();
    return false;
  }
  if (!ttySetRaw(slave_, baud)) {
    error = "cannot set the line to " + std::to_string(baud) + " baud";
    close();
    return false;
  }
  if (!link.empty()) {
    makeParents(link);
    struct stat st {};
    if (lstat(link.c_str(), &st) == 0) {
      if (!S_ISLNK(st.st_mode)) {
        error = link + " exists and is not a symlink";
        close();
        return false;
      }
      ::unlink(link.c_str());
    }
    if (symlink(slavePath_.c_str(), link.c_str()) != 0) {
      error = "cannot create link " + link + ": " + std::strerror(errno);
      close();
      return false;
    }
    link_ = link;
  }
  return true;
}

void PtyLine::hangUp() {
  if (slave_ >= 0) ::close(slave_);
  if (master_ >= 0) ::close(master_);
  slave_ = master_ = -1;
}

void PtyLine::close() {
  if (!link_.empty()) {
    char target[PATH_MAX];
    const ssize_t n = readlink(link_.c_str(), target, sizeof target - 1);
    if (n > 0) {
      target[n] = '\0';
      if (slavePath_ == target) ::unlink(link_.c_str());
    }
    link_.clear();
  }
  if (slave_ >= 0) ::close(slave_);
  if (master_ >= 0) ::close(master_);
  slave_ = master_ = -1;
}

std::uint32_t PtyLine::hostTxBaud() const {
  std::uint32_t in = 0, out = 0;
  return ttySpeeds(slave_, in, out) ? out : 0;
}

std::uint32_t PtyLine::hostRxBaud() const {
  std::uint32_t in = 0, out = 0;
  return ttySpeeds(slave_, in, out) ? in : 0;
}

std::size_t PtyLine::read(std::uint8_t* buffer, std::size_t size) {
  const ssize_t n = ::read(master_, buffer, size);
  return n > 0 ? static_cast<std::size_t>(n) : 0;
}

std::size_t PtyLine::write(const std::uint8_t* data, std::size_t size) {
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = ::write(master_, data + done, size - done);
    if (n > 0) {
      done += static_cast<std::size_t>(n);
    } else if (n < 0 && errno == EINTR) {
      continue;
    } else {
      break; // EAGAIN: nobody is draining the line
    }
  }
  return done;
}
