// Taking content over from other photos: everything a motion photo has (addAll), or the image a commit starts from.
#include "CheckedFile.h"
#include "ErrorAt.h"
#include "Log.h"
#include "MotionPhotoEditImpl.h"
#include "io/HEIFMetaReader.h"
#include "io/HEIFMetaWriter.h"
#include "io/VideoPointer.h"

#include <algorithm>
#include <map>
#include <set>

namespace android::lumo {

namespace {

constexpr char LOG_TAG[] = "MotionPhotoEditImpl";
constexpr char PRIMARY_ITEM[] = "Primary";
constexpr char MOTION_PHOTO_ITEM[] = "MotionPhoto";
constexpr char GAIN_MAP_ITEM[] = "GainMap";
constexpr char TIMESTAMP_PROPERTY[] = "MotionPhotoPresentationTimestampUs";

using Fields = std::map<std::string, std::string>;
using Property = std::pair<std::string, std::string>; ///< namespace URI, path

bool skipsExisting(std::filesystem::copy_options options) {
    return (options & std::filesystem::copy_options::skip_existing) != std::filesystem::copy_options::none;
}

Fields fieldsOf(XMPInfo const& info, std::string const& item) {
    Fields fields;
    for (auto const& name : info.getItemFieldNames(item))
        fields[name] = info.getItemField(item, name);
    return fields;
}

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

/// The top-level properties in which two packets differ, and all of the motion.
std::set<Property> changedRoots(std::map<Property, std::string> const& before,
                                std::map<Property, std::string> const& after) {
    std::set<Property> roots;
    auto const add = [&](Property const& p) { roots.emplace(p.first, p.second.substr(0, p.second.find('['))); };
    for (auto const& [property, value] : after) {
        auto const old = before.find(property);
        if (property.first == xmp_ns::CAMERA || old == before.end() || old->second != value)
            add(property);
    }
    for (auto const& [property, value] : before) {
        if (!after.contains(property))
            add(property);
    }
    return roots;
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

/// A staged record that is a name alone.
void allowEmpty(std::vector<QRTDataInfo>& records, QRTDataInfo const& wanted) {
    for (auto& record : records) {
        if (record.type == wanted.type && record.name == wanted.name)
            record.payload = record.size();
    }
}

/// Bytes of a still that are the image: everything in front of its video box and trailer.
uint32_t imageLength(std::shared_ptr<MediaFile> const& still) {
    if (still->mimeType() == MediaDefs::MimeType::IMAGE_HEIC)
        return HEIFMetaReader(still, ParseMode::LAZY).getEndOfImagePosition(true);
    return QRTInfoImpl(still, {}).getImageSize();
}

} // namespace

// Everything of another motion photo. ---------------------------------------------------------------------------------

MotionPhotoEdit& MotionPhotoEditImpl::addAll(std::shared_ptr<MotionPhotoInfo> const& source,
                                             std::filesystem::copy_options const& options) {
    if (source == nullptr)
        throw photoEditError()("no motion photo given");
    bool const hasVideoHere = isVideoStaged || getVideoSize() > 0;
    bool const videoComesAlong = source->getVideoSize() > 0 && !(skipsExisting(options) && hasVideoHere);
    std::shared_ptr<ByteBuffer> const video = videoComesAlong ? source->getVideo() : nullptr;
    copyRecords(*source, options);
    copyPacket(*source, options, videoComesAlong);
    if (videoComesAlong)
        addVideo(video);
    return *this;
}

/// The video and its version record are not copied as records: how they are stored depends on the still they go to.
void MotionPhotoEditImpl::copyRecords(MotionPhotoInfo const& source, std::filesystem::copy_options options) {
    auto const other = QRTInfoImpl::of(*source.getQRTInfo());
    std::set<std::pair<std::string, int>> keys;
    std::vector<QRTDataInfo*> wanted;
    for (auto& record : other->getRecordList()) {
        if (record.type == qrt::TYPE_MOTION_PHOTO_DATA || record.type == qrt::TYPE_MOTION_PHOTO_VERSION ||
            record.name == qrt::NAME_3D_PHOTO_INFO)
            continue;
        if (skipsExisting(options) && qrtEdit->containsKey(record.name, true)) {
            LOGI("skip for key=%s since it already exists!", record.name.c_str());
            continue;
        }
        if (!keys.emplace(record.name, record.type).second) // the second would be put over the first
            throw photoEditError()("two records of type %d have the name %s", record.type, record.name.c_str());
        wanted.push_back(&record);
    }
    for (auto* record : wanted) {
        auto const data = other->getData(*record);
        qrtEdit->putData(record->type, record->name, data);
        if (data.empty()) // on purpose: that is how it stands in the other trailer
            allowEmpty(qrtEdit->impl().getRecordList(), *record);
        qrtEdit->makeDirty();
    }
}

/// Properties come over as the options say. Of the directory only what has its bytes here may be claimed: the still's
/// own items as they were, and the video when it comes along.
void MotionPhotoEditImpl::copyPacket(MotionPhotoInfo const& source, std::filesystem::copy_options options,
                                     bool videoComesAlong) {
    auto const ownItems = itemsOf(*xmpEdit);
    auto const ownProperties = propertiesOf(*xmpEdit);
    auto const ownGainMap = gainMapNames(*xmpEdit);
    auto const ownPacket = impl->getPacket()->getMeta()->clone();
    if (!containsImageDataInXMP())
        fillImageDataInXMP();
    xmpEdit->putAll(source.getXMPInfo(), options);

    for (auto const& name : xmpEdit->getItemNames()) {
        auto const own = ownItems.find(name);
        if (name == MOTION_PHOTO_ITEM && videoComesAlong)
            continue;
        if (own != ownItems.end())
            setFields(*xmpEdit, name, own->second);
        else if (name == PRIMARY_ITEM)
            setFields(*xmpEdit, name, {{"Mime", MediaDefs::mimeString(getImageMimeType())}, {"Padding", "0"}});
        else
            xmpEdit->removeItem(name);
    }
    if (!ownItems.contains(GAIN_MAP_ITEM) && ownGainMap.empty())
        resetXMPOfGainmap();
    else
        restoreGainMap(*ownPacket, ownGainMap);
    if (videoComesAlong)
        return;
    // What is said about the motion stays about the one that is here.
    for (auto const* name : {"MotionPhoto", "MotionPhotoVersion", TIMESTAMP_PROPERTY}) {
        auto const own = ownProperties.find({xmp_ns::CAMERA, std::string("GCamera:") + name});
        if (own == ownProperties.end())
            xmpEdit->removeProperty(xmp_ns::CAMERA, name);
        else
            xmpEdit->setProperty(xmp_ns::CAMERA, name, own->second);
    }
}

/// Takes back the claim of a gain map that this image does not have.
void MotionPhotoEditImpl::resetXMPOfGainmap() {
    removeGainMapProperties();
    xmpEdit->removeItem(GAIN_MAP_ITEM);
}

void MotionPhotoEditImpl::removeGainMapProperties() {
    for (auto const& name : gainMapNames(*xmpEdit))
        xmpEdit->removeProperty(xmp_ns::HDR_GAIN_MAP, name);
}

/// The properties of this image's own gain map as they were: whole, and none of another image's.
void MotionPhotoEditImpl::restoreGainMap(XMPPacket const& own, std::set<std::string> const& names) {
    removeGainMapProperties();
    for (auto const& name : names)
        impl->getPacket()->getMeta()->copy(own, xmp_ns::HDR_GAIN_MAP, name);
}

// A prepared still as the image of the output. ------------------------------------------------------------------------

/// The output becomes the prepared still's image followed by what stands behind the image in the source; the pointer to
/// the video moves with it. The packet in memory becomes the prepared still's, with this photo's motion and edits put
/// in.
void MotionPhotoEditImpl::composeFromOutputSource() {
    auto const still = outputSource;
    if (still->mimeType() != getImageMimeType())
        throw photoEditError()("the prepared still is of another type: %s, expected %s",
                               MediaDefs::mimeString(still->mimeType()).c_str(),
                               MediaDefs::mimeString(getImageMimeType()).c_str());
    auto const prepared = std::make_shared<XMPInfoImpl>(still); // read now: it may refuse the still
    uint32_t const imageSize = imageLength(still);
    uint32_t const from = imageLength(sourceFile);
    uint32_t const appended = sourceFile->size() - from;
    uint32_t const total = checked::sizeOf(uint64_t{imageSize} + appended);

    checked::seek(*outputFile, 0);
    checked::reserve(*outputFile, total);
    checked::copy(still, outputFile, 0, imageSize);
    checked::truncate(*outputFile, imageSize);
    if (isHEIC())
        HEIFMetaWriter::closeLastBox(outputFile);
    checked::seek(*outputFile, imageSize);
    checked::copy(sourceFile, outputFile, from, appended);
    VideoPointerKeeper(outputFile).moved(from, int64_t{imageSize} - int64_t{from});
    adoptPacket(*prepared);
}

/// Edits are what differs between the source's packet as it is on disk and the one in memory; they and the motion go on
/// top of the prepared still's own packet, each property as a whole.
void MotionPhotoEditImpl::adoptPacket(XMPInfoImpl const& prepared) {
    auto const original = std::make_shared<XMPInfoImpl>(sourceFile);
    auto const edited = impl->getPacket()->getMeta()->clone();
    auto const roots = changedRoots(propertiesOf(*original), propertiesOf(*xmpEdit));
    auto const itemsBefore = itemsOf(*original);
    auto const itemsAfter = itemsOf(*xmpEdit);
    impl->getPacket()->adopt(prepared);
    if (!isImageDataXMPRemoved && !containsImageDataInXMP())
        fillImageDataInXMP(); // the directory begins with the image

    for (auto const& [schema, root] : roots) {
        xmpEdit->removeProperty(schema, root);
        if (edited->has(schema, root))
            impl->getPacket()->getMeta()->copy(*edited, schema, root);
    }
    for (auto const& [name, fields] : itemsAfter) {
        auto const old = itemsBefore.find(name);
        if (name == MOTION_PHOTO_ITEM || old == itemsBefore.end() || old->second != fields)
            setFields(*xmpEdit, name, fields);
    }
    for (auto const& [name, fields] : itemsBefore) {
        if (!itemsAfter.contains(name))
            xmpEdit->removeItem(name);
    }
    xmpEdit->makeDirty();
}

} // namespace android::lumo
