// SPDX-License-Identifier: Apache-2.0
// edit_xmp PHOTO NAMESPACE PATH VALUE: sets an XMP property, in place.
#include <metadata_utils/Error.h>
#include <metadata_utils/XMPEdit.h>

#include <iostream>

using namespace android::lumo;

int main(int argc, char** argv) {
    if (argc < 5)
        return 2;
    try {
        auto const file = std::make_shared<MediaFile>(argv[1], "rw");
        auto const edit = XMPInfo::parse(file)->edit();
        edit->setProperty(argv[2], argv[3], argv[4]);
        edit->commit();
        return 0;
    } catch (Error const& error) {
        std::cerr << error.what() << '\n';
        return 1;
    }
}
