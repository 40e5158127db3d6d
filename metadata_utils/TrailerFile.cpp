// SPDX-License-Identifier: Apache-2.0
#include "TrailerFile.h"

#include "CheckedFile.h"
#include "ErrorAt.h"
#include "TrailerWriter.h"
#include "io/VideoPointer.h"

#include <algorithm>

namespace android::lumo {

TrailerFile TrailerFile::copiedTo(std::shared_ptr<MediaFile> const& copy) const {
    TrailerFile made = *this;
    made.file = copy;
    made.isWhole = false;
    return made;
}

TrailerPlan::Ground TrailerFile::survey(uint32_t boxHeader) const {
    checked::requireAddressable(*file);
    if (!isWhole)
        throw ErrorAt()("the copy that this editor was to write is not complete");
    TrailerPlan::Ground ground;
    ground.boxHeader = boxHeader;
    ground.fileSize = file->size();
    ground.version = stored->version;
    if (unfinished && endsUnfinished(boxHeader > 0)) {
        if (ground.fileSize <= *unfinished)
            throw ErrorAt().as(Error::Code::CHANGED)("the file has changed since it was read: %zu bytes are left",
                                                     size_t{ground.fileSize});
        ground.image = ground.fileSize - *unfinished;
        return ground;
    }
    uint32_t const start = stored->requireIn(*file, boxHeader > 0);
    ground.hasTrailer = stored->size > 0;
    ground.image = start - (ground.hasTrailer ? boxHeader : 0);
    if (ground.image == 0)
        throw ErrorAt().as(Error::Code::CHANGED)("the file has changed since it was read: it is empty");
    return ground;
}

/// The file ends in what a failed commit left, not in the trailer that stood there before.
bool TrailerFile::endsUnfinished(bool box) const {
    try {
        if (stored->size == 0)
            return !trailer::readTail(*file);
        stored->requireIn(*file, box);
        return false;
    } catch (std::exception const&) {
        rethrowUnlessDamage();
        return true;
    }
}

void TrailerFile::followPointer(TrailerPlan& planned) const {
    auto const* place = planned.find(qrt::TYPE_MOTION_PHOTO_DATA);
    if (place == nullptr || !place->was || !planned.getGround().hasTrailer)
        return;
    uint32_t const data = planned.start() + *place->was + place->record->headSize();
    auto pointer = VideoPointer::in(*file, place->record->type, {data, place->record->dataSize});
    if (!pointer || pointer->length == 0 || pointer->position < planned.start() ||
        pointer->position - planned.start() >= stored->recordsSize())
        return;
    uint32_t const from = pointer->position - planned.start();
    if (std::none_of(stored->records.begin(), stored->records.end(), [&](auto const& record) {
            uint32_t const start = stored->recordsSize() - record.offsetFromTail;
            return from >= start && from - start < record.payload;
        }))
        throw ErrorAt().as(Error::Code::UNSUPPORTED)("the video at %zu stands in no record of the trailer",
                                                     size_t{pointer->position});
    auto const now = planned.newPlaceOf(from);
    if (!now || *now == from)
        return;
    pointer->position = planned.start() + *now;
    planned.patch(*place, pointer->encode());
}

void TrailerFile::requireKept(StagedRecords::List const& records) const {
    for (auto const& record : records) {
        if (record.isInFile())
            static_cast<void>(placeOf(record));
    }
}

uint32_t TrailerFile::placeOf(StagedRecord const& record) const {
    auto const found = standing.find(record.identity);
    if (found == standing.end())
        throw ErrorAt().as(Error::Code::CHANGED)("record %s no longer stands in the file's trailer",
                                                 record.name.c_str());
    return found->second;
}

ByteBuffer TrailerFile::read(StagedRecord const& record, uint32_t boxHeader, uint32_t offset, uint32_t n) const {
    auto const ground = survey(boxHeader);
    return checked::readAt(*file, ground.image + boxHeader + placeOf(record) + offset, n);
}

void TrailerFile::write(TrailerPlan const& planned) {
    TrailerWriter writer(file, planned);
    try {
        writer.write();
    } catch (...) {
        if (writer.hasBegun()) {
            standing = writer.whatStands();
            uint32_t const size = file->size();
            unfinished = size - std::min(size, planned.getGround().image);
        }
        throw;
    }
    standing = planned.newPlaces();
    stored = writer.getStored();
    unfinished.reset();
}

} // namespace android::lumo
