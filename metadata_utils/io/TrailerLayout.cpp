// SPDX-License-Identifier: Apache-2.0
#include "TrailerLayout.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "HEIFBoxScan.h"
#include "Log.h"

#include <algorithm>
#include <cstring>
#include <string_view>

namespace android::lumo::trailer {

namespace {

constexpr char LOG_TAG[] = "QRTInfo";
/// Enough for the tail of nine records and the mark at its end, of some 80 records, and for a record's fixed fields
/// and its name, each in one read.
constexpr uint32_t LAST_READ = 128;
constexpr uint32_t FIRST_TAIL_READ = 1024;
constexpr uint32_t FIRST_HEAD_READ = RECORD_HEADER_SIZE + SUB_INFO_LENGTH_SIZE + 64;

/// Messages name the view, for which all this is read.
ErrorAt error(int line = __builtin_LINE()) {
    return ErrorAt(line, "metadata_utils/QRTInfoImpl").as(Error::Code::DAMAGED);
}

uint32_t word(ByteBuffer const& bytes, uint32_t index) {
    return bytes.get<uint32_t, uint32_t>(index);
}

uint32_t word(std::span<uint8_t const> bytes, uint32_t index) {
    uint32_t value = 0;
    std::memcpy(&value, bytes.subspan(index, sizeof value).data(), sizeof value);
    return value;
}

bool holds(ByteBuffer const& bytes, uint32_t index, std::string_view magic) {
    return std::string_view(reinterpret_cast<char const*>(bytes.data()), bytes.size()).substr(index, MAGIC_SIZE) ==
           magic;
}

uint32_t fixedSize(bool hasSubInfo) {
    return RECORD_HEADER_SIZE + (hasSubInfo ? SUB_INFO_LENGTH_SIZE : 0);
}

/// Each record lies in front of the tail, and all together take no more bytes than there are: what is read for them is
/// bounded by the file's size, however often entries name the same bytes.
void checkEntries(Tail const& tail) {
    uint64_t total = 0;
    for (auto const& entry : tail.entries) {
        if (entry.offsetFromTail > tail.position)
            throw error()("record offset %zu lies outside the %zu bytes in front of the tail",
                          size_t{entry.offsetFromTail}, size_t{tail.position});
        if (entry.payload > entry.offsetFromTail || entry.payload < fixedSize(subInfoOfHeader(entry.header)))
            throw error()("record payload %zu does not fit its place %zu bytes in front of the tail",
                          size_t{entry.payload}, size_t{entry.offsetFromTail});
        total += entry.payload;
    }
    if (total > tail.position)
        throw error()("records of %llu bytes in all do not fit in front of the tail at %zu",
                      static_cast<unsigned long long>(total), size_t{tail.position});
}

/// From "QRTH" to the last directory entry; nothing without the magic.
///
///     offset  width  field (unsigned 32-bit little-endian)
///     0       4      "QRTH"
///     4       4      version
///     8       4      record count n
///     12      12*n   n times header word, offsetFromTail, payload
///
/// `last` is what has been read of the file's end.
std::optional<Tail> readDirectory(MediaFile const& file, uint32_t position, uint32_t size, ByteBuffer const& last) {
    ByteBuffer bytes = size + TAIL_END_SIZE <= last.size()
                           ? last.slice(last.size() - TAIL_END_SIZE - size, size)
                           : checked::readAt(file, position, std::min(size, FIRST_TAIL_READ), error());
    if (!holds(bytes, 0, START_MAGIC))
        return std::nullopt;
    if (size < TAIL_HEADER_SIZE)
        throw error()("tail size %zu is too small for version and count", size_t{size});
    Tail tail{word(bytes, 4), position, size + TAIL_END_SIZE, {}};
    uint32_t const count = word(bytes, 8);
    LOGI("QRT version: %d, # of data: %d", static_cast<int>(tail.version), static_cast<int>(count));
    if (count > (size - TAIL_HEADER_SIZE) / DIRECTORY_ENTRY_SIZE)
        throw error()("record count %zu does not fit in a tail of %zu bytes", size_t{count}, size_t{size});
    if (count > MAX_RECORDS)
        throw error()("record count %zu is above %zu", size_t{count}, size_t{MAX_RECORDS});

    uint32_t const directoryEnd = TAIL_HEADER_SIZE + count * DIRECTORY_ENTRY_SIZE;
    if (directoryEnd > bytes.size())
        bytes = checked::readAt(file, position, directoryEnd, error());
    tail.entries.reserve(count);
    for (uint32_t at = TAIL_HEADER_SIZE; at < directoryEnd; at += DIRECTORY_ENTRY_SIZE)
        tail.entries.push_back({word(bytes, at), word(bytes, at + 4), word(bytes, at + 8)});
    return tail;
}

} // namespace

int32_t typeOfHeader(uint32_t header) {
    return static_cast<int32_t>(header) >> 16;
}

bool subInfoOfHeader(uint32_t header) {
    return (header & 0xFFFF) >> 15 != 0;
}

uint32_t headerOf(int32_t type, bool hasSubInfo) {
    return static_cast<uint32_t>(type) << 16 | (hasSubInfo ? 1U : 0U);
}

uint32_t tailSize(size_t count) {
    return TAIL_HEADER_SIZE + static_cast<uint32_t>(count) * DIRECTORY_ENTRY_SIZE + TAIL_END_SIZE;
}

std::optional<Tail> readTail(MediaFile const& file) {
    return readTail(file, file.size());
}

std::optional<Tail> readTail(MediaFile const& file, uint32_t fileSize) {
    if (fileSize < MAGIC_SIZE) {
        LOGI("no end of qrt-tail marker: %s", file.getPath().c_str());
        return std::nullopt;
    }
    uint32_t const lastSize = std::min(fileSize, LAST_READ), endSize = std::min(fileSize, TAIL_END_SIZE);
    ByteBuffer const last = checked::readAt(file, fileSize - lastSize, lastSize, error());
    if (!holds(last, lastSize - MAGIC_SIZE, END_MAGIC)) {
        LOGE("no end of qrt-tail marker: %s", file.getPath().c_str());
        return std::nullopt;
    }
    uint32_t const size = endSize == TAIL_END_SIZE ? word(last, lastSize - TAIL_END_SIZE) : 0;
    LOGI("qrtTailStartSignatureOffset=%d", static_cast<int>(size + TAIL_END_SIZE));
    std::optional<Tail> tail;
    if (size >= MAGIC_SIZE && size <= fileSize - endSize)
        tail = readDirectory(file, fileSize - endSize - size, size, last);
    if (!tail)
        LOGE("no start of qrt-tail marker");
    else
        checkEntries(*tail);
    return tail;
}

uint32_t startOf(Tail const& tail) {
    uint32_t farthest = 0;
    for (auto const& entry : tail.entries)
        farthest = std::max(farthest, entry.offsetFromTail);
    return tail.position - farthest;
}

QRTDataInfo readRecord(MediaFile const& file, Tail const& tail, DirectoryEntry const& entry) {
    ReadWindow window(file);
    return readRecord(window, tail, entry);
}

std::vector<QRTDataInfo> readRecords(MediaFile const& file, Tail const& tail) {
    ReadWindow window(file);
    std::vector<QRTDataInfo> records;
    records.reserve(tail.entries.size());
    for (auto const& entry : tail.entries)
        records.push_back(readRecord(window, tail, entry));
    return records;
}

QRTDataInfo readRecord(ReadWindow& window, Tail const& tail, DirectoryEntry const& entry) {
    QRTDataInfo record;
    record.type = typeOfHeader(entry.header);
    record.hasSubInfo = subInfoOfHeader(entry.header);
    record.offsetFromTail = entry.offsetFromTail;
    record.payload = entry.payload;

    uint32_t const start = tail.position - entry.offsetFromTail;
    bool const isShort = entry.payload < ReadWindow::SIZE && tail.entries.size() > 1;
    auto head = window.at(start, std::min(entry.payload, FIRST_HEAD_READ), isShort, error());
    if (typeOfHeader(word(head, 0)) != record.type)
        throw error()("type mismatch");
    if (subInfoOfHeader(word(head, 0)) != record.hasSubInfo)
        throw error()("hasSubInfo mismatch");

    uint32_t const fixed = fixedSize(record.hasSubInfo);
    uint32_t const left = entry.payload - fixed;
    uint32_t const nameSize = word(head, 4);
    if (nameSize > left)
        throw error()("record name length %zu, %zu bytes left", size_t{nameSize}, size_t{left});
    if (record.hasSubInfo)
        record.subInfoPayload = word(head, RECORD_HEADER_SIZE);
    if (record.subInfoPayload > left - nameSize)
        throw error()("record sub-info length %zu, %zu bytes left", size_t{record.subInfoPayload},
                      size_t{left - nameSize});
    if (nameSize > MAX_NAME_SIZE)
        throw error()("record name length %zu is above %zu", size_t{nameSize}, size_t{MAX_NAME_SIZE});

    if (nameSize > head.size() - fixed)
        head = window.at(start, fixed + nameSize, isShort, error());
    record.name.assign(reinterpret_cast<char const*>(head.data()) + fixed, nameSize);
    locate(record, tail.position);
    record.dataPayload = storedData(record, tail.position).size;
    LOGI("data: %s", record.toString().c_str());
    return record;
}

uint32_t headSize(size_t nameSize, bool hasSubInfo, uint32_t subInfoSize) {
    return fixedSize(hasSubInfo) + static_cast<uint32_t>(nameSize) + (hasSubInfo ? subInfoSize : 0);
}

uint32_t headSize(QRTDataInfo const& record) {
    return headSize(record.name.size(), record.hasSubInfo, record.subInfoPayload);
}

Stretch storedData(QRTDataInfo const& record, uint32_t tailPosition) {
    uint32_t const head = headSize(record);
    return {tailPosition - record.offsetFromTail + head, record.payload - head};
}

Stretch storedSubInfo(QRTDataInfo const& record, uint32_t tailPosition) {
    uint32_t const size = record.hasSubInfo ? record.subInfoPayload : 0;
    return {storedData(record, tailPosition).position - size, size};
}

void locate(QRTDataInfo& record, uint32_t tailPosition) {
    record.dataPosition = storedData(record, tailPosition).position;
    record.subInfoPosition = record.hasSubInfo ? storedSubInfo(record, tailPosition).position : 0;
}

QRTDataInfo withoutBytes(QRTDataInfo const& record) {
    QRTDataInfo copy;
    copy.type = record.type;
    copy.name = record.name;
    copy.hasSubInfo = record.hasSubInfo;
    copy.offsetFromTail = record.offsetFromTail;
    copy.payload = record.payload;
    copy.dataPayload = record.dataPayload;
    copy.dataPosition = record.dataPosition;
    copy.subInfoPayload = record.subInfoPayload;
    copy.subInfoPosition = record.subInfoPosition;
    return copy;
}

/// The layout is QRTDataInfo's.
void appendRecord(ByteBuffer& bytes, QRTDataInfo const& record, ByteBuffer const& data) {
    uint32_t const start = bytes.size();
    LOGI("add header");
    bytes.put(headerOf(record.type, record.hasSubInfo));
    LOGI("add name size");
    bytes.put(static_cast<uint32_t>(record.name.size()));
    if (record.hasSubInfo) {
        LOGI("add subInfoPayload");
        bytes.put(record.subInfoPayload);
    }
    LOGI("add name");
    bytes.put(record.name);
    if (record.hasSubInfo) {
        LOGI("add subInfo");
        bytes.put(record.subInfo);
    }
    LOGI("add data");
    bytes.put(data);
    auto const own = [&] { return bytes.slice(start, bytes.size() - start); }; // copied only for a log that is read
    LOGI("toBuffer[%s]: %s", own().toString().c_str(), own().toHexString('0').c_str());
}

std::string describe(QRTDataInfo const& record, size_t dataSize) {
    auto const bytes = [](size_t size) {
        return size == 0 ? std::string("empty") : "[data-size=" + std::to_string(size) + "]";
    };
    // Sizes show as the signed numbers that log readers are used to.
    auto const number = [](uint32_t value) { return std::to_string(static_cast<int32_t>(value)); };
    std::string const file = record.dataFile != nullptr ? record.dataFile->toString() : std::string();
    std::string const numbers =
        ", offsetFromTail=" + number(record.offsetFromTail) + ", payload=" + number(record.payload) +
        ", data-payload=" + number(record.dataPayload) + ", data=" + bytes(dataSize) + ", dataFile=[" + file +
        "], hasSubInfo=" + (record.hasSubInfo ? "1" : "0") + ", subInfoPayload=" + number(record.subInfoPayload) +
        ", subInfo=" + bytes(record.subInfo.size());
    std::string text = "type=" + std::to_string(record.type) + ", name=";
    text.reserve(text.size() + record.name.size() + numbers.size()); // a name may be as long as the file: one copy
    text.append(record.name).append(numbers);
    return text;
}

ByteBuffer serializeTail(uint32_t version, std::vector<QRTDataInfo> const& records) {
    uint32_t const size = tailSize(records.size());
    ByteBuffer bytes(size);
    bytes.put(std::string(START_MAGIC)).put(version).put(static_cast<uint32_t>(records.size()));
    for (auto const& record : records) {
        bytes.put(headerOf(record.type, record.hasSubInfo)).put(record.offsetFromTail).put(record.payload);
    }
    bytes.put(size - TAIL_END_SIZE).put(std::string(END_MAGIC));
    return bytes;
}

// What was known of a file. -------------------------------------------------------------------------------------------

bool Stored::holdsSameAs(Stored const& other) const {
    auto const isSame = [](QRTDataInfo const& a, QRTDataInfo const& b) {
        return a.type == b.type && a.offsetFromTail == b.offsetFromTail && a.payload == b.payload && a.name == b.name;
    };
    return version == other.version && size == other.size && tailSize == other.tailSize &&
           std::equal(records.begin(), records.end(), other.records.begin(), other.records.end(), isSame);
}

namespace {

/// A record that was written with sub-info reads back under another name.
bool isStill(ReadWindow& window, Tail const& tail, DirectoryEntry const& entry, QRTDataInfo const& record) {
    return typeOfHeader(entry.header) == record.type && entry.offsetFromTail == record.offsetFromTail &&
           entry.payload == record.payload &&
           (record.hasSubInfo || readRecord(window, tail, entry).name == record.name);
}

/// A trailer inside another box, one that runs to the file's end, would be cut out of it.
void requireOwnBox(MediaFile const& file, uint32_t start) {
    uint32_t const position = start - std::min(start, BOX_HEADER_SIZE);
    auto const header = checked::readAt(file, position, BOX_HEADER_SIZE);
    if (!holds(header, MAGIC_SIZE, boxTypeText(TRAILER_BOX)))
        throw ErrorAt().as(Error::Code::DAMAGED)("no box of type %s in front of the trailer",
                                                 boxTypeText(TRAILER_BOX).c_str());
    auto const boxes = heif::scanWhole(file).boxes;
    if (boxes.empty() || boxes.back().position != position)
        throw ErrorAt().as(Error::Code::DAMAGED)("the trailer stands inside another box");
}

} // namespace

uint32_t Stored::requireIn(MediaFile const& file, uint32_t fileSize, bool box) const {
    auto const tail = readTail(file, fileSize);
    if (!tail && size == 0)
        return fileSize;
    bool isKnown = tail && size > 0 && tail->size == tailSize && tail->position - startOf(*tail) == recordsSize() &&
                   tail->version == version && tail->entries.size() == records.size();
    ReadWindow window(file);
    for (size_t i = 0; isKnown && i < records.size(); ++i)
        isKnown = isStill(window, *tail, tail->entries[i], records[i]);
    if (!isKnown)
        throw ErrorAt().as(Error::Code::CHANGED)(
            "the trailer has changed since it was read: %zu records in %zu bytes were there", records.size(),
            size_t{size});
    uint32_t const start = startOf(*tail);
    if (start <= (box ? BOX_HEADER_SIZE : 0))
        throw error()("invalid image size: %zu", size_t{0});
    if (box)
        requireOwnBox(file, start);
    return start;
}

///     offset  width  field
///     0       4      box size, big-endian, header included
///     4       4      "qrtd"
std::string serializeBoxHeader(uint32_t recordsAndTail) {
    return boxHeader(recordsAndTail + BOX_HEADER_SIZE, TRAILER_BOX);
}

} // namespace android::lumo::trailer
