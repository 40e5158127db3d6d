// SPDX-License-Identifier: Apache-2.0
// What files are and carry, as text, as a line each, or as JSON.

#include "Commands.h"

#include "Batch.h"
#include "InfoReport.h"
#include "Photo.h"

namespace motionphoto {

namespace {

InfoReport reportOn(std::string const& path) {
    Photo const photo(path, Access::READ, Look::WHOLE_VIEW);
    return guarded(path, [&] { return gather(photo); });
}

std::string print(Arguments const& args, InfoReport const& report) {
    return args.json ? asJson(report) : args.list ? asLine(report) : asText(report);
}

} // namespace

ExitCode info(Arguments const& args) {
    if (args.json && args.list)
        throw Failure(ExitCode::USAGE, "", "give either --json or --list");
    bool const apart = !args.json && !args.list && (args.paths.size() > 1 || args.recursive || !args.filesFrom.empty());
    return forEachInput(
        args,
        [&](Input const& input) {
            try {
                auto const report = reportOn(input.path);
                auto text = print(args, report) + (apart ? "\n" : "");
                return report.damage.empty() ? Outcome{Outcome::Kind::DONE, ExitCode::DONE, std::move(text), ""}
                                             : Outcome{Outcome::Kind::FAILED, ExitCode::BAD_INPUT, std::move(text), ""};
            } catch (Failure const& failure) {
                return failedReport(args, input.path, failure);
            }
        },
        Summary::NO);
}

} // namespace motionphoto
