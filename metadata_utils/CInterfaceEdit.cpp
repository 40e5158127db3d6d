// SPDX-License-Identifier: Apache-2.0
// The interface for other languages: edits are staged as functions over files, and carried out by a commit.
#include "CHandle.h"
#include "CheckedFile.h"
#include "MemoryFile.h"
#include "MotionPhotoEdit.h"
#include "PublishedPhoto.h"

#include <algorithm>
#include <cstdlib>

using namespace android::lumo;
using namespace android::lumo::handles;

namespace {

void copyWhole(File const& source, File const& target) {
    uint32_t const size = source->size();
    checked::seek(*target, 0);
    checked::copy(source, target, 0, size);
    checked::truncate(*target, size);
}

/// For edits that know only to work in place.
Edit inPlace(std::function<void(File const&)> const& edit) {
    return {[edit](File const& photo, File const& output) {
        if (output != nullptr)
            copyWhole(photo, output);
        edit(output != nullptr ? output : photo);
    }};
}

/// For the edit of a property. A name without steps below it means the same before and behind every other step, so it
/// can be tried ahead.
Edit ofPacket(std::string const& path, std::function<void(XMPEdit&)> const& change) {
    auto edit = inPlace([change](File const& file) {
        auto const packet = XMPInfo::parse(file)->edit();
        change(*packet);
        packet->commit();
    });
    if (path.find_first_of("[/") == std::string::npos)
        edit.change = change;
    return edit;
}

int stage(mu_photo* photo, std::function<Edit()> const& make) noexcept {
    return guarded([&] { of(photo).staged.push_back(make()); });
}

/// The motion-photo editor keeps the XMP's lengths right where there is a video, and would claim one where there is
/// not.
void putRecord(File const& file, int32_t type, std::string const& name, ByteBuffer const& data) {
    if (MotionVideo::locate(file).status == MotionVideo::Status::NONE) {
        auto const edit = QRTInfo::parse(file)->edit();
        edit->putData(type, name, data);
        return edit->commit();
    }
    auto const edit = MotionPhotoInfo::parse(file)->edit();
    edit->addQRTData(type, name, data);
    edit->commit();
}

/// A property that cannot be set is found before the first step has changed the file.
void rehearse(mu_photo const& photo) {
    if (std::none_of(photo.staged.begin(), photo.staged.end(), [](auto const& edit) { return edit.change != nullptr; }))
        return;
    auto const packet = XMPInfo::parse(photo.file)->edit();
    for (auto const& edit : photo.staged) {
        if (edit.change)
            edit.change(*packet);
    }
}

/// The first edit makes the output, the others work on it.
void writeInto(mu_photo const& photo, File const& output) {
    if (photo.staged.empty())
        return copyWhole(photo.file, output);
    if (MediaFile::isFdsDup(photo.file->getFd(), output->getFd()))
        throw ErrorAt()("the output is the photo itself");
    rehearse(photo);
    photo.staged.front().carryOut(photo.file, output);
    std::for_each(photo.staged.begin() + 1, photo.staged.end(),
                  [&](auto const& edit) { edit.carryOut(output, nullptr); });
}

} // namespace

int mu_stage_video(mu_photo* photo, mu_photo* clip, int64_t moment_us) {
    return stage(photo, [&]() -> Edit {
        published::AddOptions options;
        if (moment_us >= 0)
            options.momentUs = moment_us;
        return {[movie = of(clip).file, options](File const& still, File const& output) {
            published::addVideo(still, movie, options, output);
        }};
    });
}

int mu_stage_removal(mu_photo* photo) {
    return stage(photo, []() -> Edit {
        return {[](File const& still, File const& output) { published::removeVideo(still, output); }};
    });
}

int mu_stage_moment(mu_photo* photo, int64_t moment_us) {
    return stage(photo, [&]() -> Edit {
        require(moment_us >= 0, "a moment in front of the video");
        return {[moment_us](File const& still, File const& output) { published::setMoment(still, moment_us, output); }};
    });
}

int mu_stage_property(mu_photo* photo, char const* schema, char const* path, char const* value) {
    return stage(photo, [&] {
        return ofPacket(given(path),
                        [name = std::pair<std::string, std::string>(given(schema), given(path)),
                         text = value != nullptr ? std::optional<std::string>(value) : std::nullopt](XMPEdit& packet) {
                            if (text)
                                packet.setProperty(name.first, name.second, *text);
                            else
                                packet.removeProperty(name.first, name.second);
                        });
    });
}

int mu_stage_record(mu_photo* photo, int32_t type, char const* name, void const* bytes, size_t size) {
    return stage(photo, [&] {
        require(bytes != nullptr && size > 0, "a record needs data");
        auto const* first = static_cast<uint8_t const*>(bytes);
        return inPlace([type, key = std::string(given(name)),
                        data = ByteBuffer(std::vector<uint8_t>(first, first + size))](File const& file) {
            putRecord(file, type, key, data);
        });
    });
}

int mu_stage_to_trailer(mu_photo* photo) {
    return stage(photo, []() -> Edit {
        return {[](File const& still, File const& output) { published::toTrailer(still, output); }};
    });
}

int mu_stage_to_published(mu_photo* photo, int drop_records) {
    return stage(photo, [drop = drop_records != 0]() -> Edit {
        return {[drop](File const& still, File const& output) { published::toPublished(still, drop, output); }};
    });
}

int mu_commit(mu_photo* photo) {
    return guarded([&] {
        of(photo).contents.reset();
        rehearse(*photo);
        while (!photo->staged.empty()) {
            photo->staged.front().carryOut(photo->file, nullptr);
            photo->staged.erase(photo->staged.begin());
        }
    });
}

int mu_commit_to_path(mu_photo* photo, char const* path) {
    return guarded([&] { writeInto(of(photo), outputAt(path)); });
}

int mu_commit_to_descriptor(mu_photo* photo, int fd) {
    return guarded([&] { writeInto(of(photo), std::make_shared<MediaFile>(fd)); });
}

int mu_commit_to_memory(mu_photo* photo, void** bytes, size_t* size) {
    return guarded([&] {
        out(bytes) = nullptr;
        out(size) = 0;
        auto const file = memoryFile("", 0);
        writeInto(of(photo), file);
        uint32_t const length = file->size();
        std::unique_ptr<void, decltype(&std::free)> copy(std::malloc(std::max<size_t>(length, 1)), &std::free);
        if (copy == nullptr)
            throw std::bad_alloc();
        if (checked::readUpTo(*file, 0, copy.get(), length) != length)
            throw ErrorAt().as(Error::Code::READ_FAILED)("the file in memory ended early");
        *bytes = copy.release();
        *size = length;
    });
}

void mu_free(void* bytes) {
    std::free(bytes);
}
