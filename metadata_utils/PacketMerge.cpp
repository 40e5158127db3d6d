// SPDX-License-Identifier: Apache-2.0
#include "PacketMerge.h"

#include "VideoFields.h"

namespace android::lumo::packets {

namespace {

Fields fieldsOf(XMPInfo const& info, std::string const& item) {
    Fields fields;
    for (auto const& name : info.getItemFieldNames(item))
        fields[name] = info.getItemField(item, name);
    return fields;
}

/// The top-level properties in which two packets differ, and all of the motion if asked for.
std::set<Property> changedRoots(std::map<Property, std::string> const& before,
                                std::map<Property, std::string> const& after, bool withMotion) {
    std::set<Property> roots;
    auto const add = [&](Property const& p) { roots.emplace(p.first, p.second.substr(0, p.second.find('['))); };
    for (auto const& [property, value] : after) {
        auto const old = before.find(property);
        if ((withMotion && property.first == xmp_ns::CAMERA) || old == before.end() || old->second != value)
            add(property);
    }
    for (auto const& [property, value] : before) {
        if (!after.contains(property))
            add(property);
    }
    return roots;
}

} // namespace

std::map<std::string, Fields> itemsOf(XMPInfo const& info) {
    std::map<std::string, Fields> items;
    for (auto const& name : info.getItemNames())
        items[name] = fieldsOf(info, name);
    return items;
}

std::map<Property, std::string> propertiesOf(XMPInfo const& info) {
    std::map<Property, std::string> properties;
    for (auto const& property : info.getProperties())
        properties[property] = info.getProperty(property.first, property.second);
    return properties;
}

/// Makes the item's fields exactly these; an item that is not there is added with its "Mime".
void setFields(XMPEdit& edit, std::string const& item, Fields const& fields) {
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
    for (auto const& [schema, root] : changedRoots(propertiesOf(before), propertiesOf(after), withMotion)) {
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
