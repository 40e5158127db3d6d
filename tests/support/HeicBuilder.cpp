// SPDX-License-Identifier: Apache-2.0
#include "support/HeicBuilder.h"

#include <algorithm>
#include <vector>

namespace android::lumo::test {

namespace {

std::string fromHex(std::string_view digits) {
    std::string bytes;
    for (size_t i = 0; i + 1 < digits.size(); i += 2)
        bytes += static_cast<char>(std::stoi(std::string(digits.substr(i, 2)), nullptr, 16));
    return bytes;
}

// x265, lossless, full range, neutral chroma: one 64 x 64 picture of one grey value is one slice of 28 bytes.
std::string tileSlice(unsigned index) {
    static constexpr std::string_view SLICES[] = {"2801ac19c0f48325bfe8eca506145e3754fd1fb3200c7469300006f4",
                                                  "2801ac19c0f48325bfc5fc94185178dd53f47ecc8031d1a4c0001bd0",
                                                  "2801ac19c0f483203fba3694185178dd53f47ecc8031d1a4c0001bd0",
                                                  "2801ac19c0f483203fea38494185178dd53f47ecc8031d1a4c0001bd"};
    return bigEndian(28, 4) + fromHex(SLICES[index % 4]);
}

// 'hvcC' of all tiles: VPS, SPS and PPS.
constexpr std::string_view DECODER_CONFIGURATION =
    "0103700000009000000000001ef000fcfdf8f800000f03"
    "a0000100184001"
    "0c01ffff03700000030090000003000003001eba0240"
    "a1000100284201"
    "0103700000030090000003000003001ea020810596e96f0b9b80808082000007d0000007d010"
    "a2000100074401"
    "c07181a480";

enum Property { COLOUR = 1, DECODER, TILE_SIZE, PIXELS, PICTURE_SIZE, ROTATION, ALPHA };

struct Item {
    uint32_t id;
    std::string type;
    std::string data;
    std::vector<Property> properties = {};
    std::string description = {}; ///< what stands behind the name in 'infe'
    uint32_t flags = 0;           ///< 1: hidden
    bool inIdat = false;
    uint64_t offset = 0; ///< in 'idat' or from the first byte of the 'mdat' payload
};

class Builder {
public:
    explicit Builder(HeicOptions const& wanted) : options(wanted) {
        addPicture();
        addMetadata();
        for (Item& item : items) {
            std::string& store = item.inIdat ? idat : mdat;
            item.offset = store.size();
            store += item.data;
        }
    }

    std::string build() {
        std::string front = heicBox("ftyp", "heic" + bigEndian(0, 4) + "mif1heic");
        if (options.furtherBoxes)
            front += heicBox("free", "room at the top") + heicBox("Yabc", "at the top as well");
        std::string const data = options.beforeMdat + mediaData();
        uint64_t const header = options.mdat == HeicOptions::Mdat::Wide ? 16 : 8;
        uint64_t const behindMeta = options.metaLast ? 0 : meta(0).size(); // the widths are fixed: so is its size
        uint64_t const payloadAt = front.size() + behindMeta + options.beforeMdat.size() + header;
        std::string const metaBox = meta(payloadAt);
        return front + (options.metaLast ? data + metaBox : metaBox + data) + options.behindMdat + options.tail;
    }

private:
    uint32_t add(Item item) {
        if (item.id == 0)
            item.id = items.empty() ? 1 : items.back().id + 1;
        if (item.id > UINT16_MAX && item.id != options.primaryId)
            item.id = static_cast<uint32_t>(items.size() + 1); // items behind a wide primary go on with narrow ids
        items.push_back(std::move(item));
        return items.back().id;
    }

    void addPicture() {
        std::vector<Property> const coded{DECODER, TILE_SIZE, PIXELS, COLOUR};
        std::string filler;
        if (options.filler > 0)
            filler = bigEndian(options.filler + 3, 4) + fromHex("4c01") + std::string(options.filler, '\xFF') +
                     fromHex("80");
        for (unsigned i = 0; i < options.rows * options.columns; ++i)
            tiles.push_back(add({0, "hvc1", tileSlice(i) + filler, coded, {}, options.grid ? 1U : 0U}));
        primaryId = tiles.front();
        if (options.grid) {
            std::string const grid = bigEndian(0, 2) + bigEndian(options.rows - 1, 1) +
                                     bigEndian(options.columns - 1, 1) + bigEndian(options.columns * 64, 2) +
                                     bigEndian(options.rows * 64, 2);
            std::vector<Property> shown{PICTURE_SIZE, PIXELS, COLOUR};
            if (options.rotation != 0)
                shown.push_back(ROTATION);
            primaryId =
                add({options.primaryId, "grid", grid, shown, {}, 0, options.gridInIdat && options.ilocVersion > 0});
            links.push_back({"dimg", {primaryId}});
            links.back().second.insert(links.back().second.end(), tiles.begin(), tiles.end());
        }
        if (options.thumbnail)
            links.push_back({"thmb", {add({0, "hvc1", tileSlice(2), coded}), primaryId}});
        if (options.alpha)
            links.push_back({"auxl", {add({0, "hvc1", tileSlice(1), {DECODER, TILE_SIZE, ALPHA}, {}, 1}), primaryId}});
    }

    void addMetadata() {
        using std::string_literals::operator""s;
        if (options.exif) {
            std::string const exif = bigEndian(6, 4) + "Exif\0\0"s + "II*\0\x08\0\0\0\0\0\0\0\0\0"s;
            links.push_back({"cdsc", {add({0, "Exif", exif}), primaryId}});
        }
        if (!options.mimeFirst.empty())
            links.push_back({"cdsc", {add({0, "mime", options.mimeFirst, {}, "text/plain\0"s}), primaryId}});
        if (options.xmp) {
            std::string const kind =
                "application/rdf+xml\0"s + (options.xmpEncoding.empty() ? "" : options.xmpEncoding + '\0');
            links.push_back({"cdsc", {add({0, "mime", *options.xmp, {}, kind, 0, options.xmpInIdat}), primaryId}});
        }
    }

    // The boxes.
    // ----------------------------------------------------------------------------------------------------------

    std::string itemInfos() const {
        std::string entries = bigEndian(items.size(), 2);
        for (Item const& item : items) {
            bool const wideId = item.id > UINT16_MAX;
            entries +=
                heicFullBox("infe", wideId ? 3 : 2, item.flags,
                            bigEndian(item.id, wideId ? 4 : 2) + bigEndian(0, 2) + item.type + '\0' + item.description);
        }
        return heicFullBox("iinf", 0, 0, entries);
    }

    std::string location(Item const& item, uint64_t payloadAt) const {
        bool const special = item.id == tiles.front();
        unsigned const method = item.inIdat ? 1 : special ? options.tileMethod : 0;
        uint64_t const start = item.inIdat ? 0 : payloadAt;
        uint64_t const shift = special ? static_cast<uint64_t>(options.tileShift) : 0;
        std::string entry = bigEndian(item.id, options.ilocVersion == 2 ? 4 : 2);
        if (options.ilocVersion > 0)
            entry += bigEndian(method, 2);
        entry += bigEndian(special ? options.tileDataReference : 0, 2);
        entry += bigEndian(options.baseOffset ? start : 0, options.baseOffset ? 4 : 0);
        unsigned const extents = special ? options.tileExtents : item.type == "mime" ? options.xmpExtents : 1;
        entry += bigEndian(extents, 2);
        for (unsigned i = 0; i < extents; ++i) { // all but the last have one byte
            uint64_t const length = i + 1 < extents ? 1 : item.data.size() - i;
            entry += bigEndian(0, options.ilocVersion > 0 ? options.indexWidth : 0);
            entry += bigEndian((options.baseOffset ? 0 : start) + item.offset + i + shift, options.fieldWidth);
            entry += bigEndian(length, options.fieldWidth);
        }
        return entry;
    }

    std::string locations(uint64_t payloadAt) const {
        std::string entries = bigEndian(options.fieldWidth << 4 | options.fieldWidth, 1) +
                              bigEndian((options.baseOffset ? 0x40U : 0U) | options.indexWidth, 1) +
                              bigEndian(items.size(), options.ilocVersion == 2 ? 4 : 2);
        for (Item const& item : items)
            entries += location(item, payloadAt);
        return heicFullBox("iloc", options.ilocVersion, 0, entries);
    }

    std::string references() const {
        std::string boxes;
        for (auto const& [type, ids] : links) {
            std::string payload = id(ids.front()) + bigEndian(ids.size() - 1, 2);
            for (size_t i = 1; i < ids.size(); ++i)
                payload += id(ids[i]);
            boxes += heicBox(type, payload);
        }
        return links.empty() ? "" : heicFullBox("iref", wide() ? 1 : 0, 0, boxes);
    }

    std::string properties() const {
        auto const size = [](unsigned width, unsigned height) {
            return heicFullBox("ispe", 0, 0, bigEndian(width, 4) + bigEndian(height, 4));
        };
        std::string list =
            heicBox("colr", "nclx" + fromHex("00010001000180")) + heicBox("hvcC", fromHex(DECODER_CONFIGURATION)) +
            size(64, 64) + heicFullBox("pixi", 0, 0, fromHex("03080808")) +
            size(options.columns * 64, options.rows * 64) + heicBox("irot", bigEndian(options.rotation, 1)) +
            heicFullBox("auxC", 0, 0, std::string("urn:mpeg:hevc:2015:auxid:1") + '\0');
        std::string owners;
        uint32_t count = 0;
        for (Item const& item : items) {
            if (item.properties.empty())
                continue;
            ++count;
            owners += id(item.id) + bigEndian(item.properties.size(), 1);
            for (Property const property : item.properties)
                owners += bigEndian(
                    static_cast<unsigned>(property) | (property == DECODER || property == ROTATION ? 0x80U : 0U), 1);
        }
        return heicBox("iprp",
                       heicBox("ipco", list) + heicFullBox("ipma", wide() ? 1 : 0, 0, bigEndian(count, 4) + owners));
    }

    std::string meta(uint64_t payloadAt) const {
        std::string children = heicFullBox("hdlr", 0, 0, bigEndian(0, 4) + "pict" + std::string(13, '\0'));
        if (options.furtherBoxes)
            children += heicBox("free", "room inside meta");
        children += heicFullBox("pitm", wide() ? 1 : 0, 0, id(primaryId));
        children += locations(payloadAt) + itemInfos() + references() + properties();
        if (options.furtherBoxes)
            children += heicBox("Xabc", "what nobody knows");
        if (!idat.empty())
            children += heicBox("idat", idat);
        if (options.groups)
            children += heicBox("grpl", heicFullBox("altr", 0, 0,
                                                    bigEndian(900, 4) + bigEndian(2, 4) + bigEndian(primaryId, 4) +
                                                        bigEndian(tiles.front(), 4)));
        return heicFullBox("meta", 0, 0, children + options.extraMeta);
    }

    std::string mediaData() const {
        if (options.mdat == HeicOptions::Mdat::Wide)
            return bigEndian(1, 4) + "mdat" + bigEndian(mdat.size() + 16, 8) + mdat;
        std::string box = heicBox("mdat", mdat);
        return options.mdat == HeicOptions::Mdat::ToEnd ? box.replace(0, 4, 4, '\0') : box;
    }

    std::string id(uint32_t value) const { return bigEndian(value, wide() ? 4 : 2); }
    bool wide() const { return options.primaryId > UINT16_MAX; }

    HeicOptions const& options;
    uint32_t primaryId = 0;
    std::vector<Item> items;
    std::vector<uint32_t> tiles;
    std::vector<std::pair<std::string, std::vector<uint32_t>>> links; ///< type; from-id and to-ids
    std::string idat;
    std::string mdat;
};

} // namespace

std::string bigEndian(uint64_t value, unsigned width) {
    std::string bytes;
    for (unsigned i = width; i-- > 0;)
        bytes += static_cast<char>(static_cast<unsigned char>(value >> (8 * i)));
    return bytes;
}

std::string heicBox(std::string_view type, std::string_view payload) {
    return bigEndian(payload.size() + 8, 4) + std::string(type) + std::string(payload);
}

std::string heicFullBox(std::string_view type, unsigned version, uint32_t flags, std::string_view payload) {
    return heicBox(type, bigEndian(version, 1) + bigEndian(flags, 3) + std::string(payload));
}

std::string buildHeic(HeicOptions const& options) {
    return Builder(options).build();
}

std::string heicXmp(std::string_view source, size_t room) {
    std::string packet = "<x:xmpmeta xmlns:x=\"adobe:ns:meta/\"><rdf:RDF xmlns:rdf=\""
                         "http://www.w3.org/1999/02/22-rdf-syntax-ns#\"><rdf:Description rdf:about=\"\" "
                         "xmlns:dc=\"http://purl.org/dc/elements/1.1/\" dc:source=\"" +
                         std::string(source) + "\"/></rdf:RDF></x:xmpmeta>";
    packet.resize(std::max(packet.size(), room), ' ');
    return packet;
}

} // namespace android::lumo::test
