// What crosses the shared library's border is caught by a client that was built apart from it.

#include "MotionPhotoInfo.h"
#include "metadata_utils.h"
#include "support/TempFile.h"

#include <XMP_Const.h>

using namespace android::lumo;
using namespace android::lumo::test;

namespace {

std::string jpegWithPacket(std::string const& packet) {
    std::string const payload = std::string("http://ns.adobe.com/xap/1.0/") + '\0' + packet;
    std::string const length = {static_cast<char>((payload.size() + 2) >> 8), static_cast<char>(payload.size() + 2)};
    return "\xFF\xD8\xFF\xE1" + length + payload + "\xFF\xD9";
}

} // namespace

TEST(Client, CatchesTheLibrarysErrorByItsType) {
    EXPECT_NE(messageOf([] { MediaFile file(0); }).find("Invalid file descriptor provided: 0"), std::string::npos);
    TempFile const text("neither an image nor a video");
    EXPECT_NE(messageOf([&] { MotionPhotoInfo::parse(text.open()); }).find("file type"), std::string::npos);
}

TEST(Client, CatchesTheToolkitsErrorByItsType) {
    TempFile const still(jpegWithPacket("<x:xmpmeta xmlns:x='adobe:ns:meta/'><rdf:RDF"));
    try {
        XMPInfo::parse(still.open());
        FAIL() << "a packet that breaks off was taken";
    } catch (XMP_Error const& error) {
        EXPECT_NE(error.GetErrMsg(), nullptr);
    }
}

TEST(Client, CallsTheEntryPoints) {
    metadata_utils::library_init();
    EXPECT_EQ(metadata_utils::getVersionCode(), 10000);
    EXPECT_EQ(metadata_utils::getVersionString(), "1.0.0");
}
