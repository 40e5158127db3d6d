// SPDX-License-Identifier: Apache-2.0
// A client that was built apart from the library, and without the toolkit's headers.

#include "MotionPhotoInfo.h"
#include "metadata_utils.h"
#include "support/TempFile.h"

using namespace android::lumo;
using namespace android::lumo::test;

static std::string const STILL = "\xFF\xD8\xFF\xDA" + std::string("\0\2", 2) + "\xFF\xD9";

TEST(Client, CatchesEveryErrorByOneType) {
    EXPECT_NE(messageOf([] { MediaFile file(0); }).find("Invalid file descriptor provided: 0"), std::string::npos);
    TempFile const text("neither an image nor a video");
    EXPECT_NE(messageOf([&] { MotionPhotoInfo::parse(text.open()); }).find("file type"), std::string::npos);
    TempFile const still("\xFF\xD8\xFF\xE1" + std::string("\0\x27http://ns.adobe.com/xap/1.0/\0<rdf:RDF", 39) +
                         "\xFF\xD9");
    try {
        XMPInfo::parse(still.open());
        FAIL() << "a packet that breaks off was taken";
    } catch (Error const& error) {
        EXPECT_EQ(error.code(), Error::Code::XMP);
    }
}

TEST(Client, CallsTheEntryPoints) {
    metadata_utils::library_init();
    EXPECT_EQ(metadata_utils::getVersionCode(), 10000);
    EXPECT_EQ(metadata_utils::getVersionString(), "1.0.0");
}

TEST(Client, ReadsWhatItWrote) {
    static int lines;
    mu_set_log([](int, char const*, char const*, void*) { ++lines; }, nullptr);
    TempFile const still(STILL);
    mu_photo* photo = nullptr;
    ASSERT_EQ(mu_open_path(still.path().c_str(), 1, &photo), MU_OK);
    mu_stage_property(photo, "http://ns.adobe.com/xap/1.0/", "xmp:Rating", "5");
    mu_stage_record(photo, 2900, "Note", "by the sea", 10);
    EXPECT_EQ(mu_commit(photo), MU_OK);
    mu_set_log(nullptr, nullptr);
    char const* rating = nullptr;
    char bytes[] = "....";
    size_t size = 0;
    EXPECT_EQ(mu_get_property(photo, "http://ns.adobe.com/xap/1.0/", "xmp:Rating", &rating), MU_OK);
    EXPECT_EQ(mu_read_record(photo, 0, bytes, 2, &size), MU_OK);
    EXPECT_EQ(rating + std::string(bytes) + std::to_string(size), "5by..10");
    EXPECT_GT(lines, 0);
    mu_close(photo);
}

TEST(Client, IsRefusedAheadOfAnyChangeWhatNoCommitCanDo) {
    std::pair<int, std::function<int(mu_photo*)>> const rows[] = {
        {MU_REFUSED, [](auto* photo) { return mu_stage_moment(photo, 5) + mu_commit(photo); }}, // there is no video
        {MU_REFUSED, [](auto* photo) { return mu_stage_moment(photo, -1); }},
        {MU_WRITE_FAILED, [](auto* photo) { return mu_commit_to_path(photo, "nowhere/out"); }},
        {MU_XMP,
         [](auto* photo) {
             mu_stage_record(photo, 2900, "Note", "x", 1);
             mu_stage_property(photo, "urn:unknown", "x:y", "1");
             return mu_commit(photo);
         }},
        {MU_REFUSED,
         [](auto* photo) {
             TempFile const held("not empty");
             mu_stage_record(photo, 2900, "Note", "x", 1);
             mu_stage_removal(photo);
             int const code = mu_commit_to_path(photo, held.path().c_str());
             return held.bytes() == "not empty" ? code : -1;
         }},
    };
    for (auto const& [code, tried] : rows) {
        TempFile const still(STILL);
        mu_photo* photo = nullptr;
        ASSERT_EQ(mu_open_path(still.path().c_str(), 1, &photo), MU_OK);
        EXPECT_EQ(tried(photo), code) << mu_last_error();
        EXPECT_EQ(still.bytes(), STILL);
        mu_close(photo);
    }
}
