// SPDX-License-Identifier: Apache-2.0
#include "Photo.h"

#include "PhotoCheck.h"
#include "io/HEIFMetaReader.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <filesystem>
#include <string_view>

#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace motionphoto {

using namespace android::lumo;

namespace {

/// What a file that is no still is, in a person's words; empty where that is not known.
std::string kindOf(std::string_view start) {
    struct Kind {
        size_t offset;
        std::string_view bytes;
        char const* name;
    };
    static constexpr std::array KINDS = {
        Kind{0, "\x89PNG", "a PNG image"},
        Kind{0, "GIF8", "a GIF image"},
        Kind{0, "BM", "a BMP image"},
        Kind{0, "II*\0", "a TIFF or raw image"},
        Kind{0, "MM\0*", "a TIFF or raw image"},
        Kind{8, "WEBP", "a WebP image"},
        Kind{4, "ftypavif", "an AVIF image"},
        Kind{4, "ftypavis", "an AVIF image"},
        Kind{4, "ftypcrx ", "a raw image"},
        Kind{4, "ftyphe", "a HEIF image of a brand that is not read"},
        Kind{4, "ftypmsf", "a HEIF image of a brand that is not read"},
        Kind{4, "ftypjxl", "a JPEG XL image"},
        Kind{4, "ftyp", "a movie"},
        Kind{0, "%PDF", "a PDF document"},
        Kind{0, "PK\x03\x04", "a ZIP archive"},
    };
    if (start.empty())
        return "empty";
    for (auto const& kind : KINDS) {
        if (start.substr(std::min(kind.offset, start.size())).starts_with(kind.bytes))
            return kind.name;
    }
    bool const isText = std::all_of(start.begin(), start.end(), [](char c) {
        auto const byte = static_cast<unsigned char>(c);
        return byte >= ' ' || byte == '\n' || byte == '\r' || byte == '\t';
    });
    return isText ? "a text" : "";
}

std::string startOf(std::shared_ptr<MediaFile> const& file) {
    return readAt(*file, 0, 64);
}

void requireStill(std::shared_ptr<MediaFile> const& file) {
    using enum MediaDefs::MimeType;
    MediaDefs::MimeType type = NONE;
    std::exception_ptr unknown;
    try {
        type = file->mimeType();
    } catch (Error const& error) {
        if (error.code() == Error::Code::READ_FAILED)
            throw;
        unknown = std::current_exception();
    }
    if (type == IMAGE_JPEG || type == IMAGE_HEIC)
        return;
    std::string const kind = kindOf(startOf(file));
    if (kind == "empty")
        throw Failure(ExitCode::BAD_INPUT, file->getPath(), "is empty");
    if (kind.empty() && unknown)
        std::rethrow_exception(unknown);
    throw Failure(ExitCode::BAD_INPUT, file->getPath(),
                  "is " + (kind.empty() ? "of type " + MediaDefs::mimeString(type) : kind) +
                      ", neither a JPEG nor a HEIC still");
}

std::string tornBoxesIn(std::shared_ptr<MediaFile> const& file) {
    auto const check = PhotoCheck::run(file);
    auto const found = std::find_if(check.findings.begin(), check.findings.end(),
                                    [](auto const& each) { return std::string_view(each.rule->id) == "heic-boxes"; });
    return found == check.findings.end() ? "" : "its boxes do not add up: " + found->found;
}

/// The library says only that it could not open a file.
void requireAllowed(std::string const& path, Access access) {
    if (::access(path.c_str(), R_OK) != 0)
        throw systemFailure(ExitCode::BAD_INPUT, path, "cannot be read");
    if (access == Access::READ_WRITE && ::access(path.c_str(), W_OK) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, path, "cannot be written");
}

/// Two that edit one file at a time would spoil it, or lose what one of them did. A file system without locks has none.
void holdAlone(MediaFile const& file) {
    if (flock(file.getFd(), LOCK_EX | LOCK_NB) != 0 && errno == EWOULDBLOCK)
        throw Failure(ExitCode::WRITE_FAILED, file.getPath(),
                      "is being edited by another program; try again when it is done");
}

} // namespace

std::shared_ptr<MediaFile> openFile(std::string const& path, Access access) {
    // The library opens anything, a pipe too: what stands there is asked first.
    struct stat status;
    if (stat(path.c_str(), &status) != 0)
        throw systemFailure(ExitCode::BAD_INPUT, path, "cannot be read");
    if (S_ISDIR(status.st_mode))
        throw Failure(ExitCode::BAD_INPUT, path, "is a folder; -r takes the stills in it");
    if (!S_ISREG(status.st_mode))
        throw Failure(ExitCode::BAD_INPUT, path, "is no regular file");
    std::shared_ptr<MediaFile> file;
    try {
        file =
            guarded(path, [&] { return std::make_shared<MediaFile>(path, access == Access::READ_WRITE ? "rw" : "r"); });
    } catch (Failure const&) {
        requireAllowed(path, access);
        throw;
    }
    if (access != Access::READ)
        holdAlone(*file);
    return file;
}

std::string readAt(MediaFile const& file, uint64_t at, uint64_t size) {
    std::string bytes(static_cast<size_t>(size), '\0');
    size_t done = 0;
    while (done < bytes.size()) {
        auto const got = pread(file.getFd(), bytes.data() + done, bytes.size() - done, static_cast<off_t>(at + done));
        if (got < 0)
            throw systemFailure(ExitCode::BAD_INPUT, file.getPath(), "cannot be read");
        if (got == 0)
            break;
        done += static_cast<size_t>(got);
    }
    bytes.resize(done);
    return bytes;
}

Photo::Photo(std::string const& path, Access access, Look look)
    : file(openFile(path, access)), opened(FileState::of(file->getFd(), path)),
      parsed(guarded(path,
                     [&] {
                         requireStill(file);
                         return look == Look::WHOLE_VIEW ? MotionPhotoInfo::parse(file) : nullptr;
                     })),
      video(guarded(path, [&] { return parsed ? MotionVideo::locate(*parsed) : MotionVideo::locate(file); })) {}

std::shared_ptr<MotionPhotoInfo> Photo::view() const {
    return parsed ? parsed : guarded(path(), [&] { return MotionPhotoInfo::parse(file); });
}

std::string Photo::damage() const {
    if (!hasClaim())
        return video.reason;
    if (file->mimeType() != MediaDefs::MimeType::IMAGE_HEIC)
        return "";
    // A video may be found by a trailer, and the image be cut.
    return guarded(path(), [&] { return tornBoxesIn(file); });
}

void Photo::requireReadable() const {
    if (auto const fault = damage(); !fault.empty())
        throw Failure(ExitCode::BAD_INPUT, path(), fault + "; what it holds cannot be told");
}

void Photo::failAbsent(std::string const& text) const {
    requireReadable();
    throw Failure(ExitCode::NO_MOTION_PHOTO, path(), text);
}

void Photo::requireVideo() const {
    if (!hasClaim())
        failAbsent("is no motion photo");
    if (!video.isSound())
        throw Failure(ExitCode::BAD_INPUT, path(), "its video is damaged: " + video.reason);
}

char const* Photo::clipEnding() const {
    return video.mimeType() == MediaDefs::MimeType::VIDEO_QUICKTIME ? "mov" : "mp4";
}

std::shared_ptr<MediaFile> openVideo(std::string const& path, Photo const& photo) {
    auto const video = openFile(path, Access::READ);
    if (MediaFile::isFdsDup(photo.file->getFd(), video->getFd()))
        throw Failure(ExitCode::USAGE, path, "is given both as the still and as the video");
    return video;
}

std::string tornBoxesOf(std::string const& path) {
    try {
        return tornBoxesIn(std::make_shared<MediaFile>(path, "r"));
    } catch (std::exception const&) {
        return ""; // another error is told already
    }
}

std::string otherTextIn(std::string const& path) {
    try {
        auto const file = std::make_shared<MediaFile>(path, "r");
        if (file->mimeType() != MediaDefs::MimeType::IMAGE_HEIC)
            return "";
        auto const item = HEIFMetaReader(file, ParseMode::LAZY).getXMPItem();
        return item && !item->isPacket ? "what stands where its XMP is read from is not plain application/rdf+xml: "
                                       : "";
    } catch (std::exception const&) {
        return ""; // another error is told already
    }
}

std::unique_ptr<ImageMetaReader> blocksOf(std::shared_ptr<MediaFile> const& still) {
    // A JPEG's reader scans once, and tells of a failed read only at once.
    bool const isJpeg = still->mimeType() == MediaDefs::MimeType::IMAGE_JPEG;
    return ImageMetaReader::of(still, isJpeg ? ParseMode::EAGER : ParseMode::LAZY);
}

void copyWhole(Photo const& photo, std::shared_ptr<MediaFile> const& output) {
    if (photo.file->transferTo(output, 0, 0) == photo.opened.size)
        return;
    if (!photo.opened.standsAt(photo.path()))
        throw Failure(ExitCode::BAD_INPUT, photo.path(), "was changed by another program while it was read");
    throw systemFailure(ExitCode::WRITE_FAILED, photo.path(), "fail to copy");
}

void requireOtherThanRoom(Photo const& photo, Error const& refusal) {
    bool const isRefused = refusal.code() == Error::Code::REFUSED || refusal.code() == Error::Code::UNSUPPORTED;
    if (!isRefused || photo.file->mimeType() != MediaDefs::MimeType::IMAGE_HEIC)
        return;
    std::string_view reason = withoutSource(refusal.what());
    if (reason.starts_with('['))
        reason.remove_prefix(std::min(reason.size(), reason.find(']') + 1));
    throw Failure(ExitCode::BAD_INPUT, photo.path(),
                  "its XMP has no room for what is to be written, and its image is not of the kind that can be "
                  "written anew to make some: only grids of tiles, what cameras write, are (" +
                      std::string(reason) + ")");
}

bool isSameFile(std::string const& a, std::string const& b) {
    std::error_code ignored; // a file that is not there yet is not the same as one that is
    return std::filesystem::equivalent(a, b, ignored);
}

} // namespace motionphoto
