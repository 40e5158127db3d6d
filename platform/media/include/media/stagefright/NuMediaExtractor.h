// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <vector>

#include <sys/types.h>

#include <media/stagefright/foundation/AMessage.h>
#include <utils/Errors.h>
#include <utils/RefBase.h>
#include <utils/StrongPointer.h>

namespace android {

/// Tells the tracks of an MP4 or QuickTime file, or of one embedded in another file: the host's counterpart of the
/// device's extractor, for clients that ask for track formats and not for samples.
///
/// Only headers are read. Sample tables, fragments, edit lists and metadata are stepped over: memory stays at a few
/// kilobytes, the number of boxes that are walked has a limit, and damage in them goes unnoticed. One thread at a time.
struct NuMediaExtractor : public RefBase {
    /// The kind of client; the device keeps statistics by it, the host ignores it.
    enum class EntryPoint {
        SDK = 1,
        NDK_WITH_JVM = 2,
        NDK_NO_JVM = 3,
        OTHER = 4,
    };

    explicit NuMediaExtractor(EntryPoint entryPoint);

    /// Reads the headers of the media file that occupies `size` bytes from `offset` (bytes from the start of the file).
    /// A size that reaches past the end of the file means "up to the end". No byte outside is read, the position of
    /// `fd` does not move, and `fd` may be closed afterwards.
    ///
    /// @return OK; BAD_VALUE for a bad argument, or when a source is set already; a negative errno when reading failed;
    ///         ERROR_UNSUPPORTED when the bytes are no MP4 or QuickTime file with a whole movie box, or a header in it
    ///         is missing, does not fit the box around it, or stands behind 200,000 others. After a failure another
    ///         source may be set.
    status_t setDataSource(int fd, off64_t offset, off64_t size);

    /// The number of tracks, in the file's order; 0 without a source.
    size_t countTracks() const;

    /// The format of one track: "mime", always present, and "durationUs" in microseconds, absent when the file does not
    /// say: how long the track's media last, whatever an edit list picks from them; for a movie in fragments, which
    /// need not tell, the whole movie's length. `flags` selects details that the host does not have.
    ///
    /// @return OK; BAD_VALUE without a source; -ERANGE for an index that is not below `countTracks()`. A failure makes
    ///         `*format` null.
    status_t getTrackFormat(size_t index, sp<AMessage>* format, uint32_t flags = 0) const;

protected:
    ~NuMediaExtractor() override;

private:
    bool mHasSource = false;
    std::vector<sp<AMessage>> mTrackFormats;
};

} // namespace android
