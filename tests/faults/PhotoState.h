// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/PhotoParts.h"

#include <algorithm>
#include <optional>

/// What a reader finds in a file that an operation should have taken from `before` to `after`, in the words of
/// docs/failure-states.md.
namespace android::lumo::test {

class PhotoState {
public:
    PhotoState(std::string const& before, std::string const& after)
        : old(before), finished(after), was(read(old).value()), is(read(finished).value()) {}

    std::string of(std::string const& file) const {
        if (file == old || file == finished)
            return file == old ? "as before" : "complete";
        auto const found = read(file);
        if (!found || found->image != was.image)
            return "picture damaged";
        std::string text;
        bool isOld = true, isNew = true;
        auto const add = [&](std::string const& name, char const* other, auto part) {
            std::string const now = part(*found), first = part(was), last = part(is);
            if (first == last && now == first)
                return;
            isOld = isOld && now == first;
            isNew = isNew && now == last;
            text += text.empty() ? "" : ", ";
            if (now != first && now != last && !now.empty())
                text += other;
            else
                text += name + (now == first ? " old" : now == last ? " new" : " none");
        };
        add("XMP", "XMP cut", packetOf);
        add("debug info", "debug info cut", [](auto const& photo) { return photo.debugInfo; });
        add("trailer", "pointer stale", trailerOf);
        return isOld ? "as before, unused bytes" : isNew ? "complete, unused bytes" : text;
    }

private:
    /// Nothing when numbers point outside the file.
    static std::optional<PhotoParts> read(std::string const& file) {
        try {
            return takeApart(file, true);
        } catch (std::exception const&) {
            return std::nullopt;
        }
    }

    /// Rooms that hold no XMP yet are none.
    static std::string packetOf(PhotoParts const& photo) {
        std::string all;
        for (auto packet : photo.packets) {
            packet.resize(packet.find_last_not_of(' ') + 1);
            if (packet.find("Description") != packet.npos || !photo.isHeic)
                all += packet;
        }
        return all;
    }

    /// All records, the video in its pointer's place.
    static std::string trailerOf(PhotoParts const& photo) {
        std::string text;
        for (auto const& [type, name, data, subInfo] : photo.trailer.records)
            text += std::to_string(type) + name + '=' + (type == 2608 ? photo.video : data) + '\n';
        return text;
    }

    std::string old, finished;
    PhotoParts was, is;
};

} // namespace android::lumo::test
