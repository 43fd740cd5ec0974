// SPDX-License-Identifier: MIT
/** @file main.cpp zav-sim: a ZAVService without a television, which also misbehaves on command. */
#include "Scenario.h"
#include "Simulator.h"

#include <CLI/CLI.hpp>
#include <gio/gio.h>
#include <glib-unix.h>

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <iterator>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

namespace
{

constexpr const char* kBusName = "org.kelmar.tv.zav";
constexpr int kBadUsage = 2;

constexpr const char* kFooter = R"help(
VALUE is in GVariant's text form, such as 5 or ([byte 0x71, 1], 2, 16): a tuple is the whole body,
anything else its only member. A scenario has a JSON object on each line, such as
  {"at": 500, "every": 100, "emit": "SetCbSoundModeChange=(5,)"}
with milliseconds since ready, perhaps milliseconds until it is done again, and one of delay, fail,
hang, reply, emit, clear, reset, quit; or what follows a call, as `zavctl scenario` writes it. zav-sim(1) tells more; `zavctl sim` does the same while it
runs, on the bus of DBUS_SYSTEM_BUS_ADDRESS, else the system bus.
Exit status: 0 ended by SIGINT, SIGTERM or quit; 1 no bus, bus lost, name taken, or output that
cannot be written; 2 bad usage.
)help";

struct Options
{
    std::vector<Control> faults;
    std::vector<Scenario> scenarios;
    bool quiet = false;
};

Scenario ReadScenarioFile(const std::string& path)
try {
    std::ifstream file(path);
    Scenario scenario = ReadScenario(file);
    if (!file.eof()) {
        throw std::invalid_argument(" cannot be read");
    }
    return scenario;
} catch (const std::invalid_argument& fault) {
    throw std::invalid_argument(path + ":" + fault.what());
}

void Define(CLI::App& app, Options& options)
{
    const auto fault = [&](const std::string& verb, const char* value, const char* help) {
        app.add_option_function<std::string>(
               "--" + verb,
               [&options, verb](const std::string& text) {
                   options.faults.push_back(Control::Parse(verb + " " + text));
               },
               help)
            ->type_name(value)
            ->trigger_on_parse(); // one call for each time that the option is given
    };
    fault("delay", "METHOD=MS", "Answer a method after so many milliseconds");
    fault("fail", "METHOD[=ERROR]", "Answer a method with a D-Bus error");
    fault("hang", "METHOD", "Never answer a method");
    fault("reply", "METHOD=VALUE", "Answer a method with this body, of any type");
    app.add_option_function<std::string>(
           "--scenario",
           [&options](const std::string& path) {
               options.scenarios.push_back(ReadScenarioFile(path));
           },
           "Do what the file says, when it says so")
        ->type_name("FILE")
        ->trigger_on_parse();
    app.add_flag("--quiet", options.quiet, "Print no calls and signals");
    app.set_version_flag("--version", "zav-sim " ZAV_VERSION);
    app.footer(kFooter);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string("zav-sim: ") + error.what() + "\n";
    });
}

void OwnName(GDBusConnection* connection)
{
    constexpr guint doNotQueue = 4;
    constexpr guint primaryOwner = 1;
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) answer = g_dbus_connection_call_sync(
        connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
        "RequestName", g_variant_new("(su)", kBusName, doNotQueue), G_VARIANT_TYPE("(u)"),
        G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (!answer) {
        throw std::runtime_error(std::string("cannot own ") + kBusName + ": " + error->message);
    }
    guint result = 0;
    g_variant_get(answer, "(u)", &result);
    if (result != primaryOwner) {
        throw std::runtime_error(std::string(kBusName) + " has another owner on this bus");
    }
}

gboolean EndLoop(gpointer loop)
{
    g_main_loop_quit(static_cast<GMainLoop*>(loop));
    return G_SOURCE_CONTINUE;
}

void Run(const Options& options)
{
    g_autoptr(GError) error = nullptr;
    g_autoptr(GDBusConnection) connection = g_bus_get_sync(G_BUS_TYPE_SYSTEM, nullptr, &error);
    if (!connection) {
        throw std::runtime_error(std::string("no bus: ") + error->message);
    }
    g_autoptr(GMainLoop) loop = g_main_loop_new(nullptr, FALSE);
    // Left to itself, GIO ends a process that loses the bus by SIGTERM, and so without a message.
    g_dbus_connection_set_exit_on_close(connection, FALSE);
    g_signal_connect_swapped(connection, "closed", G_CALLBACK(g_main_loop_quit), loop);
    g_unix_signal_add(SIGINT, EndLoop, loop);
    g_unix_signal_add(SIGTERM, EndLoop, loop);

    Simulator simulator(connection, options.quiet, loop);
    for (const Control& fault : options.faults) {
        simulator.Apply(fault);
    }
    OwnName(connection);
    for (const Scenario& scenario : options.scenarios) {
        simulator.Play(scenario);
    }

    if (std::cout << "zav-sim: ready" << std::endl) {
        g_main_loop_run(loop);
    }
    if (!g_dbus_connection_flush_sync(connection, nullptr, nullptr)) {
        throw std::runtime_error("the bus has gone");
    }
    if (!std::cout) {
        throw std::runtime_error("standard output cannot be written");
    }
}

} // namespace

int main(int argc, char** argv)
try {
    CLI::App app("A simulated ZAVService, for applications without a television and for tests.",
                 "zav-sim");
    Options options;
    Define(app, options);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& outcome) { // --help among them
        return app.exit(outcome) == 0 ? EXIT_SUCCESS : kBadUsage;
    }
    Run(options);
    return EXIT_SUCCESS;
} catch (const std::invalid_argument& fault) {
    std::cerr << "zav-sim: " << fault.what() << '\n';
    return kBadUsage;
} catch (const std::runtime_error& fault) {
    std::cerr << "zav-sim: " << fault.what() << '\n';
    return EXIT_FAILURE;
}
