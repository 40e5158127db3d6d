// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "Error.h"
#include "Export.h"
#include "MediaFile.h"

#include <cstdint>
#include <filesystem>
#include <list>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace android::lumo {

class XMPEdit;

/// The XMP packet of a still (ISO 16684-1), parsed: its properties, and the items of the published motion-photo
/// directory "Container:Directory" by their "Item:Semantic" ("Primary", "MotionPhoto", "GainMap").
///
/// Made by parse(); a file without XMP gives an empty view. The view and its editors share one packet in memory: a
/// change made through an editor shows here at once, and reaches the file at the editor's commit. What the toolkit
/// reports is an XMPError (XMPError.h), an Error of code XMP like this library's own refusals. One thread at a time.
class METADATA_UTILS_EXPORT XMPInfo {
public:
    virtual ~XMPInfo();

    /// Throws an Error: of code XMP on a packet that is no XMP, of READ_FAILED when the system refuses a read.
    static std::shared_ptr<XMPInfo> parse(std::shared_ptr<MediaFile> const& file);

    /// Neither properties nor directory items.
    virtual bool isEmpty() const = 0;
    /// The opposite.
    virtual bool isNotEmpty() const = 0;
    /// Whether getPropertyNames() holds the name; with `ignoreCase` ASCII letters are compared lowered.
    virtual bool containsProperty(std::string const& name, bool ignoreCase) const = 0;
    /// The same for getItemNames().
    virtual bool containsItem(std::string const& name, bool ignoreCase) const = 0;
    /// Whether the field is there and not empty.
    virtual bool containsItemField(std::string const& itemName, std::string const& fieldName) const = 0;
    /// Prefixed paths of the simple top-level properties and array items ("GCamera:MotionPhoto", "dc:creator[1]"),
    /// nothing of the directory, in the packet's order.
    virtual std::list<std::string> getPropertyNames() const = 0;
    /// In no particular order; getItemNameAt follows the directory.
    virtual std::list<std::string> getItemNames() const = 0;
    /// Empty when absent.
    virtual std::string getProperty(std::string const& schemaNS, std::string const& path) const = 0;
    /// The field "Item:<fieldName>" of an item ("Mime", "Semantic", "Length", "Padding", ...); empty when absent.
    virtual std::string getItemField(std::string const& itemName, std::string const& fieldName) const = 0;
    /// The item read from, or added at, a 1-based place of the directory; empty when none. The removal of another item
    /// leaves these places as they are until the file is parsed again.
    virtual std::string getItemNameAt(int32_t index) const = 0;
    /// The item that stands last now; empty when there is none. Throws XMPError when the directory is no array.
    virtual std::string getLastItem() const = 0;
    /// The packet in compact form, without packet wrapper and padding. One that could not be read again (a hostile
    /// namespace) throws.
    virtual std::vector<uint8_t> serializeToBuffer() const = 0;
    /// Puts everything of this view into another file's XMP and commits it there; see XMPEdit::putAll and commit.
    virtual void transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options options) = 0;
    /// A new editor over this view's packet, which it keeps.
    virtual std::unique_ptr<XMPEdit> edit() = 0;

    /// (namespace URI, property path) of what getPropertyNames() lists.
    std::list<std::pair<std::string, std::string>> getProperties() const;
    /// The names, without prefix, of all fields the packet holds for an item; empty for an unknown item.
    std::set<std::string> getItemFieldNames(std::string const& itemName) const;
    /// Copies properties and items into another view's packet in memory; nothing is written.
    void copyTo(XMPInfo& target) const;
    /// The toolkit's dump of the packet, for people.
    std::string dump() const;
};

/// Namespaces of the published motion-photo and gain-map formats.
namespace xmp_ns {

/// "GCamera": that there is a video, and the still's moment in it (Motion Photo format 1.0)
inline constexpr char CAMERA[] = "http://ns.google.com/photos/1.0/camera/";
/// "Container": the directory (Dynamic Depth format 1.0)
inline constexpr char CONTAINER[] = "http://ns.google.com/photos/1.0/container/";
/// "Item": the fields of its items
inline constexpr char ITEM[] = "http://ns.google.com/photos/1.0/container/item/";
/// "hdrgm": how a gain map is applied (ISO 21496-1 and its forerunners)
inline constexpr char HDR_GAIN_MAP[] = "http://ns.adobe.com/hdr-gain-map/1.0/";

} // namespace xmp_ns

} // namespace android::lumo
