// SPDX-License-Identifier: Apache-2.0
// A hostile XMP packet in a JPEG: what the view answers, and that what an editor changes and what it copies from
// another packet is read back from the file, with everything else as it was.
#include "FuzzSupport.h"
#include "XMPEdit.h"
#include "support/JpegBuilder.h"

#include <set>

using namespace android::lumo;
using namespace android::lumo::fuzz;

namespace {

constexpr char TIFF[] = "http://ns.adobe.com/tiff/1.0/";

/// What two views of equal content agree on; properties in any order, since serialising moves them.
std::set<std::string> contentOf(XMPInfo const& view) {
    std::set<std::string> content;
    for (auto const& [schema, path] : view.getProperties())
        content.insert(schema + ' ' + path + '=' + view.getProperty(schema, path));
    for (auto const& name : view.getItemNames()) {
        for (auto const& field : view.getItemFieldNames(name))
            content.insert(name + '/' + field + '=' + view.getItemField(name, field));
    }
    return content;
}

/// As long as no item is removed; one that two entries name stands at the last of them.
bool areItemsAtTheirPlaces(XMPInfo const& view) {
    std::set<std::string> items;
    for (int32_t place = 1; place < 1000 && items.size() < view.getItemNames().size(); ++place) {
        if (auto const name = view.getItemNameAt(place); view.containsItem(name, false))
            items.insert(name);
    }
    return items.size() == view.getItemNames().size();
}

std::string fileOf(std::string_view packet) {
    return test::JpegBuilder().exif().xmp(std::string(packet), 4000).build();
}

void ask(XMPInfo const& view) {
    for (auto const& name : view.getPropertyNames())
        FUZZ_REQUIRE(view.containsProperty(name, true));
    for (auto const& name : view.getItemNames())
        FUZZ_REQUIRE(view.containsItem(name, false));
    view.getLastItem();
    view.dump();
    FUZZ_REQUIRE(view.isEmpty() != view.isNotEmpty());
}

/// Commits and compares a fresh view with the one in memory.
void commitAndCompare(MemoryFile const& file, XMPInfo const& view, XMPEdit& edit) {
    std::string const before = file.bytes();
    if (!goesThrough([&] { edit.commit(); })) {
        FUZZ_REQUIRE(file.bytes() == before);
        return;
    }
    auto const fresh = XMPInfo::parse(file.open());
    FUZZ_REQUIRE(contentOf(*fresh) == contentOf(view));
}

void change(std::string const& original) {
    MemoryFile const file(original);
    auto const view = XMPInfo::parse(file.open());
    auto const properties = view->getProperties();
    auto const edit = view->edit();
    if (!goesThrough([&] {
            edit->setProperty(TIFF, "Make", "maker");
            edit->setItem("Primary", MediaDefs::MimeType::IMAGE_JPEG).setItemField("Primary", "Padding", "0");
            FUZZ_REQUIRE(areItemsAtTheirPlaces(*view));
            edit->removeItem("GainMap");
            if (!properties.empty() && properties.front().first != TIFF)
                edit->removeProperty(properties.front().first, properties.front().second);
        }))
        return;
    FUZZ_REQUIRE(view->getProperty(TIFF, "Make") == "maker" && view->getItemField("Primary", "Padding") == "0");
    FUZZ_REQUIRE(!view->containsItem("GainMap", false));
    commitAndCompare(file, *view, *edit);
}

void copy(std::string const& original, std::filesystem::copy_options options) {
    MemoryFile const source(original);
    MemoryFile const target(fileOf({}));
    auto const from = XMPInfo::parse(source.open());
    auto const to = XMPInfo::parse(target.open());
    auto const edit = to->edit();
    if (goesThrough([&] { edit->putAll(from, options); }))
        commitAndCompare(target, *to, *edit);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(uint8_t const* data, size_t size) {
    if (size > 4000)
        return 0;
    std::string const original = fileOf(text(data, size));
    bool const isRead = goesThrough([&] { ask(*XMPInfo::parse(MemoryFile(original).open())); });
    if (!isRead)
        return 0;
    change(original);
    copy(original, std::filesystem::copy_options::skip_existing);
    copy(original, std::filesystem::copy_options::overwrite_existing);
    return 0;
}
