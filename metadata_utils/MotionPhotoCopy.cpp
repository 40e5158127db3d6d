// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoCopy.h"

#include "ErrorAt.h"
#include "Log.h"
#include "PacketMerge.h"
#include "VideoFields.h"

#include <vector>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
constexpr char GAIN_MAP_ITEM[] = "GainMap";

bool skipsExisting(std::filesystem::copy_options options) {
    return (options & std::filesystem::copy_options::skip_existing) != std::filesystem::copy_options::none;
}

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
    std::set<std::pair<std::string, int>> keys;
    std::vector<QRTDataInfo> wanted;
    for (auto const& record : other->getRecordList()) {
        if (record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION ||
            record.name == qrt::NAME_3D_PHOTO_INFO)
            continue;
        if (skipsExisting(options) && qrtEdit.containsKey(record.name, true)) {
            LOGI("skip for key=%s since it already exists!", record.name.c_str());
            continue;
        }
        if (!keys.emplace(record.name, record.type).second) // the second would be put over the first
            throw ErrorAt()("two records of type %d have the name %s", record.type, record.name.c_str());
        wanted.push_back(record);
    }
    for (auto const& record : wanted) {
        qrtEdit.staging().copy(*other, record);
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
