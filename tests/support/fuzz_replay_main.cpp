// Runs a fuzz target over stored inputs without libFuzzer. The arguments are files and folders. libFuzzer's options
// are ignored.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size);

int main(int count, char** arguments) {
  int runs = 0;
  auto run = [&](const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    std::vector<char> bytes((std::istreambuf_iterator<char>(file)), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++runs;
  };
  for (int index = 1; index < count; ++index) {
    if (arguments[index][0] == '-') continue;
    if (!std::filesystem::is_directory(arguments[index])) {
      run(arguments[index]);
      continue;
    }
    for (const auto& entry : std::filesystem::directory_iterator(arguments[index])) run(entry.path());
  }
  std::printf("%d inputs\n", runs);
  return runs > 0 ? 0 : 1;
}
