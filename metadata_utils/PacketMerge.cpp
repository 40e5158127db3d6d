// SPDX-License-Identifier: Apache-2.0
#include "PacketMerge.h"

#include "VideoFields.h"

#include <algorithm>
#include <iterator>
#include <set>

namespace android::lumo::packets {

namespace {

ItemFields fieldsOf(XMPInfo const& info, std::string const& item) {
    ItemFields fields;
    for (auto const& name : info.getItemFieldNames(item))
        fields[name] = info.getItemField(item, name);
    return fields;
}

/// The top-level properties, whatever they hold, in which two packets differ, and all of the motion if asked for. The
/// directory is compared by its items.
std::set<Property> changedRoots(XMPPacket const& before, XMPPacket const& after, bool withMotion) {
    auto const listed = [](XMPPacket const& packet) {
        auto const all = packet.properties();
        return std::set<Property>(all.begin(), all.end());
    };
    auto const old = listed(before), now = listed(after);
    std::set<Property> roots;
    std::set_symmetric_difference(old.begin(), old.end(), now.begin(), now.end(), std::inserter(roots, roots.end()));
    for (auto const& [schema, name] : now) {
        bool const isMotion = withMotion && schema == xmp_ns::CAMERA;
        if (isMotion || (old.contains({schema, name}) && before.textOf(schema, name) != after.textOf(schema, name)))
            roots.emplace(schema, name);
    }
    std::erase_if(roots, [](Property const& root) { return root.first == xmp_ns::CONTAINER; });
    return roots;
}

} // namespace

std::map<std::string, ItemFields> itemsOf(XMPInfo const& info) {
    std::map<std::string, ItemFields> items;
    for (auto const& name : info.getItemNames())
        items[name] = fieldsOf(info, name);
    return items;
}

/// Makes the item's fields exactly these; an item that is not there is added with its "Mime".
void setFields(XMPEdit& edit, std::string const& item, ItemFields const& fields) {
    auto const mime = fields.find("Mime");
    edit.setItem(item, mime == fields.end() ? MediaDefs::MimeType::NONE : MediaDefs::mimeTypeOf(mime->second));
    for (auto const& name : edit.getItemFieldNames(item)) {
        if (name != "Semantic" && !fields.contains(name))
            edit.removeItemField(item, name);
    }
    for (auto const& [name, value] : fields) {
        if (name != "Semantic" && !value.empty() && edit.getItemField(item, name) != value)
            edit.setItemField(item, name, value);
    }
}

void merge(XMPInfo const& before, XMPInfo const& after, XMPEdit& into, bool withMotion) {
    auto const target = XMPInfoImpl::of(into)->getMeta();
    auto const& edited = *XMPInfoImpl::of(after)->getMeta();
    for (auto const& [schema, root] : changedRoots(*XMPInfoImpl::of(before)->getMeta(), edited, withMotion)) {
        into.removeProperty(schema, root);
        if (edited.has(schema, root))
            target->copy(edited, schema, root);
    }
    auto const itemsBefore = itemsOf(before);
    auto const itemsAfter = itemsOf(after);
    for (auto const& [name, fields] : itemsAfter) {
        auto const old = itemsBefore.find(name);
        if ((withMotion && name == VideoFields::ITEM) || old == itemsBefore.end() || old->second != fields)
            setFields(into, name, fields);
    }
    for (auto const& [name, fields] : itemsBefore) {
        if (!itemsAfter.contains(name))
            into.removeItem(name);
    }
}

} // namespace android::lumo::packets
