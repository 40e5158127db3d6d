// SPDX-License-Identifier: Apache-2.0
#include "ErrorAt.h"

#include "MediaFile.h"

#include <cstdarg>
#include <cstdio>
#include <new>
#include <string>
#include <string_view>

namespace android::lumo {

namespace {

/// The source path under the project's root, without its extension. The build maps the root away from __FILE__; a path
/// that is still absolute (a header compiled by a client) is cut at the library's folder.
std::string sourceName(std::string_view path) {
    while (path.starts_with("../")) // a compiler cache names sources relative to the build folder
        path.remove_prefix(3);
    if (path.starts_with('/')) {
        if (auto folder = path.rfind("metadata_utils/"); folder != std::string_view::npos)
            path.remove_prefix(folder);
    }
    if (auto dot = path.rfind('.'); dot != std::string_view::npos && path.find('/', dot) == std::string_view::npos)
        path = path.substr(0, dot);
    return std::string(path);
}

std::string formatted(char const* format, va_list args) {
    va_list measured;
    va_copy(measured, args);
    int const length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string text(length > 0 ? static_cast<size_t>(length) : 0, '\0');
    if (length > 0)
        std::vsnprintf(text.data(), text.size() + 1, format, args);
    return text;
}

} // namespace

Error::Error(Code code, std::string const& text, std::string const& path)
    : std::runtime_error(text), reason(code), culprit(path) {}

Error::~Error() = default;

ErrorAt ErrorAt::as(Error::Code errorCode) const {
    ErrorAt changed = *this;
    changed.code = errorCode;
    return changed;
}

ErrorAt ErrorAt::as(Error::Code errorCode, MediaFile const& blamed) const {
    ErrorAt changed = as(errorCode);
    changed.culprit = &blamed;
    return changed;
}

Error ErrorAt::operator()(char const* format, ...) const {
    va_list args;
    va_start(args, format);
    std::string const message = formatted(format, args);
    va_end(args);
    // Appended piece by piece: g++ 12 raises a false alarm over a chain of + at full optimisation.
    std::string text = "[";
    text.append(sourceName(file)).append(":").append(std::to_string(line)).append("] ").append(message);
    return Error(code, text, culprit != nullptr ? culprit->getPath() : std::string());
}

void rethrowUnlessDamage() {
    try {
        throw;
    } catch (std::bad_alloc const&) {
        throw;
    } catch (Error const& error) {
        if (error.code() == Error::Code::READ_FAILED)
            throw;
    } catch (...) {
        // The handler that called looks at it.
    }
}

} // namespace android::lumo
