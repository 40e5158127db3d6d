#include "HeicParts.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "support/Faults.h"

#include <gmock/gmock.h>

#include <cerrno>

namespace android::lumo::test {
namespace {

using testing::HasSubstr;

std::string const INFO = pattern(1777, 4);
std::vector<unsigned char> const INFO_BYTES(INFO.begin(), INFO.end());

TEST(HEIFDebugInfo, GoesInAndOutWithoutHidingTheTrailer) {
    struct Case {
        char const* before;
        char const* written;
        char const* removed;
    } const cases[] = {
        {"I", "ID", "I"},          {"IV", "IVD", "IV"},         {"IT", "IDT", "IT"},     {"IVT", "IDVT", "IVT"},
        {"IPWT", "IPDWT", "IPWT"}, {"ID", "ID", "I"},           {"IDV", "IVD", "IV"},    {"IDVT", "IDVT", "IVT"},
        {"IVDT", "IDVT", "IVT"},   {"ITD", "IDT", "IT"},        {"IVTD", "IDVT", "IVT"}, {"ITVD", "IDVT", "IVT"},
        {"IDDVDT", "IDVT", "IVT"}, {"IDPVDT", "IPDVT", "IPVT"}, {"IB", "IBD", "IB"},     {"IVBP", "IVBPD", "IVBP"},
    };
    HeicParts const parts;
    for (auto const& [before, written, removed] : cases) {
        TempFile const file(parts.build(before));
        HEIFMetaWriter(file.open()).removeCameraDebugInfo();
        EXPECT_TRUE(file.bytes() == parts.build(removed)) << before;

        TempFile const other(parts.build(before));
        HEIFMetaWriter(other.open()).writeCameraDebugInfo(INFO_BYTES);
        EXPECT_TRUE(other.bytes() == (HeicParts{parts.image, INFO}.build(written))) << before;
        HEIFMetaReader reader(other.open("r"), ParseMode::LAZY);
        EXPECT_EQ(reader.getCameraDebugInfo().toTypedData<std::string>(), INFO) << before;
    }
}

TEST(HEIFDebugInfo, BoxInsideTheImageGivesWayWithoutMovingIt) {
    auto const image = [](std::string const& content) { return buildHeic({.beforeMdat = heicBox("free", content)}); };
    TempFile const file(image("cdifold"));
    HEIFMetaWriter writer(file.open());
    writer.writeCameraDebugInfo(INFO_BYTES);
    EXPECT_TRUE(file.bytes() == (HeicParts{image(std::string(7, '\0')), INFO}.build("ID")));
    writer.removeCameraDebugInfo();
    EXPECT_TRUE(file.bytes() == image(std::string(7, '\0')));
}

TEST(HEIFDebugInfo, BoxWithoutSizeIsClosedBeforeSomethingFollows) {
    TempFile const file(buildHeic({.mdat = HeicOptions::Mdat::ToEnd}));
    HEIFMetaWriter(file.open()).writeCameraDebugInfo(INFO_BYTES);
    EXPECT_TRUE(file.bytes() == (HeicParts{buildHeic(), INFO}.build("ID")));
}

TEST(HEIFDebugInfo, RefusalsLeaveTheFileAsItWas) {
    HeicParts const parts;
    struct Case {
        char const* what;
        std::string bytes;
        std::vector<unsigned char> data;
        char const* message;
    } const cases[] = {
        {"nothing to write", parts.build("I"), {}, "[metadata_utils/io/HEIFMetaWriter:474] empty camera debug info"},
        {"stray bytes", parts.build("I") + "abc", INFO_BYTES, "fail to get file payload"},
        {"damaged box", parts.build("IV").substr(0, 4000), INFO_BYTES, "invalid chunk payload: 5020"},
        {"trailer in another box",
         buildHeic({.mdat = HeicOptions::Mdat::ToEnd, .tail = trailerBytes({{1, "Other", "data"}})}), INFO_BYTES,
         "the trailer stands in no box of its own"},
        {"more than damage explains", parts.build("I" + std::string(17, 'D')), INFO_BYTES, "17 camera debug infos"},
    };
    for (auto const& [what, bytes, data, message] : cases) {
        TempFile const file(bytes);
        HEIFMetaWriter writer(file.open());
        EXPECT_THAT(messageOf([&, &info = data] { writer.writeCameraDebugInfo(info); }), HasSubstr(message)) << what;
        EXPECT_TRUE(file.bytes() == bytes) << what;
    }
}

TEST(HEIFDebugInfo, FullDiskLeavesTheFileAsItWasAndNoFailedWriteSucceeds) {
    HeicParts const parts;
    for (char const* letters : {"I", "ID", "IVT", "IDVT", "ITVD"}) {
        TempFile const file(parts.build(letters));
        {
            Fault const full = Fault::failing(Call::ALLOCATE, ENOSPC);
            EXPECT_THAT(messageOf([&] { HEIFMetaWriter(file.open()).writeCameraDebugInfo(INFO_BYTES); }),
                        HasSubstr("fail to reserve"));
        }
        EXPECT_TRUE(file.bytes() == parts.build(letters)) << letters;
        bool done = false;
        for (size_t first = 0; !done; ++first) {
            TempFile const other(parts.build(letters));
            Fault const fault = Fault::shortened(Call::WRITE, 0, first);
            try {
                HEIFMetaWriter(other.open()).writeCameraDebugInfo(INFO_BYTES);
                done = true;
                EXPECT_LE(fault.calls(), first) << letters;
            } catch (std::runtime_error const&) {
                EXPECT_GT(fault.calls(), first) << letters;
            }
        }
    }
}

TEST(HEIFTrailerOrder, TrailerComesLastAndItsPointerFollows) {
    struct Case {
        char const* before;
        char const* after;
    } const cases[] = {
        {"ITV", "IVT"}, {"IVTD", "IVDT"}, {"ITWD", "IWDT"}, {"ITPV", "IPVT"}, {"ITVB", "ITVB"},
        {"IVT", "IVT"}, {"I", "I"},       {"IVTP", "IVTP"}, {"IDV", "IDV"},
    };
    HeicParts const parts;
    for (auto const& [before, after] : cases) {
        TempFile const file(parts.build(before));
        EXPECT_EQ(HEIFMetaWriter::restoreTrailerOrder(file.open()), std::string(before) != after) << before;
        EXPECT_TRUE(file.bytes() == parts.build(after)) << before;
    }
    std::string const inside = buildHeic({.beforeMdat = parts.build("T")}) + parts.build("V");
    TempFile const file(inside);
    EXPECT_FALSE(HEIFMetaWriter::restoreTrailerOrder(file.open())); // the image's own offsets count on it
    EXPECT_TRUE(file.bytes() == inside);
}

} // namespace
} // namespace android::lumo::test
