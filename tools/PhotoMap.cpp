// SPDX-License-Identifier: Apache-2.0
#include "PhotoMap.h"

#include "Text.h"

#include "boxes/BoxBounds.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include <unistd.h>

namespace motionphoto {

using namespace android::lumo;

namespace {

/// The file's bytes through one window.
class Window {
public:
    explicit Window(Photo const& photo) : file(*photo.file), total(photo.size()) {}

    uint64_t end() const { return total; }
    int at(uint64_t position) {
        if (position < start || position >= start + bytes.size())
            load(position);
        return bytes.empty() || position >= start + bytes.size()
                   ? -1
                   : static_cast<unsigned char>(bytes[static_cast<size_t>(position - start)]);
    }
    uint32_t number(uint64_t position, unsigned width) {
        std::string field = text(position, width);
        field.resize(width, '\0');
        return static_cast<uint32_t>(bigEndianNumber(field));
    }
    std::string text(uint64_t position, size_t count) {
        std::string result;
        for (size_t i = 0; i < count && at(position + i) >= 0; ++i)
            result += static_cast<char>(at(position + i));
        return result;
    }

private:
    void load(uint64_t position) {
        constexpr size_t SIZE = 1 << 16;
        bytes.resize(SIZE);
        auto const got = pread(file.getFd(), bytes.data(), bytes.size(), static_cast<off_t>(position));
        if (got < 0)
            throw systemFailure(ExitCode::BAD_INPUT, file.getPath(), "cannot be read");
        bytes.resize(static_cast<size_t>(got));
        start = position;
    }

    MediaFile const& file;
    uint64_t total;
    uint64_t start = 0;
    std::string bytes;
};

/// Each is a line of the map. What a file has more of is made to have it, and shows as one.
constexpr size_t MAX_REGIONS = 10'000;

constexpr int SOI = 0xD8, EOI = 0xD9, SOS = 0xDA, APP0 = 0xE0, FIRST_RESTART = 0xD0, LAST_RESTART = 0xD7;

Region::Kind kindOfApp(std::string const& name) {
    return name.empty() ? Region::Kind::OTHER : Region::Kind::METADATA;
}

/// What an application segment holds, by the text it begins with.
std::string nameOfApp(Window& window, uint64_t payload) {
    static constexpr struct {
        char const* start;
        char const* name;
    } KNOWN[] = {{"JFIF", "JFIF"},
                 {"Exif", "Exif"},
                 {"http://ns.adobe.com/xap/1.0/", "XMP"},
                 {"http://ns.adobe.com/xmp/ext", "extended XMP"},
                 {"ICC_PROFILE", "colour profile"},
                 {"MPF", "index of pictures (MPF)"},
                 {"Photoshop", "Photoshop"},
                 {"urn:iso:std:iso:ts:21496", "gain map"}};
    auto const start = window.text(payload, 30);
    for (auto const& known : KNOWN) {
        if (start.starts_with(known.start))
            return known.name;
    }
    return "";
}

/// The end of the coded data that begins at `position`: the next marker that is no restart.
uint64_t endOfScan(Window& window, uint64_t position) {
    while (position + 1 < window.end()) {
        int const next = window.at(position) == 0xFF ? window.at(position + 1) : 0;
        if (next != 0 && next != 0xFF && (next < FIRST_RESTART || next > LAST_RESTART))
            return position;
        ++position;
    }
    return window.end();
}

/// The picture that begins at `position`, by segments; returns where it ends.
uint64_t mapJpeg(Window& window, uint64_t position, std::vector<Region>& regions) {
    regions.push_back({Region::Kind::HEADER, "start of image", position, 2});
    position += 2;
    while (position + 1 < window.end() && window.at(position) == 0xFF && regions.size() < MAX_REGIONS) {
        int const marker = window.at(position + 1);
        if (marker == EOI) {
            regions.push_back({Region::Kind::IMAGE, "end of image", position, 2});
            return position + 2;
        }
        if (marker == 0xFF) {
            uint64_t const start = position;
            while (position + 1 < window.end() && window.at(position + 1) == 0xFF)
                ++position;
            regions.push_back({Region::Kind::OTHER, "fill bytes", start, position - start});
            continue;
        }
        uint64_t end = position + 2 + window.number(position + 2, 2);
        char code[8];
        std::snprintf(code, sizeof code, "%02X", static_cast<unsigned>(marker));
        if (marker == SOS) {
            end = endOfScan(window, end);
            regions.push_back({Region::Kind::IMAGE, "scan", position, end - position});
        } else if (marker >= APP0 && marker < APP0 + 16) {
            auto const name = nameOfApp(window, position + 4);
            regions.push_back({kindOfApp(name),
                               "APP" + std::to_string(marker - APP0) + (name.empty() ? "" : " ") + name, position,
                               end - position});
        } else {
            regions.push_back({Region::Kind::IMAGE, std::string("segment FF") + code, position, end - position});
        }
        if (end > window.end())
            regions.back().size = window.end() - position;
        position = std::min(end, window.end());
    }
    return position;
}

Region::Kind kindOfBox(BoxType type) {
    switch (type) {
    case boxType("mdat"):
        return Region::Kind::IMAGE;
    case VIDEO_BOX:
        return Region::Kind::VIDEO;
    case TRAILER_BOX:
        return Region::Kind::TRAILER;
    case boxType("meta"):
    case boxType("free"):
        return Region::Kind::METADATA;
    default:
        return Region::Kind::HEADER;
    }
}

uint64_t mapBoxes(Window& window, std::vector<Region>& regions) {
    uint64_t position = 0;
    while (position + 8 <= window.end() && regions.size() < MAX_REGIONS) {
        uint64_t size = window.number(position, 4);
        if (size == 1)
            size = uint64_t{window.number(position + 8, 4)} << 32 | window.number(position + 12, 4);
        size = size == 0 ? window.end() - position : size;
        if (size < 8 || size > window.end() - position)
            break;
        regions.push_back({kindOfBox(window.number(position + 4, 4)), "box " + escaped(window.text(position + 4, 4)),
                           position, size});
        position += size;
    }
    return position;
}

/// What the library knows to stand behind the picture, in file order.
std::vector<Region> knownBehind(Photo const& photo) {
    std::vector<Region> known;
    if (photo.video.isSound())
        known.push_back({Region::Kind::VIDEO, std::string("video (") + MotionVideo::nameOf(photo.video.source) + ")",
                         photo.video.position, photo.video.size});
    try {
        auto const trailer = QRTInfo::parse(photo.file);
        for (auto const& record : trailer->getRecords()) {
            if (record.dataPosition != photo.video.position)
                known.push_back(
                    {Region::Kind::TRAILER, "record " + escaped(record.name), record.dataPosition, record.dataPayload});
        }
    } catch (Error const& error) {
        if (error.code() == Error::Code::READ_FAILED)
            throw;
        // a damaged trailer is bytes like others; check says what is wrong with it
    }
    std::sort(known.begin(), known.end(), [](auto& a, auto& b) { return a.position < b.position; });
    return known;
}

/// Bytes that nobody names.
void mapGap(Window& window, uint64_t from, uint64_t to, bool hasTrailer, std::vector<Region>& regions) {
    while (from < to && regions.size() < MAX_REGIONS && window.at(from) == 0xFF && window.at(from + 1) == SOI) {
        std::vector<Region> inner;
        uint64_t const end = std::min(mapJpeg(window, from, inner), to);
        regions.push_back({Region::Kind::IMAGE, "another picture", from, end - from});
        from = end;
    }
    if (from >= to)
        return;
    bool const isTail = to == window.end() && window.text(to - std::min<uint64_t>(to, 4), 4) == "QRTT";
    regions.push_back({isTail || hasTrailer ? Region::Kind::TRAILER : Region::Kind::OTHER,
                       isTail       ? "trailer's directory"
                       : hasTrailer ? "record's head"
                                    : "other bytes",
                       from, to - from});
}

} // namespace

std::vector<Region> mapOf(Photo const& photo) {
    Window window(photo);
    std::vector<Region> regions;
    bool const isJpeg = photo.file->mimeType() == MediaDefs::MimeType::IMAGE_JPEG;
    uint64_t position = isJpeg ? mapJpeg(window, 0, regions) : mapBoxes(window, regions);
    auto const known = isJpeg ? knownBehind(photo) : std::vector<Region>();
    bool const hasTrailer = window.text(window.end() - std::min<uint64_t>(window.end(), 4), 4) == "QRTT";
    for (auto const& region : known) {
        if (region.position < position || region.position + region.size > window.end())
            continue;
        mapGap(window, position, region.position, hasTrailer, regions);
        regions.push_back(region);
        position = region.position + region.size;
    }
    mapGap(window, position, window.end(), false, regions);
    return regions;
}

} // namespace motionphoto
