#include "Failure.h"

#include <XMP_Const.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <new>
#include <string_view>

namespace motionphoto {

namespace {

/// The library's message without the "[source:line] " in front of it.
std::string_view withoutSource(std::string_view text) {
    if (auto const end = text.find("] "); text.starts_with('[') && end != std::string_view::npos) {
        if (auto const colon = text.substr(0, end).rfind(':'); colon != std::string_view::npos)
            return text.substr(end + 2);
    }
    return text;
}

/// The library uses one exception type; only the message tells a disk that failed from an input that is no good.
bool saysWritingFailed(std::string_view text) {
    static constexpr std::array<std::string_view, 4> STARTS = {
        "fail to write ",
        "fail to copy ",
        "fail to reserve ",
        "fail to truncate ",
    };
    auto const message = withoutSource(text);
    return std::any_of(STARTS.begin(), STARTS.end(), [&](auto start) { return message.starts_with(start); });
}

} // namespace

Failure::Failure(ExitCode exitCode, std::string const& subject, std::string const& text)
    : std::runtime_error(text), code(exitCode), about(subject) {}

std::string Failure::sentence(bool withSource) const {
    std::string_view const text = withSource ? std::string_view(what()) : withoutSource(what());
    return about.empty() ? std::string(text) : about + ": " + std::string(text);
}

Failure systemFailure(ExitCode code, std::string const& subject, std::string const& what) {
    return {code, subject, what + ": " + std::strerror(errno)};
}

void rethrowAsFailure(std::string const& input, std::string const& output) {
    try {
        throw;
    } catch (Failure const&) {
        throw;
    } catch (XMP_Error const& error) {
        char const* const message = error.GetErrMsg();
        throw Failure(ExitCode::BAD_INPUT, input,
                      std::string("unusable XMP: ") + (message ? message : "no reason given"));
    } catch (std::bad_alloc const&) {
        throw Failure(ExitCode::BAD_INPUT, input, "not enough memory");
    } catch (std::exception const& error) {
        if (saysWritingFailed(error.what()))
            throw Failure(ExitCode::WRITE_FAILED, output, error.what());
        throw Failure(ExitCode::BAD_INPUT, input, error.what());
    }
}

} // namespace motionphoto
