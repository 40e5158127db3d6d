#include "CheckedFile.h"
#include "HeicParts.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "io/TrailingBoxes.h"

#include <gmock/gmock.h>

#include <array>

namespace android::lumo::test {
namespace {

using testing::HasSubstr;

std::string const INFO = pattern(1777, 4);
std::vector<unsigned char> const INFO_BYTES(INFO.begin(), INFO.end());

TEST(HEIFDebugInfo, GoesInAndOutWithoutHidingTheTrailer) {
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

TEST(HEIFDebugInfo, ImageStaysWhereItStands) {
    auto const image = [](std::string const& content) { return buildHeic({.beforeMdat = heicBox("free", content)}); };
    TempFile const file(image("cdifold")), open(buildHeic({.mdat = HeicOptions::Mdat::ToEnd}));
    HEIFMetaWriter writer(file.open());
    writer.writeCameraDebugInfo(INFO_BYTES);
    EXPECT_TRUE(file.bytes() == (HeicParts{image(std::string(7, '\0')), INFO}.build("ID")));
    writer.removeCameraDebugInfo();
    EXPECT_TRUE(file.bytes() == image(std::string(7, '\0')));
    HEIFMetaWriter(open.open()).writeCameraDebugInfo(INFO_BYTES); // a box without size gets one
    EXPECT_TRUE(open.bytes() == (HeicParts{buildHeic(), INFO}.build("ID")));
    TempFile const other(buildHeic({.behindMdat = heicBox({"\0\0\0\0", 4}, "content")})); // a type that is all zeros
    HEIFMetaWriter(other.open()).writeCameraDebugInfo(INFO_BYTES);
    EXPECT_EQ(HEIFMetaReader(other.open("r"), ParseMode::LAZY).getCameraDebugInfo().toTypedData<std::string>(), INFO);
}

TEST(HEIFDebugInfo, RefusalsLeaveTheFileAsItWas) {
    HeicParts const parts;
    std::pair<std::string, char const*> const cases[] = {
        {parts.build("I") + "abc", "fail to get file payload"},
        {parts.build("IV").substr(0, 4000), "invalid chunk payload: 5020"},
        {buildHeic({.mdat = HeicOptions::Mdat::ToEnd, .tail = trailerBytes({{1, "Other", "data"}})}),
         "the trailer stands in no box of its own"},
        {parts.build("I" + std::string(17, 'D')), "17 camera debug infos"},
    };
    EXPECT_EQ(messageOf([&] { HEIFMetaWriter(TempFile(parts.image).open()).writeCameraDebugInfo({}); }),
              "[metadata_utils/io/HEIFMetaWriter:474] empty camera debug info");
    for (auto const& [bytes, message] : cases) {
        TempFile const file(bytes);
        HEIFMetaWriter writer(file.open());
        EXPECT_THAT(messageOf([&] { writer.writeCameraDebugInfo(INFO_BYTES); }), HasSubstr(message));
        EXPECT_TRUE(file.bytes() == bytes) << message;
    }
}

TEST(HEIFTrailingBoxes, NothingMovesWhereAnItemOfTheImageHasItsBytes) {
    // The first tile stands in the box that comes last in each case; the picture's own bytes are 400 in front of it.
    auto const photo = [](std::string const& letters, int64_t shift) {
        return HeicParts{buildHeic({.tileShift = shift})}.build(letters);
    };
    using heif::TrailingBoxes;
    struct {
        std::string bytes;
        std::function<void(std::shared_ptr<MediaFile> const&)> edit;
    } const cases[] = {
        {photo("IVT", 400), [](auto& file) { HEIFMetaWriter(file).writeCameraDebugInfo(INFO_BYTES); }},
        {photo("IDV", 400), [](auto& file) { HEIFMetaWriter(file).removeCameraDebugInfo(); }},
        {photo("IDVT", 400), [](auto& file) { HEIFMetaWriter(file).writeCameraDebugInfo(INFO_BYTES); }},
        {photo("ITV", 1000), [](auto& file) { HEIFMetaWriter::restoreTrailerOrder(file); }},
        {photo("IVP", 5160), [](auto& file) { TrailingBoxes(file).dropVideos(file->size()); }},
        {photo("IVV", 5400), [](auto& file) { TrailingBoxes(file).dropVideos(file->size()); }},
    };
    for (auto const& [bytes, edit] : cases) {
        TempFile const file(bytes);
        EXPECT_TRUE(failsWith("of the image has bytes behind", [&, &made = edit] { made(file.open()); }));
        EXPECT_TRUE(file.bytes() == bytes);
    }
}

TEST(HEIFTrailingBoxes, VideosGoAndANewOneComesLast) {
    std::pair<char const*, char const*> const cases[] = {{"I", "IV"},       {"IV", "IV"},  {"IWPV", "IPV"},
                                                         {"IDVDV", "IDDV"}, {"IVT", "IV"}, {"IPWT", "IPV"}};
    HeicParts const parts;
    for (auto const& [before, after] : cases) {
        TempFile const file(parts.build(before));
        std::string const letters = before;
        auto const end = static_cast<uint32_t>(parts.build(letters.substr(0, letters.find('T'))).size());
        heif::TrailingBoxes boxes(file.open());
        EXPECT_EQ(boxes.endWithoutVideos(end), parts.build(after).size() - 8 - HEIC_VIDEO.size()) << before;
        EXPECT_EQ(boxes.dropVideos(end), parts.build(after).size() - 8 - HEIC_VIDEO.size()) << before;
        auto const target = file.open();
        boxes = heif::TrailingBoxes(target);
        std::string const bytes = file.bytes();
        for (size_t const missing : {1, 0}) {
            auto const write = [&] { checked::write(*target, HEIC_VIDEO.substr(missing)); };
            bool isDone = false;
            try {
                boxes.addVideo(static_cast<uint32_t>(HEIC_VIDEO.size()), write);
                isDone = true;
            } catch (Error const& error) {
                EXPECT_EQ(error.code(), Error::Code::CHANGED);
            }
            EXPECT_EQ(isDone, missing == 0);
            EXPECT_TRUE(file.bytes() == (isDone ? parts.build(after) : bytes)) << before;
        }
    }
}

TEST(HEIFTrailerOrder, TrailerComesLastAndItsPointerFollows) {
    std::pair<char const*, char const*> const cases[] = {
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
