// SPDX-License-Identifier: Apache-2.0
// edit_trailer PHOTO TYPE NAME TEXT: puts a record into a photo's trailer, in place.
#include <metadata_utils/Error.h>
#include <metadata_utils/MotionPhotoEdit.h>

#include <cstdlib>
#include <iostream>

using namespace android::lumo;

int main(int argc, char** argv) {
    if (argc < 5)
        return 2;
    try {
        auto const file = std::make_shared<MediaFile>(argv[1], "rw");
        auto const photo = MotionPhotoInfo::parse(file);
        std::string const text = argv[4];
        ByteBuffer const data(std::vector<uint8_t>(text.begin(), text.end()));
        int const type = std::atoi(argv[2]);
        if (photo->isValid()) { // the video's length in the XMP counts the records behind it
            auto const edit = photo->edit();
            edit->addQRTData(type, argv[3], data);
            edit->commit();
        } else {
            auto const edit = photo->getQRTInfo()->edit();
            edit->putData(type, argv[3], data);
            edit->commit();
        }
        return 0;
    } catch (Error const& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
