// A file of hostile boxes: every question the reader and the demuxer answer, and the muxer, whose output must hold the
// same tiles and be readable by the same demuxer.
#include "FuzzSupport.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"

using namespace android::lumo;
using namespace android::lumo::fuzz;

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
        FUZZ_REQUIRE(source.frame(id).value_or("").size() <= bytes.size());
    }
}

/// The muxer, driven by the writer.
void mux(std::string const& bytes) {
    MemoryFile const file(bytes);
    if (!goesThrough([&] { HEIFMetaWriter(file.open()).reserveXMP(300); }))
        return;
    std::string const made = file.bytes();
    Demuxer const before(bytes);
    Demuxer const after(made);
    HEIFMetaReader reader(file.open(), ParseMode::LAZY);
    auto const room = reader.getXMPItem();
    FUZZ_REQUIRE(room && uint64_t{room->position} + room->length <= made.size() && room->length >= 300);
    for (auto const tile : reader.getItemIds(reader.getCoverImageId(), 512))
        FUZZ_REQUIRE(after.frame(tile) && after.frame(tile) == before.frame(tile));
    FUZZ_REQUIRE(goesThrough([&] { HEIFMetaWriter(file.open()).reserveXMP(300); }));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0)
        return 0;
    std::string const bytes(text(data, size));
    askReader(bytes);
    askDemuxer(bytes);
    mux(bytes);
    return 0;
}
