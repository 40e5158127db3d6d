// SPDX-License-Identifier: Apache-2.0
// The interface for other languages: what is asked of a photo. CInterfaceEdit.cpp has what changes one.
#include "CHandle.h"
#include "CheckedFile.h"
#include "Log.h"
#include "MediaDefs.h"
#include "MemoryFile.h"
#include "MovieBoxes.h"

#include <algorithm>

using namespace android::lumo;
using namespace android::lumo::handles;

namespace {

template<class Elements>
auto const& at(Elements const& elements, size_t index) {
    if (index >= elements.size())
        throw ErrorAt()("number %zu of %zu", index, elements.size());
    return elements[index];
}

/// A clip of any brand: what the views do not take for a movie gets another brand on its way into a photo.
void requireStillOrMovie(MediaFile const& file) {
    try {
        file.mimeType();
    } catch (Error const& error) {
        if (error.code() != Error::Code::UNSUPPORTED)
            throw;
        auto const found = movie::walk(file, 0, file.size());
        if (!found.begins || !found.hasMovie)
            throw;
    }
}

template<class Open>
int opened(mu_photo** photo, Open const& open) noexcept {
    log::silenceByDefault();
    return guarded([&] {
        out(photo) = nullptr;
        auto made = std::make_unique<mu_photo>();
        made->file = open();
        requireStillOrMovie(*made->file);
        *photo = made.release();
    });
}

void answer(mu_photo& photo, MotionVideo found, mu_video& video) {
    photo.video = std::move(found);
    photo.mimeType = MediaDefs::mimeString(photo.video.mimeType());
    video = {static_cast<int32_t>(photo.video.source),
             static_cast<int32_t>(photo.video.status),
             photo.video.position,
             photo.video.size,
             photo.video.momentUs.value_or(-1),
             photo.mimeType.c_str(),
             photo.video.reason.c_str()};
}

MotionVideo soundVideo(mu_photo const& photo) {
    auto video = MotionVideo::locate(photo.file);
    if (!video.isSound())
        throw ErrorAt()("the photo carries no sound video");
    return video;
}

void requireElsewhere(mu_photo const& photo, MediaFile const& target) {
    require(!checked::isSameFile(*photo.file, target), "the output is the photo itself");
}

} // namespace

// Errors, version, log. -----------------------------------------------------------------------------------------------

char const* mu_last_error(void) {
    return lastText();
}

int mu_last_error_code(void) {
    return lastCode();
}

char const* mu_version(void) {
    static std::string const version = metadata_utils::getVersionString();
    return version.c_str();
}

void mu_set_log(mu_log_function log, void* user) {
    log::redirect(log, user);
}

// Opening. ------------------------------------------------------------------------------------------------------------

int mu_open_path(char const* path, int writable, mu_photo** photo) {
    return opened(photo, [&] { return std::make_shared<MediaFile>(given(path), writable != 0 ? "rw" : "r"); });
}

int mu_open_descriptor(int fd, mu_photo** photo) {
    return opened(photo, [&] { return std::make_shared<MediaFile>(fd); });
}

int mu_open_memory(void const* bytes, size_t size, mu_photo** photo) {
    return opened(photo, [&] {
        require(bytes != nullptr && size > 0, "no bytes given");
        return memoryFile(bytes, size);
    });
}

void mu_close(mu_photo* photo) {
    delete photo;
}

// The video. ----------------------------------------------------------------------------------------------------------

int mu_locate_video(mu_photo* photo, mu_video* video) {
    return guarded([&] { answer(of(photo), MotionVideo::locate(of(photo).file), out(video)); });
}

int mu_scan_video(mu_photo* photo, mu_video* video) {
    return guarded([&] { answer(of(photo), MotionVideo::scan(of(photo).file), out(video)); });
}

int mu_copy_video_to_descriptor(mu_photo* photo, int fd) {
    return guarded([&] {
        auto const video = soundVideo(of(photo));
        auto const target = std::make_shared<MediaFile>(fd);
        requireElsewhere(*photo, *target);
        checked::copy(photo->file, target, video.position, video.size);
    });
}

int mu_copy_video_to_path(mu_photo* photo, char const* path) {
    return guarded([&] {
        auto const video = soundVideo(of(photo));
        auto const target = outputAt(path);
        requireElsewhere(*photo, *target);
        checked::requireSpace(*target, video.size);
        checked::copy(photo->file, target, video.position, video.size);
        checked::truncate(*target, video.size);
    });
}

// What the photo says. ------------------------------------------------------------------------------------------------

int mu_count_properties(mu_photo* photo, size_t* count) {
    return guarded([&] { out(count) = of(photo).read().properties.size(); });
}

int mu_get_property_at(mu_photo* photo, size_t index, mu_property* property) {
    return guarded([&] {
        auto const& found = at(of(photo).read().properties, index);
        out(property) = {found.schema.c_str(), found.path.c_str(), found.value.c_str()};
    });
}

int mu_get_property(mu_photo* photo, char const* schema, char const* path, char const** value) {
    return guarded([&] {
        of(photo).answer = of(photo).read().xmp->getProperty(given(schema), given(path));
        out(value) = photo->answer.c_str();
    });
}

int mu_count_items(mu_photo* photo, size_t* count) {
    return guarded([&] { out(count) = of(photo).read().items.size(); });
}

int mu_get_item_at(mu_photo* photo, size_t index, mu_item* item) {
    return guarded([&] {
        auto const& found = at(of(photo).read().items, index);
        out(item) = {found.semantic.c_str(), found.mime.c_str(), found.length.c_str(), found.padding.c_str()};
    });
}

int mu_count_records(mu_photo* photo, size_t* count) {
    return guarded([&] { out(count) = of(photo).read().records.size(); });
}

int mu_get_record_at(mu_photo* photo, size_t index, mu_record* record) {
    return guarded([&] {
        auto const& found = at(of(photo).read().records, index);
        out(record) = {found.type, found.name.c_str(), found.dataPosition, found.dataPayload};
    });
}

int mu_read_record(mu_photo* photo, size_t index, void* bytes, size_t capacity, size_t* size) {
    return guarded([&] {
        auto const& record = at(of(photo).read().records, index);
        out(size) = record.dataPayload;
        auto const wanted = static_cast<uint32_t>(std::min<size_t>(capacity, record.dataPayload));
        require(bytes != nullptr || wanted == 0, "no place for the answer given");
        checked::readAgain(*photo->file, record.dataPosition, bytes, wanted);
    });
}
