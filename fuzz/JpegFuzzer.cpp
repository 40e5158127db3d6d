// SPDX-License-Identifier: Apache-2.0
// A file of hostile segments: what the JPEG reader finds in it, and that the writer changes its XMP and nothing else.
// The last byte says how much XMP, and whether a video is added and taken out again.
#include "FuzzSupport.h"
#include "io/JPEGMetaReader.h"
#include "io/JPEGMetaWriter.h"
#include "support/JpegBuilder.h"

using namespace android::lumo;
using namespace android::lumo::fuzz;
using test::segmentsOf;

namespace {

/// Everything but XMP and blanked rooms for it, and but a segment that holds a trailer: its pointer follows what moves.
std::vector<test::JpegSegment> others(std::string const& file) {
    auto segments = segmentsOf(file);
    std::erase_if(segments, [](auto const& segment) {
        bool const isBlank = segment.payload.find_first_not_of(' ') == std::string::npos;
        bool const isXmp = segment.payload.starts_with("http://ns.adobe.com/xap/1.0/"); // also without the closing zero
        return (segment.code == 0xE1 && (isBlank || isXmp)) || segment.payload.ends_with("QRTT");
    });
    return segments;
}

void write(std::string const& original, std::function<void(JPEGMetaWriter&, MediaFile&)> const& action,
           std::string const* packet = nullptr) {
    MemoryFile const file(original);
    bool const isWritten = goesThrough([&] {
        auto const still = file.open();
        JPEGMetaWriter writer(still);
        action(writer, *still);
    });
    std::string const now = file.bytes();
    if (!isWritten) {
        FUZZ_REQUIRE(now == original);
        return;
    }
    auto const segments = segmentsOf(original);
    if (!segments.empty() && segments.back().code == 0xDA) // else nobody knows where the segments end
        FUZZ_REQUIRE(others(now) == others(original));
    if (packet != nullptr)
        FUZZ_REQUIRE(
            JPEGMetaReader(file.open(), ParseMode::LAZY).getXMP().toTypedData<std::string>().starts_with(*packet));
}

void editVideoTwice(std::string const& original) {
    MemoryFile const file(original);
    for (auto const edit : {VideoEdit::Add, VideoEdit::Remove})
        editVideo(file, edit);
    auto const segments = segmentsOf(original);
    if (segments.empty() || segments.back().code != 0xDA)
        return;
    auto kept = others(file.bytes());
    if (original.ends_with("QRTT") && !kept.empty() && kept.back().code == 0xDA)
        kept.pop_back(); // a trailer without records goes with the video; the scan it ended was left out above
    FUZZ_REQUIRE(kept == others(original));
}

void debugInfo(std::string const& original, size_t size) {
    MemoryFile const file(original);
    refusal([&] {
        JPEGMetaWriter writer(file.open());
        writer.writeCameraDebugInfo(std::vector<unsigned char>(size, 'd'));
        writer.writeCameraDebugInfo(std::vector<unsigned char>(7, 'e'));
        writer.removeCameraDebugInfo();
    });
    FUZZ_REQUIRE(file.bytes().size() <= original.size() + size + 100);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0)
        return 0;
    std::string const original = std::string(text(data, size - 1));
    size_t const amount = size_t{data[size - 1]} * 7;
    askEverything(MemoryFile(original));
    editPublished(original);
    std::string const packet(amount, 'x');
    write(
        original,
        [&](auto& writer, auto&) {
            writer.writeXMP({packet.begin(), packet.end()});
        },
        &packet);
    write(original, [&](auto& writer, auto& still) {
        Metadata const room = writer.reserveXMP(static_cast<unsigned>(amount) * 40);
        still.position(room.position);
        still.write(std::string(room.payload, ' '));
    });
    debugInfo(original, amount);
    if (data[size - 1] % 8 == 7)
        editVideoTwice(original);
    return 0;
}
