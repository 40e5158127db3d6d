// SPDX-License-Identifier: Apache-2.0
#include "support/PhotoParts.h"

#include <expat.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <stdexcept>

namespace android::lumo::test {

namespace {

constexpr size_t MAX_POINTER_RECORD = 125'000;

void require(bool holds, char const* text) {
    if (!holds)
        throw std::runtime_error(text);
}

bool isBlank(std::string const& text) {
    return text.find_first_not_of(' ') == text.npos;
}

/// Big-endian numbers and texts, one after the other.
struct Cursor {
    std::string const& bytes;
    size_t at;

    uint64_t number(uint64_t width) {
        uint64_t value = 0;
        for (; width > 0; --width)
            value = value << 8 | static_cast<unsigned char>(bytes.at(at++));
        return value;
    }
    std::string text() {
        size_t const start = at;
        at = bytes.find('\0', at) + 1;
        require(at > start, "text without an end");
        return bytes.substr(start, at - 1 - start);
    }
};

std::string span(std::string const& file, uint64_t start, uint64_t size) {
    require(start <= file.size() && size <= file.size() - start, "outside the file");
    return file.substr(static_cast<size_t>(start), static_cast<size_t>(size));
}

// HEIC. ---------------------------------------------------------------------------------------------------------------

/// The tables of 'meta' brought together by item.
class Items {
public:
    struct Item {
        std::string kind, contentType, data, about;
        bool isXmp() const { return kind == "mime" && contentType == "application/rdf+xml"; }
    };

    Items(std::string const& bytes, PhotoBox const& meta) : file(bytes) {
        for (auto const& box : boxesIn(file, meta.content + 4, meta.end))
            parts.insert({box.type, box});
        readInfos();
        readLocations();
        if (parts.contains("iref"))
            readReferences();
        readProperties();
        auto [version, at] = open(parts.at("pitm"));
        primary = at.number(version == 0 ? 2 : 4);
    }

    std::map<uint64_t, Item> all;
    uint64_t primary = 0;
    uint64_t end = 0; ///< of the last byte that an item has

private:
    std::pair<uint64_t, Cursor> open(PhotoBox const& box) const {
        return {Cursor{file, box.content}.number(1), Cursor{file, box.content + 4}};
    }

    void readInfos() {
        auto const& iinf = parts.at("iinf");
        auto [version, at] = open(iinf);
        uint64_t const count = at.number(version == 0 ? 2 : 4);
        for (auto const& box : boxesIn(file, at.at, iinf.end)) {
            auto [entry, fields] = open(box);
            require(entry >= 2, "an item info of an old kind");
            uint64_t const id = fields.number(entry == 3 ? 4 : 2);
            Item item;
            item.about = file.substr(box.content + 1, 3) + ';';
            item.kind = span(file, fields.at + 2, 4);
            fields.at += 6;
            fields.text();
            if (item.kind == "mime")
                item.contentType = fields.text();
            all[id] = item;
        }
        require(all.size() == count, "another number of items");
    }

    void readLocations() {
        auto [version, at] = open(parts.at("iloc"));
        uint64_t const sizes = at.number(1), more = at.number(1);
        size_t const id = version == 2 ? 4 : 2;
        for (uint64_t left = at.number(id); left > 0; --left) {
            Item& item = all.at(at.number(id));
            uint64_t const method = version == 0 ? 0 : at.number(2) & 15;
            require(at.number(2) == 0 && method < 2, "an item stored elsewhere");
            uint64_t const base = at.number(more >> 4) + (method == 1 ? parts.at("idat").content : 0);
            for (uint64_t extents = at.number(2); extents > 0; --extents) {
                at.number(version == 0 ? 0 : more & 15);
                uint64_t const start = base + at.number(sizes >> 4), size = at.number(sizes & 15);
                item.data += span(file, start, size);
                end = std::max(end, start + size);
            }
        }
    }

    void readReferences() {
        auto const& iref = parts.at("iref");
        auto const [version, first] = open(iref);
        for (auto const& box : boxesIn(file, first.at, iref.end)) {
            Cursor fields{file, box.content};
            all.at(fields.number(version == 0 ? 2 : 4)).about += box.type + file.substr(fields.at, box.end - fields.at);
        }
    }

    void readProperties() {
        auto const& iprp = parts.at("iprp");
        auto const tables = boxesIn(file, iprp.content, iprp.end);
        require(tables.size() == 2 && tables[0].type == "ipco" && tables[1].type == "ipma", "no properties");
        auto const held = boxesIn(file, tables[0].content, tables[0].end);
        auto [version, at] = open(tables[1]);
        bool const isWide = file[tables[1].content + 3] & 1;
        for (uint64_t left = at.number(4); left > 0; --left) {
            Item& item = all.at(at.number(version == 0 ? 2 : 4));
            for (uint64_t count = at.number(1); count > 0; --count) {
                uint64_t const value = at.number(isWide ? 2 : 1), mark = isWide ? 0x8000 : 0x80;
                auto const& box = held.at(static_cast<size_t>(value & ~mark) - 1);
                item.about += (value & mark ? '!' : ' ') + file.substr(box.start, box.end - box.start);
            }
        }
    }

    std::string const& file;
    std::map<std::string, PhotoBox> parts;
};

void readHeic(std::string const& file, PhotoParts& found, bool isTorn) {
    auto const top = boxesIn(file, 0, file.size(), isTorn);
    auto const meta = std::find_if(top.begin(), top.end(), [](auto const& box) { return box.type == "meta"; });
    require(meta != top.end() && top.front().type == "ftyp", "no image");
    Items const items(file, *meta);
    found.image.push_back(file.substr(0, top.front().end) + std::to_string(items.primary));
    for (auto const& [id, item] : items.all) {
        if (item.isXmp())
            found.packets.push_back(item.data);
        else
            found.image.push_back(std::to_string(id) + item.kind + item.contentType + item.about + item.data);
    }
    bool hasTrailerBox = false;
    for (auto const& box : top) {
        std::string const whole = file.substr(box.start, box.end - box.start);
        if (box.type == "mpvd" && box.content == found.videoPosition)
            found.inFront = box.content - box.start;
        bool const isOurs = box.type == "mpvd" || box.type == "qrtd" || file.compare(box.content, 4, "cdif") == 0;
        require(!isOurs || items.end <= box.start || isTorn, "an item lies behind the image");
        if (file.compare(box.content, 4, "cdif") == 0)
            found.debugInfo = file.substr(box.content + 4, box.end - box.content - 4);
        else if (!isOurs && box.type != "ftyp" && box.type != "meta" && box.type != "mdat")
            found.behind += whole;
        hasTrailerBox = box.type == "qrtd" && box.content == found.trailer.image.size();
    }
    require(isTorn || hasTrailerBox || found.trailer.records.empty(), "the trailer stands in no last box");
}

// JPEG. ---------------------------------------------------------------------------------------------------------------

constexpr size_t OWN_SIZE = 4 + 50 + 4; ///< where an MPF index has the size of its own picture, which follows edits

/// Camera debug info stands first, with its marker and length the other way round.
void readJpeg(std::string file, PhotoParts& found, bool isTorn) {
    file.resize(found.trailer.image.size());
    if (file.compare(2, 2, "\xE4\xFF") == 0) {
        size_t const length = littleAt(file, 4) & 0xFFFF;
        found.debugInfo = span(file, 6, length - 2);
        file.erase(2, length + 2);
    }
    auto segments = segmentsOf(file);
    require(isTorn || (!segments.empty() && segments.back().code == 0xDA), "no scan");
    for (auto& segment : segments) {
        if (segment.payload.starts_with(MPF_ID) && segment.payload.size() >= OWN_SIZE + 4)
            segment.payload.replace(OWN_SIZE, 4, "size");
        size_t const end = segment.code == 0xDA ? segment.payload.find("\xFF\xD9") : segment.payload.size();
        if (segment.isXmp())
            found.packets.push_back(segment.payload.substr(XMP_ID.size()));
        else if (segment.code != 0xE1 || !isBlank(segment.payload))
            found.image.push_back(static_cast<char>(segment.code) + segment.payload.substr(0, end));
        if (segment.code == 0xDA)
            found.behind = segment.payload.substr(std::min(end, segment.payload.size()));
    }
}

// XMP. ----------------------------------------------------------------------------------------------------------------

constexpr std::string_view RDF = "http://www.w3.org/1999/02/22-rdf-syntax-ns#|";

class XmpParser {
public:
    static void XMLCALL start(void* self, char const* name, char const** attributes) {
        static_cast<XmpParser*>(self)->open(name, attributes);
    }
    static void XMLCALL text(void* self, char const* bytes, int size) {
        static_cast<XmpParser*>(self)->frames.back().text.append(bytes, static_cast<size_t>(size));
    }
    static void XMLCALL end(void* self, char const*) { static_cast<XmpParser*>(self)->close(); }

    Properties found;

private:
    struct Frame {
        std::string path, text;
        int entries = 0;
        bool isLeaf = true, hasAttributes = false;
    };

    static bool isRdf(std::string_view name) { return name.starts_with(RDF); }
    /// Without the namespace's scheme and host.
    static std::string shortened(std::string name) {
        name.erase(0, name.starts_with("http") ? name.find('/', 8) + 1 : 0);
        if (size_t const bar = name.find('|'); bar != name.npos)
            name.replace(bar, 1, bar > 0 && name[bar - 1] == '/' ? "" : "/");
        return name;
    }
    std::string join(std::string const& name) const {
        std::string const& parent = frames.back().path;
        return parent + (parent.empty() ? "" : "/") + shortened(name);
    }

    void open(std::string_view name, char const** attributes) {
        isInside = isInside || name == std::string(RDF) + "RDF";
        frames.back().isLeaf = false;
        Frame frame{frames.back().path, {}};
        std::string_view const local = isRdf(name) ? name.substr(RDF.size()) : "";
        if (local == "li")
            frame.path += '[' + std::to_string(++frames.back().entries) + ']';
        else if (local == "Seq" || local == "Bag" || local == "Alt")
            frame.path.append(" ").append(local);
        else if (local == "type") // of a typed node, which reads like any other
            frame.path.clear();
        else if (isInside && local.empty())
            frame.path = join(std::string(name));
        frames.push_back(frame);
        for (; isInside && *attributes != nullptr; attributes += 2)
            addAttribute(attributes[0], attributes[1]);
    }

    void addAttribute(std::string const& name, std::string value) {
        auto& [path, text, entries, isLeaf, hasAttributes] = frames.back();
        bool const isValue = name == std::string(RDF) + "resource" || name == std::string(RDF) + "value";
        if (name.ends_with("/namespace|lang"))
            for (char& letter : value)
                letter = static_cast<char>(std::tolower(letter));
        else if (isRdf(name) && (!isValue || path.empty()))
            return;
        found[name.ends_with("/namespace|lang") ? path + "?lang" : isValue ? path : join(name)] = value;
        hasAttributes = true;
    }

    void close() {
        auto const& [path, text, entries, isLeaf, hasAttributes] = frames.back();
        bool const isEmpty = text.find_first_not_of(" \t\r\n") == text.npos;
        if (isLeaf && !path.empty() && !(isEmpty && hasAttributes))
            found[path] = isEmpty ? "" : text;
        frames.pop_back();
    }

    std::vector<Frame> frames{Frame{}};
    bool isInside = false; ///< of rdf:RDF
};

} // namespace

Properties propertiesOf(std::string const& packet) {
    if (packet.find_first_not_of(std::string(" \n\r\t\0", 5)) == packet.npos)
        return {};
    std::unique_ptr<XML_ParserStruct, decltype(&XML_ParserFree)> const xml(XML_ParserCreateNS(nullptr, '|'),
                                                                           XML_ParserFree);
    XmpParser parser;
    XML_SetUserData(xml.get(), &parser);
    XML_SetElementHandler(xml.get(), XmpParser::start, XmpParser::end);
    XML_SetCharacterDataHandler(xml.get(), XmpParser::text);
    size_t const last = packet.find_last_of('>') + 1;
    require(XML_Parse(xml.get(), packet.data(), static_cast<int>(last), 1) == XML_STATUS_OK, "XMP is no XML");
    return parser.found;
}

std::vector<PhotoBox> boxesIn(std::string const& file, size_t start, size_t end, bool isTorn) {
    std::vector<PhotoBox> found;
    while (start < end) {
        bool fits = end - start >= 8;
        Cursor at{file, start};
        uint64_t size = fits ? at.number(4) : 0;
        PhotoBox box{fits ? span(file, start + 4, 4) : "", start, start + 8, end};
        at.at = box.content;
        if (size == 1) {
            size = at.number(8);
            box.content += 8;
        }
        fits = fits && (size == 0 || (size >= box.content - start && size <= end - start));
        if (!fits && isTorn)
            break;
        require(fits, "a box does not fit");
        box.end = size == 0 ? end : start + static_cast<size_t>(size);
        found.push_back(box);
        start = box.end;
    }
    return found;
}

Properties PhotoParts::item(std::string const& semantic) const {
    auto const properties = propertiesOf(packet());
    for (int i = 1; i < 100; ++i) {
        std::string const path = "photos/1.0/container/Directory Seq[" + std::to_string(i) +
                                 "]/photos/1.0/container/Item/photos/1.0/container/item/";
        auto const found = properties.find(path + "Semantic");
        if (found == properties.end() || found->second != semantic)
            continue;
        Properties fields;
        for (auto const& [name, value] : properties) {
            if (name.starts_with(path))
                fields[name.substr(path.size())] = value;
        }
        return fields;
    }
    return {};
}

std::string PhotoParts::faults() const {
    auto properties = propertiesOf(packet());
    bool const claims = properties["photos/1.0/camera/MotionPhoto"] == "1";
    auto entry = item("MotionPhoto"), primary = item("Primary");
    if (video.empty())
        return claims || !entry.empty() ? "a video is claimed; " : "";
    std::string text = claims ? "" : "no video is claimed; ";
    auto const expect = [&](char const* name, std::string const& is, std::string const& wanted) {
        text += is == wanted ? "" : name + (" is " + is) + ", not " + wanted + "; ";
    };
    expect("Length", entry["Length"], std::to_string(size - videoPosition));
    expect("Padding of the video", entry["Padding"].empty() ? "0" : entry["Padding"], "0");
    expect("Mime", entry["Mime"], "video/mp4");
    expect("Padding", primary["Padding"], std::to_string(inFront));
    return text;
}

namespace {

/// The video that record 2608 holds or points to.
void findVideo(std::string const& file, PhotoParts& found) {
    auto const& records = found.trailer.records;
    auto const ofType = [&](int type) {
        return std::find_if(records.begin(), records.end(), [=](auto const& record) { return record.type == type; });
    };
    auto const record = ofType(2608), version = ofType(2609);
    if (record == records.end())
        return;
    bool const isHeld = record->data.size() > MAX_POINTER_RECORD &&
                        (!found.isHeic || (version != records.end() && version->data.starts_with("mpv1")));
    require(isHeld || record->data.starts_with("mpv"), "neither a video nor a pointer");
    Cursor pointer{record->data, 4};
    auto const index = static_cast<size_t>(record - records.begin());
    found.videoPosition = isHeld ? found.trailer.dataPositions[index] : static_cast<size_t>(pointer.number(4));
    found.video = isHeld ? record->data : span(file, found.videoPosition, pointer.number(4));
    found.inFront = found.videoPosition - found.trailer.image.size();
}

} // namespace

PhotoParts takeApart(std::string const& file, bool isTorn) {
    PhotoParts found;
    found.isHeic = !file.starts_with("\xFF\xD8");
    found.size = file.size();
    try {
        if (file.ends_with("QRTT"))
            found.trailer = readTrailer(file);
        findVideo(file, found);
    } catch (std::exception const&) {
        if (!isTorn)
            throw;
        found.trailer = {};
    }
    if (found.trailer.image.empty())
        found.trailer.image = file;
    found.isHeic ? readHeic(file, found, isTorn) : readJpeg(file, found, isTorn);
    return found;
}

} // namespace android::lumo::test
