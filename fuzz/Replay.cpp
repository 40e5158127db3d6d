// Runs a fuzz target on the files of a folder, without a fuzzer and with any compiler: what was once found stays
// mended.
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

int main(int argc, char** argv) {
    int count = 0;
    for (auto const& entry : std::filesystem::directory_iterator(argc > 1 ? argv[1] : ".")) {
        std::printf("%s\n", entry.path().filename().c_str()); // the last one printed is the one that broke
        std::fflush(stdout);
        std::ifstream file(entry.path(), std::ios::binary);
        std::string const input((std::istreambuf_iterator<char>(file)), {});
        LLVMFuzzerTestOneInput(reinterpret_cast<uint8_t const*>(input.data()), input.size());
        ++count;
    }
    return count > 0 ? 0 : 1;
}
