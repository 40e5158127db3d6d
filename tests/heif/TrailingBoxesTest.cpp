// SPDX-License-Identifier: Apache-2.0
#include "io/TrailingBoxes.h"
#include "HeicParts.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"

#include <array>

namespace android::lumo::test {
namespace {

std::string const INFO = pattern(1777, 4);
std::vector<unsigned char> const INFO_BYTES(INFO.begin(), INFO.end());

TEST(TrailingBoxes, DebugInfoGoesInAndOutWithoutHidingTheTrailer) {
    std::array<char const*, 3> const cases[] = {
        {"I", "ID", "I"},          {"IV", "IVD", "IV"},         {"IT", "IDT", "IT"},     {"IVT", "IDVT", "IVT"},
        {"IPWT", "IPDWT", "IPWT"}, {"ID", "ID", "I"},           {"IDV", "IVD", "IV"},    {"IDVT", "IDVT", "IVT"},
        {"IVDT", "IDVT", "IVT"},   {"ITD", "IDT", "IT"},        {"IVTD", "IDVT", "IVT"}, {"ITVD", "IDVT", "IVT"},
        {"IDDVDT", "IDVT", "IVT"}, {"IDPVDT", "IPDVT", "IPVT"}, {"IB", "IBD", "IB"},     {"IVBP", "IVBPD", "IVBP"},
        {"IN", "IDN", "IN"},
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

TEST(TrailingBoxes, ImageStaysWhereItStands) {
    auto const image = [](std::string const& content) { return buildHeic({.beforeMdat = heicBox("free", content)}); };
    TempFile const file(image("cdifold")), open(buildHeic({.mdat = HeicOptions::Mdat::ToEnd}));
    HEIFMetaWriter writer(file.open());
    writer.writeCameraDebugInfo(INFO_BYTES);
    EXPECT_TRUE(file.bytes() == (HeicParts{image(std::string(7, '\0')), INFO}.build("ID")));
    writer.removeCameraDebugInfo();
    EXPECT_TRUE(file.bytes() == image(std::string(7, '\0')));
    TempFile const video(buildHeic({.beforeMdat = heicBox("mpvd", "video")}) + heicBox("mpvd", HEIC_VIDEO));
    EXPECT_TRUE(heif::TrailingBoxes(video.open()).takeVideosOut());
    EXPECT_TRUE(video.bytes() == image(std::string(5, '\0')));
    TempFile const several(HeicParts().build("IVWPVN"));
    EXPECT_TRUE(heif::TrailingBoxes(several.open()).takeVideosOut());
    EXPECT_TRUE(several.bytes() == HeicParts().build("IPN"));
    HEIFMetaWriter(open.open()).writeCameraDebugInfo(INFO_BYTES); // a box without size gets one
    EXPECT_TRUE(open.bytes() == (HeicParts{buildHeic(), INFO}.build("ID")));
    TempFile const other(buildHeic({.behindMdat = heicBox({"\0\0\0\0", 4}, "content")})); // a type that is all zeros
    HEIFMetaWriter(other.open()).writeCameraDebugInfo(INFO_BYTES);
    EXPECT_EQ(HEIFMetaReader(other.open("r"), ParseMode::LAZY).getCameraDebugInfo().toTypedData<std::string>(), INFO);
}

TEST(TrailingBoxes, RefusalsLeaveTheFileAsItWas) {
    HeicParts const parts;
    auto const put = [](auto& file) { HEIFMetaWriter(file.open()).writeCameraDebugInfo(INFO_BYTES); };
    auto const putNone = [](auto& file) { HEIFMetaWriter(file.open()).writeCameraDebugInfo({}); };
    auto const cut = [](auto& file) { HEIFMetaWriter(file.open()).removeCameraDebugInfo(); };
    auto const order = [](auto& file) { HEIFMetaWriter::restoreTrailerOrder(file.open()); };
    auto const drop = [](auto& file) {
        heif::TrailingBoxes boxes(file.open());
        boxes.takeOut(boxes.videos().back());
    };
    auto const dropAll = [](auto& file) { heif::TrailingBoxes(file.open()).takeVideosOut(); };
    auto const tileBehind = [](std::string const& letters, int64_t shift) { // inside one of the boxes
        return HeicParts{buildHeic({.tileShift = shift})}.build(letters);
    };
    expectRefused({
        {parts.build("I") + "abc", put, "fail to get file payload"},
        {parts.build("IV").substr(0, 4000), put, "invalid chunk payload: 5020"},
        {buildHeic({.mdat = HeicOptions::Mdat::ToEnd, .tail = trailerBytes({{1, "Other", "data"}})}), put,
         "the trailer stands in no box of its own"},
        {parts.build("I" + std::string(17, 'D')), put, "17 camera debug infos"},
        {HeicParts{buildHeic({.xmp = "<MotionPhoto/>", .beforeMdat = videoBox("v")})}.build("IT"), put,
         "behind a video that XMP counts"},
        {HeicParts{buildHeic({.xmp = std::string("M\0i\0c\0r\0o\0V\0i\0d\0e\0o", 19), .beforeMdat = videoBox("v")})}
             .build("IT"),
         put, "behind a video that XMP counts"},
        {parts.image, putNone, "[metadata_utils/io/HEIFMetaWriter:474] empty camera debug info"},
        {parts.build("IVPVPVPVPVPVPVPVPVPVPVPVPVPVPVPVPV"), dropAll, "videos in 17 places"},
        {tileBehind("IVT", 400), put, "bytes behind"},
        {tileBehind("IDVT", 400), put, "bytes behind"},
        {tileBehind("IDV", 400), cut, "bytes behind"},
        {tileBehind("ITV", 1000), order, "bytes behind"},
        {tileBehind("IVP", 5160), drop, "bytes behind"},
        {buildHeic({.extraMeta = heicFullBox("iloc", 3, 0, "123456")}) + heicBox("mpvd", HEIC_VIDEO), drop,
         "'iloc': version 3"},
    });
}

TEST(TrailingBoxes, TrailerComesLastAndItsPointerFollows) {
    std::pair<char const*, char const*> const cases[] = {
        {"ITV", "IVT"}, {"IVTD", "IVDT"}, {"ITWD", "IWDT"}, {"ITPV", "IPVT"}, {"ITVB", "IVBT"},
        {"IVT", "IVT"}, {"I", "I"},       {"IVTP", "IVPT"}, {"IDV", "IDV"},
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
