// SPDX-License-Identifier: Apache-2.0
#include "FuzzSupport.h"
#include "MotionPhotoEdit.h"
#include "MotionVideo.h"
#include "PhotoCheck.h"
#include "PublishedPhoto.h"
#include "io/HEIFMetaReader.h"
#include "io/ImageMetaReader.h"

namespace android::lumo::fuzz {

namespace {

void askContainer(ImageMetaReader& reader, size_t size) {
    for (auto const get : {&ImageMetaReader::getXMP, &ImageMetaReader::getExif, &ImageMetaReader::getCameraDebugInfo}) {
        refusal([&] {
            Metadata const block = (reader.*get)();
            FUZZ_REQUIRE(block.toTypedData<std::string>().size() <= size);
        });
    }
}

void askHeif(HEIFMetaReader& reader, size_t size) {
    refusal([&] {
        for (auto const& box : reader.findBox({"ftyp", "meta", "mdat", "free", "mpvd", "qrtd"}))
            FUZZ_REQUIRE(box.position < size); // the last may claim more than there is
    });
    refusal([&] { FUZZ_REQUIRE(reader.getEndOfImagePosition(true) <= size); });
    refusal([&] {
        auto const item = reader.getXMPItem();
        FUZZ_REQUIRE(!item || uint64_t{item->position} + item->length <= size);
    });
    refusal([&] { reader.getImageInfo(reader.getCoverImageId()); });
    refusal([&] { reader.getGridInfo(reader.getCoverImageId()); });
    refusal([&] { reader.getThumbnailImageInfo(reader.getCoverImageId()); });
    std::vector<uint8_t> frame;
    refusal([&] {
        for (auto const id : reader.getItemIds(reader.getCoverImageId(), 16))
            reader.getImageFrame(static_cast<int>(id), frame, 1 << 20);
    });
}

void askTrailer(QRTInfo& view, size_t fileSize) {
    for (auto const& [name, type] : view.getKeysWithType()) {
        refusal([&, type = type, name = name] {
            FUZZ_REQUIRE(view.getData(type, name).size() <= fileSize);
            FUZZ_REQUIRE(view.getAllData(type).size() <= view.getRecords().size());
            FUZZ_REQUIRE(view.containsKey(name, true) && view.containsType(type));
            view.getData(name);
        });
    }
    FUZZ_REQUIRE(static_cast<size_t>(view.getSize()) <= fileSize);
}

void askPhoto(MotionPhotoInfo& photo) {
    photo.getImageSize();
    photo.getQRTMotionPhotoVersion();
    photo.getExtraInfo();
    photo.getImageVideoPadding();
    FUZZ_REQUIRE(!photo.isValid() || photo.getVideo()->size() == photo.getVideoSize());
}

} // namespace

void askEverything(MemoryFile const& file) {
    size_t const size = file.bytes().size();
    for (auto const mode : {ParseMode::EAGER, ParseMode::LAZY})
        refusal([&] { askContainer(*ImageMetaReader::of(file.open(), mode), size); });
    refusal([&] {
        HEIFMetaReader heif(file.open(), ParseMode::LAZY);
        askHeif(heif, size);
    });
    refusal([&] {
        auto const video = MotionVideo::locate(file.open());
        FUZZ_REQUIRE(!video.isSound() || uint64_t{video.position} + video.size <= size);
    });
    refusal([&] {
        auto const check = PhotoCheck::run(file.open());
        FUZZ_REQUIRE(check.verdict != PhotoCheck::Verdict::SOUND || check.video.isSound());
    });
    refusal([&] { XMPInfo::parse(file.open())->serializeToBuffer(); });
    refusal([&] { askTrailer(*QRTInfo::parse(file.open()), size); });
    refusal([&] { askPhoto(*MotionPhotoInfo::parse(file.open())); });
}

void editPublished(std::string const& photo) {
    using File = std::shared_ptr<MediaFile>;
    for (void (*const edit)(File const&) :
         {+[](File const& file) { static_cast<void>(published::removeVideo(file)); },
          +[](File const& file) { static_cast<void>(published::toTrailer(file)); },
          +[](File const& file) { static_cast<void>(published::toPublished(file, true)); }}) {
        MemoryFile const file(photo);
        bool const isDone = goesThrough([&] { edit(file.open()); });
        FUZZ_REQUIRE(isDone || file.bytes() == photo);
        if (isDone)
            refusal([&] { PhotoCheck::run(file.open()); });
    }
}

} // namespace android::lumo::fuzz
