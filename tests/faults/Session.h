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

    void run(char letter) { steps.at(letter)(); }

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
    std::map<char, Step> const steps{
        {'c', [&] { edit->commit(); }},
        {'t', [&] { edit->commit(desk.target); }},
        {'s', [&] { edit->commit(desk.second); }},
        {'q', [&] { edit->getQRTEdit().commit(); }},
        {'Q', [&] { edit->getQRTEdit().commit(desk.target); }},
        {'x', [&] { edit->getXMPEdit().commit(); }},
        {'X', [&] { edit->getXMPEdit().commit(desk.target); }},
        {'l', [&] { then(*edit), edit->commit(); }}, // stages more
        {'d', [&] { other->commit(); }},             // a second editor of the same view
        {'v', [&] { other->commit(); }},             // an editor of a second view
        {'o', [&] { byAnother([](auto& file) { file += "written by another program"; }); }},
        {'y', [&] { byAnother([](auto& file) { file[file.find("dc:source=\"") + 11] = '#'; }); }}, // the packet
        {'e', [&] { byAnother([](auto& file) { file.clear(); }); }},
    };
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
