// SPDX-License-Identifier: Apache-2.0
// What stands behind a handle of the interface for other languages, and the border that no exception crosses.
#pragma once

#include "metadata_utils.h"

#include "Error.h"
#include "ErrorAt.h"
#include "MediaFile.h"
#include "MotionVideo.h"
#include "QRTInfo.h"
#include "XMPEdit.h"

#include <exception>
#include <functional>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <vector>

namespace android::lumo::handles {

using File = std::shared_ptr<MediaFile>;
/// One step of a commit.
struct Edit {
    /// Edits `photo` in place, or writes the edited photo into `output`.
    std::function<void(File const& photo, File const& output)> carryOut;
    /// For changes of the packet: the ones this step makes, in one commit. Another one joins them.
    std::shared_ptr<std::vector<std::function<void(XMPEdit& packet)>>> changes = {};
    /// The clip that goes in: it can be no output.
    File clip = {};
};

struct Property {
    std::string schema, path, value;
};

struct Item {
    std::string semantic, mime, length, padding;
};

/// What a photo says, read once after it was opened or written.
struct Contents {
    std::shared_ptr<QRTInfo> trailer;
    std::shared_ptr<XMPInfo> xmp;
    std::vector<Property> properties;
    std::vector<Item> items;
    std::vector<QRTDataInfo> records;

    explicit Contents(File const& file);
};

/// Remembers what went wrong for this thread, and answers `code`.
int fail(int code, char const* text) noexcept;
char const* lastText() noexcept;
int lastCode() noexcept;

/// Nothing that is thrown crosses the border.
template<class Action>
int guarded(Action const& action) noexcept {
    try {
        action();
        return MU_OK;
    } catch (Error const& error) {
        return fail(static_cast<int>(error.code()), error.what());
    } catch (std::bad_alloc const&) {
        return fail(MU_NO_MEMORY, "not enough memory");
    } catch (std::exception const& error) {
        return fail(MU_INTERNAL, error.what());
    } catch (...) {
        return fail(MU_INTERNAL, "an error of no known kind");
    }
}

inline void require(bool condition, char const* expectation) {
    if (!condition)
        throw ErrorAt()("%s", expectation);
}

inline char const* given(char const* text) {
    require(text != nullptr, "no text given");
    return text;
}

/// A file to write into. That it cannot be opened is no failed read.
File outputAt(char const* path);

template<class T>
T& out(T* pointer) {
    require(pointer != nullptr, "no place for the answer given");
    return *pointer;
}

} // namespace android::lumo::handles

struct mu_photo {
    android::lumo::handles::File file;
    std::optional<android::lumo::handles::Contents> contents;
    std::vector<android::lumo::handles::Edit> staged;
    android::lumo::MotionVideo video; ///< of the last answer, whose texts were handed out
    std::string answer;               ///< likewise
    std::string mimeType;

    android::lumo::handles::Contents& read() {
        if (!contents)
            contents.emplace(file);
        return *contents;
    }
};

namespace android::lumo::handles {

inline mu_photo& of(mu_photo* photo) {
    require(photo != nullptr, "no photo given");
    return *photo;
}

} // namespace android::lumo::handles
