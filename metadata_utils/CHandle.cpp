// SPDX-License-Identifier: Apache-2.0
#include "CHandle.h"

#include "XMPInfoImpl.h"

namespace android::lumo::handles {

namespace {

thread_local std::string text;
thread_local int code = MU_OK;

} // namespace

int fail(int failed, char const* what) noexcept {
    code = failed;
    try {
        text = what;
    } catch (...) {
        text.clear(); // no memory for the text
    }
    return failed;
}

char const* lastText() noexcept {
    return text.c_str();
}

int lastCode() noexcept {
    return code;
}

File outputAt(char const* path) {
    try {
        return std::make_shared<MediaFile>(given(path), "rw");
    } catch (Error const& error) {
        if (error.code() != Error::Code::READ_FAILED)
            throw;
        throw Error(Error::Code::WRITE_FAILED, error.what(), error.path());
    }
}

Contents::Contents(File const& file) : trailer(QRTInfo::parse(file)), xmp(XMPInfo::parse(file)) {
    records = trailer->getRecords();
    for (auto const& [schema, path] : xmp->getProperties())
        properties.push_back({schema, path, xmp->getProperty(schema, path)});
    auto const field = [this](auto const& name, char const* which) { return xmp->getItemField(name, which); };
    for (auto const& name : XMPInfoImpl::of(*xmp)->getDirectory().namesInOrder())
        items.push_back({name, field(name, "Mime"), field(name, "Length"), field(name, "Padding")});
}

} // namespace android::lumo::handles
