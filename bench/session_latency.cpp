// Round-trip latency of one check-block request against qmload-sim at 921600 baud:
// the time from the request's write to the moment the session publishes the reply,
// median and spread of N requests, next to the wire time of the two frames, and the
// median's overhead over that wire time. Three ways: fast framing with each request
// sent from the worker's wake-up (as qmload-cli flashes), fast framing with a
// hand-over to a waiting thread, gap framing. Prints figures, asserts nothing.
//
//   session_latency [COUNT]        (default 200; the gap framing a tenth of it)
#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <spawn.h>
#include <string>
#include <sys/wait.h>
#include <unistd.h>
#include <vector>

#include "base/Wire.h"
#include "device/DeviceSession.h"
#include "device/Frame.h"

extern char** environ;

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::uint32_t kBaud = kTransferBaud;

// qmload-sim on a pty at 921600 baud; the port it prints is the one to open.
struct Simulator {
  pid_t pid = -1;
  std::string port;

  bool start(const char* path, const std::string& link) {
    int out[2];
    if (pipe(out) != 0) return false;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, out[1], STDOUT_FILENO);
    posix_spawn_file_actions_addclose(&actions, out[0]);
    const std::string baud = std::to_string(kBaud);
    const char* argv[] = {path, "--link", link.c_str(), "--baud", baud.c_str(), nullptr};
    const int rc = posix_spawn(&pid, path, &actions, nullptr, const_cast<char* const*>(argv), environ);
    posix_spawn_file_actions_destroy(&actions);
    close(out[1]);
    if (rc != 0) {
      close(out[0]);
      return false;
    }
    std::string line;
    char c;
    while (read(out[0], &c, 1) == 1 && c != '\n') line.push_back(c);
    close(out[0]);
    if (line.rfind("READY ", 0) != 0) return false;
    port = line.substr(6);
    return true;
  }
  ~Simulator() {
    if (pid > 0) {
      kill(pid, SIGTERM);
      waitpid(pid, nullptr, 0);
    }
  }
};

// Waits for the session's wake-up after each request.
struct Signal {
  std::mutex mutex;
  std::condition_variable cv;
  void notify() {
    { std::lock_guard<std::mutex> lock(mutex); }
    cv.notify_all();
  }
  bool waitIdle(DeviceSession& session, Clock::duration limit) {
    std::unique_lock<std::mutex> lock(mutex);
    return cv.wait_for(lock, limit, [&] { return !session.busy.load(); });
  }
};

double percentile(std::vector<double> v, double p) {
  std::sort(v.begin(), v.end());
  return v[static_cast<std::size_t>(p * static_cast<double>(v.size() - 1) + 0.5)];
}

std::uint32_t blockAddress(int i) { return 0x08004000u + 256u * static_cast<std::uint32_t>(i % 64); }

// Each request is sent by the thread that waits for the wake-up (a hand-over from the
// worker to it for every reply).
bool measureHandOver(DeviceSession& session, Signal& signal, int count, const std::uint32_t id[3],
                     std::vector<double>& micros) {
  session.setWakeCallback([&signal] { signal.notify(); });
  for (int i = 0; i < count; ++i) {
    const auto t0 = Clock::now();
    session.request(id[0], id[1], id[2], CmdCheckBlock, blockAddress(i), nullptr, 256, 1000);
    if (!signal.waitIdle(session, std::chrono::seconds(2)) || session.failed.load()) {
      std::printf("request %d got no answer\n", i);
      return false;
    }
    micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
  }
  session.setWakeCallback(nullptr);
  return true;
}

// Each request is sent from the worker's wake-up as soon as the previous reply is
// published, as qmload-cli's flash job steps its sequence.
bool measureOnWorker(DeviceSession& session, Signal& signal, int count, const std::uint32_t id[3],
                     std::vector<double>& micros) {
  std::mutex mutex; // keeps the first request and the worker's steps apart
  int sent = 0;
  bool failed = false;
  Clock::time_point t0;
  auto sendNext = [&] {
    t0 = Clock::now();
    session.request(id[0], id[1], id[2], CmdCheckBlock, blockAddress(sent), nullptr, 256, 1000);
    ++sent;
  };
  session.setWakeCallback([&] {
    {
      std::lock_guard<std::mutex> lock(mutex);
      if (failed || sent == 0 || static_cast<int>(micros.size()) == count || session.busy.load()) return;
      if (session.failed.load()) {
        failed = true;
      } else {
        micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - t0).count());
        if (static_cast<int>(micros.size()) < count) sendNext();
      }
    }
    signal.notify();
  });
  {
    std::lock_guard<std::mutex> lock(mutex);
    sendNext();
  }
  std::unique_lock<std::mutex> lock(signal.mutex);
  signal.cv.wait_for(lock, std::chrono::seconds(10), [&] {
    std::lock_guard<std::mutex> inner(mutex);
    return failed || static_cast<int>(micros.size()) == count;
  });
  lock.unlock();
  session.setWakeCallback(nullptr);
  std::lock_guard<std::mutex> inner(mutex);
  if (failed || static_cast<int>(micros.size()) != count) {
    std::printf("request %zu got no answer\n", micros.size());
    return false;
  }
  return true;
}

} // namespace

int main(int argc, char** argv) {
  const int count = argc > 1 ? std::max(1, std::atoi(argv[1])) : 200;
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  const std::string link = "/tmp/qmload-latency-" + std::to_string(getpid());
  Simulator sim;
  if (!sim.start(QMLOAD_SIM_PATH, link)) {
    std::printf("cannot start %s\n", QMLOAD_SIM_PATH);
    return 1;
  }

  Signal signal;
  DeviceSession session(sim.port.c_str(), DeviceSession::FirstPoll::atOnce);
  session.setWakeCallback([&signal] { signal.notify(); });
  session.reopen(kTransferBaudIndex, 0, 0);
  session.request(0, 0, 0, CmdIdentify, 0, nullptr, 0, 3000);
  if (!signal.waitIdle(session, std::chrono::seconds(5)) || session.failed.load()) {
    std::printf("the simulator did not answer the identify request\n");
    return 1;
  }
  const std::uint32_t id[3] = {session.replyWord(0), session.replyWord(1), session.replyWord(2)};

  const double wire = 2.0 * static_cast<double>(wireTime(kFrameHeader + 2, kBaud).count());
  std::printf("check-block round trip at %u baud, %d requests (gap: %d); wire time of the two frames %.0f us\n", kBaud,
              count, std::max(1, count / 10), wire);
  std::printf("%-22s %10s %10s %10s %10s %12s\n", "", "median us", "p10 us", "p90 us", "max us", "overhead us");
  struct Way {
    const char* name;
    ReplyFraming framing;
    bool onWorker;
  };
  for (const Way& way :
       {Way{"fast, on the worker", ReplyFraming::fast, true}, Way{"fast, handed over", ReplyFraming::fast, false},
        Way{"gap, handed over", ReplyFraming::gap, false}}) {
    session.setFraming(way.framing);
    std::vector<double> micros;
    // The gap framing waits 100 ms after every reply: a tenth as many requests.
    const int n = way.framing == ReplyFraming::gap ? std::max(1, count / 10) : count;
    const bool ok = way.onWorker ? measureOnWorker(session, signal, n, id, micros)
                                 : measureHandOver(session, signal, n, id, micros);
    if (!ok) return 1;
    const double median = percentile(micros, 0.5);
    std::printf("%-22s %10.0f %10.0f %10.0f %10.0f %12.0f\n", way.name, median, percentile(micros, 0.1),
                percentile(micros, 0.9), percentile(micros, 1.0), median - wire);
  }
  return 0;
}
