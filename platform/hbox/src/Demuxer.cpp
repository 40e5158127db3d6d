// SPDX-License-Identifier: Apache-2.0
#include "hboxd.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "Failure.h"
#include "Source.h"

// The C interface of the demuxer: each function answers from hbox::Source.

namespace hbox {

namespace {

/// The size protocol: reports what is needed, then fills the buffer if there is one.
void answer(std::span<uint8_t const> value, void* buffer, uint32_t* size) {
    uint32_t const capacity = *size;
    *size = static_cast<uint32_t>(value.size());
    if (!buffer)
        return;
    if (capacity < value.size())
        throw failure(HBOX_ERR_BUFFER, "buffer of %u bytes, %zu needed", static_cast<unsigned>(capacity), value.size());
    if (!value.empty())
        std::memcpy(buffer, value.data(), value.size());
}

template<class Record>
void answerRecord(Record const& record, void* buffer, uint32_t* size) {
    answer({reinterpret_cast<uint8_t const*>(&record), sizeof record}, buffer, size);
}

std::vector<uint8_t> parameterSets(Source const& source, uint32_t id) {
    std::vector<uint8_t> bytes;
    forEachParameterSet(source.decoderConfiguration(id), [&](NalType, std::span<uint8_t const> unit) {
        bytes.insert(bytes.end(), {0, 0, 0, 1});
        bytes.insert(bytes.end(), unit.begin(), unit.end());
    });
    return bytes;
}

HBOXD_LOCATION location(Source const& source, uint32_t id) {
    auto const found = source.findLocation(id);
    if (!found)
        throw failure(HBOX_ERR_NOT_FOUND, "item %u has no location", static_cast<unsigned>(id));
    HBOXD_LOCATION record{found->method(), found->extentCount, 0, 0};
    if (found->method() < 2 && found->extentCount > 0) {
        FileRange const first = source.ranges(id).front(); // inside the file, whose size has 32 bits
        record.position = static_cast<uint32_t>(first.position);
        record.length = static_cast<uint32_t>(first.length);
    }
    return record;
}

void answerItemInfo(Source const& source, uint32_t id, HBOXD_ITEM_INFO kind, void* buffer, uint32_t* size) {
    switch (kind) {
    case HBOXD_ITEM_CODEC_SPECIFIC:
        return answer(parameterSets(source, id), buffer, size);
    case HBOXD_ITEM_GRID:
        return answerRecord(source.gridInfo(id), buffer, size);
    case HBOXD_ITEM_LOCATION:
        return answerRecord(location(source, id), buffer, size);
    }
    throw failure(HBOX_ERR_PARAMETER, "unknown item info kind %d", static_cast<int>(kind));
}

std::optional<uint32_t> findThumbnail(Source const& source, uint32_t baseId) {
    if (auto const iref = source.findChild(boxType("iref"))) {
        ReferenceReader reader(*iref);
        while (auto const reference = reader.next()) {
            if (reference->type == boxType("thmb") && reference->refersTo(baseId))
                return reference->from;
        }
    }
    return std::nullopt;
}

} // namespace

} // namespace hbox

using hbox::failure;
using hbox::guarded;
using hbox::requireArguments;

extern "C" HBOXD_HANDLE hboxd_create(HBOX_STREAM_CALLBACKS const* callbacks, void* descriptor, int32_t* error) {
    HBOXD_HANDLE handle = nullptr;
    int32_t const result = guarded([&] {
        requireArguments(callbacks);
        handle = std::make_unique<hboxd_context>(*callbacks, descriptor).release();
    });
    if (error)
        *error = result;
    return handle;
}

extern "C" int32_t hboxd_delete(HBOXD_HANDLE handle) {
    return guarded([&] {
        requireArguments(handle);
        delete handle;
    });
}

extern "C" int32_t hboxd_get_image_id(HBOXD_HANDLE handle, HBOXD_IMAGE which, uint32_t base_id, uint32_t* id) {
    return guarded([&]() -> std::optional<hbox::Failure> {
        requireArguments(handle, id);
        if (which != HBOXD_IMAGE_COVER && which != HBOXD_IMAGE_THUMBNAIL)
            throw failure(HBOX_ERR_PARAMETER, "unknown image kind %d", static_cast<int>(which));
        auto const found = which == HBOXD_IMAGE_COVER ? handle->primaryId() : hbox::findThumbnail(*handle, base_id);
        if (!found) // as with most images
            return failure(HBOX_ERR_NOT_FOUND, "item %u has no thumbnail", static_cast<unsigned>(base_id));
        *id = *found;
        return std::nullopt;
    });
}

extern "C" int32_t hboxd_get_info_image(HBOXD_HANDLE handle, uint32_t id, HBOXD_IMAGE_INFO* info) {
    return guarded([&] {
        requireArguments(handle, info);
        *info = handle->imageInfo(id);
    });
}

extern "C" int32_t hboxd_get_info_item(HBOXD_HANDLE handle, uint32_t id, HBOXD_ITEM_INFO kind, void* buffer,
                                       uint32_t* size) {
    return guarded([&] {
        requireArguments(handle, size);
        hbox::answerItemInfo(*handle, id, kind, buffer, size);
    });
}

extern "C" int32_t hboxd_get_list_referenceto(HBOXD_HANDLE handle, uint32_t id, uint32_t type, uint32_t* ids,
                                              uint32_t* count) {
    return guarded([&] {
        requireArguments(handle, count);
        auto const& found = handle->referencesFrom(id, type);
        uint32_t const capacity = *count;
        *count = static_cast<uint32_t>(found.size());
        if (ids && capacity < found.size())
            throw failure(HBOX_ERR_BUFFER, "room for %u ids, %zu needed", static_cast<unsigned>(capacity),
                          found.size());
        if (ids)
            std::copy(found.begin(), found.end(), ids);
    });
}

extern "C" int32_t hboxd_get_image_frm(HBOXD_HANDLE handle, uint32_t id, void* buffer, uint32_t capacity,
                                       uint32_t* size) {
    return guarded([&] {
        requireArguments(handle, size);
        auto const& ranges = handle->ranges(id);
        uint64_t total = 0; // at most the file's size: 32 bits
        for (auto const& range : ranges)
            total += range.length;
        *size = static_cast<uint32_t>(total);
        if (!buffer)
            return;
        if (capacity < total)
            throw failure(HBOX_ERR_BUFFER, "buffer of %u bytes, %u needed", static_cast<unsigned>(capacity),
                          static_cast<unsigned>(*size));
        auto out = std::span(static_cast<uint8_t*>(buffer), static_cast<size_t>(total));
        for (auto const& range : ranges) {
            handle->stream().read(range.position, out.first(static_cast<size_t>(range.length)));
            out = out.subspan(static_cast<size_t>(range.length));
        }
    });
}
