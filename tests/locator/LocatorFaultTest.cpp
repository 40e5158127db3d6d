// SPDX-License-Identifier: Apache-2.0
#include "Error.h"
#include "LocatorFixture.h"
#include "PublishedPhoto.h"
#include "support/Faults.h"

namespace android::lumo::test {

namespace {

std::string const MOVIE = clip(6000);

std::vector<std::string> photos() {
    auto const video = videoItem(MOVIE.size());
    return {published(PRIMARY + video, MOVIE),
            heicWith(videoBox(MOVIE), itemOf("Primary", "image/heic", paddingOf(8)) + video)};
}

} // namespace

/// Whatever read fails, the answer is never "none".
TEST(LocatorFaults, AReadThatFailsIsNoAnswer) {
    for (auto const& photo : photos()) {
        TempFile const file(photo);
        std::string const expected = textOf(MotionVideo::locate(file.open("r")));
        for (auto* const ask : {&MotionVideo::locate, &MotionVideo::scan}) {
            for (size_t n = 0; n < photo.size(); n += 37) { // every part of the file has its turn
                auto const media = file.open("r");
                auto const fault = Fault::badSector(static_cast<off64_t>(n));
                std::string answer;
                try {
                    answer = textOf(ask(media));
                    if (ask == &MotionVideo::scan)
                        EXPECT_EQ(answer, "none none") << n;
                    else
                        EXPECT_EQ(answer, expected) << n;
                } catch (Error const& error) {
                    EXPECT_EQ(error.code(), Error::Code::READ_FAILED) << n << ": " << error.what();
                }
            }
        }
    }
}

/// Whatever change fails, the edit says so, and the photo is as it was, or its movie stands whole where a claim or a
/// scan finds it, unless bytes were being moved.
TEST(LocatorFaults, AnEditThatFailsLeavesTheMovieWithinReach) {
    using Edit = void (*)(std::shared_ptr<MediaFile> const&);
    for (auto const& photo : photos()) {
        for (Edit const edit : {Edit([](auto const& file) { published::removeVideo(file); }),
                                Edit([](auto const& file) { published::toTrailer(file); })}) {
            size_t torn = 0;
            for (size_t n = 0; n < 1000; ++n) {
                TempFile const file(photo);
                auto const media = file.open();
                bool isDone = false;
                size_t calls = 0;
                {
                    auto const fault = Fault::failing(Call::CHANGE, EIO, n, 1);
                    try {
                        edit(media);
                        isDone = true;
                    } catch (std::runtime_error const&) {
                    }
                    calls = fault.calls();
                }
                if (isDone && calls <= n)
                    break;
                bool const isWhole = file.bytes().find(MOVIE.substr(12)) != std::string::npos;
                torn += isWhole ? 0 : 1;
                if (isWhole && !isDone) {
                    auto const now = file.open("r");
                    EXPECT_TRUE(MotionVideo::locate(now).isSound() || MotionVideo::scan(now).isSound()) << n;
                }
            }
            EXPECT_LE(torn, 2U);
        }
    }
}

} // namespace android::lumo::test
