#include <media/stagefright/NuMediaExtractor.h>

#include "TrackFormat.h"
#include "WindowInput.h"

#include <algorithm>
#include <cerrno>
#include <memory>

#include <sys/stat.h>

#include <media/stagefright/MediaErrors.h>

extern "C" {
#include <libavformat/avformat.h>
#include <libavutil/log.h>
}

namespace android {
namespace {

// Enough for any camera's clip; an empty track costs a hostile file 8 bytes and us a few thousand.
constexpr int kMaxTracks = 64;

struct CloseDemuxer {
    void operator()(AVFormatContext* file) const { avformat_close_input(&file); }
};
using Demuxer = std::unique_ptr<AVFormatContext, CloseDemuxer>;

/// libavformat's log level belongs to the whole process, so it is silenced for the duration of a call only.
class QuietDemuxer {
public:
    QuietDemuxer() { av_log_set_level(AV_LOG_QUIET); }
    ~QuietDemuxer() { av_log_set_level(mLevel); }
    QuietDemuxer(QuietDemuxer const&) = delete;
    QuietDemuxer& operator=(QuietDemuxer const&) = delete;

private:
    int const mLevel = av_log_get_level();
};

int refuseToOpen(AVFormatContext*, AVIOContext**, char const*, int, AVDictionary**) {
    return AVERROR(EACCES);
}

/// Whether the movie box, which holds all headers, lies in the window as a whole: libavformat would make do with a part
/// of it. That the window begins with boxes also keeps libavformat from parsing a tag in front of them.
bool holdsWholeMovieBox(AVIOContext* input) {
    constexpr uint32_t kMovie = 'm' << 24 | 'o' << 16 | 'o' << 8 | 'v';
    uint64_t left = static_cast<uint64_t>(std::max<int64_t>(avio_size(input), 0));
    for (uint64_t at = 0; left >= 8;) {
        avio_seek(input, static_cast<int64_t>(at), SEEK_SET);
        uint64_t size = avio_rb32(input);
        uint32_t const type = avio_rb32(input);
        uint64_t header = 8;
        if (size == 1) { // the size proper follows, with 64 bits
            size = avio_rb64(input);
            header = 16;
        } else if (size == 0) { // up to the end
            size = left;
        }
        if (size < header || size > left)
            return false;
        if (type == kMovie)
            return true;
        at += size;
        left -= size;
    }
    return false;
}

/// Opens with the one demuxer that may run, without probing; no other file or address can be reached from it.
Demuxer openDemuxer(AVIOContext* input) {
    AVInputFormat const* const mov = av_find_input_format("mov");
    AVFormatContext* file = avformat_alloc_context();
    if (mov == nullptr || file == nullptr || !holdsWholeMovieBox(input)) {
        avformat_free_context(file);
        return nullptr;
    }
    avio_seek(input, 0, SEEK_SET);
    file->pb = input;
    file->io_open = refuseToOpen;
    file->max_streams = kMaxTracks;

    AVDictionary* options = nullptr;
    av_dict_set(&options, "protocol_whitelist", "", 0);
    av_dict_set(&options, "enable_drefs", "0", 0);
    av_dict_set(&options, "use_absolute_path", "0", 0);
    int const result = avformat_open_input(&file, "", mov, &options); // frees the context when it fails
    av_dict_free(&options);
    return Demuxer(result < 0 ? nullptr : file);
}

} // namespace

NuMediaExtractor::NuMediaExtractor(EntryPoint) {}
NuMediaExtractor::~NuMediaExtractor() = default;

status_t NuMediaExtractor::setDataSource(int fd, off64_t offset, off64_t size) {
    struct stat64 info = {};
    if (mHasSource || offset < 0 || size < 0)
        return BAD_VALUE;
    if (fstat64(fd, &info) != 0)
        return -errno;
    if (!S_ISREG(info.st_mode) || offset > info.st_size)
        return BAD_VALUE;

    QuietDemuxer const quiet;
    media::WindowInput window(fd, offset, std::min<off64_t>(size, info.st_size - offset));
    if (window.context() == nullptr)
        return NO_MEMORY;
    Demuxer const file = openDemuxer(window.context());
    if (window.error() != 0)
        return -window.error();
    if (file == nullptr)
        return ERROR_UNSUPPORTED;

    for (unsigned i = 0; i < file->nb_streams; ++i)
        mTrackFormats.push_back(media::describeTrack(*file, *file->streams[i]));
    mHasSource = true;
    return OK;
}

size_t NuMediaExtractor::countTracks() const {
    return mTrackFormats.size();
}

status_t NuMediaExtractor::getTrackFormat(size_t index, sp<AMessage>* format, uint32_t) const {
    format->clear();
    if (!mHasSource)
        return BAD_VALUE;
    if (index >= mTrackFormats.size())
        return -ERANGE;
    *format = mTrackFormats[index];
    return OK;
}

} // namespace android
