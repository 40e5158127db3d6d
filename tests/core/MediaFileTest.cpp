#include "MediaFile.h"
#include "support/TempFile.h"

#include <gmock/gmock.h>

namespace android::lumo {

namespace {

using test::messageOf;
using test::TempFile;
using testing::EndsWith;
using testing::StartsWith;

TEST(MediaFile, RefusesWhatIsNoOpenFile) {
    for (int fd : {0, -1})
        EXPECT_THAT(messageOf([fd] { MediaFile file(fd); }),
                    EndsWith("] Invalid file descriptor provided: " + std::to_string(fd)));
    test::TempDir const dir;
    EXPECT_THAT(messageOf([&] { test::open(dir.file("none"), "w"); }),
                AllOf(StartsWith("[metadata_utils/MediaFile:"), EndsWith("] fail to open file " + dir.file("none"))));
    EXPECT_FALSE(std::filesystem::exists(dir.file("none")));
}

TEST(MediaFile, OpensByModeAndSharesThePositionOfADuplicate) {
    TempFile const temp("0123456789");
    EXPECT_EQ(temp.open("wr")->write("x"), -1);
    EXPECT_THROW(temp.open("w")->read<char>(8), std::length_error);
    EXPECT_THROW(temp.open("w")->readAllBytes(), std::runtime_error);
    auto const file = temp.open("rw");
    MediaFile const duplicate(file->getFd());
    file->position(7);
    EXPECT_EQ(duplicate.position(), 7U);
    EXPECT_EQ(duplicate.getPath(), "unknown");
    EXPECT_TRUE(MediaFile::isFdsDup(file->getFd(), duplicate.getFd()));
    EXPECT_TRUE(MediaFile::isFdsDup(file->getFd(), temp.open("r")->getFd()));
    EXPECT_FALSE(MediaFile::isFdsDup(file->getFd(), TempFile().open()->getFd()));
    EXPECT_FALSE(MediaFile::isFdsDup(file->getFd(), -1));
}

TEST(MediaFile, ReadsIntegersWholeOrNotAtAll) {
    auto const file = TempFile(std::string_view("\x01\x02\x03\x04\x05\x06\x07\x08\xFE\xFF\xFF\xFF\x09", 13)).open();
    EXPECT_EQ((file->read<uint64_t, uint64_t>()), 0x0807060504030201U);
    EXPECT_EQ((file->read<int32_t, int32_t>()), -2);
    EXPECT_THAT(
        messageOf([&] { file->read<uint32_t, uint32_t>(); }),
        AllOf(StartsWith("[metadata_utils/include/MediaFile:"), EndsWith("] fail to read bytes: 1, expected 4")));
    EXPECT_THAT(messageOf([&] { file->read<uint16_t, uint16_t>(); }), EndsWith("] fail to read bytes: 0, expected 2"));
}

TEST(MediaFile, ReadsNoMoreThanTheFileHolds) {
    TempFile const temp(test::pattern(10'000));
    auto const file = temp.open();
    file->position(4'000);
    auto const bytes = file->read<char>(UINT32_MAX);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), temp.bytes().substr(4'000));
    EXPECT_LT(bytes.capacity(), 10'000U);
    file->position(9'990);
    EXPECT_EQ(file->read<int32_t>(UINT32_MAX).size(), 2U);
    EXPECT_TRUE(file->read<char>(8).empty());
    for (uint32_t start : {0U, 5U}) {
        file->position(start);
        EXPECT_EQ(file->readAllBytes().size(), 10'000U);
        EXPECT_EQ(file->position(), start == 0 ? 10'000U : start);
    }
}

TEST(MediaFile, SkipsAndWritesAtThePosition) {
    TempFile const temp("0123456789");
    auto const file = temp.open();
    file->skipNBytes(3);
    EXPECT_EQ(file->write<uint16_t>(0x4241, 2), 4);
    EXPECT_EQ(file->write("cd"), 2);
    EXPECT_EQ(temp.bytes(), "012ABABcd9");
    EXPECT_EQ(file->position(), 9U);
    EXPECT_THROW(file->skipNBytes(UINT32_MAX), std::runtime_error);
}

TEST(MediaFile, DetectsTheTypeByTheFirstBytesAndKeepsThePosition) {
    using enum MediaDefs::MimeType;
    struct {
        std::string bytes;
        MediaDefs::MimeType type;
    } const cases[] = {
        {"\xFF\xD8", IMAGE_JPEG},
        {"....ftypheic", IMAGE_HEIC},
        {"....ftypmif1", IMAGE_HEIC},
        {"....ftypheix", IMAGE_HEIC},
        {"....ftyphevc", IMAGE_HEIC},
        {"....ftypmp42...", VIDEO_MP4},
        {"....ftypqt  ", VIDEO_QUICKTIME},
        {"....ftypavif", NONE},
        {"....ftypmp4", NONE},
        {"\xFF", NONE},
        {"", NONE},
        {".ftypheic", NONE},
    };
    for (auto const& [bytes, type] : cases) {
        TempFile const temp(bytes);
        auto const file = temp.open("r");
        file->position(1);
        if (type == NONE) {
            EXPECT_THAT(messageOf([&] { file->mimeType(); }), EndsWith("] not supported or broken file type"));
        } else {
            EXPECT_EQ(file->mimeType(), type) << bytes;
            test::writeBytes(temp.path(), "text");
            EXPECT_EQ(file->mimeType(), type) << "remembered";
        }
        EXPECT_EQ(file->position(), 1U) << bytes;
    }
}

TEST(MediaFile, FindsAVideoBehindTwoGiB) {
    constexpr uint32_t POSITION = 0x90000000U;
    auto const file = TempFile().open();
    ASSERT_EQ(file->truncate(POSITION), 0);
    file->position(POSITION);
    file->write(std::string("sizeftypmp42"));
    EXPECT_TRUE(file->checkFileType([&] { return MediaFile::isMP4Video(file); }, static_cast<long>(POSITION)));
}

} // namespace

} // namespace android::lumo
