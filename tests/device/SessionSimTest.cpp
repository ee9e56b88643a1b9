// DeviceSession against the simulated device (qmload-sim on a pseudo-terminal): the
// identify at the device's baud rate, the switch to 921600 after start, a block
// written and read back from the device's flash dump, and the port listing.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "device/DeviceSession.h"

namespace {

using Clock = std::chrono::steady_clock;

bool waitIdle(const DeviceSession& session) {
  const auto end = Clock::now() + std::chrono::seconds(10);
  while (session.isBusy()) {
    if (Clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

// Runs qmload-sim until destroyed; ready() once it printed its READY line.
class Simulator {
public:
  Simulator(const std::string& link, const std::string& dump) {
    int out[2];
    if (pipe(out) != 0) return;
    pid_ = fork();
    if (pid_ == 0) {
      dup2(out[1], 1);
      ::close(out[0]);
      ::close(out[1]);
      execl(QMLOAD_SIM_BIN, QMLOAD_SIM_BIN, "--link", link.c_str(), "--baud", "9600", "--dump", dump.c_str(),
            static_cast<char*>(nullptr));
      _exit(127);
    }
    ::close(out[1]);
    FILE* in = fdopen(out[0], "r");
    char line[512] = {};
    if (in != nullptr && std::fgets(line, sizeof line, in) != nullptr) readyLine_ = line;
    if (in != nullptr) std::fclose(in);
  }
  ~Simulator() {
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      int status = 0;
      waitpid(pid_, &status, 0);
    }
  }
  bool ready() const { return readyLine_.rfind("READY ", 0) == 0; }
  // Stops the device (it writes its dump on the way out).
  int stop() {
    int status = -1;
    if (pid_ > 0) {
      kill(pid_, SIGTERM);
      waitpid(pid_, &status, 0);
      pid_ = -1;
    }
    return status;
  }

private:
  pid_t pid_ = -1;
  std::string readyLine_;
};

TEST(SessionSim, IdentifyStartWriteAndFinish) {
  char dirTemplate[] = "/tmp/qmload-session-sim-XXXXXX";
  ASSERT_NE(mkdtemp(dirTemplate), nullptr);
  const std::string dir = dirTemplate;
  const std::string link = dir + "/sim0";
  const std::string dump = dir + "/flash.bin";
  Simulator sim(link, dump);
  ASSERT_TRUE(sim.ready());

  // The device shows up in the port list through its link.
  setenv("QMLOAD_SIM_DIR", dir.c_str(), 1);
  std::vector<std::string> ports;
  SerialPort().listPorts(ports);
  unsetenv("QMLOAD_SIM_DIR");
  ASSERT_FALSE(ports.empty());
  EXPECT_EQ(ports.back(), link);

  DeviceSession session(link.c_str());
  session.setFraming(ReplyFraming::fast);
  ASSERT_TRUE(session.isOpen());
  session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 1);
  ASSERT_TRUE(waitIdle(session));
  ASSERT_FALSE(session.hasFailed());
  const std::uint32_t id0 = session.replyWord(0), id1 = session.replyWord(1), id2 = session.replyWord(2);
  EXPECT_EQ(id0, 0x00c0ffeeu);
  EXPECT_EQ(id1, 0x12345678u);
  EXPECT_EQ(id2, 0x9abcdef0u);

  session.request(id0, id1, id2, CmdStart, 0, nullptr, 256, 100);
  ASSERT_TRUE(waitIdle(session));
  ASSERT_FALSE(session.hasFailed());
  session.reopen(4, 0, 0);
  ASSERT_TRUE(session.isOpen());

  session.request(id0, id1, id2, CmdCheckBlock, 0x08004000, nullptr, 256, 100);
  ASSERT_TRUE(waitIdle(session));
  ASSERT_FALSE(session.hasFailed());
  EXPECT_EQ(session.replyWord(0), 1u); // writable

  std::vector<std::uint8_t> block(256);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i ^ 0x5A);
  session.request(id0, id1, id2, CmdWriteBlock, 0x08004000, block.data(), 256, 1000);
  ASSERT_TRUE(waitIdle(session));
  ASSERT_FALSE(session.hasFailed());

  session.request(id0, id1, id2, CmdFinish, 0, nullptr, 0, 500);
  ASSERT_TRUE(waitIdle(session));
  ASSERT_FALSE(session.hasFailed());
  EXPECT_EQ(decodeFields(session.reply.data()).command, CmdFinish);

  // Back at its own speed the device no longer hears 921600: the identify times out.
  session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 100);
  ASSERT_TRUE(waitIdle(session));
  EXPECT_TRUE(session.hasFailed());

  EXPECT_EQ(sim.stop(), 0);
  std::ifstream in(dump, std::ios::binary);
  const std::vector<std::uint8_t> flash((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  ASSERT_EQ(flash.size(), 262144u);
  EXPECT_TRUE(std::equal(block.begin(), block.end(), flash.begin() + 0x4000));
  EXPECT_EQ(flash[0x4100], 0xFF);

  unlink(dump.c_str());
  unlink(link.c_str());
  rmdir(dir.c_str());
}

} // namespace
