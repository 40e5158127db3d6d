// SPDX-License-Identifier: Apache-2.0
// read PHOTO: what a photo carries, asked of the three views.
#include <metadata_utils/Error.h>
#include <metadata_utils/MotionVideo.h>
#include <metadata_utils/QRTInfo.h>
#include <metadata_utils/XMPInfo.h>

#include <iostream>

using namespace android::lumo;

int main(int argc, char** argv) {
    if (argc < 2)
        return 2;
    try {
        auto const file = std::make_shared<MediaFile>(argv[1], "r");
        auto const video = MotionVideo::locate(file);
        std::cout << "video: " << MotionVideo::nameOf(video.status) << ", " << video.size << " bytes at "
                  << video.position << ", named by: " << MotionVideo::nameOf(video.source) << '\n';
        for (auto const& record : QRTInfo::parse(file)->getRecords())
            std::cout << "record " << record.type << ' ' << record.name << ": " << record.dataPayload << " bytes\n";
        auto const xmp = XMPInfo::parse(file);
        for (auto const& [schema, path] : xmp->getProperties())
            std::cout << path << " = " << xmp->getProperty(schema, path) << '\n';
        return 0;
    } catch (Error const& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
