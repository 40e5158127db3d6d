// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "QRTInfo.h"

namespace android::lumo {

/// The trailer's editor: stages records over a copy of a view's and rewrites the whole trailer behind the image.
///
/// The read operations inherited from QRTInfo describe the trailer as last loaded or committed, not what is staged.
/// Put and remove operations do not mark the editor dirty; whoever stages for somebody else does. They return the
/// editor, for chaining. One thread at a time; only the dirty flag is atomic.
class METADATA_UTILS_EXPORT QRTEdit : public QRTInfo {
public:
    /// In which order records are written; every reader finds them in either.
    enum class Option : int32_t {
        WRITE_IN_ORDER = 0, ///< records lie on disk in the editor's order
        WRITE_FAST = 1,     ///< file-backed records first, all others and the tail in one write
    };

    /// For the commits from now on; WRITE_IN_ORDER before it is called.
    virtual QRTEdit& setOption(Option option) = 0;
    /// The first record of this type becomes the last of the directory at commit; 0 for none.
    virtual QRTEdit& setPrimaryType(int type) = 0;
    /// Replaces the data of the first record of that type; throws without one.
    virtual QRTEdit& putData(int type, ByteBuffer const& data) = 0;
    /// The same, taking the data over.
    virtual QRTEdit& putData(int type, ByteBuffer&& data) = 0;
    /// The same by name.
    virtual QRTEdit& putData(std::string const& name, ByteBuffer&& data) = 0;
    /// Not provided: throws "implement here". Instead the form that takes the data over.
    virtual QRTEdit& putData(std::string const& name, ByteBuffer const& data) = 0;
    /// Replaces the data of the record that matches both, or appends a new record.
    virtual QRTEdit& putData(int type, std::string const& name, ByteBuffer const& data) = 0;
    /// The same, taking the data over.
    virtual QRTEdit& putData(int type, std::string const& name, ByteBuffer&& data) = 0;
    /// The data is the file's whole content, copied at commit; the file must not change until then.
    virtual QRTEdit& putData(int type, std::string const& name, std::shared_ptr<MediaFile> const& file) = 0;
    /// Every record of another view except "3DPhoto_Info"; with skip_existing those whose name is here already are left
    /// out. Two that share type and name throw: only one of them could be put.
    virtual QRTEdit& putAll(std::shared_ptr<QRTInfo> const& source, std::filesystem::copy_options const& options) = 0;
    /// Every record of the type.
    virtual QRTEdit& removeData(int type) = 0;
    /// Only the first record that matches.
    virtual QRTEdit& removeData(std::string const& name) = 0;
    /// Only the first record that matches both.
    virtual QRTEdit& removeData(int type, std::string const& name) = 0;
    /// Marks the editor as one that has something to write.
    virtual void makeDirty() = 0;
    /// Takes the mark away; what is staged stays.
    virtual void cleanDirty() = 0;
    /// Whether it is marked; a commit takes the mark away.
    virtual bool isDirty() const = 0;
    /// Rewrites the trailer in place, from the image's end on, and cuts the file behind it. Without records it leaves
    /// the file as it is. Everything that can be foreseen is refused before the first write (Error of CHANGED when the
    /// trailer is no longer the one that was read, NO_SPACE, TOO_BIG); a write that fails later throws and leaves the
    /// image whole and the trailer partly written. After it the view describes the new trailer.
    virtual void commit() = 0;
    /// Copies the whole source to offset 0 of `target`, cuts a longer target, and writes the trailer there. The source
    /// and its view stay as they are.
    virtual void commit(std::shared_ptr<MediaFile> const& target) = 0;

    /// The text's bytes as the data.
    QRTEdit& putData(int type, std::string const& name, std::string const& value);
};

} // namespace android::lumo
