// SPDX-License-Identifier: Apache-2.0
// What files are and carry, as text, as a line each, or as JSON.

#include "Commands.h"

#include "Batch.h"
#include "InfoReport.h"
#include "Photo.h"

#include <sstream>

namespace motionphoto {

namespace {

InfoReport reportOn(std::string const& path) {
    Photo const photo(path, Access::READ, Look::WHOLE_VIEW);
    return guarded(path, [&] { return gather(photo); });
}

void print(Arguments const& args, InfoReport const& report, std::ostream& out) {
    if (args.json)
        printJson(report, out);
    else if (args.list)
        printLine(report, out);
    else
        printText(report, out);
}

} // namespace

ExitCode info(Arguments const& args) {
    if (args.json && args.list)
        throw Failure(ExitCode::USAGE, "", "give either --json or --list");
    bool const apart = !args.json && !args.list && (args.paths.size() > 1 || args.recursive || !args.filesFrom.empty());
    return forEachInput(
        args,
        [&](Input const& input) {
            std::ostringstream out;
            bool isWhole = true;
            try {
                auto const report = reportOn(input.path);
                print(args, report, out);
                isWhole = report.damage.empty();
            } catch (Failure const& failure) {
                return failedReport(args, input.path, failure);
            }
            auto const text = out.str() + (apart ? "\n" : "");
            return isWhole ? Outcome{Outcome::Kind::DONE, ExitCode::DONE, text, ""}
                           : Outcome{Outcome::Kind::FAILED, ExitCode::BAD_INPUT, text, ""};
        },
        Summary::NO);
}

} // namespace motionphoto
