// SPDX-License-Identifier: Apache-2.0
// add STILL CLIP OUT: a motion photo in a new file; the still is only read.
#include <metadata_utils/Error.h>
#include <metadata_utils/PublishedPhoto.h>

#include <filesystem>
#include <fstream>
#include <iostream>

using namespace android::lumo;

int main(int argc, char** argv) {
    if (argc < 4)
        return 2;
    try {
        std::ofstream(argv[3], std::ios::app).flush(); // MediaFile opens what is there
        auto const still = std::make_shared<MediaFile>(argv[1], "r");
        auto const clip = std::make_shared<MediaFile>(argv[2], "r");
        auto const out = std::make_shared<MediaFile>(argv[3], "rw");
        if (out->size() != 0) {
            std::cerr << argv[3] << " is there already\n";
            return 2;
        }
        auto const taken = published::addVideo(still, clip, {}, out);
        if (taken.isBrandChanged)
            std::cout << "the clip's brand " << taken.brand << " became mp42 in the photo\n";
        return 0;
    } catch (Error const& error) {
        if (std::error_code none; std::filesystem::file_size(argv[3], none) == 0)
            std::filesystem::remove(argv[3], none); // so that it can be tried again
        std::cerr << error.what() << '\n';
        return 1;
    }
}
