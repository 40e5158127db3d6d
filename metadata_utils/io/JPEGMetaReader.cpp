// SPDX-License-Identifier: Apache-2.0
#include "JPEGMetaReader.h"

#include "CheckedFile.h"
#include "JPEGSegments.h"
#include "Log.h"
#include "boxes/BigEndian.h"

#include <algorithm>
#include <array>
#include <exception>
#include <new>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "JPEGMetaReader";

constexpr std::pair<int32_t, int32_t> NOT_FOUND{-1, -1};

std::pair<MediaDefs::MetaType, uint64_t> resolveApp4(std::string const&) {
    return {MediaDefs::MetaType::CDIF, 0};
}

} // namespace

JPEGMetaReader::JPEGMetaReader(std::shared_ptr<MediaFile> const& source, ParseMode parseMode)
    : ImageMetaReader(source, parseMode) {
    init();
}

JPEGMetaReader::~JPEGMetaReader() {
    LOGI("~JPEGMetaReader");
}

void JPEGMetaReader::init() {
    LOGI("init E");
    metaTypeResolvers = {{jpeg::APP1, jpeg::resolveApp1}, {jpeg::APP4, resolveApp4}};
    if (mode == ParseMode::EAGER && !parseMetadata())
        throw ErrorAt().as(Error::Code::READ_FAILED, *file)("fail to parse");
    LOGI("init X");
}

Metadata JPEGMetaReader::getXMP() {
    return getMeta(MediaDefs::MetaType::XMP);
}

Metadata JPEGMetaReader::getExif() {
    return getMeta(MediaDefs::MetaType::EXIF);
}

Metadata JPEGMetaReader::getCameraDebugInfo() {
    return getMeta(MediaDefs::MetaType::CDIF);
}

std::vector<Metadata> JPEGMetaReader::findAllXMP() {
    return findXMP(SIZE_MAX);
}

std::vector<Metadata> JPEGMetaReader::findXMP(size_t atMost) {
    std::vector<Metadata> found;
    jpeg::SegmentScanner scanner(*file);
    while (found.size() < atMost) {
        auto const segment = scanner.nextApp({1});
        if (!segment)
            break;
        LOGD("parseMetadata");
        Metadata const meta =
            describe(segment->marker, segment->payloadPosition(), segment->payload(), scanner.payloadStart(*segment));
        if (meta.type == MediaDefs::MetaType::XMP)
            found.push_back(meta);
    }
    return found;
}

Metadata JPEGMetaReader::getMeta(MediaDefs::MetaType type) {
    if (mode == ParseMode::LAZY && metas.empty())
        parseMetadata();
    auto const found = metas.find(type);
    return found == metas.end() ? Metadata{} : found->second;
}

bool JPEGMetaReader::parseMetadata() {
    try {
        scan();
        return true;
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const& exception) {
        LOGE("fail to parse meta from jpeg: %s", exception.what());
        return false;
    }
}

/// The only thing that fails it is a read that the system refuses.
void JPEGMetaReader::scan() {
    jpeg::seekBehindStart(*file);
    jpeg::SegmentScanner scanner(*file);
    while (auto const segment = scanner.nextApp({1, 4})) {
        LOGD("parseMetadata");
        Metadata const meta =
            describe(segment->marker, segment->payloadPosition(), segment->payload(), scanner.payloadStart(*segment));
        LOGD("marker: 0x%x, meta: %s", segment->marker, meta.toString().c_str());
        if (meta.type != MediaDefs::MetaType::NONE)
            metas[meta.type] = meta;
    }
    if (file->position(0) != 0)
        throw ErrorAt().as(Error::Code::READ_FAILED, *file)("Failed to set file position to 0");
}

/// What a segment holds, by the first bytes of its payload.
Metadata JPEGMetaReader::describe(uint16_t marker, uint32_t position, uint32_t payload,
                                  std::string const& payloadStart) const {
    LOGD("strBuf: %s", payloadStart.c_str());
    auto const resolver = metaTypeResolvers.find(marker);
    if (resolver == metaTypeResolvers.end())
        return {};
    auto const [type, offset] = resolver->second(payloadStart);
    return {type, position, payload, static_cast<uint32_t>(offset), loader};
}

std::pair<int32_t, int32_t> JPEGMetaReader::findNextAppNMarker(std::vector<int> const& wanted) {
    try {
        jpeg::SegmentScanner scanner(*file, checked::positionOf(*file));
        if (auto const segment = scanner.nextApp(wanted)) {
            checked::seek(*file, segment->position);
            return {segment->number(), static_cast<int32_t>(segment->position)};
        }
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const& exception) {
        LOGE("fail to find next appN marker: %s", exception.what());
        LOGI("findNextAppNMarker X");
    }
    return NOT_FOUND;
}

Metadata JPEGMetaReader::parseMetadata(uint16_t marker) {
    LOGD("parseMetadata");
    try {
        uint32_t const start = checked::positionOf(*file);
        uint32_t const position = start + jpeg::HEADER_SIZE;
        std::array<uint8_t, jpeg::HEADER_SIZE + jpeg::IDENTIFYING_BYTES> bytes;
        size_t const count = checked::readUpTo(*file, start, bytes.data(), bytes.size());
        if (count < jpeg::HEADER_SIZE)
            throw ErrorAt()("fail to read bytes: %zu, expected %zu", count, size_t{jpeg::HEADER_SIZE});
        if (file->position(position) != position)
            throw ErrorAt()("Failed to restore file position to %zu", size_t{position});
        uint16_t const length = bigEndianAt<uint16_t>(bytes.data() + jpeg::MARKER_SIZE);
        if (length < jpeg::LENGTH_SIZE)
            throw ErrorAt()("segment length %zu is too small", size_t{length});
        uint32_t const payload = length - jpeg::LENGTH_SIZE;
        return describe(marker, position, payload,
                        {reinterpret_cast<char const*>(bytes.data()) + jpeg::HEADER_SIZE,
                         std::min<size_t>(count - jpeg::HEADER_SIZE, payload)});
    } catch (std::bad_alloc const&) {
        throw;
    } catch (std::exception const& exception) {
        LOGE("fail to parseMetadata: %s", exception.what());
        return {};
    }
}

void JPEGMetaReader::tellFound(std::vector<Metadata> const& found) {
    if (!found.empty())
        LOGI("found xmp meta: %s", found.front().toString().c_str());
}

Metadata JPEGMetaReader::findXMPApp1Marker() {
    jpeg::seekBehindStart(*file);
    try {
        auto const found = findXMP(1); // what cannot be read behind it says nothing of it
        if (found.empty())
            return {};
        tellFound(found);
        checked::seek(*file, found.front().position);
        return found.front();
    } catch (Error const& error) {
        LOGE("fail to find next appN marker: %s", error.what());
        return {};
    }
}

} // namespace android::lumo
