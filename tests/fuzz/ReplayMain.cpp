// Runs a fuzz target's entry point once on every file of the folders (or files)
// given, without libFuzzer: the seed corpora and the inputs of past findings then
// run as ordinary tests in every build, under the sanitizers of that build.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

// Optional in a target, as with libFuzzer.
extern "C" __attribute__((weak)) int LLVMFuzzerInitialize(int* argc, char*** argv);
extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);

namespace {

void runFile(const std::filesystem::path& path, int& count) {
  std::ifstream in(path, std::ios::binary);
  const std::vector<char> bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  std::fprintf(stderr, "input %s (%zu bytes)\n", path.string().c_str(), bytes.size());
  // A copy of exactly the input's size, so that reads past its end are caught.
  std::vector<uint8_t> data(bytes.begin(), bytes.end());
  LLVMFuzzerTestOneInput(data.empty() ? nullptr : data.data(), data.size());
  ++count;
}

} // namespace

int main(int argc, char** argv) {
  if (LLVMFuzzerInitialize != nullptr) LLVMFuzzerInitialize(&argc, &argv);
  int count = 0;
  for (int i = 1; i < argc; ++i) {
    const std::filesystem::path path(argv[i]);
    if (std::filesystem::is_directory(path)) {
      for (const auto& entry : std::filesystem::directory_iterator(path))
        if (entry.is_regular_file()) runFile(entry.path(), count);
    } else {
      runFile(path, count);
    }
  }
  std::fprintf(stderr, "%d inputs ran\n", count);
  return count > 0 ? 0 : 1;
}
