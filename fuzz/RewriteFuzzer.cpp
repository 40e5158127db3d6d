// SPDX-License-Identifier: Apache-2.0
// A HEIC of hostile boxes: every question that the reader and the demuxer answer; then it is written again. The XMP,
// the debug info and the video are read back, every other item is as it was, and a refusal leaves the file alone. The
// last two bytes choose the steps.
#include "FuzzSupport.h"
#include "XMPInfo.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "support/HeicBuilder.h"
#include "support/JpegBuilder.h"

#include <algorithm>
#include <map>

using namespace android::lumo;
using namespace android::lumo::fuzz;

namespace {

constexpr uint32_t MAX_ITEM = 24;

void askDemuxer(std::string const& bytes) {
    Demuxer const source(bytes);
    for (uint32_t id = 0; source.handle != nullptr && id < MAX_ITEM; ++id) {
        HBOXD_IMAGE_INFO info;
        uint32_t thumbnail = 0;
        hboxd_get_info_image(source.handle, id, &info);
        hboxd_get_image_id(source.handle, HBOXD_IMAGE_THUMBNAIL, id, &thumbnail);
        for (auto const kind : {HBOXD_ITEM_CODEC_SPECIFIC, HBOXD_ITEM_GRID, HBOXD_ITEM_LOCATION}) {
            uint32_t size = 0;
            if (hboxd_get_info_item(source.handle, id, kind, nullptr, &size) != HBOX_OK)
                continue;
            std::string answer(size, '\0'); // exactly: a byte more is an overflow
            hboxd_get_info_item(source.handle, id, kind, answer.data(), &size);
        }
        FUZZ_REQUIRE(source.frame(id).value_or("").size() <= bytes.size());
    }
}

/// The stored bytes of all items that can be read, but the XMP's, and but what lies over the XMP or over a header of
/// the top level.
std::map<uint32_t, std::string> itemsOf(std::string const& bytes) {
    std::map<uint32_t, std::string> items;
    MemoryFile const file(bytes);
    HEIFMetaReader reader(file.open(), ParseMode::LAZY);
    std::list<HEIFMetaReader::Box> stores;
    std::optional<HEIFMetaReader::XMPItem> xmp;
    refusal([&] {
        stores = reader.findBox({"mdat", "meta"});
        xmp = reader.getXMPItem();
    });
    auto const isStored = [&](HBOXD_LOCATION const& place) {
        if (xmp && place.position < xmp->position + xmp->length && xmp->position < place.position + place.length)
            return false;
        return std::any_of(stores.begin(), stores.end(), [&](auto const& box) {
            return place.position >= box.position + 8 && place.position + place.length <= box.position + box.size;
        });
    };
    Demuxer const source(bytes);
    for (uint32_t id = 0; source.handle != nullptr && id < MAX_ITEM; ++id) {
        HBOXD_IMAGE_INFO info{};
        bool const isMime =
            hboxd_get_info_image(source.handle, id, &info) == HBOX_OK && info.type == HBOX_FOURCC('m', 'i', 'm', 'e');
        uint32_t placeSize = sizeof(HBOXD_LOCATION);
        HBOXD_LOCATION place{};
        if (!isMime && hboxd_get_info_item(source.handle, id, HBOXD_ITEM_LOCATION, &place, &placeSize) == HBOX_OK &&
            place.extent_count == 1 && isStored(place)) {
            if (auto const frame = source.frame(id))
                items[id] = *frame;
        }
    }
    return items;
}

std::shared_ptr<XMPInfo> packetOf(size_t size) {
    MemoryFile const file(test::JpegBuilder().xmp(test::heicXmp(std::string(size, 's'))).build());
    return XMPInfo::parse(file.open());
}

class Still {
public:
    explicit Still(std::string const& bytes) : file(bytes) {}

    /// One step on the file; an answer for what it must have left, asked when it went through.
    void run(unsigned step, size_t amount) {
        std::string const before = file.bytes();
        std::string const debugInfo(amount, 'd');
        auto const info = packetOf(amount);
        bool const isDone = goesThrough([&] {
            auto const still = file.open();
            HEIFMetaWriter writer(still);
            if (still->mimeType() != MediaDefs::MimeType::IMAGE_HEIC) // what any other gets no writer for
                throw std::runtime_error("[fuzz] no HEIC");
            switch (step % 8) {
            case 0:
                writer.reserveXMP(static_cast<unsigned>(amount));
                break;
            case 1:
                writer.writeXMP(info);
                break;
            case 2:
                writer.writeCameraDebugInfo({debugInfo.begin(), debugInfo.end()});
                break;
            case 3:
                writer.removeCameraDebugInfo();
                break;
            case 4:
                HEIFMetaWriter::restoreTrailerOrder(still);
                break;
            case 5:
                HEIFMetaWriter::closeLastBox(still);
                break;
            default:
                editVideo(file, step % 8 == 6 ? VideoEdit::Add : VideoEdit::Remove);
                break;
            }
        });
        std::string const after = file.bytes();
        if (!isDone) {
            FUZZ_REQUIRE(before == after);
            return;
        }
        auto const items = itemsOf(before);
        auto const itemsNow = itemsOf(after);
        for (auto const& [id, frame] : items)
            FUZZ_REQUIRE(itemsNow.contains(id) && itemsNow.at(id) == frame);
        HEIFMetaReader reader(file.open(), ParseMode::LAZY);
        if (step % 8 == 0)
            FUZZ_REQUIRE(reader.getXMPItem() && reader.getXMPItem()->length >= amount);
        if (step % 8 == 1) {
            auto const packet = info->serializeToBuffer();
            FUZZ_REQUIRE(
                reader.getXMP().toTypedData<std::string>().starts_with(std::string(packet.begin(), packet.end())));
        }
        if (step % 8 == 2)
            FUZZ_REQUIRE(reader.getCameraDebugInfo().toTypedData<std::string>() == debugInfo);
        if (step % 8 == 3)
            FUZZ_REQUIRE(reader.getCameraDebugInfo().payload == 0);
    }

private:
    MemoryFile file;
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size < 2)
        return 0;
    std::string const bytes(text(data, size - 2));
    askEverything(MemoryFile(bytes));
    editPublished(bytes);
    askDemuxer(bytes);
    Still still(bytes);
    still.run(data[size - 1] % 8, data[size - 2]);
    still.run(data[size - 1] / 8 % 8, size_t{data[size - 2]} * 5);
    still.run(data[size - 1] / 64, 40);
    return 0;
}
