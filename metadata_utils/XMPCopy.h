// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "XMPEdit.h"
#include "XMPInfoImpl.h"

#include <memory>
#include <string>

namespace android::lumo {

/// Takes one view's properties and items over into the packet of an editor of another view.
///
/// Simple values go through the editor; what a value alone does not say (arrays, qualifiers, structured fields of
/// items) is copied whole, as a subtree, once. Copying a packet onto itself changes nothing.
class XMPCopy {
public:
    /// With `skip` what the target has, in any letter case, stays; otherwise it is overwritten.
    XMPCopy(XMPInfoImpl const& from, XMPEdit& to, bool skip);

    void properties();
    /// Every item with every field the packet holds, in directory order.
    void items();
    /// The same with the fields the source remembers, see XMPItemInfo::getFieldsWith("Length", "Padding").
    void itemsAsRemembered();

private:
    void property(std::string const& schema, std::string const& path, std::string const& root);
    void field(std::string const& itemName, XMPInfoImpl::XMPItemInfo& item, std::string const& name);
    void structuredFields(std::string const& itemName, XMPInfoImpl::XMPItemInfo const& item);

    XMPInfoImpl const& source;
    XMPEdit& editor;
    std::shared_ptr<XMPInfoImpl> target;
    bool skipExisting;
};

} // namespace android::lumo
