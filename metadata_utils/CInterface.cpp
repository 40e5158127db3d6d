// SPDX-License-Identifier: Apache-2.0
// The interface for other languages: handles over the views and editors, errors as codes.
#include "metadata_utils.h"

#include "CheckedFile.h"
#include "Error.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MediaFile.h"
#include "MemoryFile.h"
#include "MotionPhotoEdit.h"
#include "MotionVideo.h"
#include "PublishedPhoto.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

using namespace android::lumo;

namespace {

using File = std::shared_ptr<MediaFile>;
/// Edits `photo` in place, or writes the edited photo into `output`.
using Edit = std::function<void(File const& photo, File const& output)>;

thread_local std::string lastText;
thread_local int lastCode = MU_OK;

int fail(int code, char const* text) noexcept {
    lastCode = code;
    try {
        lastText = text;
    } catch (...) {
        lastText.clear(); // no memory for the text
    }
    return code;
}

/// Nothing that is thrown crosses the border.
template<class Action>
int guarded(Action const& action) noexcept {
    try {
        action();
        return MU_OK;
    } catch (Error const& error) {
        return fail(static_cast<int>(error.code()), error.what());
    } catch (std::bad_alloc const&) {
        return fail(MU_NO_MEMORY, "not enough memory");
    } catch (std::exception const& error) {
        return fail(MU_INTERNAL, error.what());
    } catch (...) {
        return fail(MU_INTERNAL, "an error of no known kind");
    }
}

void require(bool condition, char const* expectation) {
    if (!condition)
        throw ErrorAt()("%s", expectation);
}

char const* given(char const* text) {
    require(text != nullptr, "no text given");
    return text;
}

struct Property {
    std::string schema, path, value;
};

struct Item {
    std::string semantic, mime, length, padding;
};

/// What a photo says, read once after it was opened or written.
struct Contents {
    std::shared_ptr<QRTInfo> trailer;
    std::shared_ptr<XMPInfo> xmp;
    std::vector<Property> properties;
    std::vector<Item> items;
    std::vector<QRTDataInfo> records;

    explicit Contents(File const& file) : trailer(QRTInfo::parse(file)), xmp(XMPInfo::parse(file)) {
        records = trailer->getRecords();
        for (auto const& [schema, path] : xmp->getProperties())
            properties.push_back({schema, path, xmp->getProperty(schema, path)});
        auto const field = [this](auto const& name, char const* which) { return xmp->getItemField(name, which); };
        for (auto const& name : namesInOrder())
            items.push_back({name, field(name, "Mime"), field(name, "Length"), field(name, "Padding")});
    }

private:
    /// Places may be missing: of several items with one name only the last is indexed.
    std::vector<std::string> namesInOrder() const {
        auto left = xmp->getItemNames();
        std::vector<std::string> names;
        for (int32_t place = 1; names.size() < left.size() && place <= MAX_PLACES; ++place) {
            if (auto const name = xmp->getItemNameAt(place); !name.empty())
                names.push_back(name);
        }
        return names;
    }
    static constexpr int32_t MAX_PLACES = 10'000;
};

} // namespace

struct mu_photo {
    File file;
    std::optional<Contents> contents;
    std::vector<Edit> staged;
    MotionVideo video;  ///< of the last answer, whose texts were handed out
    std::string answer; ///< likewise
    std::string mimeType;

    Contents& read() {
        if (!contents)
            contents.emplace(file);
        return *contents;
    }
};

namespace {

mu_photo& of(mu_photo* photo) {
    require(photo != nullptr, "no photo given");
    return *photo;
}

template<class T>
T& out(T* pointer) {
    require(pointer != nullptr, "no place for the answer given");
    return *pointer;
}

template<class Elements>
auto const& at(Elements const& elements, size_t index) {
    if (index >= elements.size())
        throw ErrorAt()("number %zu of %zu", index, elements.size());
    return elements[index];
}

int opened(mu_photo** photo, std::function<File()> const& open) noexcept {
    log::silenceByDefault();
    return guarded([&] {
        out(photo) = nullptr;
        auto made = std::make_unique<mu_photo>();
        made->file = open();
        made->file->mimeType(); // refuses what is neither picture nor movie
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

void copyVideo(mu_photo& photo, File const& target) {
    auto const video = MotionVideo::locate(photo.file);
    if (!video.isSound())
        throw ErrorAt()("the photo carries no sound video");
    checked::copy(photo.file, target, video.position, video.size);
}

void copyWhole(File const& source, File const& target) {
    uint32_t const size = source->size();
    checked::seek(*target, 0);
    checked::copy(source, target, 0, size);
    checked::truncate(*target, size);
}

/// For edits that know only to work in place.
Edit inPlace(std::function<void(File const&)> const& edit) {
    return [edit](File const& photo, File const& output) {
        if (output != nullptr)
            copyWhole(photo, output);
        edit(output != nullptr ? output : photo);
    };
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

/// The first edit makes the output, the others work on it.
void writeInto(mu_photo const& photo, File const& output) {
    if (photo.staged.empty())
        return copyWhole(photo.file, output);
    if (MediaFile::isFdsDup(photo.file->getFd(), output->getFd()))
        throw ErrorAt()("the output is the photo itself");
    photo.staged.front()(photo.file, output);
    std::for_each(photo.staged.begin() + 1, photo.staged.end(), [&](auto const& edit) { edit(output, nullptr); });
}

} // namespace

// Errors, version, log. -----------------------------------------------------------------------------------------------

char const* mu_last_error(void) {
    return lastText.c_str();
}

int mu_last_error_code(void) {
    return lastCode;
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
    return guarded([&] { copyVideo(of(photo), std::make_shared<MediaFile>(fd)); });
}

int mu_copy_video_to_path(mu_photo* photo, char const* path) {
    return guarded([&] {
        auto const target = std::make_shared<MediaFile>(given(path), "rw");
        require(!MediaFile::isFdsDup(of(photo).file->getFd(), target->getFd()), "the output is the photo itself");
        checked::truncate(*target, 0);
        copyVideo(of(photo), target);
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
        if (wanted == 0)
            return;
        ByteBuffer const data = checked::readAt(*photo->file, record.dataPosition, wanted);
        std::memcpy(bytes, data.data(), wanted);
    });
}

// Editing. ------------------------------------------------------------------------------------------------------------

int mu_stage_video(mu_photo* photo, mu_photo* clip, int64_t moment_us) {
    return stage(photo, [&]() -> Edit {
        published::AddOptions options;
        if (moment_us >= 0)
            options.momentUs = moment_us;
        return [movie = of(clip).file, options](File const& still, File const& output) {
            published::addVideo(still, movie, options, output);
        };
    });
}

int mu_stage_removal(mu_photo* photo) {
    return stage(photo,
                 [] { return [](File const& still, File const& output) { published::removeVideo(still, output); }; });
}

int mu_stage_moment(mu_photo* photo, int64_t moment_us) {
    return stage(photo, [&] {
        require(moment_us >= 0, "a moment in front of the video");
        return inPlace([text = std::to_string(moment_us)](File const& file) {
            auto const edit = XMPInfo::parse(file)->edit();
            edit->setProperty(xmp_ns::CAMERA, "MotionPhotoPresentationTimestampUs", text);
            edit->commit();
        });
    });
}

int mu_stage_property(mu_photo* photo, char const* schema, char const* path, char const* value) {
    return stage(photo, [&] {
        return inPlace([name = std::pair<std::string, std::string>(given(schema), given(path)),
                        text = value != nullptr ? std::optional<std::string>(value) : std::nullopt](File const& file) {
            auto const edit = XMPInfo::parse(file)->edit();
            if (text)
                edit->setProperty(name.first, name.second, *text);
            else
                edit->removeProperty(name.first, name.second);
            edit->commit();
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
    return stage(photo,
                 [] { return [](File const& still, File const& output) { published::toTrailer(still, output); }; });
}

int mu_stage_to_published(mu_photo* photo, int drop_records) {
    return stage(photo, [drop = drop_records != 0] {
        return [drop](File const& still, File const& output) { published::toPublished(still, drop, output); };
    });
}

int mu_commit(mu_photo* photo) {
    return guarded([&] {
        of(photo).contents.reset();
        while (!photo->staged.empty()) {
            photo->staged.front()(photo->file, nullptr);
            photo->staged.erase(photo->staged.begin());
        }
    });
}

int mu_commit_to_path(mu_photo* photo, char const* path) {
    return guarded([&] { writeInto(of(photo), std::make_shared<MediaFile>(given(path), "rw")); });
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
