// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "support/HeicBuilder.h"

#include <algorithm>
#include <cstdint>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

/// QRT trailers for tests, written and taken apart without the library's help.
namespace android::lumo::test {

/// An unsigned 32-bit number as it stands in a trailer.
inline std::string little(uint32_t value) {
    return {reinterpret_cast<char const*>(&value), sizeof(value)}; // as on every machine the tests run on
}

inline uint32_t littleAt(std::string_view bytes, size_t at) {
    uint32_t value = 0;
    for (size_t i = 4; i-- > 0;)
        value = value << 8 | static_cast<unsigned char>(bytes.at(at + i));
    return value;
}

struct TrailerRecord {
    int type = 0;
    std::string name;
    std::string data;
    std::optional<std::string> subInfo = std::nullopt; ///< flagged in bit 15, where readers look for it

    bool operator==(TrailerRecord const&) const = default;
};

inline uint32_t headerWord(TrailerRecord const& record) {
    return static_cast<uint32_t>(record.type) << 16 | (record.subInfo ? 0x8000U : 0U);
}

inline std::string recordBytes(TrailerRecord const& record) {
    return little(headerWord(record)) + little(static_cast<uint32_t>(record.name.size())) +
           (record.subInfo ? little(static_cast<uint32_t>(record.subInfo->size())) : "") + record.name +
           record.subInfo.value_or("") + record.data;
}

/// Records back to back and the tail.
inline std::string trailerBytes(std::vector<TrailerRecord> const& records, uint32_t version = 0) {
    std::string body;
    for (auto const& record : records)
        body += recordBytes(record);
    std::string directory;
    size_t left = body.size();
    for (auto const& record : records) {
        size_t const size = recordBytes(record).size();
        directory +=
            little(headerWord(record)) + little(static_cast<uint32_t>(left)) + little(static_cast<uint32_t>(size));
        left -= size;
    }
    std::string const tail = "QRTH" + little(version) + little(static_cast<uint32_t>(records.size())) + directory;
    return body + tail + little(static_cast<uint32_t>(tail.size())) + "QRTT";
}

/// The box a HEIC's trailer stands in.
inline std::string qrtdBox(std::string const& trailer) {
    return heicBox("qrtd", trailer);
}

inline TrailerRecord videoRecord(std::string const& data) {
    return {2608, "MotionPhoto_Data", data};
}

/// What the video's record holds when the video stands elsewhere.
inline std::string pointerTo(size_t position, size_t size) {
    return "mpv2" + bigEndian(position, 4) + bigEndian(size, 4);
}

/// A trailer taken apart.
struct TrailerFile {
    std::string image; ///< all in front of the farthest record
    uint32_t version = 0;
    std::vector<TrailerRecord> records; ///< in directory order
    std::vector<uint32_t> dataPositions;

    /// Names in the order of their bytes in the file.
    std::string diskOrder() const {
        std::map<uint32_t, std::string> names;
        for (size_t i = 0; i < records.size(); ++i)
            names[dataPositions[i]] = records[i].name;
        std::string text;
        for (auto const& [position, name] : names)
            text += (text.empty() ? "" : " ") + name;
        return text;
    }
};

/// Throws std::runtime_error for a file without a whole trailer, std::out_of_range for numbers that point outside it.
inline TrailerFile readTrailer(std::string const& file) {
    TrailerFile found;
    if (file.size() < 20 || file.substr(file.size() - 4) != "QRTT")
        throw std::runtime_error("no QRTT");
    size_t const tail = file.size() - 8 - littleAt(file, file.size() - 8);
    if (file.substr(tail, 4) != "QRTH" || littleAt(file, file.size() - 8) != 12 + 12 * littleAt(file, tail + 8))
        throw std::runtime_error("no QRTH");
    found.version = littleAt(file, tail + 4);
    size_t first = tail;
    for (uint32_t i = 0; i < littleAt(file, tail + 8); ++i) {
        size_t const entry = tail + 12 + 12 * i;
        size_t const start = tail - littleAt(file, entry + 4);
        size_t const end = start + littleAt(file, entry + 8);
        if (littleAt(file, start) != littleAt(file, entry) || end > tail)
            throw std::runtime_error("entry and record disagree");
        TrailerRecord record{static_cast<int32_t>(littleAt(file, start)) >> 16, {}, {}};
        size_t at = start + 8;
        size_t const nameSize = littleAt(file, start + 4);
        size_t const subInfoSize = littleAt(file, start) & 0x8000 ? littleAt(file, (at += 4) - 4) : 0;
        record.name = file.substr(at, nameSize);
        if (littleAt(file, start) & 0x8000)
            record.subInfo = file.substr(at + nameSize, subInfoSize);
        record.data = file.substr(at + nameSize + subInfoSize, end - at - nameSize - subInfoSize);
        found.records.push_back(record);
        found.dataPositions.push_back(static_cast<uint32_t>(end - record.data.size()));
        first = std::min(first, start);
    }
    found.image = file.substr(0, first);
    return found;
}

} // namespace android::lumo::test
