// SPDX-License-Identifier: Apache-2.0
#include "XMPCopy.h"

#include "Log.h"
#include "Text.h"

#include <unordered_set>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "XMPEditImpl";
constexpr char ITEM_PREFIX[] = "Item:";
constexpr char LENGTH[] = "Length";
constexpr char PADDING[] = "Padding";

/// Says where the rest of the source's own packet stands; in another file it would claim what is not there.
constexpr char EXTENDED_XMP[] = "xmpNote:HasExtendedXMP";

/// What a plain text value cannot express.
constexpr XMP_OptionBits NOT_PLAIN = kXMP_PropCompositeMask | kXMP_PropHasQualifiers | kXMP_PropValueIsURI;

/// The first step of a path: the top-level property of "dc:creator[1]", the field of "Item:Sizes[1]".
std::string firstStep(std::string const& path) {
    return path.substr(0, path.find_first_of("[/"));
}

/// All top-level properties, of any form, lowered.
std::unordered_set<std::string> propertiesLowered(XMPPacket const& packet) {
    std::unordered_set<std::string> names;
    packet.visitLeaves([&](std::string const&, std::string const& path) { names.insert(lowered(firstStep(path))); });
    return names;
}

} // namespace

XMPCopy::XMPCopy(XMPInfoImpl const& from, XMPEdit& to, bool skip)
    : source(from), editor(to), target(XMPInfoImpl::of(to)), skipExisting(skip) {}

void XMPCopy::properties() {
    if (source.getMeta() == target->getMeta())
        return;
    std::unordered_set<std::string> existing;
    if (skipExisting)
        existing = propertiesLowered(*target->getMeta());
    std::unordered_set<std::string> copied;
    for (auto const& [schema, path] : source.getProperties()) {
        auto const root = firstStep(path);
        if (root == EXTENDED_XMP || copied.contains(root))
            continue;
        if (skipExisting && existing.contains(lowered(root))) {
            LOGI("skip already exist property: %s", path.c_str());
            continue;
        }
        property(schema, path, root);
        copied.insert(root);
        existing.insert(lowered(root));
    }
}

void XMPCopy::property(std::string const& schema, std::string const& path, std::string const& root) {
    auto const isPlain = [&](XMPPacket const& packet, std::string* value) {
        XMP_OptionBits form = 0;
        auto const found = packet.get(schema, root, &form);
        if (found && value != nullptr)
            *value = *found;
        return (form & NOT_PLAIN) == 0;
    };
    std::string value;
    if (!isPlain(*source.getMeta(), &value)) {
        target->getMeta()->copy(*source.getMeta(), schema, root);
        return;
    }
    if (!isPlain(*target->getMeta(), nullptr))
        target->getMeta()->remove(schema, root);
    editor.setProperty(schema, path, value);
}

void XMPCopy::items() {
    if (source.getMeta() == target->getMeta())
        return;
    std::unordered_set<std::string> existing;
    for (auto const& entry : target->getDirectory().all())
        existing.insert(lowered(entry.first));
    for (auto const& name : source.getDirectory().namesInOrder()) {
        auto* item = source.getDirectory().find(name);
        if (!item)
            continue;
        if (skipExisting && !existing.insert(lowered(name)).second) {
            LOGI("skip already exist item: %s", name.c_str());
            continue;
        }
        editor.setItem(name, MediaDefs::mimeTypeOf(item->getMime()));
        for (auto const& each : item->getAllFields())
            field(name, *item, each);
        structuredFields(name, *item);
    }
}

void XMPCopy::field(std::string const& itemName, XMPInfoImpl::XMPItemInfo& item, std::string const& name) {
    if (name.find('[') != std::string::npos)
        return; // an array's item goes with the array
    auto const value = item.get(name);
    if (!value.empty())
        editor.setItemField(itemName, name, value);
}

/// Fields that are arrays or structs, and those of other namespaces than "Item".
void XMPCopy::structuredFields(std::string const& itemName, XMPInfoImpl::XMPItemInfo const& item) {
    auto const* copy = target->getDirectory().find(itemName);
    if (!copy)
        return;
    std::string last;
    for (auto const& path : item.getLeafPaths()) {
        auto const step = firstStep(path);
        if (step == last || (step == path && step.starts_with(ITEM_PREFIX)))
            continue;
        target->getMeta()->copy(*source.getMeta(), xmp_ns::CONTAINER, item.getStructPath() + "/" + step,
                                copy->getStructPath() + "/" + step);
        last = step;
    }
}

void XMPCopy::itemsAsRemembered() {
    if (source.getMeta() == target->getMeta())
        return;
    for (auto const& name : source.getDirectory().namesInOrder()) {
        auto* item = source.getDirectory().find(name);
        if (!item)
            continue;
        auto const mime = item->getMime();
        auto const type = MediaDefs::mimeTypeOf(mime);
        auto const isNew = target->getDirectory().find(name) == nullptr;
        editor.setItem(name, type);
        if (isNew && type == MediaDefs::MimeType::NONE)
            editor.setItemField(name, "Mime", mime); // a type this library has no number for keeps its text
        for (auto const& each : item->getFieldsWith(LENGTH, PADDING)) {
            field(name, *item, each);
            if ((each == LENGTH || each == PADDING) && item->get(each).empty())
                editor.setItemField(name, each, ""); // what the target's item had there is not this one's
        }
    }
}

} // namespace android::lumo
