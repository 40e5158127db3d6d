// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoInfo.h"
#include "QRTEdit.h"
#include "XMPEdit.h"

namespace android::lumo {

/// The editor of a motion photo: stages changes of video, trailer records and XMP of one still and writes them in
/// place, or into another file, keeping the three consistent.
///
/// Every MotionPhotoInfo query is answered by the view it was made from. Staging operations return the editor, for
/// chaining, and write nothing. After a commit in place the view is up to date without a new parse, and the editor
/// writes at the next one what was staged since; what went into another file stays staged.
///
/// A refusal (REFUSED, UNSUPPORTED, DAMAGED, TOO_BIG, NO_SPACE, XMPError; CHANGED when the file is no longer the one
/// that was read) leaves every byte as it was. READ_FAILED and WRITE_FAILED may come later; docs/failure-states.md says
/// what the file then holds, and that commit() may be called again. One thread at a time.
class METADATA_UTILS_EXPORT MotionPhotoEdit : public MotionPhotoInfo {
public:
    /// The still's moment in the video, in microseconds (2^31 - 1 at most where a long has 32 bits). Without it a new
    /// video gets its duration.
    virtual MotionPhotoEdit& setPhotoPresentationTimestampUs(long timestampUs) = 0;
    /// A trailer record; type 2608 on a HEIC is a video and goes into its 'mpvd' box.
    virtual MotionPhotoEdit& addQRTData(int type, std::string const& key, ByteBuffer const& data) = 0;
    /// The same with a file's whole content as the data, read at commit.
    virtual MotionPhotoEdit& addQRTData(int type, std::string const& key, std::shared_ptr<MediaFile> const& file) = 0;
    /// Appends all records of another trailer behind those here; duplicates are kept.
    virtual MotionPhotoEdit& addQRTInfo(std::shared_ptr<QRTInfo> const& info) = 0;
    /// Takes over properties and directory items of another view; what is here already is overwritten.
    virtual MotionPhotoEdit& addXMPInfo(std::shared_ptr<XMPInfo> const& info) = 0;
    /// The video of the motion photo, replacing one that is there. The file is read at commit and must not change until
    /// then. In a JPEG a video of 125,000 bytes or fewer would be read back as a pointer; it is staged with a warning.
    /// A moment that the file has for the old video becomes the new one's end where it lies behind that.
    virtual MotionPhotoEdit& addVideo(std::shared_ptr<MediaFile> const& video) = 0;
    /// The same with a video in memory, which the editor keeps.
    virtual MotionPhotoEdit& addVideo(std::shared_ptr<ByteBuffer> const& video) = 0;
    /// Takes over another motion photo's records, XMP and video. With skip_existing what is here already stays. Two
    /// records that share type and name throw: only one of them could be put.
    virtual MotionPhotoEdit& addAll(std::shared_ptr<MotionPhotoInfo> const& source,
                                    std::filesystem::copy_options const& options) = 0;
    /// Like addVideo, with the new video held in memory from now on.
    virtual MotionPhotoEdit& replaceVideo(std::shared_ptr<MediaFile> const& video) = 0;
    /// Takes the video, its records and its XMP out. `file` is the file being edited.
    virtual MotionPhotoEdit& removeVideo(std::shared_ptr<MediaFile> const& file) = 0;
    /// The trailer and XMP editors of this editor: what is staged there is committed with it. Valid as long as the
    /// editor.
    virtual QRTEdit& getQRTEdit() = 0;
    /// As getQRTEdit().
    virtual XMPEdit& getXMPEdit() = 0;
    /// Writes in place: XMP first, then the HEIC video box, then the trailer, then the XMP fields that depend on the
    /// result. What can be foreseen is refused before the first byte moves. A write that fails later throws; nothing is
    /// rolled back. docs/failure-states.md lists what a failure at each step may leave.
    virtual void commit() = 0;
    /// Writes the result into `target`, which is empty or was written by this editor before; any other is refused. The
    /// source is never written, and another handle of it counts as commit().
    virtual void commit(std::shared_ptr<MediaFile> const& target) = 0;

    /// The image the next commit(target) starts from instead of the source's: a prepared still of the same type (an
    /// edited picture) whose trailer-free bytes get this motion photo's video, trailer and XMP edits. In-place commits
    /// throw while one is set. A null pointer takes it back. Refused before a byte moves: a photo whose record leads to
    /// a video within the image (one that a JPEG's image ends with comes along), one whose packet names an item behind
    /// the video, and a HEIC with boxes behind its trailer, which a commit in place brings to the end.
    void setOutputSource(std::shared_ptr<MediaFile> const& still) { outputSource = still; }

protected:
    /// What setOutputSource() was given; null without one.
    std::shared_ptr<MediaFile> outputSource;
};

} // namespace android::lumo
