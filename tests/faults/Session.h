// SPDX-License-Identifier: Apache-2.0
#pragma once

#include "MotionPhotoEdit.h"
#include "Scenarios.h"
#include "support/Faults.h"

namespace android::lumo::test {

using Prepare = decltype(Scenario::prepare);
using Stage = std::function<void(MotionPhotoEdit&)>;

/// Editors of one still, and what one letter of a script does with them.
class Session {
public:
    Session(Desk& onDesk, Stage const& first, Stage const& later, std::string const& script)
        : desk(onDesk), view(MotionPhotoInfo::parse(desk.still)), edit(view->edit()), then(later) {
        first(*edit);
        if (script.find('d') != script.npos)
            stageOther(view);
        if (script.find('v') != script.npos)
            stageOther(MotionPhotoInfo::parse(test::open(desk.path("still"))));
    }

    void run(char letter) {
        switch (letter) {
        case 'c':
            return edit->commit();
        case 't':
            return edit->commit(desk.target);
        case 's':
            return edit->commit(desk.second);
        case 'q':
            return edit->getQRTEdit().commit();
        case 'Q':
            return edit->getQRTEdit().commit(desk.target);
        case 'x':
            return edit->getXMPEdit().commit();
        case 'X':
            return edit->getXMPEdit().commit(desk.target);
        case 'l':
            then(*edit); // stages more, and commits it
            return edit->commit();
        case 'd': // a second editor of the same view
        case 'v':
            return other->commit(); // an editor of a second view
        case 'o':
            return byAnother([](std::string& file) { file += "written by another program"; });
        case 'y':
            return byAnother([](std::string& file) { // the packet, its length kept
                size_t const at = file.find("dc:source=\"");
                file[at + 11] = '#';
            });
        case 'e':
            return byAnother([](std::string& file) { file.clear(); });
        default:
            throw std::logic_error("no such step");
        }
    }

private:
    void stageOther(std::shared_ptr<MotionPhotoInfo> const& of) {
        other = of->edit();
        then(*other);
    }
    void byAnother(std::function<void(std::string&)> const& change) {
        Fault::Pause const pause;
        std::string file = bytesOf(desk.path("still"));
        change(file);
        writeBytes(desk.path("still"), file);
    }

    Desk& desk;
    std::shared_ptr<MotionPhotoInfo> view;
    std::shared_ptr<MotionPhotoEdit> edit, other;
    Stage then;
};

/// The steps of a script, one letter each.
inline Prepare script(std::string const& letters, Stage const& stage, Stage const& then = {}) {
    return [=](Desk& desk) {
        auto const session = std::make_shared<Session>(desk, stage, then, letters);
        std::vector<Step> steps;
        for (char const letter : letters)
            steps.push_back([=] { session->run(letter); });
        return steps;
    };
}

} // namespace android::lumo::test
