// SPDX-License-Identifier: MIT
/** @file main.cpp zavctl: the library's operations for people and scripts. */
#include "Failure.h"
#include "Request.h"
#include "Scalars.h"
#include "TraceVerb.h"
#include "Verbs.h"
#include "zav-interfaces.h"

#include <algorithm>
#include <climits>
#include <string_view>

namespace cli
{

namespace
{

constexpr const char* footer = R"help(
With --json every verb prints JSON with stable keys, an error as {"error": {"cause": ...}}.
Exit codes, and the causes that go with them:
  0  done
  1  refused by the service, or a check failed ("refused", "failed")
  2  bad usage ("usage")
  3  no answer in time ("no-answer")
  4  the service is not running ("not-running")
  5  no bus, or access denied ("no-bus", "denied")
  6  other requests keep the connection busy ("busy"))help";

std::vector<std::string> Methods()
{
    std::vector<std::string> names;
    for (auto* method = org_kelmar_tv_zav_interface.methods; *method != nullptr; ++method) {
        names.emplace_back((*method)->name);
    }
    return names;
}

std::vector<std::string> Signals()
{
    std::vector<std::string> names;
    for (auto* signal = org_kelmar_tv_zav_interface.signals; *signal != nullptr; ++signal) {
        names.emplace_back((*signal)->name);
    }
    return names;
}

std::vector<std::string> Shells()
{
    return {"bash", "zsh"};
}

void Nothing(CLI::App& /*app*/, Options& /*options*/) {}

void Name(CLI::App& app, Options& options)
{
    app.add_option("NAME", options.name)->required();
}

void NameAndValue(CLI::App& app, Options& options)
{
    Name(app, options);
    app.add_option("VALUE", options.value)->required();
}

void NameAndMaybeValue(CLI::App& app, Options& options)
{
    Name(app, options);
    app.add_option("VALUE", options.value);
}

void DeviceId(CLI::App& app, Options& options)
{
    app.add_option("--id", options.id, "The external device")->capture_default_str();
}

void Bytes(CLI::App& app, Options& options)
{
    app.add_option("BYTES", options.numbers, "0 to 255, also as 0x00 to 0xff")
        ->required()
        ->check(CLI::Range(0, 255));
}

void ManagerState(CLI::App& app, Options& options)
{
    const auto add = [&](const char* name, int32_t& member, const char* help) {
        app.add_option(name, member, help)->capture_default_str();
    };
    app.add_option("--mode", options.mode, "The sound mode, by number or name")
        ->capture_default_str();
    add("--woofer-level", options.state.SubWooferLevel, "The sub-woofer's level");
    app.add_option("--values", options.numbers, "Seven values, passed through")->expected(7);
    add("--connection", options.state.ConnectionStatus, "0 without a sound device");
    app.add_flag("--woofer-available", options.state.SubWooferAvailable,
                 "There is a sub-woofer to set");
    app.add_flag("--equalizer-available", options.state.EqualizerAvailable,
                 "There is an equalizer");
    add("--state", options.state.State, "The speaker manager's state");
    add("--features", options.state.FeatureSupported, "The supported features");
    add("--woofer-connected", options.state.WooferConnected, "Whether a woofer is connected");
    add("--effects", options.state.EffectList, "The mask of the modes");
}

int ShowTrace(const Options& options)
{
    Trace({options.file, options.json, options.flag, options.chrome});
    return 0;
}

} // namespace

const std::vector<Verb> verbs = {
    {"get", "Show one value",
     [](CLI::App& app, Options& options) {
         Name(app, options);
         app.footer(ScalarHelp());
     },
     Get, GetterNames},
    {"set", "Set one value",
     [](CLI::App& app, Options& options) {
         NameAndValue(app, options);
         app.footer(ScalarHelp());
     },
     Set, SetterNames},
    {"status", "Show all values", Nothing, Status},
    {"modes", "List the sound modes that the service offers",
     [](CLI::App& app, Options& options) {
         app.add_flag("--sid", options.flag, "With the identifiers of their display strings");
     },
     Modes},
    {"equalizer", "Show the equalizer levels, or set them",
     [](CLI::App& app, Options& options) {
         app.add_option("LEVEL", options.numbers, "One for each band");
     },
     Equalizer},
    {"speakers", "List the networked speakers", Nothing, Speakers},
    {"tunnel cap", "Show whether an external device has the capability, or give it",
     [](CLI::App& app, Options& options) {
         app.add_option("ID", options.id, "The external device")->required();
         app.add_flag("--set", options.flag, "Give the capability");
     },
     TunnelCapability},
    {"tunnel send", "Send bytes to an external device",
     [](CLI::App& app, Options& options) {
         Bytes(app, options);
         DeviceId(app, options);
     },
     TunnelSend},
    {"tunnel status", "Ask an external device for its status", DeviceId, TunnelStatus},
    {"spdif", "Forward bytes as received from a speaker over S/PDIF; of more than 40 the first 40",
     Bytes, Spdif},
    {"init-manager", "Hand the speaker manager's state to the service", ManagerState, InitManager},
    {"model", "Show the code of a device model's name", Name, Model},
    {"monitor", "Print the service's events as they come",
     [](CLI::App& app, Options& options) {
         app.add_option("--count", options.count, "End after so many events")
             ->check(CLI::PositiveNumber);
         app.add_option("--for", options.seconds, "End after so many seconds")
             ->check(CLI::PositiveNumber);
         DeviceId(app, options);
     },
     Monitor},
    {"wait", "Wait for the service, without starting it",
     [](CLI::App& app, Options& options) {
         app.add_flag("--ready", options.flag, "Until it answers that it is ready, too");
         app.add_option("--timeout", options.timeout, "Seconds to wait")
             ->check(CLI::NonNegativeNumber)
             ->capture_default_str();
     },
     WaitForService},
    {"doctor", "Check bus, service and library, with remedies", Nothing, Doctor},
    {"sim reply", "Answer a method with this body, of any type", NameAndValue, SimReply, Methods},
    {"sim delay", "Answer a method after so many milliseconds",
     [](CLI::App& app, Options& options) {
         Name(app, options);
         app.add_option("MS", options.count)->required()->check(CLI::Range(0, INT_MAX));
     },
     SimDelay, Methods},
    {"sim fail", "Answer a method with a D-Bus error", NameAndMaybeValue, SimFail, Methods},
    {"sim hang", "Never answer a method", Name, SimHang, Methods},
    {"sim emit", "Send a signal", NameAndMaybeValue, SimEmit, Signals},
    {"sim calls", "List the calls that came", Nothing, SimCalls},
    {"sim clear", "Forget the calls that came", Nothing, SimClear},
    {"sim reset", "Be as at the start", Nothing, SimReset},
    {"trace", "Show what a trace store holds",
     [](CLI::App& app, Options& options) {
         app.add_option("FILE", options.file)->required();
         app.add_flag("--stat", options.flag, "A summary for each operation");
         app.add_option("--chrome", options.chrome, "Write a timeline to this file");
     },
     ShowTrace},
    {"completion", "", Name, Completion, Shells},
};

namespace
{

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

void Define(CLI::App& app, const Verb& verb, Options& options, const Verb*& chosen)
{
    const std::string name = verb.name;
    const size_t blank = name.find(' ');
    CLI::App& parent = blank == std::string::npos ? app : Parent(app, name.substr(0, blank));
    CLI::App* const sub = parent.add_subcommand(name.substr(blank + 1), verb.help);
    if (*verb.help == '\0') {
        sub->group(""); // hidden
    }
    verb.define(*sub, options);
    sub->callback([&verb, &chosen] { chosen = &verb; });
}

int Main(int argc, char** argv)
{
    CLI::App app("Controls sound devices through ZAVService, and looks into what goes wrong.",
                 "zavctl");
    Options options;
    const Verb* chosen = nullptr;
    app.add_flag("--json", options.json, "Print JSON");
    app.add_flag("--log", options.log, "Show the library's log on standard error");
    app.set_version_flag("--version", "zavctl " ZAVCTL_VERSION);
    app.require_subcommand(1)->fallthrough();
    for (const Verb& verb : verbs) {
        Define(app, verb, options, chosen);
    }
    app.footer(ScalarHelp() + footer); // after the verbs, which would inherit it
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& outcome) { // --help among them
        if (outcome.get_exit_code() == 0) {
            return app.exit(outcome);
        }
        const auto unknown = app.remaining(true);
        throw Failure(Cause::usage, unknown.empty() ? outcome.what()
                                                    : "'" + unknown[0] + "' is not expected here");
    }
    showLog = options.log;
    return chosen->run(options);
}

} // namespace

} // namespace cli

// NOLINTNEXTLINE(bugprone-exception-escape): what is no Failure is a fault of the program
int main(int argc, char** argv)
try {
    return cli::Main(argc, argv);
} catch (const cli::Failure& failure) {
    // Asked for also when the command line could not be read.
    const bool json =
        std::any_of(argv, argv + argc, [](std::string_view word) { return word == "--json"; });
    return cli::Report(failure, json);
}
