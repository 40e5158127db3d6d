// SPDX-License-Identifier: Apache-2.0
// libexiv2 on the same files. Reading its metadata includes the Exif data, which cannot be left out.

#include "Workload.h"

#include <exiv2/exiv2.hpp>

namespace {

std::string valueOf(Exiv2::XmpData const& data, std::string const& key) {
    auto const found = data.findKey(Exiv2::XmpKey(key));
    return found == data.end() ? std::string() : found->toString();
}

std::string parse(std::string const& path) {
    auto const image = Exiv2::ImageFactory::open(path);
    image->readMetadata();
    auto const& exif = image->exifData();
    benchmark::DoNotOptimize(exif.findKey(Exiv2::ExifKey("Exif.Photo.DateTimeOriginal")) == exif.end());
    auto const& xmp = image->xmpData();
    return workload::ask(
        [&](workload::Property const& each) {
            return valueOf(xmp, std::string("Xmp.") + each.prefix + '.' + each.name);
        },
        [&](int place, char const* field) {
            return valueOf(xmp, "Xmp.Container." + workload::fieldPath(place, field));
        });
}

} // namespace

int main(int argc, char** argv) {
    Exiv2::LogMsg::setLevel(Exiv2::LogMsg::mute);
    Exiv2::XmpParser::initialize();
    for (auto const& [schema, prefix] : workload::NAMESPACES)
        Exiv2::XmpProperties::registerNs(schema, prefix);
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i)
        workload::add("exiv2", argv[i], parse);
    benchmark::RunSpecifiedBenchmarks();
    Exiv2::XmpParser::terminate();
}
