// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "ByteBuffer.h"
#include "ImageMetaReader.h"

#include <cstdint>
#include <list>
#include <memory>
#include <optional>
#include <string>
#include <vector>

struct hboxd_context;
struct HBOXD_IMAGE_INFO;
struct HBOXM_GRID_INFO;

namespace android::lumo {

namespace heif {
class ImageStream;
class Items;
} // namespace heif

/// Finds XMP, Exif and camera debug info among a HEIF file's boxes (ISO/IEC 14496-12, ISO/IEC 23008-12), and answers
/// questions about its images through the platform's demuxer.
///
///     top level        ftyp, meta, mdat ...   the image; then trailing boxes:
///     free             payload "cdif" and the camera debug info
///     mpvd             the video of a motion photo (header of 8 or 16 bytes)
///     qrtd             the trailer; always last
///     inside meta      iinf: items and their types; iref: which item describes which; iloc: where their bytes lie;
///                      pitm: the primary item; idat: bytes of items located by construction method 1
///
/// The XMP is the first item of type 'mime' that a 'cdsc' reference ties to the primary item; the Exif likewise. An
/// item in another item (method 2) is not found; a data reference is not followed: the item is looked for in this file.
/// An item in several extents ends the search of getXMP() and getExif(), which take an extent's index for 4 bytes;
/// findAllXMP() and getXMPItem(), which views and edits go by, pass such an item over, throw when it is the XMP itself,
/// take the index as wide as it is, and where nothing describes the primary item first take the first packet that
/// describes it among others. Files of 4 GiB and more are refused.
///
/// XMP, Exif and debug info are found with small reads. The demuxer sees the image part alone, and reads of it what a
/// question needs; it is opened when the first is asked (or at once when EAGER). A file that the demuxer refuses still
/// answers for its metadata. A last box that is longer than the file is its last box. Boxes behind the first damaged
/// one are not seen: the metadata in front of it is found all the same, while the questions that describe the top level
/// as a whole throw "invalid chunk payload: %lu" or "fail to get file payload[%d]: %s".
///
/// A read that the system refuses throws (Error::Code::READ_FAILED), but for parseMetadata(), which answers false, and
/// getXMP(), which then finds nothing: whoever must know asks findAllXMP() or getXMPItem().
/// One thread at a time; moves the file's shared position.
class METADATA_UTILS_EXPORT HEIFMetaReader : public ImageMetaReader {
public:
    /// A box of the top level.
    struct Box {
        std::string type;      ///< four characters
        uint32_t position = 0; ///< of the first byte of its header
        uint32_t size = 0;     ///< header included; what is left of the file for a box stored with size 0, and more
                               ///< than that for a last box that is cut off
    };

    /// The bytes of one item: `length` bytes at base + offset. For construction method 1 the base holds the start of
    /// 'idat'.
    struct ItemLocation {
        uint32_t id = 0;     ///< of the item
        uint32_t base = 0;   ///< bytes from the file's start
        uint32_t offset = 0; ///< bytes from there
        uint32_t length = 0; ///< bytes
        bool isExact = true; ///< false for a location that names another file or has fields not read in full: never
                             ///< written to
    };

    /// One 'cdsc' reference; only the first item it refers to is kept.
    struct ItemReference {
        int32_t from = 0;    ///< the item that describes
        std::vector<int> to; ///< the item that is described
    };

    /// The item behind findAllXMP().
    struct XMPItem {
        uint32_t position = 0; ///< of the first byte in the file
        uint32_t length = 0;   ///< bytes: the room, blanks included
        bool isPacket = false; ///< plain application/rdf+xml; another 'mime' item is found all the same
        std::string refusal;   ///< why it must not be written in place; empty when it may be
    };

    /// Throws "fail to get fd & size[err=%d, %s]: fd=%d, size=%zu" for an invalid, empty or too large file. EAGER opens
    /// the demuxer and scans now, and throws when either fails.
    HEIFMetaReader(std::shared_ptr<MediaFile> const& file, ParseMode mode);
    ~HEIFMetaReader() override;

    /// Parses the 'meta' box anew; false, with a log line, when there is none or it is damaged (what was read in front
    /// of the damage stays).
    bool parseMetadata() override;
    Metadata getXMP() override;
    /// The block starts with the six-byte Exif identifier in front of the TIFF header, where the item holds it.
    Metadata getExif() override;
    /// The payload of the box 'free' behind "cdif".
    Metadata getCameraDebugInfo() override;
    std::vector<Metadata> findAllXMP() override;

    // The top level. --------------------------------------------------------------------------------------------------

    /// The boxes whose type is listed, in file order.
    std::list<Box> findBox(std::vector<std::string> const& types);
    /// The position of the first box whose type is listed, 0 when there is none.
    uint32_t getExternalMetadataPosition(std::vector<std::string> const& types);
    /// The start of the first trailing box (mpvd, qrtd, or a debug info) behind the last box of the image, else the
    /// file's size. Remembered; `rescan` looks again.
    uint32_t getEndOfImagePosition(bool rescan);
    /// Where the XMP stands and whether it may be written there; nothing without XMP.
    std::optional<XMPItem> getXMPItem();

    // The images, asked of the demuxer, in its types (hboxd.h, hboxm.h). A failure throws with its code. ---------

    /// The id of the primary item ('pitm').
    int getCoverImageId();
    /// Pixels, rotation and tiles of an image item.
    HBOXD_IMAGE_INFO getImageInfo(int id);
    /// One kind of item information (HBOXD_ITEM_INFO) as raw bytes.
    void getMetadataInfo(int id, int kind, std::vector<uint8_t>* buffer);
    /// Rows, columns and sizes of a grid item.
    HBOXM_GRID_INFO getGridInfo(int id);
    /// The images that an image is derived from (a grid's tiles, row by row), at most `maxCount`.
    std::vector<uint32_t> getItemIds(int id, int maxCount);
    /// The item's coded bytes; more than `maxSize` of them is an error.
    void getImageFrame(int id, std::vector<uint8_t>& frame, int maxSize);
    /// How many there are, within the same bound.
    uint32_t getImageFrameSize(int id, int maxSize);
    /// The id of the first item with a 'thmb' reference to the cover.
    int getThumbnailImageId(int coverId);
    /// getImageInfo() of that item.
    HBOXD_IMAGE_INFO getThumbnailImageInfo(int coverId);

    /// Bytes of the file when the reader was made.
    uint32_t getFileSize() const;
    /// The image part of the file, read when it is first asked for: what stands behind it may be of any size.
    ByteBuffer const& getBuffer();
    /// The demuxer over the image part, opened on first use; lives as long as the reader.
    hboxd_context* getDemuxer();
    /// Throws what kept it, or a muxer over it, from reading the file.
    void rethrowReadFailure() const;

private:
    void init();
    void deinit();
    bool parseItems();
    bool readItems(heif::Items& found, bool wantsAll) const;
    void requireParsed();
    Metadata getMeta(std::optional<ItemLocation> const& place, MediaDefs::MetaType type) const;

    uint32_t fileSize = 0;
    uint32_t endOfImage = 0;
    bool isParsed = false; ///< `items` are what the file says
    ByteBuffer buffer;
    std::unique_ptr<heif::ImageStream> stream;
    hboxd_context* demuxer = nullptr;
    std::shared_ptr<heif::Items> items;
    std::shared_ptr<heif::Items> allItems; ///< the same, or, where that ends early or reads past an index, all there is
};

} // namespace android::lumo
