// SPDX-License-Identifier: MIT
/** @file Scenario.h Files that tell the simulated service what to do when. */
#ifndef ZAV_SERVICE_SCENARIO_H
#define ZAV_SERVICE_SCENARIO_H

#include "Control.h"

#include <istream>
#include <vector>

struct Step
{
    guint at;    // milliseconds after the service is ready, or after a call came
    guint every; // and again after so many milliseconds each; 0 for once
    Control control;
};

/** A call that is expected, and what is done when it has come: also its answer. */
struct Expected
{
    std::string method;
    std::vector<Step> steps;
};

struct Scenario
{
    std::vector<Step> steps;
    std::vector<Expected> calls; // those of one method come in this order
};

/**
 * Reads a scenario: one JSON object a line, with a time in milliseconds and one control, whose
 * value is that of the command line's option of the same name; or with a call that is expected,
 * and behind it what is done so many milliseconds after it. There a reply or a failure answers the
 * call, once. Empty lines, and those that begin with "#", are skipped.
 *
 *     {"at": 0, "delay": "GetMode=2000"}
 *     {"at": 500, "every": 100, "emit": "SetCbSoundModeChange=(5,)"}
 *     {"at": 3000, "reset": ""}
 *     {"call": "SetMode"}
 *     {"after": 2, "emit": "SetCbSoundModeChange=(5,)"}
 *     {"after": 3, "reply": "SetMode=(0,)"}
 *
 * @return all steps in order of time, those of one time in order of their lines
 * @throw std::invalid_argument "LINE: what is wrong with it"
 */
Scenario ReadScenario(std::istream& lines);

#endif
