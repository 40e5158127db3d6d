// SPDX-License-Identifier: Apache-2.0
// Runs a fuzz target without a fuzzer and with any compiler, on the files of a folder (what was once found stays
// mended) or on a number of inputs made from their numbers: for targets that take any bytes for choices.
//     replay_TARGET FOLDER [COUNT [FIRST]]
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size);

namespace {

void run(std::string const& name, std::string const& input) {
    std::printf("%s\n", name.c_str()); // the last one printed is the one that broke
    std::fflush(stdout);
    LLVMFuzzerTestOneInput(reinterpret_cast<uint8_t const*>(input.data()), input.size());
}

std::string numbered(uint32_t number) {
    std::string input;
    for (uint32_t state = number * 2654435761U + 1; input.size() < 20 + number % 80;)
        input += static_cast<char>((state = state * 1664525U + 1013904223U) >> 24);
    return input;
}

} // namespace

int main(int argc, char** argv) {
    std::filesystem::path const folder = argc > 1 ? argv[1] : ".";
    uint32_t const count = argc > 2 ? static_cast<uint32_t>(std::atoi(argv[2])) : 0;
    uint32_t const first = argc > 3 ? static_cast<uint32_t>(std::atoi(argv[3])) : 1;
    bool isEmpty = count == 0;
    for (uint32_t number = first; number - first < count; ++number)
        run(std::to_string(number), numbered(number));
    if (!std::filesystem::exists(folder))
        return isEmpty;
    for (auto const& entry : std::filesystem::directory_iterator(folder)) {
        std::ifstream file(entry.path(), std::ios::binary);
        run(entry.path().filename(), std::string((std::istreambuf_iterator<char>(file)), {}));
        isEmpty = false;
    }
    return isEmpty;
}
