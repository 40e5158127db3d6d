// The library, through its shared object as clients use it. Arguments: JPEGs to parse; "--add STILL VIDEO OUT" in front
// of them measures the making of a motion photo as well.

#include "Workload.h"

#include "MotionPhotoEdit.h"
#include "MotionPhotoInfo.h"
#include "XMPInfo.h"

#include <XMP_Const.h>
#include <android/log.h>

#include <cstring>
#include <memory>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

using namespace android::lumo;

namespace {

/// The toolkit's exception is no standard one.
template<class Read>
auto translated(Read read) {
    return [read](std::string const& path) {
        try {
            return read(path);
        } catch (XMP_Error const& e) {
            throw std::runtime_error(e.GetErrMsg());
        }
    };
}

std::string queryXMP(XMPInfo const& xmp) {
    std::string answers;
    for (auto const& property : workload::PROPERTIES)
        answers += xmp.getProperty(property.schema, property.name) + ';';
    if (xmp.containsItem(workload::ITEM_NAME, false)) {
        for (auto const* field : workload::ITEM_FIELDS)
            answers += xmp.getItemField(workload::ITEM_NAME, field) + ';';
    }
    return answers;
}

std::string parseMotionPhoto(std::string const& path) {
    auto const photo = MotionPhotoInfo::parse(std::make_shared<MediaFile>(path, "r"));
    benchmark::DoNotOptimize(photo->getVideoPosition() + photo->getVideoSize());
    return queryXMP(*photo->getXMPInfo());
}

std::string parseXMP(std::string const& path) {
    return queryXMP(*XMPInfo::parse(std::make_shared<MediaFile>(path, "r")));
}

void createEmpty(char const* path) {
    unlink(path);
    close(open(path, O_WRONLY | O_CREAT | O_EXCL, 0666));
}

void makeMotionPhoto(char const* still, char const* video, char const* out) {
    createEmpty(out);
    auto const edit = MotionPhotoInfo::parse(std::make_shared<MediaFile>(still, "r"))->edit();
    edit->addVideo(std::make_shared<MediaFile>(video, "r"));
    edit->commit(std::make_shared<MediaFile>(out, "rw"));
}

/// What cat does between regular files.
void concatenate(char const* still, char const* video, char const* out) {
    createEmpty(out);
    int const target = open(out, O_WRONLY);
    for (auto const* path : {still, video}) {
        int const source = open(path, O_RDONLY);
        while (copy_file_range(source, nullptr, target, nullptr, SSIZE_MAX & ~0xFFFL, 0) > 0)
            continue;
        close(source);
    }
    close(target);
}

using Writer = void(char const*, char const*, char const*);

void addWriter(char const* name, Writer* write, char** files) {
    benchmark::RegisterBenchmark(name, [=](benchmark::State& state) {
        for (auto _ : state)
            write(files[0], files[1], files[2]);
    })->Unit(benchmark::kMillisecond);
}

} // namespace

int main(int argc, char** argv) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    benchmark::Initialize(&argc, argv);
    int first = 1;
    if (argc > 4 && std::strcmp(argv[1], "--add") == 0) {
        addWriter("add", makeMotionPhoto, argv + 2);
        addWriter("concatenate", concatenate, argv + 2);
        first = 5;
    }
    for (int i = first; i < argc; ++i) {
        workload::add("motionphoto", argv[i], translated(parseMotionPhoto));
        workload::add("xmp", argv[i], translated(parseXMP));
    }
    benchmark::RunSpecifiedBenchmarks();
}
