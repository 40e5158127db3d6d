// SPDX-License-Identifier: Apache-2.0
#include "MediaFile.h"
#include "Error.h"
#include "support/Faults.h"
#include "support/TempFile.h"

namespace android::lumo::test {
namespace {

TEST(MediaFile, RefusesWhatIsNoOpenFile) {
    for (int fd : {0, -1})
        EXPECT_TRUE(
            failsWith("] Invalid file descriptor provided: " + std::to_string(fd), [fd] { MediaFile file(fd); }));
    TempDir const dir;
    EXPECT_TRUE(failsWith("] fail to open file " + dir.file("none"), [&] { open(dir.file("none"), "w"); }));
    EXPECT_FALSE(std::filesystem::exists(dir.file("none")));
}

TEST(MediaFile, OpensByModeAndSharesThePositionOfADuplicate) {
    TempFile const temp("0123456789");
    EXPECT_EQ(temp.open("wr")->write("x"), -1);
    EXPECT_THROW(temp.open("w")->read<char>(8), std::length_error);
    EXPECT_THROW(temp.open("w")->readAllBytes(), std::runtime_error);
    auto const file = temp.open("rw");
    MediaFile const duplicate(file->getFd());
    file->skipNBytes(7);
    EXPECT_EQ(duplicate.position(), 7U);
    EXPECT_THROW(file->skipNBytes(UINT32_MAX), std::runtime_error);
    EXPECT_TRUE(MediaFile::isFdsDup(file->getFd(), temp.open("r")->getFd()));
    for (int other : {TempFile().open()->getFd(), -1})
        EXPECT_FALSE(MediaFile::isFdsDup(file->getFd(), other));
}

TEST(MediaFile, ReadsWholeIntegersAndNoMoreThanTheFileHolds) {
    TempFile const temp("\x01\x02\x03\x04\x05\x06\x07\x08\xFE\xFF\xFF\xFF" + pattern(9'988));
    auto const file = temp.open();
    EXPECT_EQ((file->read<uint64_t, uint64_t>()), 0x0807060504030201U);
    EXPECT_EQ((file->read<int32_t, int32_t>()), -2);
    file->position(4'000);
    auto const bytes = file->read<char>(UINT32_MAX);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), temp.bytes().substr(4'000));
    EXPECT_LT(bytes.capacity(), 10'000U);
    file->position(9'990);
    EXPECT_EQ(file->read<int32_t>(UINT32_MAX).size(), 2U);
    file->position(9'999);
    EXPECT_TRUE(failsWith("] fail to read bytes: 1, expected 4", [&] { file->read<uint32_t, uint32_t>(); }));
    file->position(5);
    EXPECT_EQ(file->readAllBytes().size(), 10'000U);
    EXPECT_EQ(file->position(), 5U);
}

TEST(MediaFile, DetectsTheTypeByTheFirstBytesAndKeepsThePosition) {
    using enum MediaDefs::MimeType;
    std::pair<MediaDefs::MimeType, std::vector<std::string>> const cases[] = {
        {IMAGE_JPEG, {"\xFF\xD8"}},
        {IMAGE_HEIC, {"....ftypheic", "....ftypmif1", "....ftypheix", "....ftyphevc"}},
        {VIDEO_MP4, {"....ftypmp42..."}},
        {VIDEO_QUICKTIME, {"....ftypqt  "}},
        {NONE, {"....ftypavif", "....ftypmp4", "\xFF", "", ".ftypheic"}},
    };
    for (auto const& [type, starts] : cases)
        for (auto const& bytes : starts) {
            TempFile const temp(bytes);
            auto const file = temp.open("r");
            file->position(1);
            try {
                Fault const fault = Fault::failing(Call::READ, EIO);
                ADD_FAILURE() << static_cast<int>(file->mimeType());
            } catch (Error const& error) {
                EXPECT_EQ(error.code(), Error::Code::READ_FAILED);
            }
            if (type == NONE) {
                EXPECT_TRUE(failsWith("] not supported or broken file type", [&] { file->mimeType(); })) << bytes;
            } else {
                EXPECT_EQ(file->mimeType(), type) << bytes;
                writeBytes(temp.path(), "text");
                EXPECT_EQ(file->mimeType(), type) << "remembered";
            }
            EXPECT_EQ(file->position(), 1U) << bytes;
        }
}

} // namespace
} // namespace android::lumo::test
