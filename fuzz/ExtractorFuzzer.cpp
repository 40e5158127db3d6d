// SPDX-License-Identifier: Apache-2.0
// A hostile movie, alone and as a window of a file: the extractor answers with tracks or a status, the same for both,
// and as a photo's video it gives a length or an error.
#include "FuzzSupport.h"
#include "MediaFile.h"

#include <string>

#include <media/stagefright/NuMediaExtractor.h>

using namespace android;
using namespace android::lumo::fuzz;

namespace {

std::string answer(int fd, off64_t offset, off64_t size) {
    sp<NuMediaExtractor> const extractor(new NuMediaExtractor(NuMediaExtractor::EntryPoint::OTHER));
    std::string text = std::to_string(extractor->setDataSource(fd, offset, size));
    FUZZ_REQUIRE(text == "0" || extractor->countTracks() == 0);
    FUZZ_REQUIRE(extractor->countTracks() <= 64);
    for (size_t i = 0; i < extractor->countTracks(); ++i) {
        sp<AMessage> format;
        AString mime;
        FUZZ_REQUIRE(extractor->getTrackFormat(i, &format) == OK && format->findString("mime", &mime));
        FUZZ_REQUIRE(std::string_view(mime.c_str()).find('/') != std::string_view::npos);
        int64_t us = 1;
        format->findInt64("durationUs", &us);
        FUZZ_REQUIRE(us > 0);
        text.append(" ").append(mime.c_str()).append("@").append(std::to_string(us));
    }
    return text;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    std::string const movie(text(data, size));
    MemoryFile const alone(movie), framed("in front " + movie + movie);
    auto const length = static_cast<off64_t>(size);
    FUZZ_REQUIRE(answer(alone.open()->getFd(), 0, INT64_MAX) == answer(framed.open()->getFd(), 9, length));
    return 0;
}
