#include "MotionPhotoEdit.h"
#include "PhotoState.h"
#include "heif/HeicParts.h"
#include "io/ImageMetaWriter.h"
#include "support/Attempt.h"
#include "support/Faults.h"

#include <cerrno>
#include <functional>
#include <map>
#include <set>
#include <sstream>
#include <sys/stat.h>

namespace android::lumo::test {
namespace {

using File = std::shared_ptr<MediaFile>;
/// Stages an edit of `file` that goes into `target`, or in place without one, and returns what writes it.
using Prepare = std::function<std::function<void()>(File const& file, File const& target)>;

constexpr size_t SPARE_SPACE = 64 * 1024; ///< of one file: blocks, and what a file system keeps on its own
constexpr char TIFF[] = "http://ns.adobe.com/tiff/1.0/";
auto const skipExisting = std::filesystem::copy_options::skip_existing;

ByteBuffer bytes(size_t size, uint8_t value) {
    return ByteBuffer(std::vector<uint8_t>(size, value));
}

/// `commits(edit)` for the view that View::parse makes.
template<class View, class Stage>
Prepare committed(Stage const& stage) {
    return [stage](File const& file, File const& target) -> std::function<void()> {
        auto view = View::parse(file);
        auto edit = decltype(view->edit())(view->edit());
        stage(*edit);
        using Edit = std::remove_reference_t<decltype(*edit)>;
        std::shared_ptr<Edit> const shared = std::move(edit);
        return [view, shared, target] { target == nullptr ? shared->commit() : shared->commit(target); };
    };
}

Prepare photo(std::function<void(MotionPhotoEdit&)> const& stage) {
    return committed<MotionPhotoInfo>(stage);
}

Prepare trailer(QRTEdit::Option option, std::function<void(QRTEdit&)> const& stage) {
    return committed<QRTInfo>([=](QRTEdit& edit) { stage(edit.setOption(option)); });
}

Prepare xmp(size_t size) {
    return committed<XMPInfo>([=](XMPEdit& edit) { edit.setProperty(TIFF, "Model", std::string(size, 'm')); });
}

/// In place only.
Prepare writer(std::function<void(ImageMetaWriter&)> const& write) {
    return [write](File const& file, File const&) { return [=] { write(*ImageMetaWriter::of(file)); }; };
}

template<class View>
Prepare transferred(std::string const& from) {
    return [source = std::make_shared<TempFile>(from)](File const& file, File const&) {
        auto const view = View::parse(source->open("r"));
        return [view, source, file] { view->transferTo(file, skipExisting); };
    };
}

/// The file after the edit, made without faults.
std::string edited(std::string const& before, Prepare const& prepare) {
    TempFile const file(before);
    prepare(file.open(), nullptr)();
    return file.bytes();
}

struct Operation {
    std::string row; ///< of docs/failure-states.md
    std::string before;
    Prepare prepare;
    bool hasTarget = true; ///< it can write into another file as well
};

std::vector<Operation> operations() {
    static TempFile const clip(bytesOf(SAMPLES_DIR "/clip.mp4"));
    static TempFile const video(videoOf(126'000, 3)), other(videoOf(125'500, 5)), small(videoOf(3000, 7));
    auto const add = photo([](auto& e) { e.addVideo(video.open("r")); });
    auto const addSmall = photo([](auto& e) { e.addVideo(small.open("r")).addQRTData(2817, "Other", bytes(70, 'o')); });
    auto const replace = photo([](auto& e) { e.replaceVideo(other.open("r")); });
    auto const replaceByClip = photo([](auto& e) { e.replaceVideo(clip.open("r")); });
    auto const remove = photo([](auto& e) { e.removeVideo(nullptr); });
    auto const record = photo([](auto& e) { e.addQRTData(2900, "Note", bytes(600, 'n')); });
    auto const timestamp = photo([](auto& e) { e.setPhotoPresentationTimestampUs(1234567); });
    auto const records = [](auto& e) {
        e.putData(2900, "Note", bytes(600, 'n')).putData(2901, "File", small.open("r")).removeData("Other");
    };
    auto const shorter = [](auto& e) { e.removeData("Other"); };
    auto const reserve = writer([](auto& w) { w.reserveXMP(2000); });
    auto const debugIn = writer([](auto& w) { w.writeCameraDebugInfo(std::vector<unsigned char>(500, 'd')); });
    auto const debugOut = writer([](auto& w) { w.removeCameraDebugInfo(); });
    using enum QRTEdit::Option;

    JpegBuilder const exif = JpegBuilder().exif();
    std::string const scan(2000, 's');
    std::string const jpeg = exif.build(scan);
    std::string const tight = JpegBuilder(exif).xmp(heicXmp("tight")).build(scan);
    std::string const motion =
        edited(edited(jpeg, add), photo([](auto& e) { e.addQRTData(2817, "Other", bytes(70, 'o')); }));
    std::string const pointed =
        jpeg + pattern(500) +
        trailerBytes({{2608, "MotionPhoto_Data", "mpv2" + bigEndian(jpeg.size(), 4) + bigEndian(500, 4)}});
    JpegBuilder const front = JpegBuilder().segment(0xE0, pattern(50'000)).segment(0xE0, pattern(50'000, 2));
    std::string const far = JpegBuilder(front).segment(0xE4, "old").build(scan);
    std::string const heic = buildHeic();
    std::string const roomy = buildHeic({.xmp = heicXmp("roomy", 3000)});
    std::string const heicMotion = edited(roomy, addSmall);
    std::string const heicVideo = edited(roomy, replace);
    std::string const heicDebug = edited(heicMotion, debugIn);
    std::string const hidden = HeicParts{roomy}.build("ITV");
    std::string const toEnd = buildHeic({.xmp = heicXmp("roomy", 3000), .mdat = HeicOptions::Mdat::ToEnd});
    return {
        {"JPEG: video or record, XMP room made", jpeg, add},
        {"JPEG: video or record, XMP room made", tight, add},
        {"JPEG: video or record, XMP fits", motion, replace},
        {"JPEG: video or record, XMP fits", motion, replaceByClip},
        {"JPEG: video or record, XMP fits", motion, remove},
        {"JPEG: video or record, XMP fits", motion, record},
        {"JPEG: XMP, fits", motion, timestamp},
        {"JPEG: video or record, XMP room made", tight, transferred<MotionPhotoInfo>(motion), false},
        {"trailer", motion, trailer(WRITE_IN_ORDER, records)},
        {"trailer", motion, trailer(WRITE_FAST, records)},
        {"trailer", motion, trailer(WRITE_FAST, shorter)},
        {"trailer", heicMotion, trailer(WRITE_IN_ORDER, records)},
        {"trailer", heicMotion, trailer(WRITE_FAST, shorter)},
        {"trailer", tight, transferred<QRTInfo>(motion), false},
        {"JPEG: XMP, fits", motion, xmp(10), false},
        {"JPEG: XMP, room made", motion, xmp(2000), false},
        {"JPEG: XMP, room made", tight, transferred<XMPInfo>(motion), false},
        {"JPEG: XMP, room made", motion, reserve, false},
        {"JPEG: XMP, room made", pointed, reserve, false},
        {"JPEG: debug info in", motion, debugIn, false},
        {"JPEG: debug info in", pointed, debugIn, false},
        {"JPEG: debug info out", far, debugOut, false},
        {"HEIC: video or record, XMP fits", roomy, addSmall},
        {"HEIC: video or record, XMP room made", heic, addSmall},
        {"HEIC: video or record, XMP fits", heicMotion, replace},
        {"HEIC: video or record, XMP fits", heicMotion, remove},
        {"HEIC: video or record, XMP fits", heicVideo, remove},
        {"HEIC: video or record, XMP fits", heicMotion, record},
        {"HEIC: XMP, fits", heicMotion, timestamp},
        {"HEIC: video or record, XMP room made", heic, transferred<MotionPhotoInfo>(heicMotion), false},
        {"HEIC: XMP, fits", heicMotion, xmp(10), false},
        {"HEIC: XMP room", heicMotion, reserve, false},
        {"HEIC: debug info in", heicMotion, debugIn, false},
        {"HEIC: debug info in", heic, debugIn, false},
        {"HEIC: debug info out", heicDebug, debugOut, false},
        {"HEIC: video or record, hidden trailer", hidden, record},
        {"HEIC: video or record, hidden trailer", hidden, remove},
        {"HEIC: debug info in, hidden trailer", hidden, debugIn, false},
        {"HEIC: video or record, XMP fits", toEnd, addSmall},
        {"trailer", toEnd, trailer(WRITE_IN_ORDER, records)},
        {"HEIC: debug info in", toEnd, debugIn, false},
    };
}

struct Kind {
    char const* name;
    int error;     ///< 0: none
    ssize_t limit; ///< bytes that the first of the calls moves; FAILS: it fails as well
    size_t times;
};

constexpr ssize_t FAILS = -1;
constexpr Kind KINDS[] = {
    {"ENOSPC once", ENOSPC, FAILS, 1},
    {"ENOSPC from then on", ENOSPC, FAILS, Fault::ALWAYS},
    {"EIO once", EIO, FAILS, 1},
    {"EIO from then on", EIO, FAILS, Fault::ALWAYS},
    {"EFBIG once", EFBIG, FAILS, 1},
    {"EFBIG from then on", EFBIG, FAILS, Fault::ALWAYS},
    {"half, then ENOSPC", ENOSPC, Fault::HALF, Fault::ALWAYS},
    {"200 bytes, then EFBIG", EFBIG, 200, Fault::ALWAYS},
    {"0 bytes once", 0, 0, 1},
    {"0 bytes from then on", 0, 0, Fault::ALWAYS},
    {"EINTR three times", EINTR, FAILS, 3},
    {"a byte once", 0, 1, 1},
    {"a byte, often", 0, 1, 100},
    {"half once", 0, Fault::HALF, 1},
    {"half from then on", 0, Fault::HALF, Fault::ALWAYS},
};

/// Interrupted and short calls go on where they stopped.
bool mustSucceed(Kind const& kind) {
    return kind.error == EINTR || (kind.error == 0 && kind.limit != 0);
}

Fault faultOf(Kind const& kind, size_t number) {
    if (kind.error == 0)
        return Fault::shortened(Call::CHANGE, kind.limit, number, kind.times);
    return kind.limit == FAILS ? Fault::failing(Call::CHANGE, kind.error, number, kind.times)
                               : Fault::cutShort(Call::CHANGE, kind.limit, kind.error, number);
}

void useAgain(std::string const& path) {
    returns([&] {
        auto const view = MotionPhotoInfo::parse(test::open(path));
        returns([&] { view->isValid(); });
        returns([&] { view->getVideo(); });
        auto const edit = view->edit();
        edit->addQRTData(2902, "Again", bytes(50, 'a'));
        edit->commit();
    });
}

/// Bytes that a file takes on disk, with those kept behind its end.
uint64_t spaceOf(std::string const& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return static_cast<uint64_t>(status.st_blocks) * 512;
}

size_t openDescriptors() {
    auto const all = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

/// The states of a row of the document, "; " between them.
std::map<std::string, std::set<std::string>> documentedStates() {
    std::map<std::string, std::set<std::string>> rows;
    std::istringstream text(bytesOf(DOCS_DIR "/failure-states.md"));
    for (std::string line; std::getline(text, line);) {
        size_t const bar = line.find(" | ");
        if (bar == std::string::npos || line.find("as before;") == std::string::npos)
            continue;
        auto& states = rows[line.substr(2, bar - 2)];
        std::istringstream cell(line.substr(bar + 3, line.size() - bar - 5));
        for (std::string state; std::getline(cell, state, ';');)
            states.insert(state.substr(state.find_first_not_of(' ')));
    }
    return rows;
}

class Trial {
public:
    explicit Trial(Operation const& tried)
        : operation(tried), after(edited(tried.before, tried.prepare)), states(tried.before, after) {}

    /// Call after call goes wrong until the operation comes through before it.
    void everyCall(Kind const& kind, bool intoTarget, std::set<std::string>& found) {
        bool isHit = true;
        size_t hits = 0;
        for (size_t number = 0; isHit; ++number) {
            SCOPED_TRACE(operation.row + ", " + kind.name + " at call " + std::to_string(number) +
                         (intoTarget ? " into a target" : ""));
            isHit = oneRun(kind, number, intoTarget, found);
            EXPECT_EQ(openDescriptors(), descriptors);
            hits += isHit;
        }
        EXPECT_TRUE(hits > 0 || kind.error == 0) << operation.row << ": it changes nothing";
        EXPECT_LE(std::distance(std::filesystem::directory_iterator(dir.path()), {}), 2) << operation.row;
    }

private:
    bool oneRun(Kind const& kind, size_t number, bool intoTarget, std::set<std::string>& found) {
        writeBytes(dir.file("still"), operation.before);
        writeBytes(dir.file("target"), "");
        auto const file = test::open(dir.file("still"));
        auto const commit = operation.prepare(file, intoTarget ? test::open(dir.file("target")) : nullptr);
        bool isHit = false;
        bool isDone = false;
        {
            Fault const fault = faultOf(kind, number);
            isDone = returns(commit);
            isHit = fault.calls() > number;
        }
        EXPECT_TRUE(isDone || (isHit && !mustSucceed(kind)));
        std::string const result = bytesOf(dir.file(intoTarget ? "target" : "still"));
        EXPECT_TRUE(!isDone || result == after) << "false success: " << states.of(result);
        if (intoTarget)
            EXPECT_TRUE(bytesOf(dir.file("still")) == operation.before) << "source touched";
        else if (!isDone)
            found.insert(states.of(result));
        if (isDone)
            return isHit;
        std::string const edited = dir.file(intoTarget ? "target" : "still");
        EXPECT_TRUE(kind.times > 1 || spaceOf(edited) <= result.size() + SPARE_SPACE) << "space is kept behind the end";
        bool const isRefused = result == operation.before;
        bool const isDoneNow = returns(commit);
        EXPECT_TRUE(!isDoneNow || (!intoTarget && !isRefused) || bytesOf(edited) == after) << "the second commit";
        useAgain(edited);
        return isHit;
    }

    Operation const& operation;
    std::string after;
    PhotoState states;
    TempDir dir;
    size_t descriptors = openDescriptors();
};

TEST(Fault, NoCallThatFailsGoesUnnoticedAndTheFileIsInADocumentedState) {
    auto documented = documentedStates();
    std::map<std::string, std::set<std::string>> found;
    for (auto const& operation : operations()) {
        Trial trial(operation);
        for (auto const& kind : KINDS) {
            for (bool const intoTarget : {false, true}) {
                if (operation.hasTarget || !intoTarget)
                    trial.everyCall(kind, intoTarget, found[operation.row]);
            }
        }
    }
    std::set<std::string> all, met;
    for (auto const& [row, states] : documented)
        all.insert(states.begin(), states.end());
    for (auto const& [row, states] : found) {
        met.insert(states.begin(), states.end());
        for (auto const& state : states)
            EXPECT_TRUE(documented[row].contains(state)) << row << ": " << state;
    }
    for (auto const& state : all)
        EXPECT_TRUE(met.contains(state)) << "documented and never met: " << state;
}

} // namespace
} // namespace android::lumo::test
