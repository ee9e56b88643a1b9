// qmload-sim as a program: a host on the other end of its pty, with plain termios.
#include "device/Frame.h"
#include "tests/sim/SimTestFrames.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <fstream>
#include <poll.h>
#include <spawn.h>
#include <string>
#include <sys/stat.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

extern char** environ;

namespace {

const DeviceIdentity kMe{};

std::int64_t msNow() {
  using namespace std::chrono;
  return duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count();
}

// Reads from fd until want bytes came or timeoutMs passed.
std::vector<std::uint8_t> readFor(int fd, std::size_t want, int timeoutMs) {
  std::vector<std::uint8_t> got;
  const std::int64_t end = msNow() + timeoutMs;
  while (got.size() < want) {
    const std::int64_t left = end - msNow();
    if (left <= 0) break;
    struct pollfd p {
      fd, POLLIN, 0
    };
    if (poll(&p, 1, static_cast<int>(left)) <= 0) continue;
    std::uint8_t buf[512];
    const ssize_t n = read(fd, buf, sizeof buf);
    if (n > 0) got.insert(got.end(), buf, buf + n);
    if (n == 0) break;
  }
  return got;
}

// One running simulator, stopped with SIGTERM (or killed) at the end.
class Sim {
public:
  explicit Sim(std::vector<std::string> args) {
    int out[2], err[2];
    if (pipe(out) != 0 || pipe(err) != 0) return;
    posix_spawn_file_actions_t fa;
    posix_spawn_file_actions_init(&fa);
    posix_spawn_file_actions_adddup2(&fa, out[1], 1);
    posix_spawn_file_actions_adddup2(&fa, err[1], 2);
    posix_spawn_file_actions_addclose(&fa, out[0]);
    posix_spawn_file_actions_addclose(&fa, err[0]);
    std::vector<char*> argv;
    std::string bin = QMLOAD_SIM_PATH;
    argv.push_back(bin.data());
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, bin.c_str(), &fa, nullptr, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&fa);
    close(out[1]);
    close(err[1]);
    out_ = out[0];
    err_ = err[0];
    fcntl(err_, F_SETFL, O_NONBLOCK);
  }
  ~Sim() {
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      waitpid(pid_, nullptr, 0);
    }
    if (out_ >= 0) close(out_);
    if (err_ >= 0) close(err_);
  }
  // The READY line, or "" if none came within 5 s.
  std::string ready() {
    std::string text;
    const std::int64_t end = msNow() + 5000;
    while (msNow() < end) {
      const auto b = readFor(out_, 1, static_cast<int>(end - msNow()));
      if (b.empty()) break;
      text.append(b.begin(), b.end());
      const auto nl = text.find('\n');
      if (nl != std::string::npos) return text.substr(0, nl);
    }
    return "";
  }
  // Sends SIGTERM and returns the exit status, or -1 if it did not end within 5 s.
  int terminate() {
    kill(pid_, SIGTERM);
    const std::int64_t end = msNow() + 5000;
    while (msNow() < end) {
      int status = 0;
      if (waitpid(pid_, &status, WNOHANG) == pid_) {
        pid_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
      }
      usleep(10000);
    }
    return -1;
  }
  std::string stderrText() {
    std::string s;
    char buf[4096];
    ssize_t n;
    while ((n = read(err_, buf, sizeof buf)) > 0) s.append(buf, static_cast<std::size_t>(n));
    return s;
  }

private:
  pid_t pid_ = -1;
  int out_ = -1;
  int err_ = -1;
};

// A host's serial port: the pty slave through the link, raw 8N1.
class HostPort {
public:
  HostPort(const std::string& path, speed_t speed) {
    fd_ = open(path.c_str(), O_RDWR | O_NOCTTY);
    if (fd_ >= 0) setSpeed(speed);
  }
  ~HostPort() {
    if (fd_ >= 0) close(fd_);
  }
  bool ok() const { return fd_ >= 0; }
  int fd() const { return fd_; }
  void setSpeed(speed_t speed) {
    termios t{};
    tcgetattr(fd_, &t);
    cfmakeraw(&t);
    t.c_cflag |= CLOCAL | CREAD;
    cfsetispeed(&t, speed);
    cfsetospeed(&t, speed);
    tcsetattr(fd_, TCSANOW, &t);
  }
  // Sends a frame and collects a 24-byte reply, or what came within timeoutMs.
  std::vector<std::uint8_t> transact(const std::vector<std::uint8_t>& frame, int timeoutMs = 1000,
                                     std::size_t want = 24) {
    if (write(fd_, frame.data(), frame.size()) != static_cast<ssize_t>(frame.size())) return {};
    return readFor(fd_, want, timeoutMs);
  }

private:
  int fd_ = -1;
};

class SimPty : public ::testing::Test {
protected:
  void SetUp() override {
    char tmpl[] = "/tmp/qmload-sim-test-XXXXXX";
    ASSERT_NE(mkdtemp(tmpl), nullptr);
    dir_ = tmpl;
    link_ = dir_ + "/dev";
    dump_ = dir_ + "/flash.bin";
  }
  void TearDown() override {
    unlink(link_.c_str());
    unlink(dump_.c_str());
    rmdir(dir_.c_str());
  }
  bool exists(const std::string& path) {
    struct stat st {};
    return lstat(path.c_str(), &st) == 0;
  }
  std::string dir_, link_, dump_;
};

FrameFields fieldsOf(const std::vector<std::uint8_t>& reply) { return decodeFields(reply.data()); }

TEST_F(SimPty, AnswersAtItsBaudOnlyAndCleansUpOnSigterm) {
  Sim sim({"--link", link_, "--baud", "115200", "--dump", dump_});
  ASSERT_EQ(sim.ready(), "READY " + link_);
  char target[256] = {};
  ASSERT_GT(readlink(link_.c_str(), target, sizeof target - 1), 0);
  EXPECT_EQ(std::string(target).rfind("/dev/pts/", 0), 0u) << target;

  {
    HostPort port(link_, B115200);
    ASSERT_TRUE(port.ok());
    const auto reply = port.transact(request(CmdIdentify, broadcastIds(), 0, 0));
    ASSERT_EQ(reply.size(), 24u);
    EXPECT_TRUE(frameCrcOk(reply.data(), reply.size()));
    EXPECT_EQ(fieldsOf(reply).frameType, 1);
    EXPECT_EQ(fieldsOf(reply).id0, kMe.id0);
    EXPECT_EQ(fieldsOf(reply).id2, kMe.id2);

    port.setSpeed(B9600);
    EXPECT_TRUE(port.transact(request(CmdIdentify, broadcastIds(), 0, 0), 400).empty());
  }
  {
    // Closed and reopened: the device is still there at its own speed.
    HostPort port(link_, B115200);
    ASSERT_TRUE(port.ok());
    EXPECT_EQ(port.transact(request(CmdIdentify, broadcastIds(), 0, 0)).size(), 24u);
  }
  EXPECT_EQ(sim.terminate(), 0);
  EXPECT_FALSE(exists(link_));
  ASSERT_TRUE(exists(dump_));
  std::ifstream f(dump_, std::ios::binary);
  const std::vector<char> dump((std::istreambuf_iterator<char>(f)), std::istreambuf_iterator<char>());
  EXPECT_EQ(dump.size(), std::size_t{kFlashSize});
  EXPECT_TRUE(sim.stderrText().empty()); // quiet without --verbose
}

TEST_F(SimPty, AFlashOverThePtyEndsUpInTheDump) {
  Sim sim({"--link", link_, "--baud", "38400", "--dump", dump_, "--id", "0x11-22-33", "--verbose"});
  ASSERT_EQ(sim.ready(), "READY " + link_);
  const DeviceIdentity id{0x11, 0x22, 0x33};
  const auto data = pattern(512, 0x40);

  HostPort port(link_, B38400);
  ASSERT_TRUE(port.ok());
  ASSERT_EQ(port.transact(request(CmdIdentify, broadcastIds(), 0, 0)).size(), 24u);
  const auto bootCheck = port.transact(request(CmdCheckBlock, id, 0x08000000, 256));
  ASSERT_EQ(bootCheck.size(), 24u);
  EXPECT_EQ(fieldsOf(bootCheck).id0, 0u);
  ASSERT_EQ(port.transact(request(CmdStart, id, 0, 512)).size(), 24u);

  port.setSpeed(B921600);
  for (std::uint32_t off = 0; off < 512; off += 256) {
    const auto check = port.transact(request(CmdCheckBlock, id, 0x08010000 + off, 256));
    ASSERT_EQ(check.size(), 24u) << sim.stderrText();
    EXPECT_EQ(fieldsOf(check).id0, 1u);
    ASSERT_EQ(port.transact(request(CmdWriteBlock, id, 0x08010000 + off, 256, data.data() + off)).size(), 24u);
  }
  ASSERT_EQ(port.transact(request(CmdFinish, id, 0, 0)).size(), 24u);

  // The dump is written on finish, before the process ends.
  std::vector<char> dump;
  for (int i = 0; i < 100 && dump.size() != kFlashSize; ++i) {
    std::ifstream f(dump_, std::ios::binary);
    dump.assign(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
    if (dump.size() != kFlashSize) usleep(10000);
  }
  ASSERT_EQ(dump.size(), std::size_t{kFlashSize});
  EXPECT_TRUE(std::equal(data.begin(), data.end(), reinterpret_cast<const std::uint8_t*>(dump.data()) + 0x10000));
  EXPECT_EQ(static_cast<std::uint8_t>(dump[0x10000 + 512]), 0xFF);

  // Back at its own speed after the finish.
  EXPECT_TRUE(port.transact(request(CmdIdentify, broadcastIds(), 0, 0), 300).empty());
  port.setSpeed(B38400);
  EXPECT_EQ(port.transact(request(CmdIdentify, broadcastIds(), 0, 0)).size(), 24u);

  EXPECT_EQ(sim.terminate(), 0);
  const std::string log = sim.stderrText();
  EXPECT_NE(log.find("request cmd 11"), std::string::npos) << log;
  EXPECT_NE(log.find("noise"), std::string::npos) << log;
}

TEST_F(SimPty, FaultFlagsActOnTheWire) {
  Sim sim({"--link", link_, "--drop-reply", "1", "--corrupt-reply", "2", "--garbage", "3:3"});
  ASSERT_EQ(sim.ready(), "READY " + link_);
  HostPort port(link_, B115200);
  ASSERT_TRUE(port.ok());
  const auto ident = request(CmdIdentify, broadcastIds(), 0, 0);
  EXPECT_TRUE(port.transact(ident, 300).empty());
  const auto corrupt = port.transact(ident);
  ASSERT_EQ(corrupt.size(), 24u);
  EXPECT_FALSE(frameCrcOk(corrupt.data(), 24));
  // Garbage and reply arrive as one piece: 3 + 24 bytes.
  const auto spoilt = port.transact(ident, 1000, 27);
  ASSERT_EQ(spoilt.size(), 27u);
  EXPECT_FALSE(frameCrcOk(spoilt.data(), 27));
  EXPECT_TRUE(frameCrcOk(spoilt.data() + 3, 24));
  const auto good = port.transact(ident);
  ASSERT_EQ(good.size(), 24u);
  EXPECT_TRUE(frameCrcOk(good.data(), 24));
  EXPECT_EQ(sim.terminate(), 0);
}

TEST_F(SimPty, CreatesTheLinkFolderAndReplacesAStaleLink) {
  const std::string sub = dir_ + "/sims";
  const std::string link = sub + "/dev";
  ASSERT_EQ(symlink("/dev/pts/nonexistent", (dir_ + "/stale").c_str()), 0);
  {
    Sim first({"--link", link});
    ASSERT_EQ(first.ready(), "READY " + link);
    EXPECT_EQ(first.terminate(), 0);
  }
  EXPECT_FALSE(exists(link));
  {
    Sim second({"--link", dir_ + "/stale"});
    ASSERT_EQ(second.ready(), "READY " + dir_ + "/stale");
    HostPort port(dir_ + "/stale", B115200);
    ASSERT_TRUE(port.ok());
    EXPECT_EQ(port.transact(request(CmdIdentify, broadcastIds(), 0, 0)).size(), 24u);
    EXPECT_EQ(second.terminate(), 0);
  }
  EXPECT_FALSE(exists(dir_ + "/stale"));
  rmdir(sub.c_str());
}

TEST_F(SimPty, WithoutALinkItNamesTheSlave) {
  Sim sim({});
  const std::string line = sim.ready();
  ASSERT_EQ(line.rfind("READY /dev/pts/", 0), 0u) << line;
  HostPort port(line.substr(6), B115200);
  ASSERT_TRUE(port.ok());
  EXPECT_EQ(port.transact(request(CmdIdentify, broadcastIds(), 0, 0)).size(), 24u);
  EXPECT_EQ(sim.terminate(), 0);
}

TEST_F(SimPty, SurvivesGarbagePartialFramesAndHostsThatLeave) {
  Sim sim({"--link", link_, "--late-reply", "1:150"});
  ASSERT_EQ(sim.ready(), "READY " + link_);
  const auto ident = request(CmdIdentify, broadcastIds(), 0, 0);
  {
    // The host asks, then goes away before the late reply is out.
    HostPort port(link_, B115200);
    ASSERT_TRUE(port.ok());
    EXPECT_TRUE(port.transact(ident, 20).empty());
  }
  usleep(300000);
  HostPort port(link_, B115200);
  ASSERT_TRUE(port.ok());
  tcflush(port.fd(), TCIFLUSH); // what the host left behind
  std::vector<std::uint8_t> junk(5000);
  for (std::size_t i = 0; i < junk.size(); ++i) junk[i] = static_cast<std::uint8_t>(i * 37 + (i >> 3));
  EXPECT_TRUE(port.transact(junk, 100).empty());
  EXPECT_TRUE(port.transact(std::vector<std::uint8_t>(ident.begin(), ident.begin() + 11), 100).empty());
  const auto reply = port.transact(ident);
  ASSERT_EQ(reply.size(), 24u);
  EXPECT_TRUE(frameCrcOk(reply.data(), 24));
  EXPECT_EQ(sim.terminate(), 0);
}

TEST_F(SimPty, RefusesToReplaceAFile) {
  { std::ofstream(link_) << "x"; }
  Sim sim({"--link", link_});
  EXPECT_EQ(sim.ready(), "");
  EXPECT_TRUE(exists(link_));
}

} // namespace
