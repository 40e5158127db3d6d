#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "HboxRun.h"
#include "support/HeicBuilder.h"

using namespace android::lumo::test;
using namespace hbox::test;

namespace {

// HBOX_MUTATIONS=20000 makes a long run of it; the sanitizers are the judge of most.
unsigned rounds() {
    char const* const wanted = std::getenv("HBOX_MUTATIONS");
    return wanted ? static_cast<unsigned>(std::strtoul(wanted, nullptr, 10)) : 600;
}

/// Asks everything there is to ask; answers do not matter, only that they come.
void askAll(std::string const& file) {
    Demuxer const source(file);
    if (!source.handle)
        return;
    for (uint32_t id = 0; id < 12; ++id) {
        HBOXD_IMAGE_INFO info;
        uint32_t thumbnail = 0;
        hboxd_get_info_image(source.handle, id, &info);
        hboxd_get_image_id(source.handle, HBOXD_IMAGE_THUMBNAIL, id, &thumbnail);
        for (auto const kind : {HBOXD_ITEM_CODEC_SPECIFIC, HBOXD_ITEM_GRID, HBOXD_ITEM_LOCATION, HBOXD_ITEM_MIME}) {
            uint32_t size = 0;
            hboxd_get_info_item(source.handle, id, kind, nullptr, &size);
        }
        EXPECT_LE(source.frame(id).size(), file.size() + 255) << "more than the file holds";
    }
}

/// What is written must be readable again, with the same tiles.
void expectSound(std::string const& file, MuxResult const& made) {
    Demuxer const before(file);
    Demuxer const after(made.image);
    ASSERT_NE(after.handle, nullptr) << hbox_last_error();
    CoverInfo cover;
    ASSERT_EQ(cover.collect(after.handle, 300), HBOX_OK) << hbox_last_error();
    for (uint32_t const tile : cover.tiles)
        EXPECT_EQ(after.frame(tile), before.frame(tile));
    EXPECT_EQ(reserve(made.image, static_cast<uint32_t>(made.image.size()), 300).error, HBOX_OK) << hbox_last_error();
}

void tryFile(std::string const& file) {
    askAll(file);
    MuxResult const made = reserve(file, static_cast<uint32_t>(file.size()), 300);
    if (made.error == HBOX_OK)
        expectSound(file, made);
    else
        EXPECT_FALSE(made.text.empty());
}

} // namespace

TEST(HboxMutation, AnswersOrRefusesWhenBytesAreChanged) {
    std::string const file =
        buildHeic({.thumbnail = true, .groups = true, .xmp = heicXmp("seed", 300), .freeBoxes = true});
    for (unsigned seed = 0; seed < rounds(); ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        std::string changed = file;
        for (auto left = random() % 4 + 1; left > 0; --left) { // the end of the file is mere payload: left alone
            static constexpr unsigned char EDGES[] = {0x00, 0x01, 0x7F, 0x80, 0xFF};
            auto const value = random() % 2 ? random() & 0xFF : EDGES[random() % sizeof EDGES];
            changed[random() % (file.size() - 400)] = static_cast<char>(static_cast<unsigned char>(value));
        }
        if (random() % 8 == 0)
            changed.erase(random() % changed.size(), random() % 16 + 1);
        tryFile(changed);
    }
}

TEST(HboxMutation, AnswersOrRefusesWhenTheFileIsCutOff) {
    std::string const file =
        buildHeic({.thumbnail = true, .xmp = heicXmp("seed"), .gridInIdat = false, .metaLast = true});
    for (size_t length = 0; length < file.size(); length += 3)
        tryFile(file.substr(0, length));
}
