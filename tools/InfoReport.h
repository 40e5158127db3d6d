// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Batch.h"
#include "Photo.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace motionphoto {

/// All that `info` says about one still, gathered once and then printed as text or as JSON. Positions and sizes are
/// bytes from the file's start, strings are as they stand in the file.
struct InfoReport {
    struct Video {
        uint64_t position = 0;
        uint64_t size = 0;
        std::optional<std::string> mimeType; ///< none when the bytes there begin no video the library recognises
        std::optional<int64_t> durationUs;   ///< none when the video cannot be opened
        uint64_t padding = 0;                ///< bytes between the image's end and the video
    };
    struct MotionPhoto {
        bool valid = false;
        std::string source; ///< what says that there is a video: trailer, box, directory, micro-video
        std::string reason; ///< why it is not valid
        std::string format; ///< of the trailer, empty without one
        int32_t xmpVersion = 0;
        std::optional<int64_t> presentationTimestampUs;
        Video video;
    };
    struct Record {
        int32_t type = 0;
        std::string name;
        uint64_t position = 0;
        uint64_t size = 0;
    };
    struct Trailer {
        int32_t version = 0;
        int64_t size = 0;
        std::vector<Record> records;
    };
    struct Property {
        std::string schema, path, value;
    };
    struct Item {
        std::string semantic, mime;
        std::vector<std::pair<std::string, std::string>> fields; ///< further ones, by name
    };
    struct Block {
        uint64_t position = 0;
        uint64_t size = 0;
    };

    std::string file;
    std::string mimeType;
    uint64_t fileSize = 0;
    uint64_t imageSize = 0;
    std::optional<MotionPhoto> motionPhoto;
    std::string damage; ///< what could not be read, so that a video may be there that is not known of
    std::optional<Trailer> trailer;
    std::vector<Property> properties;
    std::vector<Item> items; ///< in directory order
    std::optional<Block> debugInfo;
};

/// Reads headers and the XMP packet, of the video no more than its description. Throws what the library throws.
InfoReport gather(Photo const& photo);

std::string asText(InfoReport const& report);
/// One line: file, kind, and where the video is.
std::string asLine(InfoReport const& report);
/// One object on one line, docs/json.md. Bytes that are no UTF-8 become the replacement character.
std::string asJson(InfoReport const& report);
/// A failure as the outcome of a file that was reported on: with its object where --json was given.
Outcome failedReport(Arguments const& args, std::string const& file, Failure const& failure);

} // namespace motionphoto
