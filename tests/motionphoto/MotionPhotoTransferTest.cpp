#include "PhotoFixture.h"
#include "support/TrailerBuilder.h"

namespace android::lumo::test {
namespace {

using std::filesystem::copy_options;

std::string packetWith(std::string const& attributes, std::string const& directory = {}) {
    std::string text =
        R"(<x:xmpmeta xmlns:x="adobe:ns:meta/"><rdf:RDF xmlns:rdf="http://www.w3.org/1999/02/22-rdf-syntax-ns#">)"
        R"(<rdf:Description rdf:about="" xmlns:tiff="http://ns.adobe.com/tiff/1.0/" )"
        R"(xmlns:hdrgm="http://ns.adobe.com/hdr-gain-map/1.0/" xmlns:GCamera="http://ns.google.com/photos/1.0/camera/" )"
        R"(xmlns:Container="http://ns.google.com/photos/1.0/container/" )"
        R"(xmlns:Item="http://ns.google.com/photos/1.0/container/item/" )";
    text += attributes + ">";
    if (!directory.empty())
        text += "<Container:Directory><rdf:Seq>" + directory + "</rdf:Seq></Container:Directory>";
    return text + "</rdf:Description></rdf:RDF></x:xmpmeta>";
}

std::string item(std::string const& fields) {
    return R"(<rdf:li rdf:parseType="Resource"><Container:Item )" + fields + "/></rdf:li>";
}

/// A motion photo with a gain map's claim, a further record and a property of its own.
std::string richPhoto() {
    std::string const directory = item(R"(Item:Semantic="Primary" Item:Mime="image/jpeg")") +
                                  item(R"(Item:Semantic="GainMap" Item:Mime="image/jpeg" Item:Length="700")");
    TempFile const photo(
        JpegBuilder().exif().xmp(packetWith(R"(tiff:Make="Giver" hdrgm:Version="1.0")", directory), 3000).build());
    TempFile const video(fakeVideo(140000));
    auto const edit = parsePhoto(photo.path())->edit();
    edit->addVideo(video.open("r")).addQRTData(2817, "Other", ByteBuffer(std::vector<uint8_t>(70, 'o')));
    edit->setPhotoPresentationTimestampUs(777);
    edit->commit();
    return photo.bytes();
}

TEST(MotionPhotoTransfer, TakesOverWhatItsBytesFollow) {
    TempFile const giver(richPhoto());
    TempFile const taker(JpegBuilder().exif("II*taker").build());
    parsePhoto(giver.path())->transferTo(taker.open(), copy_options::none);
    auto const photo = parsePhoto(taker.path());
    EXPECT_TRUE(photo->isValid());
    EXPECT_EQ(photo->getVideoSize(), 140000U);
    EXPECT_EQ(photo->getCaptureTimestampUs(), 777);
    EXPECT_EQ(photo->getQRTInfo()->getData(2817).size(), 70U);
    EXPECT_EQ(photo->getXMPInfo()->getProperty("http://ns.adobe.com/tiff/1.0/", "Make"), "Giver");
    // The gain map's bytes stayed behind, so its claim does too.
    EXPECT_FALSE(photo->getXMPInfo()->containsItem("GainMap", false));
    EXPECT_EQ(photo->getXMPInfo()->getProperty(xmp_ns::HDR_GAIN_MAP, "Version"), "");
    EXPECT_EQ(giver.bytes(), richPhoto());
}

TEST(MotionPhotoTransfer, WhatIsSaidOfOwnGainMapAndMotionStays) {
    auto const packetOf = [](char const* attributes, std::string const& gains) {
        std::string packet = packetWith(attributes);
        return packet.insert(packet.find("</rdf:Description>"),
                             "<hdrgm:GainMapMax><rdf:Seq>" + gains + "</rdf:Seq></hdrgm:GainMapMax>");
    };
    std::string const one = packetOf(R"(GCamera:MotionPhotoPresentationTimestampUs="1")", "<rdf:li>1</rdf:li>");
    std::string const scalar =
        packetWith(R"(hdrgm:GainMapMax="2" GCamera:MotionPhoto="1" GCamera:MotionPhotoPresentationTimestampUs="2")");
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
    TempFile const giver(richPhoto());
    TempFile const taker(JpegBuilder().exif().xmp(packetWith(R"(tiff:Make="Taker")"), 3000).build());
    TempFile const video(fakeVideo(150000, 9));
    auto const edit = parsePhoto(taker.path())->edit();
    edit->addVideo(video.open("r")).addQRTData(2817, "other", ByteBuffer(std::vector<uint8_t>(5, 'x')));
    edit->commit();
    parsePhoto(giver.path())->transferTo(taker.open(), copy_options::skip_existing);
    auto const photo = parsePhoto(taker.path());
    EXPECT_EQ(photo->getVideoSize(), 150000U);
    EXPECT_EQ(photo->getQRTInfo()->getData(2817).size(), 5U);
    EXPECT_EQ(photo->getXMPInfo()->getProperty("http://ns.adobe.com/tiff/1.0/", "Make"), "Taker");
}

TEST(MotionPhotoTransfer, AppendsRecordsOfAnotherTrailerAndKeepsDuplicates) {
    TempFile const giver(richPhoto());
    TempFile const taker(JpegBuilder().exif().build());
    TempFile const stub(JpegBuilder().build() + trailerBytes({{2608, "MotionPhoto_Data", "mpv"}})); // no whole pointer
    auto const edit = parsePhoto(taker.path())->edit();
    auto const records = QRTInfo::parse(giver.open("r"));
    edit->addQRTInfo(records);
    edit->addQRTInfo(records);
    edit->addQRTInfo(QRTInfo::parse(stub.open("r")));
    edit->commit();
    EXPECT_EQ(trailerOf(taker.bytes()),
              "2608 MotionPhoto_Data 140000;2817 Other 70;2608 MotionPhoto_Data 140000;2817 Other 70;"
              "2608 MotionPhoto_Data 3;");
    EXPECT_EQ(parsePhoto(taker.path())->getVideoSize(), 140000U);
}

TEST(MotionPhotoTransfer, AnEditedStillKeepsItsMotion) {
    std::string const source = richPhoto();
    TempFile const photo(source), target(pattern(500));
    std::string const image =
        JpegBuilder().exif("II*edited").xmp(packetWith(R"(tiff:Make="Editor" tiff:Model="M")")).build("another scan");
    TempFile const prepared(image);
    auto const edit = parsePhoto(photo.path())->edit();
    edit->setOutputSource(prepared.open("r"));
    edit->getXMPEdit().setProperty("http://ns.adobe.com/tiff/1.0/", "Model", "Changed");
    edit->commit(target.open());
    auto const result = parsePhoto(target.path());
    EXPECT_TRUE(result->isValid());
    EXPECT_EQ(result->getCaptureTimestampUs(), 777);
    EXPECT_EQ(result->getVideoSize(), 140000U);
    EXPECT_EQ(result->getQRTInfo()->getData(2817).size(), 70U);
    EXPECT_EQ(result->getXMPInfo()->getProperty("http://ns.adobe.com/tiff/1.0/", "Make"), "Editor");
    EXPECT_EQ(result->getXMPInfo()->getProperty("http://ns.adobe.com/tiff/1.0/", "Model"), "Changed");
    EXPECT_FALSE(result->getXMPInfo()->containsItem("GainMap", false));
    EXPECT_EQ(result->getXMPInfo()->getItemField("MotionPhoto", "Length"),
              std::to_string(target.bytes().size() - result->getVideoPosition()));
    EXPECT_EQ(photo.bytes(), source);
    EXPECT_EQ(prepared.bytes(), image);
    EXPECT_EQ(imageWithoutXmp(target.bytes()).find(imageWithoutXmp(image)), 0U);
}

} // namespace
} // namespace android::lumo::test
