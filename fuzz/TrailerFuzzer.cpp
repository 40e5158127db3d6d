// SPDX-License-Identifier: Apache-2.0
// A hostile trailer behind a JPEG or (odd first byte) in a HEIC's last box, which bit 2 puts into another box: what the
// view answers, and that a commit of one more record, or (bits 3 and 4) of a video or without one, keeps the others,
// the image and the order of boxes; with bit 5 another still takes all of it over first.
#include "FuzzSupport.h"
#include "MotionPhotoEdit.h"
#include "QRTEdit.h"
#include "io/HEIFBoxScan.h"
#include "support/HeicBuilder.h"
#include "support/JpegBuilder.h"

#include <algorithm>
#include <set>

using namespace android::lumo;
using namespace android::lumo::fuzz;

namespace {

std::string textOf(ByteBuffer const& bytes) {
    return {reinterpret_cast<char const*>(bytes.data()), bytes.size()};
}

bool belongsToVideo(QRTDataInfo const& record) {
    return record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION ||
           record.name.starts_with("MotionPhoto_") || record.name == qrt::NAME_LONG_EXPOSURE_INFO ||
           record.name == qrt::NAME_3D_PHOTO_INFO;
}

/// The records that are written as they were read: sub-info is not, by the format's own doing.
enum class Kept { All, AllButVideo };
std::multiset<std::string> recordsOf(QRTInfo const& view, std::string const& file, Kept kept = Kept::All) {
    std::multiset<std::string> records;
    for (auto const& record : view.getRecords()) {
        // A pointer is followed by whoever wants the video: it may lead out of the file.
        bool const isPointer = kept == Kept::AllButVideo && belongsToVideo(record);
        FUZZ_REQUIRE(isPointer || uint64_t{record.dataPosition} + record.dataPayload <= file.size());
        if (!isPointer && !record.hasSubInfo && record.name != "Fuzz")
            records.insert(std::to_string(record.type) + ' ' + record.name + ' ' +
                           file.substr(record.dataPosition, record.dataPayload));
    }
    return records;
}

bool includes(std::multiset<std::string> const& all, std::multiset<std::string> const& some) {
    return std::includes(all.begin(), all.end(), some.begin(), some.end());
}

bool areBoxes(std::string const& file) {
    heif::ByteWindow window({reinterpret_cast<uint8_t const*>(file.data()), file.size()});
    return !heif::scanTopLevel(window).damage;
}

/// Everything over to a clean HEIC, where a video may have any size.
void takeOver(MemoryFile const& file, std::filesystem::copy_options options) {
    static std::string const heic = test::buildHeic({.xmp = test::heicXmp("own", 1400)});
    std::string const before = file.bytes();
    MemoryFile const still(heic);
    std::string video;
    std::multiset<std::string> records;
    bool const isDone = goesThrough([&] {
        auto const source = MotionPhotoInfo::parse(file.open());
        video = textOf(*source->getVideo());
        records = recordsOf(*source->getQRTInfo(), before, Kept::AllButVideo);
        auto const edit = MotionPhotoInfo::parse(still.open())->edit();
        edit->addAll(source, options);
        edit->commit();
    });
    FUZZ_REQUIRE(file.bytes() == before);
    if (!isDone) {
        FUZZ_REQUIRE(still.bytes() == heic);
        return;
    }
    auto const photo = MotionPhotoInfo::parse(still.open());
    FUZZ_REQUIRE(textOf(*photo->getVideo()) == video && areBoxes(still.bytes()));
    FUZZ_REQUIRE(includes(recordsOf(*photo->getQRTInfo(), still.bytes(), Kept::AllButVideo), records));
}

void commitVideo(MemoryFile const& file, QRTInfo const& view, VideoEdit edit) {
    std::string const before = file.bytes();
    auto const records = recordsOf(view, before, Kept::AllButVideo);
    editVideo(file, edit);
    std::string const after = file.bytes();
    FUZZ_REQUIRE(!areBoxes(before) || areBoxes(after));
    FUZZ_REQUIRE(includes(recordsOf(*QRTInfo::parse(file.open()), after, Kept::AllButVideo), records));
}

void commitOneMore(MemoryFile const& file, std::string const& image, std::shared_ptr<QRTInfo> const& view,
                   QRTEdit::Option option) {
    std::string const before = file.bytes();
    auto const records = recordsOf(*view, before);
    auto const editor = view->edit();
    editor->setOption(option).putData(77, "Fuzz", std::string(100, 'f'));
    editor->makeDirty();
    bool const isDone = goesThrough([&] { editor->commit(); });
    std::string const after = file.bytes();
    if (!isDone) {
        FUZZ_REQUIRE(after == before);
        return;
    }
    FUZZ_REQUIRE(after.starts_with(image.substr(0, image.size() - std::min<size_t>(image.size(), 8))));
    FUZZ_REQUIRE(!areBoxes(before) || areBoxes(after));
    auto const fresh = QRTInfo::parse(file.open());
    FUZZ_REQUIRE(textOf(fresh->getData(77, "Fuzz")) == std::string(100, 'f'));
    FUZZ_REQUIRE(includes(recordsOf(*fresh, after), records));
    FUZZ_REQUIRE(includes(recordsOf(*view, after), records));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size == 0)
        return 0;
    static std::string const jpeg = test::JpegBuilder().exif().build();
    static std::string const heic = test::buildHeic();
    bool const isHeic = data[0] % 2 == 1;
    std::string const trailer(text(data + 1, size - 1));
    std::string image = isHeic ? heic : jpeg;
    if (isHeic && (data[0] & 4))
        image += test::bigEndian(size + 15, 4) + "free";
    std::string const beforeTrailer = isHeic ? image + test::bigEndian(size + 7, 4) + "qrtd" : image;
    MemoryFile const file(beforeTrailer + trailer);
    askEverything(file);
    std::shared_ptr<QRTInfo> view;
    if (!goesThrough([&] { view = QRTInfo::parse(file.open()); }))
        return 0;
    auto const option = data[0] & 2 ? QRTEdit::Option::WRITE_FAST : QRTEdit::Option::WRITE_IN_ORDER;
    if (data[0] & 32)
        takeOver(file, data[0] & 16 ? std::filesystem::copy_options::skip_existing
                                    : std::filesystem::copy_options::overwrite_existing);
    if (data[0] & 8)
        commitVideo(file, *view, data[0] & 16 ? VideoEdit::Remove : VideoEdit::Add);
    else
        commitOneMore(file, image, view, option);
    askEverything(file);
    return 0;
}
