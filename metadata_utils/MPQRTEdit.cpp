#include "MPQRTEdit.h"

#include "ErrorAt.h"

namespace android::lumo {

MPQRTEdit::MPQRTEdit(std::shared_ptr<QRTEdit> const& editor, std::function<void(MPQRTEdit*)> const& report)
    : wrapped(editor), trailer(std::dynamic_pointer_cast<QRTEditImpl>(editor)), onCommitted(report) {
    if (trailer == nullptr)
        throw ErrorAt()("the trailer editor of a motion photo must be the library's own");
}

// Queries. ------------------------------------------------------------------------------------------------------------

int MPQRTEdit::getVersion() const {
    return wrapped->getVersion();
}

int MPQRTEdit::getDataCount() const {
    return wrapped->getDataCount();
}

int MPQRTEdit::getSize() const {
    return wrapped->getSize();
}

std::list<std::string> MPQRTEdit::getKeys() const {
    return wrapped->getKeys();
}

std::list<std::pair<std::string, int>> MPQRTEdit::getKeysWithType() const {
    return wrapped->getKeysWithType();
}

bool MPQRTEdit::containsKey(std::string const& name, bool ignoreCase) const {
    return wrapped->containsKey(name, ignoreCase);
}

bool MPQRTEdit::containsType(int type) const {
    return wrapped->containsType(type);
}

ByteBuffer MPQRTEdit::getData(int type) {
    return wrapped->getData(type);
}

ByteBuffer MPQRTEdit::getData(std::string const& name) {
    return wrapped->getData(name);
}

ByteBuffer MPQRTEdit::getData(int type, std::string const& name) {
    return wrapped->getData(type, name);
}

std::list<ByteBuffer> MPQRTEdit::getAllData(int type) {
    return wrapped->getAllData(type);
}

int MPQRTEdit::getPrimaryType() const {
    return wrapped->getPrimaryType();
}

std::pair<uint32_t, uint32_t> MPQRTEdit::getDataPositionLength(int type) const {
    return wrapped->getDataPositionLength(type);
}

std::pair<uint32_t, uint32_t> MPQRTEdit::getDataPositionLength(std::string const& name) const {
    return wrapped->getDataPositionLength(name);
}

std::pair<uint32_t, uint32_t> MPQRTEdit::getDataPositionLength(int type, std::string const& name) const {
    return wrapped->getDataPositionLength(type, name);
}

void MPQRTEdit::transferTo(std::shared_ptr<MediaFile> const& target, std::filesystem::copy_options const& options) {
    wrapped->transferTo(target, options);
}

std::shared_ptr<QRTEdit> MPQRTEdit::edit() {
    return wrapped->edit();
}

// Changes; each answers the wrapper, so that a chain ends in its commit.
// --------------------------------------------------

QRTEdit& MPQRTEdit::setOption(Option option) {
    wrapped->setOption(option);
    return *this;
}

QRTEdit& MPQRTEdit::setPrimaryType(int type) {
    wrapped->setPrimaryType(type);
    return *this;
}

QRTEdit& MPQRTEdit::putData(int type, ByteBuffer const& data) {
    wrapped->putData(type, data);
    return *this;
}

QRTEdit& MPQRTEdit::putData(int type, ByteBuffer&& data) {
    wrapped->putData(type, std::move(data));
    return *this;
}

QRTEdit& MPQRTEdit::putData(std::string const& name, ByteBuffer&& data) {
    wrapped->putData(name, std::move(data));
    return *this;
}

QRTEdit& MPQRTEdit::putData(std::string const& name, ByteBuffer const& data) {
    wrapped->putData(name, data);
    return *this;
}

QRTEdit& MPQRTEdit::putData(int type, std::string const& name, ByteBuffer const& data) {
    wrapped->putData(type, name, data);
    return *this;
}

QRTEdit& MPQRTEdit::putData(int type, std::string const& name, ByteBuffer&& data) {
    wrapped->putData(type, name, std::move(data));
    return *this;
}

QRTEdit& MPQRTEdit::putData(int type, std::string const& name, std::shared_ptr<MediaFile> const& file) {
    wrapped->putData(type, name, file);
    return *this;
}

QRTEdit& MPQRTEdit::putAll(std::shared_ptr<QRTInfo> const& source, std::filesystem::copy_options const& options) {
    wrapped->putAll(source, options);
    return *this;
}

QRTEdit& MPQRTEdit::removeData(int type) {
    wrapped->removeData(type);
    return *this;
}

QRTEdit& MPQRTEdit::removeData(std::string const& name) {
    wrapped->removeData(name);
    return *this;
}

QRTEdit& MPQRTEdit::removeData(int type, std::string const& name) {
    wrapped->removeData(type, name);
    return *this;
}

void MPQRTEdit::makeDirty() {
    wrapped->makeDirty();
}

void MPQRTEdit::cleanDirty() {
    wrapped->cleanDirty();
}

bool MPQRTEdit::isDirty() const {
    return wrapped->isDirty();
}

void MPQRTEdit::commit() {
    if (isCutWhenEmpty && trailer->getRecordList().empty())
        trailer->cutTrailer();
    wrapped->commit();
    onCommitted(this);
}

/// The target is made the output before anything is cut: the source keeps its trailer.
void MPQRTEdit::commit(std::shared_ptr<MediaFile> const& target) {
    wrapped->commit(target);
    if (isCutWhenEmpty && trailer->getRecordList().empty())
        trailer->cutTrailer();
    onCommitted(this);
}

} // namespace android::lumo
