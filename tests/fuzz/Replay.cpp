// Runs a fuzz target over stored inputs: each argument is a file or a directory of files.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "tests/fuzz/Fuzz.h"

int main(int argc, char** argv) {
  LLVMFuzzerInitialize(&argc, &argv);
  std::vector<std::filesystem::path> files;
  for (int i = 1; i < argc; ++i) {
    if (std::filesystem::is_directory(argv[i])) {
      for (const auto& entry : std::filesystem::directory_iterator(argv[i])) {
        files.push_back(entry.path());
      }
    } else {
      files.emplace_back(argv[i]);
    }
  }
  std::sort(files.begin(), files.end());
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<char> content(std::istreambuf_iterator<char>(in), {});
    if (!in.good() && !in.eof()) {
      fprintf(stderr, "cannot read %s\n", file.c_str());
      return 1;
    }
    fprintf(stderr, "%s\n", file.c_str());  // if one fails, it is the last one printed
    // A copy of exactly its size: a sanitizer detects a read past its end.
    const std::vector<uint8_t> exact(content.begin(), content.end());
    LLVMFuzzerTestOneInput(exact.data(), exact.size());
  }
  printf("%zu inputs\n", files.size());
  return files.empty();
}
