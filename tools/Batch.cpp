// SPDX-License-Identifier: Apache-2.0
#include "Batch.h"

#include "Failure.h"
#include "Signals.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <map>
#include <mutex>
#include <system_error>
#include <thread>
#include <vector>

#include <unistd.h>

namespace motionphoto {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto PROGRESS_INTERVAL = std::chrono::milliseconds(200);

unsigned workersFor(Arguments const& args) {
    unsigned const wanted = args.jobs > 0 ? args.jobs : std::thread::hardware_concurrency();
    return std::clamp(wanted, 1U, Arguments::MOST_JOBS);
}

/// The one line on a terminal that tells how far the work is.
class Progress {
public:
    explicit Progress(Arguments const& args, bool many)
        : shown(many && !args.quiet && isatty(STDERR_FILENO)), total(shown ? Inputs::count(args) : 0) {}

    void show(size_t done) {
        auto const now = Clock::now();
        if (!shown || now - last < PROGRESS_INTERVAL)
            return;
        last = now;
        double const rate = static_cast<double>(done) / std::chrono::duration<double>(now - start).count();
        std::fprintf(stderr, "\r\033[K%zu", done);
        if (total > 0)
            std::fprintf(stderr, " of %zu", total);
        std::fprintf(stderr, ", %.1f files/s", rate);
        if (total >= done && rate > 0)
            std::fprintf(stderr, ", %.0f s left", static_cast<double>(total - done) / rate);
        std::fflush(stderr);
        visible = true;
    }
    void clear() {
        if (visible)
            std::fputs("\r\033[K", stderr);
        visible = false;
    }

private:
    bool shown;
    size_t total;
    bool visible = false;
    Clock::time_point start = Clock::now();
    Clock::time_point last = start;
};

class Batch {
public:
    Batch(Arguments const& arguments, Work const& action)
        : args(arguments), work(action), inputs(arguments), progress(arguments, inputs.isMany()) {}

    ExitCode run() {
        unsigned const workers = inputs.isMany() ? workersFor(args) : 1;
        std::vector<std::thread> others;
        others.reserve(workers);
        try {
            for (unsigned i = 1; i < workers; ++i)
                others.emplace_back([this] { workThrough(); });
        } catch (std::system_error const&) {
            // Those there are do the work: this one at least.
        }
        workThrough();
        for (auto& other : others)
            other.join();
        progress.clear();
        if (std::fflush(stdout) != 0)
            outputFailed();
        return worst;
    }
    void summarise() const {
        if (!inputs.isMany() || args.quiet)
            return;
        static constexpr char const* WORDS[] = {"done", "skipped", "without a video", "failed"};
        std::string text = std::to_string(counts[0]) + " done";
        for (size_t i = 1; i < std::size(WORDS); ++i)
            text += counts[i] > 0 ? ", " + std::to_string(counts[i]) + " " + WORDS[i] : "";
        std::fprintf(stderr, "%s\n", text.c_str());
    }

private:
    static constexpr size_t MOST_WAITING = 1 << 20;

    /// Takes inputs until there are none. What came of one is printed when all before it are.
    void workThrough() {
        for (;;) {
            Input input;
            Outcome outcome;
            size_t turn = 0;
            bool isFile = true;
            {
                std::lock_guard const guard(lock);
                try {
                    if (isStopping() || !inputs.next(input))
                        return;
                } catch (Failure const& failure) {
                    outcome = failed(args, failure);
                    isFile = false;
                }
                turn = taken++;
            }
            if (isFile)
                outcome = workOn(input);
            std::unique_lock guard(lock);
            turns.wait(guard, [&] { return printed == turn || waitingSize < MOST_WAITING; });
            waitingSize += sizeOf(outcome);
            waiting.emplace(turn, std::move(outcome));
            printWaiting();
            turns.notify_all();
        }
    }
    /// A file that takes long holds up what is printed behind it and not the work, as long as that is little.
    void printWaiting() {
        for (auto next = waiting.begin(); next != waiting.end() && next->first == printed; next = waiting.erase(next)) {
            print(next->second);
            waitingSize -= sizeOf(next->second);
            ++printed;
        }
    }
    static size_t sizeOf(Outcome const& outcome) {
        return sizeof outcome + outcome.text.size() + outcome.message.size();
    }
    Outcome workOn(Input const& input) {
        try {
            return guarded(input.path, [&] { return work(input); });
        } catch (Failure const& failure) {
            // That a folder has other stills too is no failure.
            if (args.recursive && failure.exitCode() == ExitCode::NO_MOTION_PHOTO)
                return {Outcome::Kind::WITHOUT_VIDEO, ExitCode::DONE, "", ""};
            return failed(args, failure);
        }
    }
    void print(Outcome const& outcome) {
        if (!outcome.text.empty() || !outcome.message.empty())
            progress.clear();
        if (std::fwrite(outcome.text.data(), 1, outcome.text.size(), stdout) != outcome.text.size())
            outputFailed();
        if (!outcome.message.empty())
            std::fprintf(stderr, "%s\n", outcome.message.c_str());
        ++counts[static_cast<size_t>(outcome.kind)];
        worst = std::max(worst, outcome.code);
        progress.show(printed + 1);
    }
    [[noreturn]] static void outputFailed() {
        if (errno == EPIPE)
            dieOf(SIGPIPE);
        std::fprintf(stderr, "motionphoto: fail to write the report: %s\n", std::strerror(errno));
        exitNow(static_cast<int>(ExitCode::WRITE_FAILED));
    }

    Arguments const& args;
    Work const& work;
    Inputs inputs;
    Progress progress;
    std::mutex lock;
    std::condition_variable turns;
    size_t taken = 0;
    size_t printed = 0;
    std::map<size_t, Outcome> waiting; ///< by turn
    size_t waitingSize = 0;
    size_t counts[4] = {};
    ExitCode worst = ExitCode::DONE;
};

} // namespace

Outcome failed(Arguments const& args, Failure const& failure) {
    return {Outcome::Kind::FAILED, failure.exitCode(), "", "motionphoto: " + failure.sentence(args.verbose)};
}

ExitCode forEachInput(Arguments const& args, Work const& work, Summary summary) {
    Batch batch(args, work);
    ExitCode const worst = batch.run();
    if (summary == Summary::YES)
        batch.summarise();
    return worst;
}

} // namespace motionphoto
