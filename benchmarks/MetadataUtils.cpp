// SPDX-License-Identifier: Apache-2.0
// The library, through its shared object as clients use it. Arguments: JPEGs to parse.

#include "Workload.h"

#include "MotionPhotoInfo.h"
#include "XMPInfo.h"

#include <XMP_Const.h>
#include <android/log.h>

#include <memory>
#include <stdexcept>

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

} // namespace

int main(int argc, char** argv) {
    __android_log_set_minimum_priority(ANDROID_LOG_SILENT);
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i) {
        workload::add("motionphoto", argv[i], translated(parseMotionPhoto));
        workload::add("xmp", argv[i], translated(parseXMP));
    }
    benchmark::RunSpecifiedBenchmarks();
}
