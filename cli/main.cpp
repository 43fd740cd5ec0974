// SPDX-License-Identifier: MIT
/** @file main.cpp zavctl: the library's operations for people and scripts. */
#include "Await.h"
#include "Completion.h"
#include "Request.h"
#include "Scalars.h"
#include "TraceVerb.h"
#include "Verbs.h"

#include <iomanip>
#include <map>
#include <sstream>
#include <string_view>

namespace cli
{

namespace
{

Action ShowTrace(CLI::App& verb)
{
    static TraceOptions options;
    verb.add_option("FILE", options.file, "The trace store")->required()->type_name("FILE");
    verb.add_flag("--stat", options.stat, "A summary for each operation");
    verb.add_flag("--follow", options.follow, "Go on while the program runs that traces");
    verb.add_option("--chrome", options.chrome, "Write a timeline to this file")->type_name("FILE");
    return [] {
        options.json = asJson;
        Trace(options);
    };
}

const std::map<std::string, const char*> completionScripts = {
#include "Completions.inc"
};

Action Completion(CLI::App& verb)
{
    static std::string shell;
    verb.add_option("SHELL", shell, "bash, zsh or fish")->required()->type_name("SHELL");
    return [] {
        const auto script = completionScripts.find(shell);
        if (script == completionScripts.end()) {
            throw Failure(Cause::usage, "completion is for bash, zsh and fish");
        }
        PrintText(script->second);
    };
}

Action Help(CLI::App& verb)
{
    static Words words;
    verb.add_option("VERB", words, "Which; all without one");
    return [app = verb.get_parent()] {
        const CLI::App* described = app;
        std::string path;
        for (const std::string& word : words) {
            const auto found = described->get_subcommands(
                [&word](const CLI::App* one) { return one->check_name(word); });
            if (found.empty()) {
                throw Failure(Cause::usage, "there is no verb '" + word + "'");
            }
            path += (path.empty() ? "" : " ") + described->get_name();
            described = found[0];
        }
        PrintText(described->help(path));
    };
}

const Verbs otherVerbs = {
    {"trace", "Show what a trace store holds", ShowTrace},
    {"completion", "Print the completion script of a shell", Completion},
    {"help", "Describe a verb", Help},
};

/** What may come after which kind of option or argument. */
const Values values = {
    {"METHOD", Methods},
    {"SIGNAL", Signals},
    {"MODE", [](auto&) { return ModeNames(); }},
    {"READABLE", [](auto&) { return ScalarNames(false); }},
    {"SETTABLE", [](auto&) { return ScalarNames(true); }},
    {"SETTING", [](auto& before) { return before.back() == "mode" ? ModeNames() : Words(); }},
    {"SHELL",
     [](auto&) {
         return Words{"bash", "zsh", "fish"};
     }},
};

std::string ExitCodes()
{
    std::ostringstream text;
    text << "Exit codes, and the cause that --json tells; 0 is done:\n";
    for (const CauseRow& row : kCauses) {
        text << "  " << row.exitCode << "  " << std::left << std::setw(13) << row.key << row.meaning
             << '\n';
    }
    return text.str();
}

/** The parent of a verb of two words, made with the first of its verbs. */
CLI::App& Parent(CLI::App& app, const std::string& name)
{
    const auto found =
        app.get_subcommands([&name](const CLI::App* sub) { return sub->get_name() == name; });
    if (!found.empty()) {
        return *found[0];
    }
    return *app.add_subcommand(name, name == "sim" ? "Tell the simulated service how to behave"
                                                   : "Talk to external devices through the tunnel")
                ->require_subcommand(1);
}

void Define(CLI::App& app, const Verb& row, Action& chosen)
{
    const std::string name = row.name;
    const size_t blank = name.find(' ');
    CLI::App& parent = blank == std::string::npos ? app : Parent(app, name.substr(0, blank));
    CLI::App& verb = *parent.add_subcommand(name.substr(blank + 1), row.help);
    verb.callback([action = row.define(verb), &chosen] { chosen = action; });
}

void Main(int argc, char** argv)
{
    CLI::App app("Controls sound devices through ZAVService, and looks into what goes wrong.",
                 "zavctl");
    Action chosen;
    app.add_flag("--json", asJson, "Print JSON");
    app.add_flag("--log", showLog, "Show the library's log on standard error");
    app.add_option("--timeout", timeLimit, "The longest wait for an answer, in seconds; else 6")
        ->check(CheckSeconds, "")
        ->type_name("SECONDS");
    app.set_version_flag("--version", "zavctl " ZAVCTL_VERSION);
    app.require_subcommand(1)->fallthrough();
    for (const Verbs* verbs :
         {&scalarVerbs, &deviceVerbs, &watchingVerbs, &doctorVerbs, &simVerbs, &otherVerbs}) {
        for (const Verb& verb : *verbs) {
            Define(app, verb, chosen);
        }
    }
    app.footer(ScalarHelp() + '\n' + ExitCodes()); // after the verbs, which would inherit it
    if (AnswerCompletion(app, argc, argv, values)) {
        return;
    }
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& outcome) { // --help among them
        if (outcome.get_exit_code() != 0) {
            const auto unknown = app.remaining(true);
            throw Failure(Cause::usage, unknown.empty()
                                            ? outcome.what()
                                            : "'" + unknown[0] + "' is not expected here");
        }
        app.exit(outcome);
        return PrintText("");
    }
    chosen();
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
        code = failure.ExitCode();
    }
    if (cli::abandoned) {
        std::_Exit(code);
    }
    return code;
}
