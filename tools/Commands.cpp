#include "Commands.h"

#include "InfoReport.h"
#include "SafeOutput.h"

#include "MotionPhotoEdit.h"

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <memory>

#include <sys/stat.h>
#include <unistd.h>

namespace motionphoto {

using namespace android::lumo;

namespace {

/// A video of up to this many bytes cannot be told from a pointer to a video when it is a record of a JPEG's trailer.
constexpr uint64_t MAX_POINTER_SIZE = 125'000;
/// Offsets in a file are 32-bit.
constexpr uint64_t MAX_FILE_SIZE = 0xFFFFFFFF;
/// What a video brings along at most: an XMP segment, records of a few bytes, the trailer's tail.
constexpr uint64_t MAX_OVERHEAD = 128 * 1024;

enum class Access { READ, READ_WRITE };

/// Opens a file for the library. It opens anything, a pipe too, and says only that it failed: what stands there and
/// what is allowed is asked first.
std::shared_ptr<MediaFile> openFile(std::string const& path, Access access) {
    struct stat status;
    if (stat(path.c_str(), &status) != 0 || ::access(path.c_str(), R_OK) != 0)
        throw systemFailure(ExitCode::BAD_INPUT, path, "cannot be read");
    if (!S_ISREG(status.st_mode))
        throw Failure(ExitCode::BAD_INPUT, path, "is no regular file");
    if (access == Access::READ_WRITE && ::access(path.c_str(), W_OK) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, path, "cannot be written");
    return guarded(path, [&] { return std::make_shared<MediaFile>(path, access == Access::READ ? "r" : "rw"); });
}

std::shared_ptr<MotionPhotoInfo> parsePhoto(std::shared_ptr<MediaFile> const& file) {
    using enum MediaDefs::MimeType;
    auto const& path = file->getPath();
    return guarded(path, [&] {
        if (auto const type = file->mimeType(); type != IMAGE_JPEG && type != IMAGE_HEIC)
            throw Failure(ExitCode::BAD_INPUT, path,
                          "is of type " + MediaDefs::mimeString(type) + ", neither a JPEG nor a HEIC still");
        return MotionPhotoInfo::parse(file);
    });
}

bool isSameFile(std::string const& a, std::string const& b) {
    std::error_code ignored; // a file that is not there yet is not the same as one that is
    return std::filesystem::equivalent(a, b, ignored);
}

void refuseOverwriting(std::string const& out, std::string const& input, char const* advice) {
    if (isSameFile(out, input))
        throw Failure(ExitCode::USAGE, out, std::string("is both input and output") + advice);
}

/// A still: the open file and the view of it.
struct Still {
    std::shared_ptr<MediaFile> file;
    std::shared_ptr<MotionPhotoInfo> photo;

    Still(std::string const& path, Access access) : file(openFile(path, access)), photo(parsePhoto(file)) {}

    std::string const& path() const { return file->getPath(); }
    uint64_t videoSize() const {
        return guarded(path(), [&]() -> uint64_t { return photo->getVideoSize(); });
    }
    void requireMotionPhoto() const {
        if (!guarded(path(), [&] { return photo->isValid() && photo->getVideoSize() > 0; }))
            throw Failure(ExitCode::NO_MOTION_PHOTO, path(), "is no motion photo");
    }
};

Still openForEdit(std::string const& path, Output const& output) {
    if (output)
        refuseOverwriting(*output, path, ", use --in-place to edit it");
    return {path, output ? Access::READ : Access::READ_WRITE};
}

bool isRecognisedVideo(std::shared_ptr<MediaFile> const& file) {
    return guarded(file->getPath(), [&] {
        auto const startsWith = [&](bool (*test)(std::shared_ptr<MediaFile> const&)) {
            file->position(0);
            return test(file);
        };
        bool const recognised = startsWith(MediaFile::isMP4Video) || startsWith(MediaFile::isMOVVideo);
        file->position(0);
        return recognised;
    });
}

/// The video for a still, once everything that speaks against it has been looked at.
std::shared_ptr<MediaFile> openVideo(std::string const& path, Still const& still, Output const& output) {
    if (output)
        refuseOverwriting(*output, path, "");
    auto const video = openFile(path, Access::READ);
    if (MediaFile::isFdsDup(still.file->getFd(), video->getFd()))
        throw Failure(ExitCode::USAGE, path, "is given both as the still and as the video");
    if (!isRecognisedVideo(video))
        throw Failure(ExitCode::BAD_INPUT, path,
                      "does not begin as an MP4 of brand mp42 or a QuickTime movie, remux it with: "
                      "ffmpeg -i IN -c copy -brand mp42 OUT.mp4");
    uint64_t const size = std::filesystem::file_size(path);
    if (still.photo->getImageMimeType() == MediaDefs::MimeType::IMAGE_JPEG && size <= MAX_POINTER_SIZE)
        throw Failure(ExitCode::BAD_INPUT, path,
                      "has " + grouped(size) + " bytes, but in a JPEG a video needs more than " +
                          grouped(MAX_POINTER_SIZE) + ", or it is read as a pointer to one");
    uint64_t const rest =
        still.photo->getFileSize() - std::min<uint64_t>(still.photo->getFileSize(), still.videoSize());
    if (rest + size + MAX_OVERHEAD > MAX_FILE_SIZE)
        throw Failure(ExitCode::BAD_INPUT, path, "is too big, the result would be over 4 GiB");
    return video;
}

void commitInPlace(Still const& still, MotionPhotoEdit& edit) {
    try {
        guarded(still.path(), [&] { edit.commit(); });
    } catch (Failure const& failure) {
        if (failure.exitCode() != ExitCode::WRITE_FAILED)
            throw;
        throw Failure(failure.exitCode(), failure.subject(),
                      failure.what() + std::string("; it may be partly written"));
    }
    // A disk may report late what it could not store.
    if (fsync(still.file->getFd()) != 0)
        throw systemFailure(ExitCode::WRITE_FAILED, still.path(), "fail to bring it to disk, it may be partly written");
}

void commit(Still const& still, MotionPhotoEdit& edit, Output const& output) {
    if (!output)
        return commitInPlace(still, edit);
    SafeOutput safe(*output);
    guarded(still.path(), *output, [&] { edit.commit(std::make_shared<MediaFile>(safe.temporaryPath(), "rw")); });
    safe.publish();
}

} // namespace

ExitCode info(std::vector<std::string> const& files, bool json, std::ostream& out,
              std::function<void(Failure const&)> const& report) {
    auto worst = ExitCode::DONE;
    std::vector<InfoReport> reports;
    for (auto const& path : files) {
        try {
            auto const file = openFile(path, Access::READ);
            auto const photo = parsePhoto(file);
            reports.push_back(guarded(path, [&] { return gather(file, *photo); }));
        } catch (Failure const& failure) {
            report(failure);
            worst = std::max(worst, failure.exitCode());
            continue;
        }
        if (!json) {
            out << (reports.size() > 1 ? "\n" : "");
            printText(reports.back(), out);
        }
    }
    if (json && (files.size() > 1 || !reports.empty()))
        printJson(reports, files.size() > 1, out);
    if (!out.flush())
        throw Failure(ExitCode::WRITE_FAILED, "", "fail to write the report");
    return worst;
}

void add(std::string const& stillPath, std::string const& videoPath, Output const& output,
         std::optional<long> timestampUs) {
    Still const still = openForEdit(stillPath, output);
    auto const video = openVideo(videoPath, still, output);
    auto const edit = guarded(stillPath, [&] {
        auto staged = still.photo->edit();
        staged->addVideo(video);
        if (timestampUs)
            staged->setPhotoPresentationTimestampUs(*timestampUs);
        return staged;
    });
    commit(still, *edit, output);
}

void replace(std::string const& stillPath, std::string const& videoPath, Output const& output) {
    Still const still = openForEdit(stillPath, output);
    still.requireMotionPhoto();
    auto const video = openVideo(videoPath, still, output);
    auto const edit = guarded(stillPath, [&] {
        auto staged = still.photo->edit();
        staged->replaceVideo(video);
        return staged;
    });
    commit(still, *edit, output);
}

void remove(std::string const& stillPath, Output const& output) {
    Still const still = openForEdit(stillPath, output);
    auto const edit = guarded(stillPath, [&] {
        // The record is enough: a video that is damaged should go all the more.
        if (!still.photo->getQRTInfo()->containsType(qrt::TYPE_MOTION_PHOTO_DATA))
            throw Failure(ExitCode::NO_MOTION_PHOTO, stillPath, "is no motion photo");
        auto staged = still.photo->edit();
        staged->removeVideo(still.file);
        return staged;
    });
    commit(still, *edit, output);
}

void extract(std::string const& path, std::string const& out) {
    refuseOverwriting(out, path, "");
    Still const still(path, Access::READ);
    still.requireMotionPhoto();
    auto const& photo = *still.photo;
    guarded(path, [&] {
        if (uint64_t{photo.getVideoPosition()} + photo.getVideoSize() > photo.getFileSize())
            throw Failure(ExitCode::BAD_INPUT, path, "its video ends behind the end of the file");
    });
    SafeOutput safe(out);
    guarded(path, out, [&] { return photo.getVideo(safe.temporaryPath()); });
    safe.publish();
}

} // namespace motionphoto
