#pragma once

#include "support/HeicBuilder.h"
#include "support/JpegBuilder.h"
#include "support/TrailerBuilder.h"

#include <algorithm>
#include <exception>
#include <map>
#include <optional>
#include <string>
#include <vector>

/// What a reader finds in a file that an operation should have taken from `before` to `after`, in the words of
/// docs/failure-states.md. Shares no code with the library.
namespace android::lumo::test {

/// A still taken apart: what edits may change, by name, and the rest.
struct PhotoParts {
    std::string picture;
    std::map<std::string, std::string> parts{{"XMP", ""}, {"trailer", ""}, {"debug info", ""}};
};

class PhotoState {
public:
    PhotoState(std::string const& before, std::string const& after)
        : old(before), finished(after), was(*takeApart(old)), is(*takeApart(finished)) {}

    std::string of(std::string const& file) const {
        if (file == old || file == finished)
            return file == old ? "as before" : "complete";
        auto const found = takeApart(file);
        if (!found || found->picture != was.picture)
            return "picture damaged";
        std::string text;
        bool isOld = true, isNew = true;
        for (auto const& [name, part] : found->parts) {
            std::string const& first = was.parts.at(name);
            std::string const& last = is.parts.at(name);
            bool const isKept = first == last;
            if (isKept && part == first)
                continue;
            isOld = isOld && part == first;
            isNew = isNew && part == last;
            text += (text.empty() ? "" : ", ");
            if (part != first && part != last && !part.empty())
                text += name == "trailer" ? "pointer stale" : name + " cut";
            else
                text += name + (part == first ? " old" : part == last ? " new" : " none");
        }
        return isOld ? "as before, unused bytes" : isNew ? "complete, unused bytes" : text;
    }

private:
    /// Nothing when numbers point outside the file, or a HEIC's picture is neither the one before nor the one after.
    std::optional<PhotoParts> takeApart(std::string const& file) const {
        try {
            if (old.starts_with("\xFF\xD8"))
                return jpegParts(file);
            for (auto const* reference : {&finished, &old}) {
                if (auto found = heicParts(file, *reference))
                    return found;
            }
        } catch (std::exception const&) {
            // Numbers that point outside the file: damaged.
        }
        return std::nullopt;
    }

    static std::string trimmed(std::string text) {
        text.resize(text.find_last_not_of(' ') + 1);
        return text;
    }

    /// All records, the video that a pointer names in the pointer's place; empty without a trailer.
    static std::string trailerText(std::string const& file) {
        try {
            std::string text;
            for (auto const& [type, name, data, subInfo] : readTrailer(file).records) {
                bool const isPointer = data.size() == 12 && data.starts_with("mpv");
                auto const big = [&, &bytes = data](size_t at) { return __builtin_bswap32(littleAt(bytes, at)); };
                text += std::to_string(type) + name + '=' + (isPointer ? file.substr(big(4), big(8)) : data) + '\n';
            }
            return text;
        } catch (std::exception const&) {
            return {};
        }
    }

    /// Rooms that hold no XMP yet are no part of the picture. Debug info stands first, in the order of its own.
    static PhotoParts jpegParts(std::string file) {
        PhotoParts found;
        found.parts["trailer"] = trailerText(file);
        if (file.compare(2, 2, "\xE4\xFF") == 0) {
            size_t const length = littleAt(file, 4) & 0xFFFF;
            found.parts["debug info"] = file.substr(6, length - 2);
            file.erase(2, length + 2);
        }
        for (auto const& segment : segmentsOf(file)) {
            if (segment.isXmp())
                found.parts["XMP"] += trimmed(segment.payload);
            else if (segment.code != 0xE1 || segment.payload.starts_with(EXIF_ID))
                found.picture += std::to_string(segment.code) + segment.payload.substr(0, endOfScan(segment));
        }
        return found;
    }

    static size_t endOfScan(JpegSegment const& segment) {
        return segment.code == 0xDA ? segment.payload.find("\xFF\xD9") : std::string::npos;
    }

    struct Room {
        size_t position = 0;
        size_t size = 0;
    };

    /// Of the XMP in a file that is whole.
    static Room roomOf(std::string const& file) {
        size_t const begin = file.find("<x:xmpmeta");
        if (begin == std::string::npos)
            return {};
        std::string const close = "</x:xmpmeta>";
        size_t const end = file.find(close, begin);
        size_t const behind = file.find_first_not_of(' ', end + close.size());
        return {begin, std::min(behind, file.size()) - begin};
    }

    struct HeicBox {
        std::string type;
        std::string content;
        size_t begin;
    };

    /// Throws when the boxes do not add up to the file.
    static std::vector<HeicBox> boxesOf(std::string const& file) {
        std::vector<HeicBox> boxes;
        for (size_t at = 0; at < file.size();) {
            size_t size = __builtin_bswap32(littleAt(file, at));
            if (size == 0)
                size = file.size() - at;
            if (size < 8 || size > file.size() - at)
                throw std::runtime_error("boxes broken");
            boxes.push_back({file.substr(at + 4, 4), file.substr(at + 8, size - 8), at});
            at += size;
        }
        return boxes;
    }

    static size_t endOfImage(std::string const& wholeFile) {
        for (auto const& box : boxesOf(wholeFile)) {
            if (box.type == "mpvd" || box.type == "qrtd" || (box.type == "free" && box.content.starts_with("cdif")))
                return box.begin;
        }
        return wholeFile.size();
    }

    /// The picture is that of the whole file `reference`, its XMP apart; nothing otherwise.
    static std::optional<PhotoParts> heicParts(std::string const& file, std::string const& reference) {
        Room const room = roomOf(reference);
        size_t const imageEnd = endOfImage(reference);
        auto const masked = [&](std::string const& whole) {
            return whole.substr(0, imageEnd).replace(room.position, room.size, room.size, ' ');
        };
        if (file.size() < imageEnd || masked(file) != masked(reference))
            return std::nullopt;
        PhotoParts found;
        found.parts["XMP"] = trimmed(file.substr(room.position, room.size));
        if (found.parts["XMP"].find("Description") == std::string::npos)
            found.parts["XMP"].clear();
        found.parts["trailer"] = trailerText(file);
        try {
            for (auto const& box : boxesOf(file)) {
                if (box.type == "free" && box.content.starts_with("cdif"))
                    found.parts["debug info"] += box.content.substr(4);
            }
        } catch (std::exception const&) {
            // What stands behind the image is on the move.
        }
        return found;
    }

    std::string old;
    std::string finished;
    PhotoParts was;
    PhotoParts is;
};

} // namespace android::lumo::test
