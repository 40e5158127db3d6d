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
    static std::string log;
    mu_set_log([](int, char const*, char const* line, void* user) { log += line + std::to_string(user == &log); },
               &log);
    metadata_utils::library_init();
    mu_set_log(nullptr, nullptr);
    metadata_utils::library_init();
    EXPECT_EQ(log, "Library loaded - Version: 1.0.0[code: 10000]1");
    EXPECT_EQ(metadata_utils::getVersionCode(), 10000);
    EXPECT_EQ(metadata_utils::getVersionString(), "1.0.0");
    EXPECT_STREQ(mu_version(), "1.0.0");
}

/// A movie by its boxes.
static std::string const CLIP("\0\0\0\x14"
                              "ftypisom\0\0\0\0mp42\0\0\0\x10moov\0\0\0\x08"
                              "free",
                              36);

/// Closed with the last copy.
static std::shared_ptr<mu_photo> opened(std::function<int(mu_photo**)> const& open) {
    mu_photo* photo = nullptr;
    EXPECT_EQ(open(&photo), MU_OK) << mu_last_error();
    return {photo, mu_close};
}

static std::shared_ptr<mu_photo> inMemory(std::string const& bytes) {
    return opened([&](auto photo) { return mu_open_memory(bytes.data(), bytes.size(), photo); });
}

/// What is staged, written into memory.
static std::string committed(std::shared_ptr<mu_photo> const& photo) {
    void* bytes = nullptr;
    size_t size = 0;
    EXPECT_EQ(mu_commit_to_memory(photo.get(), &bytes, &size), MU_OK) << mu_last_error();
    std::string const text(static_cast<char*>(bytes), size);
    mu_free(bytes);
    return text;
}

/// All that is counted, and where the video is.
static std::string told(std::shared_ptr<mu_photo> const& handle) {
    auto* const photo = handle.get();
    mu_video video{};
    mu_property property{};
    mu_item item{};
    mu_record record{};
    char const* value = nullptr;
    size_t properties = 0, items = 0, records = 0, size = 0;
    EXPECT_EQ(mu_count_properties(photo, &properties) + mu_count_items(photo, &items) +
                  mu_count_records(photo, &records) + mu_locate_video(photo, &video),
              MU_OK);
    std::string text = std::to_string(video.source) + ' ' + std::to_string(video.size) + ' ' + video.mime_type;
    for (size_t i = 0; i < properties; ++i) {
        mu_get_property_at(photo, i, &property);
        mu_get_property(photo, property.schema, property.path, &value);
        text += std::string(", ") + property.path + '=' + property.value + '=' + value;
    }
    for (size_t i = 0; i < items && mu_get_item_at(photo, i, &item) == MU_OK; ++i)
        text += std::string("; ") + item.semantic + ' ' + item.mime_type + ' ' + item.length + ' ' + item.padding;
    for (size_t i = 0; i < records && mu_get_record_at(photo, i, &record) == MU_OK; ++i) {
        char bytes[] = "....";
        mu_read_record(photo, i, bytes, 2, &size);
        text += "; " + std::to_string(record.type) + record.name + ' ' + std::to_string(size) + bytes;
    }
    return text;
}

TEST(Client, IsToldTheSameByEveryHandleAndWritesTheSameEveryWay) {
    auto const still = inMemory(STILL);
    mu_stage_video(still.get(), inMemory(CLIP).get(), -1);
    mu_stage_record(still.get(), 2900, "Note", "by the sea", 10);
    mu_stage_property(still.get(), "http://ns.adobe.com/xap/1.0/", "xmp:Rating", "5");
    std::string const photo = committed(still);
    char const claims[] = " video/mp4, GCamera:MotionPhoto=1=1, GCamera:MotionPhotoVersion=1=1, xmp:Rating=5=5; ";
    std::string const withTrailer = std::string("1 125001") + claims + "Primary image/jpeg  24; MotionPhoto video/mp4 ",
                      records = " 0; 2608MotionPhoto_Data 125001; 2610MotionPhoto_Info 54ma..";
    EXPECT_EQ(told(inMemory(photo)), withTrailer + "125157" + records + "; 2900Note 10by..");
    mu_video scanned{};
    EXPECT_EQ(mu_scan_video(inMemory(STILL + CLIP).get(), &scanned), MU_OK);
    EXPECT_EQ(scanned.position, STILL.size());
    for (bool const byPath : {true, false}) {
        TempFile const file(photo), output("what it held"), clip;
        auto const in = file.open(), out = output.open(), video = clip.open();
        auto const handle = opened([&](auto made) {
            return byPath ? mu_open_path(file.path().c_str(), 1, made) : mu_open_descriptor(in->getFd(), made);
        });
        EXPECT_EQ(told(handle), told(inMemory(photo)));
        mu_stage_to_published(handle.get(), 1);
        EXPECT_EQ(byPath ? mu_commit_to_path(handle.get(), output.path().c_str())
                         : mu_commit_to_descriptor(handle.get(), out->getFd()),
                  MU_OK);
        auto const published = inMemory(committed(handle));
        EXPECT_EQ(mu_commit(handle.get()), MU_OK);
        EXPECT_TRUE(output.bytes() == file.bytes() && output.bytes() == committed(handle));
        EXPECT_EQ(told(published), std::string("3 36") + claims + "Primary image/jpeg  0; MotionPhoto video/mp4 36 0");
        EXPECT_EQ(byPath ? mu_copy_video_to_path(published.get(), clip.path().c_str())
                         : mu_copy_video_to_descriptor(published.get(), video->getFd()),
                  MU_OK);
        EXPECT_EQ(clip.bytes(), CLIP);
        mu_stage_to_trailer(published.get());
        EXPECT_EQ(told(inMemory(committed(published))), withTrailer + "125123" + records);
    }
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
