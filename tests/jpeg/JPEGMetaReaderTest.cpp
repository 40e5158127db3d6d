// SPDX-License-Identifier: Apache-2.0
#include "io/JPEGMetaReader.h"
#include "support/Faults.h"
#include "support/JpegBuilder.h"
#include "support/TempFile.h"

#include <unistd.h>

namespace android::lumo::test {
namespace {

using enum MediaDefs::MetaType;
using enum ParseMode;

TEST(JPEGMetaReader, LocatesEachBlockAndLoadsItsData) {
    TempFile const file(
        JpegBuilder().segment(0xE0, "JFIF").exif("exif data").xmp("<packet/>").segment(0xE4, "debug").build());
    auto const reader = ImageMetaReader::of(file.open("r"), EAGER);
    EXPECT_EQ(reader->getExif().toString(), "type=exif, position=14, payload=15, offset=0");
    EXPECT_EQ(reader->getExif().toTypedData<std::string>(), EXIF_ID + "exif data");
    EXPECT_EQ(reader->getXMP().toString(), "type=xmp, position=33, payload=38, offset=29");
    EXPECT_EQ(reader->getCameraDebugInfo().toString(), "type=cdif, position=75, payload=5, offset=0");
}

TEST(JPEGMetaReader, SearchEndsQuietlyAtDamage) {
    auto const xmp = [](JpegBuilder builder) { return builder.xmp("<found/>"); };
    std::tuple<char const*, std::string, MediaDefs::MetaType, std::string> const cases[] = {
        {"fill bytes in front", xmp(JpegBuilder().raw(std::string(10'000, '\xFF'))).build(), XMP, "<found/>"},
        {"no start of scan", xmp(JpegBuilder()).open(), XMP, "<found/>"},
        {"short APP1 in front", xmp(JpegBuilder().segment(0xE1, "Exi")).build(), XMP, "<found/>"},
        {"segments of no block", xmp(JpegBuilder().segment(0xE2, "a").segment(0xE3, "b").segment(0xEF, "c")).build(),
         XMP, "<found/>"},
        {"identifier without NUL ends the payload", JpegBuilder().segment(0xE1, XMP_ID.substr(0, 28)).build(), XMP, ""},
        {"identifier cut off", JpegBuilder().segment(0xE1, XMP_ID.substr(0, 27)).raw("/").build(), NONE, ""},
        {"packet cut off by the file's end", JpegBuilder().xmp("<cut/>xxx").open().substr(0, 41), XMP, "<cut/>"},
        {"extended packet", JpegBuilder().segment(0xE1, EXTENDED_XMP_ID + "more").build(), NONE, ""},
        {"no marker in front", xmp(JpegBuilder().raw(std::string("\0\xFF", 2))).build(), NONE, ""},
        {"length 1", JpegBuilder().raw(std::string("\xFF\xE1\0\1", 4) + XMP_ID).build(), NONE, ""},
        {"end of image in front", xmp(JpegBuilder().segment(0xD9, "")).build(), NONE, ""},
        {"start of scan in front", xmp(JpegBuilder().segment(0xDA, "")).build(), NONE, ""},
        {"segment past the file's end in front", JpegBuilder().raw("\xFF\xE0\xFF\xFF").xmp("<x/>").open(), NONE, ""},
        {"fill bytes to the end", JpegBuilder().raw(std::string(5000, '\xFF')).open(), NONE, ""},
    };
    for (auto const& [what, bytes, type, data] : cases) {
        TempFile const file(bytes);
        JPEGMetaReader reader(file.open("r"), EAGER);
        EXPECT_EQ(reader.getXMP().type, type) << what;
        EXPECT_EQ(reader.getXMP().toTypedData<std::string>(), data) << what;
        EXPECT_EQ(reader.findXMPApp1Marker().type, type) << what;
    }
}

TEST(JPEGMetaReader, LazyReaderReadsOnFirstRequestAndAgainWhileNothingIsFound) {
    TempFile const file(JpegBuilder().build());
    auto const media = file.open("r");
    media->position(7);
    JPEGMetaReader reader(media, LAZY);
    EXPECT_EQ(media->position(), 7U);
    EXPECT_EQ(reader.getXMP().type, NONE);
    EXPECT_EQ(media->position(), 0U);
    writeBytes(file.path(), JpegBuilder().xmp("<first/>").exif().xmp("<second/>").build());
    EXPECT_EQ(reader.getXMP().toTypedData<std::string>(), "<second/>"); // of two the record is the last
    EXPECT_EQ(reader.findXMPApp1Marker().toTypedData<std::string>(), "<first/>");
    EXPECT_EQ(reader.findAllXMP().size(), 2U);
}

TEST(JPEGMetaReader, ReadFailureIsNoAbsence) {
    int ends[2];
    ASSERT_EQ(pipe(ends), 0);
    EXPECT_TRUE(failsWith("] fail to parse", [&] { JPEGMetaReader(std::make_shared<MediaFile>(ends[0]), EAGER); }));
    for (int end : ends)
        close(end);
    TempFile const file(JpegBuilder().segment(0xE0, pattern(9'000)).xmp("<x/>").build());
    auto const media = file.open("r");
    JPEGMetaReader reader(media, LAZY);
    for (size_t call : {0U, 1U}) {
        Fault const fault = Fault::failing(Call::READ, EIO, call);
        EXPECT_TRUE(failsWith("] fail to parse", [&] { JPEGMetaReader(media, EAGER); })) << call;
        EXPECT_TRUE(failsWith("] fail to read bytes", [&] { reader.findAllXMP(); })) << call;
        EXPECT_FALSE(reader.parseMetadata());
        EXPECT_EQ(reader.getXMP().type, NONE);
        media->position(2);
        EXPECT_EQ(reader.findNextAppNMarker({1}), (std::pair<int32_t, int32_t>{-1, -1}));
    }
}

TEST(JPEGMetaReader, ReadsEachByteOnceHoweverShortTheSegments) {
    std::string bytes = JpegBuilder().open();
    for (int i = 0; i < 50'000; ++i)
        bytes += std::string("\xFF\xE1\0\2", 4);
    TempFile const file(bytes);
    Fault const reads = Fault::failing(Call::READ, EIO, Fault::ALWAYS);
    JPEGMetaReader const reader(file.open("r"), EAGER);
    EXPECT_LT(reads.calls(), 55U);
}

} // namespace
} // namespace android::lumo::test
