// SPDX-License-Identifier: Apache-2.0
// The interface for other languages: edits are staged as functions over files, and carried out by a commit.
#include "CHandle.h"
#include "CheckedFile.h"
#include "MemoryFile.h"
#include "MotionPhotoEdit.h"
#include "PublishedPhoto.h"
#include "ScratchFile.h"
#include "io/SplicedCopy.h"

#include <algorithm>
#include <cstdlib>

using namespace android::lumo;
using namespace android::lumo::handles;

namespace {

void copyWhole(File const& source, File const& target) {
    SplicedCopy(source).writeTo(target);
}

/// For edits that know only to work in place.
Edit inPlace(std::function<void(File const&)> const& edit) {
    return {[edit](File const& photo, File const& output) {
        if (output != nullptr)
            copyWhole(photo, output);
        edit(output != nullptr ? output : photo);
    }};
}

Edit ofPacket() {
    auto const changes = std::make_shared<std::vector<std::function<void(XMPEdit&)>>>();
    auto edit = inPlace([changes](File const& file) {
        auto const packet = XMPInfo::parse(file)->edit();
        for (auto const& change : *changes)
            change(*packet);
        packet->commit();
    });
    edit.changes = changes;
    return edit;
}

/// Whatever is allocated for `make` is so behind the border.
template<class Make>
int stage(mu_photo* photo, Make const& make) noexcept {
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

/// What a later step refuses is found on a copy, before the first one has changed the file.
void rehearse(mu_photo const& photo) {
    auto const copy = scratchBeside(*photo.file);
    copyWhole(photo.file, copy);
    for (auto const& edit : photo.staged)
        edit.carryOut(copy, nullptr);
}

/// The first edit makes the output, the others work on it.
void carryOutInto(mu_photo const& photo, File const& output) {
    if (photo.staged.empty())
        return copyWhole(photo.file, output);
    photo.staged.front().carryOut(photo.file, output);
    std::for_each(photo.staged.begin() + 1, photo.staged.end(),
                  [&](auto const& edit) { edit.carryOut(output, nullptr); });
}

/// An output that one of the inputs is would be lost, or read when it is written already.
void requireNoInput(mu_photo const& photo, File const& output) {
    auto const is = [&](File const& input) { return input != nullptr && checked::isSameFile(*input, *output); };
    if (is(photo.file))
        throw ErrorAt()("the output is the photo itself");
    if (std::any_of(photo.staged.begin(), photo.staged.end(), [&](auto const& edit) { return is(edit.clip); }))
        throw ErrorAt()("the output is the video itself");
}

/// What an output holds stays until all is carried out elsewhere; an empty one is empty again after a failure.
void writeInto(mu_photo const& photo, File const& output) {
    requireNoInput(photo, output);
    checked::requireEditable(*output);
    if (output->size() > 0) {
        auto const result = scratchBeside(*output);
        carryOutInto(photo, result);
        return copyWhole(result, output);
    }
    try {
        carryOutInto(photo, output);
    } catch (...) {
        output->truncate(0);
        throw;
    }
}

} // namespace

int mu_stage_video(mu_photo* photo, mu_photo* clip, int64_t moment_us) {
    return stage(photo, [&]() -> Edit {
        published::AddOptions options;
        if (moment_us >= 0)
            options.momentUs = moment_us;
        auto const movie = of(clip).file;
        return {[movie, options](File const& still, File const& output) {
                    published::addVideo(still, movie, options, output);
                },
                {},
                movie};
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
    return guarded([&] {
        auto& staged = of(photo).staged;
        std::function<void(XMPEdit&)> change;
        std::string const name = given(schema), steps = given(path);
        if (value != nullptr)
            change = [=, text = std::string(value)](XMPEdit& packet) { packet.setProperty(name, steps, text); };
        else
            change = [=](XMPEdit& packet) { packet.removeProperty(name, steps); };
        if (staged.empty() || staged.back().changes == nullptr)
            staged.push_back(ofPacket());
        staged.back().changes->push_back(std::move(change));
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
        if (photo->staged.size() > 1)
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
