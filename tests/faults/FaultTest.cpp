// SPDX-License-Identifier: Apache-2.0
#include "MotionPhotoEdit.h"
#include "PhotoState.h"
#include "Scenarios.h"
#include "support/Attempt.h"
#include "support/Faults.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <iterator>
#include <set>
#include <sstream>
#include <sys/stat.h>

// Every call of the library that reads or changes a file, and its allocations, fail in turn, while an operation is
// prepared and while it is carried out. Then the step that threw is tried again, without a fault.
namespace android::lumo::test {
namespace {

constexpr size_t SPARE_SPACE = 64 * 1024; ///< of one file: blocks, and what a file system keeps on its own

enum class Phase { PREPARE, COMMIT };

struct Kind {
    char const* name;
    char const* cause; ///< names the failing row
    Call call;
    int error;     ///< 0: none
    ssize_t limit; ///< bytes that the first of the calls moves; NOTHING: it fails as well
    size_t times;
    size_t most;        ///< of one operation's calls that are tried, evenly spread
    size_t mostBriefly; ///< the same for rows that tell no states

    bool isChange() const { return call == Call::CHANGE; }
    /// Interrupted and short calls go on where they stopped.
    bool mustSucceed() const { return isChange() && (error == EINTR || (error == 0 && limit != 0)); }

    Fault at(size_t number) const { return {call, limit, error, number, times}; }
};

constexpr size_t ALL = static_cast<size_t>(-1);
constexpr Kind KINDS[] = {
    {"ENOSPC once", "writes", Call::CHANGE, ENOSPC, Fault::NOTHING, 1, ALL, 12},
    {"ENOSPC from then on", "writes", Call::CHANGE, ENOSPC, Fault::NOTHING, Fault::ALWAYS, ALL, 0},
    {"EIO once", "writes", Call::CHANGE, EIO, Fault::NOTHING, 1, ALL, 0},
    {"half, then ENOSPC", "writes", Call::CHANGE, ENOSPC, Fault::HALF, Fault::ALWAYS, ALL, 6},
    {"200 bytes, then EFBIG", "writes", Call::CHANGE, EFBIG, 200, Fault::ALWAYS, ALL, 0},
    {"0 bytes once", "writes", Call::CHANGE, 0, 0, 1, ALL, 3},
    {"EINTR three times", "writes", Call::CHANGE, EINTR, Fault::NOTHING, 3, 12, 0},
    {"a byte, often", "writes", Call::CHANGE, 0, 1, 100, 8, 0},
    {"half from then on", "writes", Call::CHANGE, 0, Fault::HALF, Fault::ALWAYS, 8, 2},
    {"EIO when reading", "reads", Call::READ, EIO, Fault::NOTHING, 1, 60, 20},
    {"half read", "reads", Call::READ, 0, Fault::HALF, 1, 12, 0},
    {"out of memory", "memory", Call::MEMORY, ENOMEM, Fault::NOTHING, 1, 40, 12},
};
constexpr size_t SECTORS = 5; ///< of the still that cannot be read, one at a time

/// Descriptors and the space behind a file's end are given back.
uint64_t spaceOf(std::string const& path) {
    struct stat status {};
    EXPECT_EQ(stat(path.c_str(), &status), 0);
    return static_cast<uint64_t>(status.st_blocks) * 512;
}

size_t openDescriptors() {
    auto const all = std::filesystem::directory_iterator("/proc/self/fd");
    return static_cast<size_t>(std::distance(begin(all), end(all)));
}

/// The states of a row of the document, "; " between them.
std::map<std::string, std::set<std::string>> documentedStates() {
    std::map<std::string, std::set<std::string>> rows;
    std::istringstream document(bytesOf(DOCS_DIR "/failure-states.md"));
    for (std::string line; std::getline(document, line);) {
        size_t const cell = line.find(" | as before;") + 3;
        if (cell < 3)
            continue;
        std::istringstream states(line.substr(cell, line.rfind(" |") - cell));
        for (std::string each; std::getline(states >> std::ws, each, ';');)
            rows[line.substr(2, cell - 5)].insert(each);
    }
    return rows;
}

/// Failures by row, "scenario / cause", with the first of each as an example.
std::map<std::string, std::string> failures;

class Trial {
public:
    Trial(Scenario const& tried, std::set<std::string>& states) : scenario(tried), found(states) {
        Desk desk(dir, scenario.before);
        wanted.push_back({true, desk.files()});
        for (auto const& step : scenario.prepare(desk)) {
            bool const isDone = returns(step);
            wanted.push_back({isDone, desk.files()});
        }
        if (scenario.complaint)
            require(scenario.complaint(wanted.back().files).empty(), "alone", scenario.complaint(wanted.back().files));
        require(wanted.size() > 2 || wanted.back().files != wanted.front().files, "alone", "changes nothing");
        if (!scenario.row.empty())
            state.emplace(scenario.before, wanted.back().files.at("still"));
    }

    /// Call after call goes wrong until the operation comes through before it, or a spread of them.
    void everyCall(Kind const& kind, Phase phase) {
        size_t const few = scenario.row.empty() ? kind.mostBriefly : kind.most;
        size_t const most = std::getenv("FAULTS_ALL") != nullptr ? ALL : few;
        if (most == 0)
            return;
        tolerates = !kind.mustSucceed();
        isSingle = kind.times == 1;
        cause = kind.cause;
        place = "alone";
        size_t const all = runWith([&] { return kind.at(ALL); }, phase);
        size_t const tried = std::min(all, most);
        for (size_t i = 0; i < tried; ++i) {
            size_t const number = all / tried * i + i % (all / tried);
            place = std::string(kind.name) + (phase == Phase::PREPARE ? ", preparing" : "") + ", call " +
                    std::to_string(number) + " of " + std::to_string(all);
            runWith([&] { return kind.at(number); }, phase);
        }
    }

    void everySector() {
        for (size_t i = 0; i < SECTORS; ++i) {
            auto const position = static_cast<off64_t>(scenario.before.size() * (2 * i + 1) / (2 * SECTORS));
            place = "bad sector at " + std::to_string(position);
            cause = "reads";
            tolerates = true;
            isSingle = false;
            runWith([&] { return Fault::badSector(position); }, Phase::COMMIT);
        }
    }

private:
    struct Wanted {
        bool isDone; ///< the step that makes it returns
        Files files;
    };

    void require(bool holds, char const* why, std::string const& text) {
        if (!holds)
            failures.emplace(scenario.name + " / " + why, place + ": " + text);
    }

    /// The calls that the fault counted.
    template<class MakeFault>
    size_t runWith(MakeFault makeFault, Phase phase) {
        size_t const descriptors = openDescriptors();
        size_t calls = 0;
        {
            Desk desk(dir, scenario.before);
            calls = phase == Phase::PREPARE ? runPreparing(desk, makeFault) : runCommitting(desk, makeFault);
        }
        require(openDescriptors() == descriptors, cause, "a descriptor stays open");
        require(std::distance(std::filesystem::directory_iterator(dir.path()), {}) == 3, cause, "a file is left");
        return calls;
    }

    /// What could not be read while it was prepared is told, or does no harm.
    template<class MakeFault>
    size_t runPreparing(Desk& desk, MakeFault makeFault) {
        std::vector<Step> steps;
        bool isPrepared = false;
        size_t calls = 0;
        {
            Fault const fault = makeFault();
            isPrepared = returns([&] { steps = scenario.prepare(desk); });
            calls = fault.calls();
        }
        require(desk.files() == wanted.front().files, cause, "changed before a commit");
        if (isPrepared)
            runOn(desk, steps, 0, "misread, and committed");
        return calls;
    }

    template<class MakeFault>
    size_t runCommitting(Desk& desk, MakeFault makeFault) {
        auto const steps = scenario.prepare(desk);
        size_t calls = 0;
        size_t broken = 0; // the first step that throws what it does not throw alone
        bool isAsAlone = true;
        {
            Fault const fault = makeFault();
            for (; broken < steps.size(); ++broken) {
                bool const isDone = returns(steps[broken]);
                Fault::Pause const pause;
                isAsAlone = isDone == wanted[broken + 1].isDone;
                if (!isAsAlone)
                    break;
                requireFiles(desk, broken, "false success");
            }
            calls = fault.calls();
        }
        require(isAsAlone || wanted[broken + 1].isDone, cause, "what is refused otherwise went through");
        if (broken == steps.size())
            return calls;
        require(tolerates, cause, "it does not go on");
        Files const left = desk.files();
        if (wanted.back().files.at("still") == scenario.before)
            require(left.at("still") == scenario.before, cause, "source touched");
        else if (state)
            found.insert(state->of(left.at("still")));
        require(!isSingle || spaceOf(desk.path("still")) <= left.at("still").size() + SPARE_SPACE, cause,
                "space is kept behind the end");
        runOn(desk, steps, broken, "the second commit");
        return calls;
    }

    /// Without a fault: each step completes or is refused, and then leaves the files as they are.
    void runOn(Desk& desk, std::vector<Step> const& steps, size_t from, std::string const& what) {
        bool isBehind = false; // a step in front was refused: what is refused otherwise may have its turn
        for (size_t i = from; i < steps.size(); ++i) {
            Files const before = desk.files();
            bool const isDone = returns(steps[i]);
            isBehind = isBehind || !isDone;
            if (isDone && scenario.remembers && (wanted[i + 1].isDone || !isBehind))
                requireFiles(desk, i, what);
            else if (!isDone)
                require(desk.files() == before, cause, what + ": changed by a refusal");
        }
    }

    /// As the step leaves them when nothing fails.
    void requireFiles(Desk const& desk, size_t step, std::string const& what) {
        Files const files = desk.files();
        std::string const text = differences(files, wanted[step + 1].files);
        if (!text.empty())
            require(false, cause,
                    what + ' ' + std::to_string(step) + ": " + text + (state ? state->of(files.at("still")) : ""));
    }

    Scenario const& scenario;
    std::set<std::string>& found;
    TempDir dir;
    std::vector<Wanted> wanted;
    std::optional<PhotoState> state;
    // Of the fault that is tried.
    std::string place;
    char const* cause = "";
    bool tolerates = true;
    bool isSingle = false;
};

TEST(Fault, NoCallThatFailsGoesUnnoticedAndTheFileIsInADocumentedState) {
    auto documented = documentedStates();
    std::map<std::string, std::set<std::string>> found;
    char const* const only = std::getenv("FAULTS_ONLY");
    for (auto const& scenario : scenarios()) {
        if (only != nullptr && scenario.name.find(only) == std::string::npos)
            continue;
        Trial trial(scenario, found[scenario.row]);
        for (auto const& kind : KINDS) {
            trial.everyCall(kind, Phase::COMMIT);
            if (!kind.isChange())
                trial.everyCall(kind, Phase::PREPARE);
        }
        if (!scenario.row.empty())
            trial.everySector();
    }
    std::set<std::string> met;
    for (auto const& [row, states] : found) {
        for (auto const& state : states) {
            met.insert(state);
            if (!documented[row].contains(state))
                failures.emplace(row + " / " + state, "not in the document");
        }
    }
    for (auto const& [row, states] : documented) {
        for (auto const& state : states) {
            if (only == nullptr && !met.contains(state))
                failures.emplace("document / " + state, "never met");
        }
    }
    for (auto const& [row, example] : failures)
        ADD_FAILURE() << row << ": " << example;
}

} // namespace
} // namespace android::lumo::test
