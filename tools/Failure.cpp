// SPDX-License-Identifier: Apache-2.0
#include "Failure.h"

#include "Photo.h"
#include "Text.h"

#include "Error.h"

#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

namespace motionphoto {

using android::lumo::Error;

namespace {

/// What a file handle over a bare descriptor calls its file; of the tool's only outputs are.
constexpr char NAMELESS[] = "unknown";

bool isFailedWrite(Error const& error, bool inOutput) {
    using enum Error::Code;
    return error.code() == WRITE_FAILED || error.code() == NO_SPACE || (error.code() == READ_FAILED && inOutput);
}

[[noreturn]] void rethrowError(Error const& error, std::string const& input, std::string const& output) {
    bool const inOutput = output != input && (error.path() == NAMELESS || error.path() == output);
    bool const wrote = isFailedWrite(error, inOutput);
    bool const named = !error.path().empty() && error.path() != NAMELESS;
    auto const& subject = named ? error.path() : wrote ? output : input;
    std::string text = error.what();
    if (auto const torn = error.code() == Error::Code::DAMAGED ? tornBoxesOf(input) : ""; !torn.empty())
        text.replace(text.size() - withoutSource(text).size(), std::string::npos, torn);
    if (error.code() == Error::Code::XMP) {
        auto const other = otherTextIn(input);
        text.insert(text.size() - withoutSource(text).size(), other.empty() ? "unusable XMP: " : other);
    }
    throw Failure(wrote ? ExitCode::WRITE_FAILED : ExitCode::BAD_INPUT, subject, text);
}

} // namespace

std::string_view withoutSource(std::string_view text) {
    if (auto const end = text.find("] "); text.starts_with('[') && end != std::string_view::npos) {
        if (auto const colon = text.substr(0, end).rfind(':'); colon != std::string_view::npos)
            return text.substr(end + 2);
    }
    return text;
}

Failure::Failure(ExitCode exitCode, std::string const& subject, std::string const& text)
    : std::runtime_error(text), code(exitCode), about(subject) {}

std::string Failure::sentence(bool withSource) const {
    std::string_view const text = withSource ? std::string_view(what()) : withoutSource(what());
    bool const isNamed = about.empty() || withoutSource(what()).starts_with(about + " "); // by the library
    return escaped(isNamed ? std::string(text) : about + ": " + std::string(text));
}

Failure systemFailure(ExitCode code, std::string const& subject, std::string const& what) {
    return {code, subject, what + ": " + std::strerror(errno)};
}

void rethrowAsFailure(std::string const& input, std::string const& output) {
    try {
        throw;
    } catch (Failure const&) {
        throw;
    } catch (Error const& error) {
        rethrowError(error, input, output);
    } catch (std::bad_alloc const&) {
        throw Failure(ExitCode::BAD_INPUT, input, "not enough memory");
    } catch (std::exception const& error) {
        throw Failure(ExitCode::BAD_INPUT, input, error.what());
    } catch (...) {
        throw Failure(ExitCode::BAD_INPUT, input, "unusable XMP");
    }
}

} // namespace motionphoto
