#include "XMPFixture.h"

#include <set>

using namespace android::lumo;
using namespace android::lumo::test;

namespace {

/// Every JPEG of the sample folders, where they are there: its XMP survives a commit, and every other segment with it.
/// A file that cannot be taken is refused unchanged.
TEST(XMPSamples, KeepTheirContentThroughACommit) {
    std::set<std::filesystem::path> files;
    std::error_code absent;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(SHARED_DATA_DIR, absent)) {
        if (entry.is_regular_file() && bytesOf(entry).starts_with("\xFF\xD8"))
            files.insert(entry.path());
    }
    if (files.empty())
        GTEST_SKIP() << "no samples below " SHARED_DATA_DIR;
    int committed = 0;
    for (auto const& path : files) {
        SCOPED_TRACE(path.filename());
        auto const before = bytesOf(path);
        TempFile const copy(before);
        try {
            auto const view = XMPInfo::parse(copy.open());
            auto const editor = view->edit();
            editor->setProperty(xmp_ns::CAMERA, "GCamera:MotionPhotoPresentationTimestampUs", "123456");
            auto const expected = contentOf(*view);
            editor->commit();
            EXPECT_EQ(contentOf(*XMPInfo::parse(copy.open())), expected);
            EXPECT_EQ(othersOf(copy.bytes()), othersOf(before));
            ++committed;
        } catch (...) { // the toolkit's error is no std::exception
            EXPECT_EQ(copy.bytes(), before);
        }
    }
    EXPECT_GT(committed, 0);
}

} // namespace
