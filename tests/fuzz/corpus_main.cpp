// The main of a fuzz target built without libFuzzer: runs each input given
// on the command line once, in order, and stops at the first that fails
// (the target aborts). A folder stands for the files in it, sorted by name;
// a file named README.md is documentation, not an input.
//
// usage: NAME_fuzz_corpus FILE|DIR...
// Exit code: 0 every input ran; 1 bad arguments or an input that cannot be
// read; 77 the target cannot run here (it says why).
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <string>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, std::size_t size);
extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) __attribute__((weak));

namespace fs = std::filesystem;

int main(int argc, char** argv) {
  if (argc < 2) {
    std::cerr << "usage: " << argv[0] << " FILE|DIR...\n";
    return 1;
  }
  std::vector<fs::path> inputs;
  for (int i = 1; i < argc; ++i) {
    const fs::path arg(argv[i]);
    std::error_code error;
    if (fs::is_directory(arg, error)) {
      std::vector<fs::path> files;
      for (const auto& entry : fs::directory_iterator(arg, error)) {
        if (entry.is_regular_file() && entry.path().filename() != "README.md") {
          files.push_back(entry.path());
        }
      }
      std::sort(files.begin(), files.end());
      inputs.insert(inputs.end(), files.begin(), files.end());
    } else if (fs::is_regular_file(arg, error)) {
      inputs.push_back(arg);
    } else {
      std::cerr << argv[0] << ": no such file or folder: " << arg.string() << "\n";
      return 1;
    }
  }
  // Read every input before the target starts: it may move the process into
  // a /tmp of its own, where paths under the machine's /tmp are gone.
  std::vector<std::vector<uint8_t>> contents;
  for (const fs::path& input : inputs) {
    std::ifstream in(input, std::ios::binary);
    std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(in),
                               std::istreambuf_iterator<char>()};
    if (!in && !in.eof()) {
      std::cerr << argv[0] << ": cannot read " << input.string() << "\n";
      return 1;
    }
    contents.push_back(std::move(bytes));
  }
  if (LLVMFuzzerInitialize) LLVMFuzzerInitialize(&argc, &argv);
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    std::cerr << "input " << inputs[i].string() << " (" << contents[i].size() << " bytes)\n";
    LLVMFuzzerTestOneInput(contents[i].data(), contents[i].size());
  }
  std::cout << inputs.size() << " inputs ran\n";
  return inputs.empty() ? 1 : 0;
}
