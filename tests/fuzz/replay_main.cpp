// Runs a fuzz target on every file of the folders (or files) given: the corpus and the
// regression inputs become ordinary tests in every build, sanitizers included.
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

int main(int argc, char** argv) {
  namespace fs = std::filesystem;
  std::size_t runs = 0;
  for (int a = 1; a < argc; ++a) {
    std::vector<fs::path> files;
    if (fs::is_directory(argv[a])) {
      for (const auto& entry : fs::directory_iterator(argv[a]))
        if (entry.is_regular_file()) files.push_back(entry.path());
    } else if (fs::exists(argv[a])) {
      files.emplace_back(argv[a]);
    }
    for (const fs::path& file : files) {
      std::ifstream in(file, std::ios::binary);
      const std::vector<char> bytes((std::istreambuf_iterator<char>(in)),
                                    std::istreambuf_iterator<char>());
      LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
      ++runs;
    }
  }
  std::cout << "replayed " << runs << " inputs\n";
  return runs > 0 ? 0 : 1;
}
