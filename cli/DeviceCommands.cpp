// qmload-cli device commands: ports, identify, flash.
//
// The lower layers' console messages go to stderr, or with --json become "log"
// events on stdout, so that with --json every line of stdout is one JSON object.
#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <string>
#include <thread>
#include <vector>

#include "base/Console.h"
#include "cli/Commands.h"
#include "cli/FlashJob.h"
#include "cli/JsonLine.h"
#include "cli/PortInfo.h"
#include "cli/Progress.h"
#include "device/FlashSequencer.h"
#include "image/AelfImage.h"
#include "serial/SerialPort.h"

namespace {

std::atomic<bool> gCancel{false};
static_assert(std::atomic<bool>::is_always_lock_free, "the cancel flag is set from a signal handler");

void onInterrupt(int) { gCancel.store(true); }

void catchInterrupts() {
  gCancel.store(false);
  std::signal(SIGINT, onInterrupt);
  std::signal(SIGTERM, onInterrupt);
}

// Routes the console messages to a Progress while a command runs.
class ConsoleToProgress {
public:
  explicit ConsoleToProgress(Progress& progress)
      : before_(
            setConsoleSink([&progress](std::string_view text, std::string_view port) { progress.log(text, port); })) {}
  ~ConsoleToProgress() { setConsoleSink(std::move(before_)); }
  ConsoleToProgress(const ConsoleToProgress&) = delete;
  ConsoleToProgress& operator=(const ConsoleToProgress&) = delete;

private:
  ConsoleSink before_;
};

// identify prints its own result: the job reports nothing while it runs.
class SilentReporter : public JobReporter {
public:
  void found(const std::string&, const std::string&, std::uint32_t) override {}
  void progress(const std::string&, std::uint64_t, std::uint64_t) override {}
  void erasing(const std::string&) override {}
};

struct DeviceOptions {
  std::vector<std::string> ports;
  std::string baud = "auto";
  std::string id;
  std::string framing = "fast";
  std::string image;
  double eraseTimeout = kDefaultEraseSeconds;
  bool json = false;
  bool quiet = false;
};

// Fills the job's line settings from the options; false (with a message) on bad values.
bool jobTemplate(const DeviceOptions& o, DeviceJob& job) {
  job.baudIndex = -1;
  if (o.baud != "auto") {
    bool known = false;
    for (int i = 0; i < 5; ++i) {
      if (o.baud == std::to_string(kLadderBauds[i])) {
        job.baudIndex = i;
        known = true;
      }
    }
    if (!known) {
      std::fprintf(stderr, "--baud: expected auto, 9600, 19200, 38400, 115200 or 921600, not %s\n", o.baud.c_str());
      return false;
    }
  }
  if (!o.id.empty()) {
    if (!parseIdentity(o.id, job.id[0], job.id[1], job.id[2])) {
      std::fprintf(stderr, "--id: expected 0xAAAAAAAA-BBBBBBBB-CCCCCCCC, not %s\n", o.id.c_str());
      return false;
    }
    job.haveId = true;
  }
  job.framing = o.framing == "gap" ? ReplyFraming::gap : ReplyFraming::fast;
  job.cancel = &gCancel;
  job.eraseTimeoutMs = static_cast<std::uint32_t>(std::lround(o.eraseTimeout * 1000.0));
  return true;
}

ExitCode runPorts(bool json) {
  Progress log(ProgressOptions{json, true, false});
  ConsoleToProgress route(log);
  SerialPort probe;
  std::vector<std::string> names;
  probe.listPorts(names);
  if (json) {
    Json list = Json::array();
    for (const auto& name : names) list.push_back(Json{{"port", name}, {"description", describePort(name)}});
    printJsonLine(list);
  } else if (names.empty()) {
    std::printf("no serial ports\n");
  } else {
    for (const auto& name : names) {
      const std::string info = describePort(name);
      std::printf("%s%s%s\n", name.c_str(), info.empty() ? "" : "  ", info.c_str());
    }
  }
  return ExitOk;
}

ExitCode runIdentify(const DeviceOptions& o) {
  DeviceJob job;
  if (!jobTemplate(o, job)) return ExitUsage;
  job.port = o.ports.front();
  catchInterrupts();
  Progress log(ProgressOptions{o.json, true, false});
  ConsoleToProgress route(log);
  SilentReporter silent;
  const JobResult r = runDeviceJob(job, silent);
  if (r.exitCode == ExitInterrupted) {
    std::fprintf(stderr, "Cancelled\n");
    return ExitInterrupted;
  }
  if (r.exitCode != ExitOk) {
    if (o.json) printJsonLine(Json{{"port", job.port}, {"error", r.message}});
    std::fprintf(stderr, "%s\n", r.message.c_str());
    return ExitFailed;
  }
  if (o.json)
    printJsonLine(Json{{"port", job.port}, {"id", r.identity}, {"baud", r.baud}});
  else
    std::printf("%s at %u baud\n", r.identity.c_str(), static_cast<unsigned>(r.baud));
  return ExitOk;
}

ExitCode runFlash(const DeviceOptions& o) {
  DeviceJob base;
  if (!jobTemplate(o, base)) return ExitUsage;
  for (std::size_t i = 0; i < o.ports.size(); ++i)
    for (std::size_t j = i + 1; j < o.ports.size(); ++j)
      if (o.ports[i] == o.ports[j]) {
        std::fprintf(stderr, "--port %s is given twice\n", o.ports[i].c_str());
        return ExitUsage;
      }

  // Routed before the image is read, so that the reader's message is a log event too.
  Progress progress(ProgressOptions{o.json, o.quiet, !o.quiet && stderrIsTerminal()});
  ConsoleToProgress route(progress);
  AelfImage image;
  if (readAelfImage(o.image, image) != aelfOk) {
    if (o.json) printJsonLine(Json{{"event", "error"}, {"port", nullptr}, {"message", "Can't read image " + o.image}});
    return ExitImage;
  }
  base.image = &image;

  catchInterrupts();
  std::vector<JobResult> results(o.ports.size());
  std::vector<std::thread> threads;
  for (std::size_t i = 0; i < o.ports.size(); ++i) {
    threads.emplace_back([&, i] {
      DeviceJob job = base;
      job.port = o.ports[i];
      results[i] = runDeviceJob(job, progress);
      if (results[i].exitCode == ExitOk)
        progress.done(job.port, results[i].seconds, results[i].bytes);
      else
        progress.error(job.port, results[i].message);
    });
  }
  for (auto& t : threads) t.join();
  progress.closeBar();

  bool allOk = true, cancelled = false;
  for (std::size_t i = 0; i < results.size(); ++i) {
    const JobResult& r = results[i];
    allOk = allOk && r.exitCode == ExitOk;
    cancelled = cancelled || r.exitCode == ExitInterrupted;
    if (o.json) continue;
    if (r.exitCode == ExitOk) {
      if (!o.quiet) {
        const double rate = r.seconds > 0 ? static_cast<double>(r.bytes) / 1024.0 / r.seconds : 0;
        std::printf("%s: ok %s, %llu bytes in %.2f s (%.1f KiB/s)\n", o.ports[i].c_str(), r.identity.c_str(),
                    static_cast<unsigned long long>(r.bytes), r.seconds, rate);
      }
    } else {
      std::fprintf(stderr, "%s: %s\n", o.ports[i].c_str(), r.message.c_str());
    }
  }
  std::fflush(stdout);
  if (cancelled || gCancel.load()) return ExitInterrupted;
  return allOk ? ExitOk : ExitFailed;
}

} // namespace

void addDeviceCommands(CLI::App& app, ExitCode& exitCode) {
  static DeviceOptions portsOpt, identifyOpt, flashOpt;

  CLI::App* ports = app.add_subcommand("ports", "List the serial ports");
  ports->add_flag("--json", portsOpt.json, "Print a JSON array");
  ports->callback([&exitCode] { exitCode = runPorts(portsOpt.json); });

  CLI::App* identify = app.add_subcommand("identify", "Find the device on a port and print its identity");
  identify->add_option("--port", identifyOpt.ports, "Serial port, or rfc2217://HOST:PORT for a remote one")
      ->required()
      ->expected(1);
  identify->add_option("--baud", identifyOpt.baud, "auto (the ladder 9600 ... 921600) or one of its rates")
      ->capture_default_str();
  identify->add_flag("--json", identifyOpt.json, "Print a JSON object");
  identify->callback([&exitCode] { exitCode = runIdentify(identifyOpt); });

  CLI::App* flash = app.add_subcommand("flash", "Flash an AELF image into the device on one or more ports");
  flash
      ->add_option("--port", flashOpt.ports,
                   "Serial port, or rfc2217://HOST:PORT for a remote one; repeat to flash several devices at once")
      ->required()
      ->expected(1)
      ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
  flash->add_option("--baud", flashOpt.baud, "auto (the ladder 9600 ... 921600) or one of its rates")
      ->capture_default_str();
  flash->add_option("--id", flashOpt.id, "Address this identity (0xAAAAAAAA-BBBBBBBB-CCCCCCCC)");
  flash->add_option("--framing", flashOpt.framing, "Reply framing: fast, or gap (100 ms of silence)")
      ->check(CLI::IsMember({"fast", "gap"}))
      ->capture_default_str();
  flash
      ->add_option("--erase-timeout", flashOpt.eraseTimeout,
                   "Seconds to wait for the answer to start while the device erases")
      ->check(CLI::Range(0.1, 600.0))
      ->capture_default_str();
  flash->add_flag("--json", flashOpt.json, "One JSON object per line on stdout");
  flash->add_flag("--quiet", flashOpt.quiet, "No progress, only errors");
  flash->add_option("image", flashOpt.image, "The .alf image")->required();
  flash->callback([&exitCode] { exitCode = runFlash(flashOpt); });
}
