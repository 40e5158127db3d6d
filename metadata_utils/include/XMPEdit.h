// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MediaDefs.h"
#include "XMPInfo.h"

namespace android::lumo {

/// The editor of an XMP view: changes the view's packet in memory and writes it back on commit.
///
/// Change operations return the editor, for chaining, and mark it dirty. Discarding an editor does not undo its changes
/// in memory. Editors of one view are not used at the same time; only the dirty flag is atomic.
class METADATA_UTILS_EXPORT XMPEdit : public XMPInfo {
public:
    /// Sets a simple property; text that is not UTF-8, or has a control character that XML cannot carry, throws
    /// XMPError before anything changes. setItem() refuses it alike.
    virtual XMPEdit& setProperty(std::string const& schemaNS, std::string const& path, std::string const& value) = 0;
    /// Appends a directory item with "Mime" and "Semantic"; an item of that name stays as it is.
    virtual XMPEdit& setItem(std::string const& itemName, MediaDefs::MimeType mime) = 0;
    /// An unknown item throws "no such item(%s) exist, add item first w/ addItem"; a field that the toolkit refuses is
    /// logged ("err: %s") and stays as it is.
    virtual XMPEdit& setItemField(std::string const& itemName, std::string const& fieldName,
                                  std::string const& value) = 0;
    /// Takes over another view's properties and items. With skip_existing what is here already (in any letter case)
    /// stays; otherwise it is overwritten.
    virtual XMPEdit& putAll(std::shared_ptr<XMPInfo> const& source, std::filesystem::copy_options options) = 0;
    /// Takes a property out with all below it; an absent one is left alone.
    virtual XMPEdit& removeProperty(std::string const& schemaNS, std::string const& name) = 0;
    /// An unknown item is left alone by the three below.
    virtual XMPEdit& removeItemField(std::string const& itemName, std::string const& fieldName) = 0;
    /// Takes the item out of the directory; the places of others stay as XMPInfo::getItemNameAt says.
    virtual XMPEdit& removeItem(std::string const& itemName) = 0;
    /// Every item, then every property of the four registered namespaces; a property of another namespace makes it
    /// throw XMPError.
    virtual XMPEdit& removeAll() = 0;
    /// Sets a field of an item that is there.
    virtual XMPEdit& replaceItemField(std::string const& itemName, std::string const& fieldName,
                                      std::string const& value) = 0;
    /// Whether something was changed that no commit has written.
    virtual bool isDirty() const = 0;
    /// Writes the packet into the file in place, moving what stands behind it when the room is too small; see
    /// ImageMetaWriter::writeXMP for the states a failure may leave. A failure leaves the editor dirty and everything
    /// staged: called again it writes the same packet, or throws. A file whose XMP somebody else has changed since it
    /// was read is refused unchanged (Error of CHANGED); what another editor of the same view wrote is no such change.
    virtual void commit() = 0;
    /// Writes into another file from now on: an empty one gets a full copy of the source first, any other of the same
    /// type only has its own XMP replaced. What was staged stays for further targets. Another handle of the source
    /// counts as the source.
    virtual void commit(std::shared_ptr<MediaFile> const& target) = 0;
};

} // namespace android::lumo
