// A file of hostile boxes: every question the reader and the demuxer answer, and the muxer, whose output must hold the
// same tiles and be readable by the same demuxer.
#include "FuzzSupport.h"
#include "hbox/HboxRun.h"
#include "io/HEIFMetaReader.h"

using namespace android::lumo;
using namespace android::lumo::fuzz;
using hbox::test::CoverInfo;
using hbox::test::Demuxer;

namespace {

constexpr uint32_t MAX_ITEM = 24;

void askReader(std::string const& bytes) {
    MemoryFile const file(bytes);
    refusal([&] { HEIFMetaReader(file.open(), ParseMode::EAGER); });
    HEIFMetaReader reader(file.open(), ParseMode::LAZY);
    for (auto const get : {&HEIFMetaReader::getXMP, &HEIFMetaReader::getExif, &HEIFMetaReader::getCameraDebugInfo}) {
        refusal([&] {
            Metadata const block = (reader.*get)();
            FUZZ_REQUIRE(block.toTypedData<std::string>().size() <= bytes.size());
        });
    }
    refusal([&] {
        for (auto const& box : reader.findBox({"ftyp", "meta", "mdat", "free", "mpvd", "qrtd"}))
            FUZZ_REQUIRE(uint64_t{box.position} + box.size <= bytes.size());
    });
    refusal([&] { FUZZ_REQUIRE(reader.getEndOfImagePosition(true) <= bytes.size()); });
    refusal([&] {
        auto const item = reader.getXMPItem();
        FUZZ_REQUIRE(!item || uint64_t{item->position} + item->length <= bytes.size());
    });
    refusal([&] { reader.getImageInfo(reader.getCoverImageId()); });
    refusal([&] { reader.getGridInfo(reader.getCoverImageId()); });
    refusal([&] { reader.getThumbnailImageInfo(reader.getCoverImageId()); });
    std::vector<uint8_t> frame;
    refusal([&] {
        for (auto const id : reader.getItemIds(reader.getCoverImageId(), 16))
            reader.getImageFrame(static_cast<int>(id), frame, 1 << 20);
    });
}

void askDemuxer(std::string const& bytes) {
    Demuxer const source(bytes);
    for (uint32_t id = 0; source.handle != nullptr && id < MAX_ITEM; ++id) {
        HBOXD_IMAGE_INFO info;
        uint32_t thumbnail = 0;
        hboxd_get_info_image(source.handle, id, &info);
        hboxd_get_image_id(source.handle, HBOXD_IMAGE_THUMBNAIL, id, &thumbnail);
        for (auto const kind : {HBOXD_ITEM_CODEC_SPECIFIC, HBOXD_ITEM_GRID, HBOXD_ITEM_LOCATION, HBOXD_ITEM_MIME}) {
            uint32_t size = 0;
            if (hboxd_get_info_item(source.handle, id, kind, nullptr, &size) != HBOX_OK)
                continue;
            std::string answer(size, '\0'); // exactly: a byte more is an overflow
            hboxd_get_info_item(source.handle, id, kind, answer.data(), &size);
        }
        FUZZ_REQUIRE(frameOf(source.handle, id).value_or("").size() <= bytes.size());
    }
}

void mux(std::string const& bytes, uint32_t imageLength) {
    auto const made = hbox::test::reserve(bytes, imageLength, 300);
    if (made.error != HBOX_OK)
        return;
    MemoryFile const image(made.image);
    auto const room = HEIFMetaReader(image.open(), ParseMode::LAZY).getXMPItem();
    FUZZ_REQUIRE(room && uint64_t{room->position} + room->length <= made.image.size() && room->length >= 300);
    Demuxer const before(bytes);
    Demuxer const after(made.image);
    CoverInfo old, cover;
    FUZZ_REQUIRE(after.handle != nullptr && cover.collect(after.handle, 300) == HBOX_OK);
    FUZZ_REQUIRE(old.collect(before.handle, 300) == HBOX_OK && old.tiles == cover.tiles);
    for (uint32_t const tile : cover.tiles)
        FUZZ_REQUIRE(frameOf(after.handle, tile) == frameOf(before.handle, tile));
    FUZZ_REQUIRE(hbox::test::reserve(made.image, static_cast<uint32_t>(made.image.size()), 300).error == HBOX_OK);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0)
        return 0;
    std::string const bytes(text(data, size));
    askReader(bytes);
    askDemuxer(bytes);
    mux(bytes, static_cast<uint32_t>(size));
    mux(bytes, static_cast<uint32_t>(size * 3 / 4));
    return 0;
}
