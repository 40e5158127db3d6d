// SPDX-License-Identifier: Apache-2.0
#include "Signals.h"

#include <atomic>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include <pthread.h>
#include <unistd.h>

namespace motionphoto {

namespace {

/// All that end a process by default and can be held back, but for those a fault raises in the thread itself.
constexpr int DEADLY_SIGNALS[] = {SIGHUP,  SIGINT,  SIGQUIT,   SIGPIPE, SIGALRM, SIGTERM,
                                  SIGUSR1, SIGUSR2, SIGVTALRM, SIGPROF, SIGXCPU, SIGIO};

/// Held shared by whoever must not be ended now, and for good by the thread that ends the process.
std::shared_mutex ending;
std::atomic<bool> stopping = false;

std::mutex namesLock;
std::list<std::string> names;

sigset_t deadlySignals() {
    sigset_t set;
    sigemptyset(&set);
    for (int const signal : DEADLY_SIGNALS) {
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset(&set, signal);
    }
    return set;
}

/// Waits for what must come to its end; no further temporary file is made after it.
void removeTemporaries() {
    stopping = true;
    ending.lock(); // never given back
    std::lock_guard const guard(namesLock);
    for (auto const& name : names)
        unlink(name.c_str());
}

} // namespace

void takeChargeOfSignals() {
    sigset_t const deadly = deadlySignals();
    sigset_t before;
    pthread_sigmask(SIG_BLOCK, &deadly, &before);
    try {
        std::thread([deadly] {
            int signal = 0;
            while (sigwait(&deadly, &signal) != 0) {
            }
            dieOf(signal);
        }).detach();
    } catch (std::system_error const&) {
        // Without a thread to wait for them they end the process at once, as they do for most programs.
        pthread_sigmask(SIG_SETMASK, &before, nullptr);
    }
}

bool isStopping() {
    return stopping;
}

void dieOf(int signal) {
    removeTemporaries();
    std::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    raise(signal);
    _exit(128 + signal);
}

void exitNow(int code) {
    removeTemporaries();
    _exit(code);
}

SignalsHeld::SignalsHeld() : lock(ending) {}

TemporaryName::TemporaryName(std::string const& path) {
    std::lock_guard const guard(namesLock);
    entry = names.insert(names.end(), path);
    listed = true;
}

TemporaryName::TemporaryName(TemporaryName&& other) noexcept
    : entry(other.entry), listed(std::exchange(other.listed, false)) {}

TemporaryName& TemporaryName::operator=(TemporaryName&& other) noexcept {
    std::swap(entry, other.entry);
    std::swap(listed, other.listed);
    return *this;
}

TemporaryName::~TemporaryName() {
    if (!listed)
        return;
    unlink(path().c_str());
    keep();
}

void TemporaryName::keep() {
    std::lock_guard const guard(namesLock);
    names.erase(entry);
    listed = false;
}

} // namespace motionphoto
