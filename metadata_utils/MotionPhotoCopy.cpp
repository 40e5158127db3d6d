// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoCopy.h"

#include "PacketMerge.h"
#include "VideoFields.h"

namespace android::lumo {

namespace {

constexpr char GAIN_MAP_ITEM[] = "GainMap";

/// Top-level names of what a packet says about a gain map.
std::set<std::string> gainMapNames(XMPInfo const& info) {
    std::set<std::string> names;
    for (auto const& [schema, path] : info.getProperties()) {
        if (schema == xmp_ns::HDR_GAIN_MAP)
            names.insert(path.substr(0, path.find('[')));
    }
    return names;
}

} // namespace

void MotionPhotoCopy::records(std::filesystem::copy_options options) {
    auto const other = QRTInfoImpl::of(*source.getQRTInfo());
    auto const isVideos = [](QRTDataInfo const& record) {
        return record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION;
    };
    for (auto const* record : qrtEdit.staging().wantedOf(*other, options, isVideos)) {
        qrtEdit.staging().copy(*other, *record);
        qrtEdit.makeDirty();
    }
}

void MotionPhotoCopy::packet(std::filesystem::copy_options options, bool videoComesAlong, MediaDefs::MimeType mime) {
    VideoFields fields(xmpEdit);
    auto const ownItems = packets::itemsOf(xmpEdit);
    auto const ownClaim = fields.getClaim();
    auto const ownGainMap = gainMapNames(xmpEdit);
    auto const ownPacket = view.getPacket()->getMeta()->clone();
    if (!fields.containsPrimary())
        fields.fillPrimary(mime);
    xmpEdit.putAll(source.getXMPInfo(), options);

    for (auto const& name : xmpEdit.getItemNames()) {
        auto const own = ownItems.find(name);
        if (name == VideoFields::ITEM && videoComesAlong)
            continue;
        if (own != ownItems.end())
            packets::setFields(xmpEdit, name, own->second);
        else if (name == VideoFields::PRIMARY_ITEM)
            packets::setFields(xmpEdit, name, {{"Mime", MediaDefs::mimeString(mime)}, {motion_names::PADDING, "0"}});
        else
            xmpEdit.removeItem(name);
    }
    if (!ownItems.contains(GAIN_MAP_ITEM) && ownGainMap.empty())
        resetXMPOfGainmap();
    else
        restoreGainMap(*ownPacket, ownGainMap);
    if (!videoComesAlong)
        fields.setClaim(ownClaim); // what is said about the motion stays about the one that is here
}

/// Takes back the claim of a gain map that this image does not have.
void MotionPhotoCopy::resetXMPOfGainmap() {
    removeGainMapProperties();
    xmpEdit.removeItem(GAIN_MAP_ITEM);
}

void MotionPhotoCopy::removeGainMapProperties() {
    for (auto const& name : gainMapNames(xmpEdit))
        xmpEdit.removeProperty(xmp_ns::HDR_GAIN_MAP, name);
}

/// The properties of this image's own gain map as they were: whole, and none of another image's.
void MotionPhotoCopy::restoreGainMap(XMPPacket const& own, std::set<std::string> const& names) {
    removeGainMapProperties();
    for (auto const& name : names)
        view.getPacket()->getMeta()->copy(own, xmp_ns::HDR_GAIN_MAP, name);
}

} // namespace android::lumo
