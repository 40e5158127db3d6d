// SPDX-License-Identifier: Apache-2.0
// libexempi's XMPFiles on the same files. It brings the Exif data into the XMP; asking for the XMP alone changes
// neither its answers nor its times.

#include "Workload.h"

#include <exempi/xmp.h>

#include <memory>
#include <stdexcept>

namespace {

std::string valueOf(XmpPtr xmp, XmpStringPtr value, char const* schema, std::string const& path) {
    return xmp_get_property(xmp, schema, path.c_str(), value, nullptr) ? xmp_string_cstr(value) : "";
}

std::string parse(std::string const& path) {
    std::unique_ptr<_XmpFile, bool (*)(XmpFilePtr)> const file(xmp_files_open_new(path.c_str(), XMP_OPEN_READ),
                                                               xmp_files_free);
    if (!file)
        throw std::runtime_error("fail to open, error " + std::to_string(xmp_get_error()));
    std::unique_ptr<_Xmp, bool (*)(XmpPtr)> const xmp(xmp_new_empty(), xmp_free);
    std::unique_ptr<_XmpString, void (*)(XmpStringPtr)> const value(xmp_string_new(), xmp_string_free);
    xmp_files_get_xmp(file.get(), xmp.get()); // false when there is none: the questions then have no answers
    auto answers = workload::ask(
        [&](workload::Property const& each) { return valueOf(xmp.get(), value.get(), each.schema, each.name); },
        [&](int place, char const* field) {
            return valueOf(xmp.get(), value.get(), workload::CONTAINER, workload::fieldPath(place, field));
        });
    xmp_files_close(file.get(), XMP_CLOSE_NOOPTION);
    return answers;
}

} // namespace

int main(int argc, char** argv) {
    xmp_init();
    for (auto const& [schema, prefix] : workload::NAMESPACES)
        xmp_register_namespace(schema, prefix, nullptr);
    benchmark::Initialize(&argc, argv);
    for (int i = 1; i < argc; ++i)
        workload::add("exempi", argv[i], parse);
    benchmark::RunSpecifiedBenchmarks();
    xmp_terminate();
}
