// SPDX-License-Identifier: MIT
//
// `zavctl scenario`: makes a scenario for the simulated service of a recorded session.
#include "Capture.h"
#include "Failure.h"
#include "Recording.h"
#include "Verbs.h"

#include <cstdlib>
#include <iostream>

namespace cli
{

namespace
{

std::string file;
Excerpt excerpt;

/** What is sound is made use of, also when the rest is not. */
void MakeScenario()
{
    Recording recording(excerpt);
    std::string fault;
    try {
        Capture capture(file);
        while (capture.Next()) {
            recording.Add(capture.Message(), capture.Time());
        }
        fault =
            recording.IsEmpty() ? "there is neither a call nor a signal of ZAVService in it" : "";
    } catch (const std::runtime_error& error) {
        fault = error.what();
    }
    recording.Print(std::cout);
    PrintText("");
    if (recording.Unknown() > 0) {
        std::cerr << "zavctl: " << file << ": " << recording.Unknown()
                  << " message(s) of another version of the service were left out\n";
    }
    if (!fault.empty()) {
        throw Failure(Cause::kFailed, file + ": " + fault);
    }
}

std::string CheckFactor(const std::string& text)
{
    const bool isFactor = CheckSeconds(text).empty() && std::strtod(text.c_str(), nullptr) > 0;
    return isFactor ? "" : "'" + text + "' is not a factor";
}

Action Scenario(CLI::App& verb)
{
    verb.add_option("FILE", file, "What dbus-monitor or busctl has recorded; - for standard input")
        ->required()
        ->type_name("FILE");
    verb.add_option("--speed", excerpt.speed, "So many times as fast as it was")
        ->check(CheckFactor, "")
        ->type_name("FACTOR");
    verb.add_option("--from", excerpt.from, "Leave out what came in so many seconds")
        ->check(CheckSeconds, "")
        ->type_name("SECONDS");
    verb.add_option("--to", excerpt.to, "Leave out what came after so many seconds")
        ->check(CheckSeconds, "")
        ->type_name("SECONDS");
    return MakeScenario;
}

} // namespace

const Verbs kScenarioVerbs = {
    {"scenario", "Make a scenario for zav-sim of a recorded session", Scenario},
};

} // namespace cli
