// SPDX-License-Identifier: Apache-2.0
// The toolkit's parse of each file's first packet, its image's, and nothing else: a caller can be faster only by giving
// it less to read.

#include "Workload.h"

#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <string_view>

#define TXMP_STRING_TYPE std::string
#include <XMP.hpp>
#include <XMP.incl_cpp>

namespace {

std::string packetOf(std::string const& path) {
    std::ifstream file(path, std::ios::binary);
    std::string const bytes{std::istreambuf_iterator<char>(file), {}};
    constexpr std::string_view END = "</x:xmpmeta>";
    auto const begin = bytes.find("<x:xmpmeta"), end = bytes.find(END, begin);
    return begin == std::string::npos || end == std::string::npos ? "" : bytes.substr(begin, end + END.size() - begin);
}

void parse(benchmark::State& state, std::string const& packet) {
    try {
        for (auto _ : state) {
            SXMPMeta meta;
            meta.ParseFromBuffer(packet.data(), static_cast<XMP_StringLen>(packet.size()), 0);
            benchmark::DoNotOptimize(meta);
        }
    } catch (XMP_Error const& e) {
        state.SkipWithError(e.GetErrMsg());
    }
}

} // namespace

int main(int argc, char** argv) {
    if (!SXMPMeta::Initialize())
        return 1;
    for (auto const& [schema, prefix] : workload::NAMESPACES)
        SXMPMeta::RegisterNamespace(schema, prefix, nullptr);
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        auto const packet = packetOf(argv[i]);
        if (!packet.empty())
            benchmark::RegisterBenchmark((std::string("toolkit/") + argv[i]).c_str(),
                                         [packet](benchmark::State& state) { parse(state, packet); });
    }
    benchmark::RunSpecifiedBenchmarks();
    SXMPMeta::Terminate();
}
