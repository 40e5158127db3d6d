// SPDX-License-Identifier: Apache-2.0
#include "VideoClaims.h"

#include "XMPInfo.h"

#include <algorithm>
#include <charconv>
#include <string_view>

namespace android::lumo::claims {

namespace {

namespace names = motion_names;

struct Generation {
    char const* containerNS;
    char const* itemNS;
};

constexpr Generation GENERATIONS[] = {
    {xmp_ns::CONTAINER, xmp_ns::ITEM},
    {"http://ns.google.com/photos/dd/1.0/container/", "http://ns.google.com/photos/dd/1.0/item/"},
};

/// The prefix ("Item:") a namespace has in this process; empty for one that no packet has used yet.
std::string prefixOf(char const* uri) {
    return XMPPacket::prefixOf(uri);
}

std::string propertyOf(XMPPacket const& packet, char const* name) {
    return packet.get(xmp_ns::CAMERA, name).value_or("");
}

/// Takes the fields of the struct at a path into the item; false where no struct stands. `prefix` is the one of the
/// item's fields.
bool takeFields(XMPPacket const& packet, std::string const& path, std::string const& prefix, Item& item) {
    return packet.visitFields(item.containerNS, path,
                              [&](std::string_view name, std::string const& value, XMP_OptionBits) {
                                  if (!name.starts_with(prefix))
                                      return;
                                  name.remove_prefix(prefix.size());
                                  if (name == "Semantic")
                                      item.semantic = value;
                                  else if (name == "Mime")
                                      item.mime = value;
                                  else if (name == names::LENGTH)
                                      item.lengthText = value;
                                  else if (name == names::PADDING)
                                      item.paddingText = value;
                              });
}

/// The entry at a place; one that is neither form has no semantic.
Item itemAt(XMPPacket const& packet, Generation const& generation, std::string const& prefix,
            std::string const& fieldPrefix, int32_t place) {
    Item item{generation.containerNS,
              prefix + "Directory[" + std::to_string(place) + "]",
              generation.itemNS,
              place,
              true,
              {},
              {},
              {},
              {},
              0,
              0};
    auto nested = item.structPath + "/" + prefix + "Item";
    if (takeFields(packet, nested, fieldPrefix, item)) {
        item.structPath = std::move(nested);
        item.isTypedNode = false;
    } else {
        takeFields(packet, item.structPath, fieldPrefix, item);
    }
    item.length = parseNumber(item.lengthText).value_or(0);
    item.padding = parseNumber(item.paddingText).value_or(0);
    return item;
}

std::vector<Item> directoryOf(XMPPacket const& packet, Generation const& generation) {
    std::vector<Item> items;
    auto const prefix = prefixOf(generation.containerNS), fieldPrefix = prefixOf(generation.itemNS);
    if (prefix.empty() || fieldPrefix.empty())
        return items;
    try {
        auto const count = packet.count(generation.containerNS, prefix + names::DIRECTORY);
        for (int32_t place = 1; place <= count; ++place)
            items.push_back(itemAt(packet, generation, prefix, fieldPrefix, place));
    } catch (Error const&) {
        items.clear(); // a directory that is no array names no item
    }
    return items;
}

/// In front of every file's start: a greater number is nobody's distance. No sum of such overflows.
constexpr uint64_t ENOUGH = uint64_t{1} << 40;

using Fields = std::vector<std::pair<std::string, std::string>>;

/// Prefixed names and values of an entry's fields; nothing where there are none, or more than simple ones.
Fields fieldsOf(XMPPacket const& packet, Item const& item) {
    Fields fields;
    bool isSimple = true;
    packet.visitLeaves(item.containerNS, item.structPath, [&](std::string const&, std::string const& path) {
        auto const name = path.substr(std::min(path.size(), item.structPath.size() + 1));
        isSimple = isSimple && !name.empty() && name.find_first_of("[/") == std::string::npos;
        fields.emplace_back(name, packet.get(item.containerNS, path).value_or(""));
    });
    return isSimple ? fields : Fields();
}

/// The same entry with its fields in a struct "Container:Item".
void nest(XMPPacket& packet, Item const& item, std::string const& prefix, int32_t count) {
    auto const fields = fieldsOf(packet, item);
    if (fields.empty())
        return;
    auto const directory = prefix + names::DIRECTORY;
    packet.removeEntry(item.containerNS, directory, item.place);
    if (item.place < count)
        packet.insertStruct(item.containerNS, directory, item.place);
    else
        packet.appendStruct(item.containerNS, directory);
    for (auto const& [name, value] : fields)
        packet.set(item.containerNS, item.structPath + "/" + prefix + "Item/" + name, value);
}

} // namespace

Item const* Claims::video() const {
    auto const found = std::find_if(items.begin(), items.end(), [](Item const& item) { return item.isVideo(); });
    return found == items.end() ? nullptr : &*found;
}

Item const* Claims::primary() const {
    auto const found = std::find_if(items.begin(), items.end(), [](Item const& item) { return item.isPrimary(); });
    return found == items.end() ? nullptr : &*found;
}

Item const* Claims::inFrontOfVideo() const {
    auto const* behind = video();
    auto const found = std::find_if(items.begin(), items.end(), [&](Item const& item) {
        return behind != nullptr && item.place + 1 == behind->place && !item.isPrimary();
    });
    return found == items.end() ? nullptr : &*found;
}

uint64_t Claims::distanceFromEnd(Item const& item) const {
    uint64_t distance = 0;
    for (auto const& each : items) {
        if (each.place >= item.place)
            distance = std::min(ENOUGH, distance + std::min(ENOUGH, each.length) + std::min(ENOUGH, each.padding));
    }
    return distance;
}

std::vector<uint64_t> Claims::distances() const {
    std::vector<uint64_t> found;
    if (auto const* item = video(); item != nullptr && item->length > 0 && motionPhoto != "0")
        found.push_back(distanceFromEnd(*item));
    if (auto const offset = parseNumber(microVideoOffset);
        offset && *offset > 0 && *offset < ENOUGH && microVideo == "1")
        found.push_back(*offset);
    return found;
}

std::optional<int64_t> Claims::momentUs() const {
    for (auto const* text : {&timestamp, &microVideoTimestamp}) {
        if (auto const number = parseNumber(*text); number && *number <= INT64_MAX)
            return static_cast<int64_t>(*number);
    }
    return std::nullopt;
}

bool Claims::any() const {
    return video() != nullptr || !motionPhoto.empty() || !motionPhotoVersion.empty() || !timestamp.empty() ||
           !microVideo.empty() || !microVideoOffset.empty() || !microVideoTimestamp.empty();
}

Claims read(XMPPacket const& packet) {
    Claims found;
    found.motionPhoto = propertyOf(packet, names::MOTION_PHOTO);
    found.motionPhotoVersion = propertyOf(packet, names::VERSION);
    found.timestamp = propertyOf(packet, names::TIMESTAMP);
    found.microVideo = propertyOf(packet, names::MICRO_VIDEO);
    found.microVideoOffset = propertyOf(packet, names::MICRO_VIDEO_OFFSET);
    found.microVideoTimestamp = propertyOf(packet, names::MICRO_VIDEO_TIMESTAMP);
    for (auto const& generation : GENERATIONS) {
        if (found.items.empty())
            found.items = directoryOf(packet, generation);
    }
    return found;
}

void nestTypedNodes(XMPPacket& packet) {
    for (auto const& generation : GENERATIONS) {
        auto const items = directoryOf(packet, generation);
        for (auto const& item : items) {
            if (item.isTypedNode && !item.semantic.empty())
                nest(packet, item, prefixOf(generation.containerNS), static_cast<int32_t>(items.size()));
        }
    }
}

void putPrimaryFirst(XMPPacket& packet, std::string const& mime) {
    auto const& generation = GENERATIONS[0];
    auto const items = directoryOf(packet, generation);
    auto const primary = std::find_if(items.begin(), items.end(), [](auto const& item) { return item.isPrimary(); });
    auto const prefix = prefixOf(generation.containerNS), fieldPrefix = prefixOf(generation.itemNS);
    bool const isThere = primary != items.end();
    auto const fields = isThere ? fieldsOf(packet, *primary)
                                : Fields{{fieldPrefix + "Mime", mime}, {fieldPrefix + "Semantic", names::PRIMARY}};
    if (items.empty() || fields.empty() || (isThere && primary->place == 1))
        return;
    packet.insertStruct(generation.containerNS, prefix + names::DIRECTORY, 1);
    for (auto const& [name, value] : fields)
        packet.set(generation.containerNS, prefix + names::DIRECTORY + "[1]/" + prefix + "Item/" + name, value);
    if (isThere)
        packet.removeEntry(generation.containerNS, prefix + names::DIRECTORY, primary->place + 1);
}

uint32_t remove(XMPPacket& packet) {
    uint32_t removed = 0;
    auto const take = [&](char const* name) {
        removed += packet.has(xmp_ns::CAMERA, name) ? 1 : 0;
        packet.remove(xmp_ns::CAMERA, name);
    };
    for (auto const* name : names::CURRENT)
        take(name);
    for (auto const* name : names::OLDER)
        take(name);
    for (auto const& generation : GENERATIONS) {
        auto const items = directoryOf(packet, generation);
        auto const directory = prefixOf(generation.containerNS) + names::DIRECTORY;
        // From behind, so that the places in front stay.
        for (auto item = items.rbegin(); item != items.rend(); ++item) {
            if (!item->isVideo())
                continue;
            packet.removeEntry(generation.containerNS, directory, item->place);
            ++removed;
        }
        if (!items.empty() && packet.count(generation.containerNS, directory) == 0)
            packet.remove(generation.containerNS, directory);
    }
    return removed;
}

void removeOlder(XMPPacket& packet) {
    for (auto const* name : names::OLDER)
        packet.remove(xmp_ns::CAMERA, name);
}

void setField(XMPPacket& packet, Item const& item, char const* field, std::string const& value) {
    auto const path = item.structPath + "/" + prefixOf(item.itemNS.c_str()) + field;
    if (value.empty())
        return packet.remove(item.containerNS, path);
    packet.set(item.containerNS, path, value);
}

void followEnd(XMPPacket& packet, int64_t growth) {
    auto const held = read(packet);
    auto const grown = [growth](uint64_t number) {
        return std::to_string(std::max<int64_t>(0, static_cast<int64_t>(number) + growth));
    };
    if (auto const offset = parseNumber(held.microVideoOffset); offset && *offset < ENOUGH)
        packet.set(xmp_ns::CAMERA, names::MICRO_VIDEO_OFFSET, grown(*offset));
    auto const* video = held.video();
    if (video == nullptr || video->length == 0)
        return;
    auto const& last = held.items.back();
    if (last.length > ENOUGH || last.padding > ENOUGH)
        return;
    bool const isInLength =
        last.place == video->place && (last.padding == 0 || static_cast<int64_t>(last.padding) + growth < 0);
    setField(packet, last, isInLength ? names::LENGTH : names::PADDING, grown(isInLength ? last.length : last.padding));
}

std::optional<uint64_t> parseNumber(std::string const& text) {
    uint64_t value = 0;
    auto const [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.empty() || error != std::errc() || end != text.data() + text.size())
        return std::nullopt;
    return value;
}

} // namespace android::lumo::claims
