// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "hbox.h"

#include <cstdint>
#include <exception>
#include <new>
#include <optional>
#include <stdexcept>
#include <string>
#include <type_traits>

#include "boxes/BoxBounds.h"

namespace hbox {

/// What the sources throw inside; the C functions turn it into its code and a text for hbox_last_error.
class Failure : public std::runtime_error {
public:
    Failure(HBOX_RESULT result, std::string const& text) : std::runtime_error(text), failed(result) {}

    HBOX_RESULT code() const { return failed; }

private:
    HBOX_RESULT failed;
};

/// `throw failure(HBOX_ERR_FORMAT, "item %u", id)`
__attribute__((format(printf, 2, 3))) Failure failure(HBOX_RESULT code, char const* format, ...);

/// Records the text for hbox_last_error and passes the code through.
int32_t reportFailure(HBOX_RESULT code, char const* text) noexcept;

/// Runs a C function's body: its exceptions become codes, none gets out. A body whose failure is an ordinary answer
/// returns it, which takes a hundredth of what throwing does.
template<class Body>
int32_t guarded(Body&& body) noexcept {
    try {
        if constexpr (std::is_void_v<decltype(body())>) {
            body();
        } else if (std::optional<Failure> const answer = body()) {
            return reportFailure(answer->code(), answer->what());
        }
        return HBOX_OK;
    } catch (Failure const& error) {
        return reportFailure(error.code(), error.what());
    } catch (android::lumo::BoxError const& error) {
        bool const isDamage = error.kind() == android::lumo::BoxError::Kind::Damaged;
        return reportFailure(isDamage ? HBOX_ERR_FORMAT : HBOX_ERR_UNSUPPORTED, error.reason());
    } catch (std::bad_alloc const&) {
        return reportFailure(HBOX_ERR_MEMORY, "out of memory");
    } catch (std::exception const& error) {
        return reportFailure(HBOX_ERR_FORMAT, error.what());
    }
}

/// The C functions' answer to a missing argument.
template<class... Pointer>
void requireArguments(Pointer const*... pointers) {
    if ((!pointers || ...))
        throw failure(HBOX_ERR_PARAMETER, "null argument");
}

} // namespace hbox
