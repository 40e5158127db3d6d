// SPDX-License-Identifier: Apache-2.0
#pragma once

#include <list>
#include <mutex>
#include <shared_mutex>
#include <string>

/// Signals that end the process, kept from leaving a temporary file or half a photo behind.
///
/// They are blocked in every thread but one that waits for them: it lets what holds them back come to its end, removes
/// the temporary files that have names, and ends the process by the same signal.
namespace motionphoto {

/// Once, before any other thread is started. Signals that whoever started the tool wants ignored (nohup) stay ignored.
void takeChargeOfSignals();

/// A deadly signal came: nothing new should be begun.
bool isStopping();

/// Ends the process as the signal would have, temporary files removed.
[[noreturn]] void dieOf(int signal);

/// Ends the process with that code, temporary files removed.
[[noreturn]] void exitNow(int code);

/// While one exists, no signal ends the process.
class SignalsHeld {
public:
    SignalsHeld();

private:
    std::shared_lock<std::shared_mutex> lock;
};

/// A file that goes when a signal ends the process, and with this object unless it was kept.
class TemporaryName {
public:
    TemporaryName() = default;
    /// The file must have been made while a SignalsHeld of the caller's exists.
    explicit TemporaryName(std::string const& path);
    TemporaryName(TemporaryName&& other) noexcept;
    TemporaryName& operator=(TemporaryName&& other) noexcept;
    ~TemporaryName();

    bool isEmpty() const { return !listed; }
    std::string const& path() const { return *entry; }
    /// The file has another name now, or is no temporary one any more.
    void keep();

private:
    std::list<std::string>::iterator entry;
    bool listed = false;
};

} // namespace motionphoto
