// SPDX-License-Identifier: Apache-2.0
#include "PhotoFixture.h"

namespace android::lumo::test {
namespace {

using std::filesystem::copy_options;

std::string packetWith(std::string const& attributes, std::string const& elements = {}) {
    return packetOf("xmlns:tiff='" + std::string(TIFF) + "' " + attributes, elements);
}

/// A motion photo with a gain map's claim, a further record and a property of its own.
std::string richPhoto() {
    auto const items = itemOf("Primary", "image/jpeg") + itemOf("GainMap", "image/jpeg", R"(Item:Length="700")");
    auto const packet = packetWith(R"(tiff:Make="Giver" hdrgm:Version="1.0")", directoryOf(items));
    TempFile const photo(JpegBuilder().exif().xmp(packet, 3000).build()), video(videoOf(140000));
    commit(photo, [&](auto& e) {
        e.addVideo(video.open("r")).addQRTData(2817, "Other", filler(70, 'o')).setPhotoPresentationTimestampUs(777);
    });
    return photo.bytes();
}

TEST(MotionPhotoTransfer, TakesOverWhatItsBytesFollow) {
    TempFile const giver(richPhoto()), taker(JpegBuilder().exif("II*taker").build());
    parsePhoto(giver.path())->transferTo(taker.open(), copy_options::none);
    auto const photo = parsePhoto(taker.path());
    EXPECT_EQ(trailerOf(taker.bytes()), "2817 Other 70;2608 MotionPhoto_Data 140000;");
    expectConsistent(taker.path());
    EXPECT_EQ(photo->getCaptureTimestampUs(), 777);
    EXPECT_EQ(photo->getXMPInfo()->getProperty(TIFF, "Make"), "Giver");
    // The gain map's bytes stayed behind, so its claim does too.
    EXPECT_FALSE(photo->getXMPInfo()->containsItem("GainMap", false));
    EXPECT_EQ(photo->getXMPInfo()->getProperty(xmp_ns::HDR_GAIN_MAP, "Version"), "");
    EXPECT_EQ(giver.bytes(), richPhoto());
}

TEST(MotionPhotoTransfer, PaddingThatLeadsToTheGainMapStaysWhenAVideoComesAndGoes) {
    std::string const map = JpegBuilder().build(), length = "Item:Length='" + std::to_string(map.size()) + "'";
    auto const items =
        itemOf("Primary", "image/jpeg", "Item:Padding='16'") + itemOf("GainMap", "image/jpeg", length.c_str());
    TempFile const photo(JpegBuilder().xmp(packetWith("", directoryOf(items)), 3000).build() + pattern(16) + map);
    TempFile const video(videoOf(140000));
    Edit const add = [&](auto&e) { e.addVideo(video.open("r")); }, remove = [](auto&e) { e.removeVideo(nullptr); };
    for (auto const& edit : {add, remove}) {
        commit(photo, edit);
        EXPECT_EQ(parsePhoto(photo.path())->getXMPInfo()->getItemField("Primary", "Padding"), "16");
    }
}

TEST(MotionPhotoTransfer, WhatIsSaidOfOwnGainMapAndMotionStays) {
    std::string const one = packetOf("Camera:MotionPhotoPresentationTimestampUs='1'",
                                     arrayOf("hdrgm:GainMapMax", "Seq", "<rdf:li>1</rdf:li>"));
    std::string const scalar =
        packetOf("hdrgm:GainMapMax='2' Camera:MotionPhoto='1' Camera:MotionPhotoPresentationTimestampUs='2'");
    for (auto const& [own, other] : {std::pair(one, scalar), std::pair(scalar, one)}) {
        TempFile const giver(JpegBuilder().xmp(other).build()), taker(JpegBuilder().xmp(own, 3000).build());
        auto const before = parsePhoto(taker.path());
        parsePhoto(giver.path())->transferTo(taker.open(), copy_options::none);
        auto const after = parsePhoto(taker.path());
        EXPECT_EQ(after->getCaptureTimestampUs(), before->getCaptureTimestampUs());
        for (auto const* name : {"GainMapMax", "GainMapMax[1]"})
            EXPECT_EQ(after->getXMPInfo()->getProperty(xmp_ns::HDR_GAIN_MAP, name),
                      before->getXMPInfo()->getProperty(xmp_ns::HDR_GAIN_MAP, name));
    }
}

TEST(MotionPhotoTransfer, SkipExistingKeepsWhatIsHere) {
    TempFile const giver(richPhoto()), video(videoOf(150000, 9));
    TempFile const taker(JpegBuilder().exif().xmp(packetWith(R"(tiff:Make="Taker")"), 3000).build());
    commit(taker, [&](auto& e) { e.addVideo(video.open("r")).addQRTData(2817, "other", filler(5, 'x')); });
    parsePhoto(giver.path())->transferTo(taker.open(), copy_options::skip_existing);
    EXPECT_EQ(trailerOf(taker.bytes()), "2608 MotionPhoto_Data 150000;2817 other 5;");
    EXPECT_EQ(parsePhoto(taker.path())->getXMPInfo()->getProperty(TIFF, "Make"), "Taker");
}

TEST(MotionPhotoTransfer, AppendsRecordsOfAnotherTrailerAndKeepsDuplicates) {
    TempFile const giver(richPhoto()), taker(JpegBuilder().exif().build());
    TempFile const stub(JpegBuilder().build() + trailerBytes({videoRecord("mpv")})); // no whole pointer
    auto const records = QRTInfo::parse(giver.open("r"));
    commit(taker, [&](auto& e) {
        e.addQRTInfo(records);
        e.addQRTInfo(records);
        e.addQRTInfo(QRTInfo::parse(stub.open("r")));
    });
    EXPECT_EQ(trailerOf(taker.bytes()),
              "2608 MotionPhoto_Data 140000;2817 Other 70;2608 MotionPhoto_Data 140000;2817 Other 70;"
              "2608 MotionPhoto_Data 3;");
    EXPECT_EQ(parsePhoto(taker.path())->getVideoSize(), 140000U);
    commit(taker, [](auto& e) { e.addQRTInfo(e.getQRTInfo()); }); // its own
    EXPECT_EQ(takeApart(taker.bytes()).trailer.records.size(), 10U);
}

constexpr char MEDIA[] = "http://ns.adobe.com/xap/1.0/mm/";

TEST(MotionPhotoTransfer, AnEditedStillKeepsItsMotion) {
    std::string const source = richPhoto(), packet = packetWith(R"(tiff:Make="Editor" tiff:Model="M")");
    std::string const image = JpegBuilder().exif("II*edited").xmp(packet).build("another scan");
    TempFile const photo(source), target, prepared(image);
    auto const edit = parsePhoto(photo.path())->edit();
    edit->setOutputSource(prepared.open("r"));
    constexpr auto const* FIELD = "xmpMM:DerivedFrom/stRef:documentID";
    edit->getXMPEdit().setProperty(TIFF, "Model", "Changed").setProperty(MEDIA, FIELD, "first");
    edit->commit(target.open());
    EXPECT_EQ(parsePhoto(target.path())->getXMPInfo()->getProperty(MEDIA, FIELD), "first");
    edit->getXMPEdit().setProperty(MEDIA, FIELD, "then").setItemField("Primary", "Label", "edited");
    edit->commit(target.open());
    auto const result = parsePhoto(target.path());
    expectConsistent(target.path());
    EXPECT_EQ(result->getXMPInfo()->getProperty(MEDIA, FIELD), "then");
    EXPECT_EQ(result->getXMPInfo()->getItemField("Primary", "Label"), "edited");
    EXPECT_EQ(trailerOf(target.bytes()), "2608 MotionPhoto_Data 140000;2817 Other 70;");
    EXPECT_EQ(takeApart(target.bytes()).image, takeApart(image).image);
    EXPECT_EQ(result->getCaptureTimestampUs(), 777);
    EXPECT_EQ(result->getXMPInfo()->getProperty(TIFF, "Make"), "Editor");
    EXPECT_EQ(result->getXMPInfo()->getProperty(TIFF, "Model"), "Changed");
    EXPECT_FALSE(result->getXMPInfo()->containsItem("GainMap", false));
    EXPECT_EQ(photo.bytes() + prepared.bytes(), source + image);
}

} // namespace
} // namespace android::lumo::test
