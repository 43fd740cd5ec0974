// SPDX-License-Identifier: MIT
/** @file main.cpp zavctl: the library's operations for people and scripts. */
#include "Await.h"
#include "Request.h"
#include "Verbs.h"

#include <map>
#include <string_view>

namespace cli
{

namespace
{

const std::map<std::string, const char*> kCompletionScripts = {
#include "Completions.inc"
};

Action Completion(CLI::App& verb)
{
    static std::string shell;
    verb.add_option("SHELL", shell, "Which")->required()->check(CLI::IsMember(&kCompletionScripts));
    return [] { PrintText(kCompletionScripts.at(shell)); };
}

Action Help(CLI::App& verb)
{
    static std::vector<std::string> words;
    verb.add_option("VERB", words, "Which; all without one");
    return [app = verb.get_parent()] {
        words.emplace_back("--help");
        app->parse(std::vector<std::string>(words.rbegin(), words.rend()));
    };
}

const Verbs kOtherVerbs = {
    {"completion", "Print the completion script of a shell", Completion},
    {"help", "Describe a verb", Help},
};

std::string Footer()
{
    std::vector<Row> causes;
    for (const Cause& cause : kCauses) {
        causes.push_back({"", cause.exitCode, cause.key, cause.meaning});
    }
    return "Values (r: can be read, w: can be set):\n" + Lines(ScalarTable(), true) +
           "\nExit codes, and the cause that --json tells; 0 is done:\n" + Lines(causes, true);
}

void Define(CLI::App& app, const Verb& row, Action& chosen)
{
    const std::string name = row.name;
    const size_t blank = name.find(' ');
    CLI::App* parent =
        blank == std::string::npos ? &app : app.get_subcommand(name.substr(0, blank));
    CLI::App* verb = parent->add_subcommand(name.substr(blank + 1), row.help);
    if (row.define == nullptr) {
        verb->require_subcommand(1);
    } else {
        verb->callback([action = row.define(*verb), &chosen] { chosen = action; });
    }
}

void DefineAll(CLI::App& app, Action& chosen)
{
    app.add_flag("--json", asJson, "Print JSON");
    app.add_flag("--log", showLog, "Show the library's log on standard error");
    app.add_option("--timeout", timeLimit, "The longest wait for an answer, in seconds; else 6")
        ->check(CheckSeconds, "")
        ->type_name("SECONDS");
    app.set_version_flag("--version", "zavctl " ZAVCTL_VERSION);
    app.require_subcommand(1)->fallthrough();
    for (const Verbs* verbs : {&kScalarVerbs, &kDeviceVerbs, &kWatchingVerbs, &kDoctorVerbs,
                               &kSimVerbs, &kTraceVerbs, &kScenarioVerbs, &kOtherVerbs}) {
        for (const Verb& verb : *verbs) {
            Define(app, verb, chosen);
        }
    }
    app.footer(Footer()); // after the verbs, which would inherit it
}

void Main(int argc, char** argv)
{
    CLI::App app("Controls sound devices through ZAVService, and looks into what goes wrong.",
                 "zavctl");
    Action chosen;
    DefineAll(app, chosen);
    try {
        app.parse(argc, argv);
        chosen();
    } catch (const CLI::ParseError& outcome) { // --help among them
        if (const auto unknown = app.remaining(true); !unknown.empty()) {
            throw Failure(Cause::kUsage, "'" + unknown[0] + "' is not expected here");
        }
        if (outcome.get_exit_code() != 0) {
            throw Failure(Cause::kUsage, outcome.what());
        }
        app.exit(outcome);
        PrintText("");
    }
}

} // namespace

} // namespace cli

// NOLINTNEXTLINE(bugprone-exception-escape): what is no Failure is a fault of the program
int main(int argc, char** argv)
{
    int code = 0;
    try {
        cli::Main(argc, argv);
    } catch (const cli::Failure& failure) {
        // Asked for also when the command line could not be read.
        cli::asJson =
            std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
        cli::Report(failure);
        code = failure.cause.exitCode;
    }
    if (cli::abandoned) {
        std::_Exit(code);
    }
    return code;
}
