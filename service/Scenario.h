// SPDX-License-Identifier: MIT
/** @file Scenario.h Files that tell the simulated service what to do when. */
#ifndef ZAV_SERVICE_SCENARIO_H
#define ZAV_SERVICE_SCENARIO_H

#include "Control.h"

#include <istream>
#include <vector>

struct Step
{
    guint at;    // milliseconds after the service is ready
    guint every; // and again after so many milliseconds each; 0 for once
    Control control;
};

/**
 * Reads a scenario: one JSON object a line, with a time in milliseconds and one control, whose
 * value is that of the command line's option of the same name. Empty lines, and those that begin
 * with "#", are skipped.
 *
 *     {"at": 0, "delay": "GetMode=2000"}
 *     {"at": 500, "every": 100, "emit": "SetCbSoundModeChange=(5,)"}
 *     {"at": 3000, "reset": ""}
 *
 * @return the steps in order of time, those of one time in order of their lines
 * @throw std::invalid_argument "LINE: what is wrong with it"
 */
std::vector<Step> ReadScenario(std::istream& lines);

#endif
