#include "base/Console.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <utility>

namespace {

std::mutex& consoleMutex() {
  static std::mutex mutex;
  return mutex;
}

ConsoleSink& installedSink() {
  static ConsoleSink sink;
  return sink;
}

void writeStdout(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fflush(stdout);
}

void deliver(std::string_view text, std::string_view port) {
  std::lock_guard<std::mutex> lock(consoleMutex());
  if (ConsoleSink& sink = installedSink())
    sink(text, port);
  else
    writeStdout(text);
}

} // namespace

ConsoleSink setConsoleSink(ConsoleSink sink) {
  std::lock_guard<std::mutex> lock(consoleMutex());
  return std::exchange(installedSink(), std::move(sink));
}

void consolePuts(std::string_view text, std::string_view port) {
  std::string line(text);
  line += '\n';
  deliver(line, port);
}

void consolePrint(std::string_view text, std::string_view port) { deliver(text, port); }
