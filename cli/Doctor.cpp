// SPDX-License-Identifier: MIT
//
// `zavctl doctor`: what stands between an application and its sound device.
#include "Request.h"
#include "Verbs.h"
#include "ZAVServiceBridgeAPI.h"
#include "zav-interfaces.h"

#include <cmath>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <iterator>
#include <link.h>
#include <set>
#include <unistd.h>

namespace cli
{

namespace
{

constexpr const char* kInstall =
    "apt-get install --reinstall libzavservice-api && systemctl reload dbus";

/** Of a check. A Failure that it throws is one as well, with the remedy for its cause. */
struct Finding
{
    std::string result; ///< ok, warn or fail
    std::string detail;
    std::string remedy = {}; ///< a command
};

std::string AskAboutService(const char* method)
{
    guint32 number = 0;
    g_variant_get(AskBus(method).get(), "(u)", &number);
    return std::to_string(number);
}

std::string RemedyFor(const Cause& cause)
{
    if (cause == Cause::kNoBus) {
        return std::getenv("DBUS_SYSTEM_BUS_ADDRESS") == nullptr ? "systemctl start dbus"
                                                                 : "unset DBUS_SYSTEM_BUS_ADDRESS";
    }
    if (cause == Cause::kNoAnswer) { // whatever started it does so again
        return "kill " + AskAboutService("GetConnectionUnixProcessID") + " && zavctl wait --ready";
    }
    return cause == Cause::kNotRunning ? "zav-sim &" : kInstall;
}

Finding CheckBus()
{
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    Bus();
    return {"ok", address == nullptr ? "the system's own; DBUS_SYSTEM_BUS_ADDRESS is not set"
                                     : std::string("DBUS_SYSTEM_BUS_ADDRESS=") + address};
}

Finding CheckService()
{
    g_autofree const char** activatable = nullptr;
    const Variant names = AskBus("ListActivatableNames", nullptr);
    g_variant_get(names.get(), "(^a&s)", &activatable);
    try {
        return {"ok", "process " + AskAboutService("GetConnectionUnixProcessID") + " of user " +
                          AskAboutService("GetConnectionUnixUser")};
    } catch (const Failure& failure) {
        if (failure.cause != Cause::kNotRunning || !g_strv_contains(activatable, kService)) {
            throw;
        }
        return {"warn", "not running; the bus starts it on the first request", "zavctl get ready"};
    }
}

/** By a call like an application's: the bus may let others pass. */
Finding CheckAccess()
{
    Touch();
    return {"ok", "a call of the interface was answered"};
}

/** The library's connecting waits for this answer, for longer than for any request. */
Finding CheckProperties()
{
    const double start = Now();
    Touch("org.freedesktop.DBus.Properties", "GetAll", g_variant_new("(s)", kService));
    const long seconds = std::lround(std::floor(Now() - start));
    if (seconds == 0) {
        return {"ok", "GetAll is answered"};
    }
    return {"warn", "GetAll, for which connecting waits, took " + std::to_string(seconds) + " s",
            RemedyFor(Cause::kNoAnswer)};
}

std::string Signature(GDBusArgInfo** arguments)
{
    std::string signature;
    for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
        signature += (*arguments)->signature;
    }
    return "(" + signature + ")";
}

/** "method GetMode() -> (i)", "signal SetCbSoundModeChange(i)". */
std::set<std::string> Members(const GDBusInterfaceInfo& interface)
{
    std::set<std::string> members;
    for (auto** method = interface.methods; method != nullptr && *method != nullptr; ++method) {
        members.insert(std::string("method ") + (*method)->name + Signature((*method)->in_args) +
                       " -> " + Signature((*method)->out_args));
    }
    for (auto** signal = interface.signals; signal != nullptr && *signal != nullptr; ++signal) {
        members.insert(std::string("signal ") + (*signal)->name + Signature((*signal)->args));
    }
    return members;
}

Finding CheckInterface()
{
    const Variant reply =
        CallBus(kService, kPath, "org.freedesktop.DBus.Introspectable", "Introspect");
    const char* xml = nullptr;
    g_variant_get(reply.get(), "(&s)", &xml);
    g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(xml, nullptr);
    const GDBusInterfaceInfo* interface =
        node == nullptr ? nullptr : g_dbus_node_info_lookup_interface(node, kService);
    const auto there = interface == nullptr ? std::set<std::string>() : Members(*interface);
    const auto expected = Members(org_kelmar_tv_zav_interface);
    std::string missing;
    for (const std::string& member : expected) {
        if (!there.contains(member)) {
            missing += (missing.empty() ? "lacks " : ", ") + member;
        }
    }
    return missing.empty() ? Finding{"ok", std::to_string(expected.size()) + " members as expected"}
                           : Finding{"fail", missing, kInstall};
}

/**
 * By a signal like the service's, from this program to itself, that is none of those which an
 * application hears. What the bus lets through has come before the bus's next answer.
 */
Finding CheckPolicy()
{
    constexpr const char* member = "ZavctlDoctorProbe";
    static bool came = false;
    GDBusConnection* bus = Bus();
    g_dbus_connection_signal_subscribe(
        bus, nullptr, kService, member, kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](auto...) { came = true; }, nullptr, nullptr);
    g_dbus_connection_emit_signal(bus, g_dbus_connection_get_unique_name(bus), kPath, kService,
                                  member, nullptr, nullptr);
    AskBus("GetId", nullptr);
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    if (!came) {
        return {"ok", "a forged signal of the service did not come through"};
    }
    if (geteuid() == 0) {
        return {"warn",
                "could not be tried: root, whose signals the policy lets through, cannot forge one",
                "runuser -u nobody -- zavctl doctor"};
    }
    return {"warn",
            "a forged signal of the service came through: any program can call the callbacks of "
            "applications, or end them",
            kInstall};
}

/** The file that was loaded under a name. */
std::string Loaded(const char* name)
{
    link_map* map = nullptr;
    void* library = dlopen(name, RTLD_LAZY | RTLD_NOLOAD);
    return library != nullptr && dlinfo(library, RTLD_DI_LINKMAP, &map) == 0 ? map->l_name : "";
}

/** A stand-in is told by a variable where to write; the platform's own libraries know none. */
Finding CheckPlatform(const char* library, const char* variable)
{
    const std::string path = Loaded(library);
    std::ifstream file(path, std::ios::binary);
    const std::string content{std::istreambuf_iterator(file), {}};
    if (content.find(variable) == std::string::npos) {
        return {"ok", path};
    }
    return {"warn", path + ": a stand-in, for machines without the platform",
            "apt-get remove libzavservice-api-standins"};
}

Finding CheckExports()
{
    constexpr const char* exports[] = {
#include "Exports.inc"
    };
    for (const char* name : exports) {
        if (dlsym(RTLD_DEFAULT, name) == nullptr) {
            return {"fail", std::string("missing: ") + name, kInstall};
        }
    }
    return {"ok", std::to_string(std::size(exports)) + " functions"};
}

Finding CheckRecords()
{
    const int state = get_size_of_SpeakerManagerState();
    const bool right = state == 60 && sizeof(SCLSpkInfo) == 148;
    return {right ? "ok" : "fail",
            "SpeakerManagerState " + std::to_string(state) + " bytes, SCLSpkInfo " +
                std::to_string(sizeof(SCLSpkInfo)),
            right ? "" : kInstall};
}

/** In this order. Where one fails, those that need it are left out. */
constexpr struct
{
    const char* name;
    Finding (*run)();
    const char* needs = "";
} kChecks[] = {
    {"bus", CheckBus},
    {"service", CheckService, "bus"},
    {"access", CheckAccess, "service"},
    {"properties", CheckProperties, "access"},
    {"interface", CheckInterface, "access"},
    {"policy", CheckPolicy, "bus"},
    {"library",
     [] {
         return Finding{"ok", Loaded("libzavservice-api.so")};
     }},
    {"log", [] { return CheckPlatform("libplatform-log.so", "ZAV_LOG"); }},
    {"trace", [] { return CheckPlatform("libruvi-lumo.so", "LUMO_TRACE"); }},
    {"exports", CheckExports},
    {"records", CheckRecords},
};

Finding Run(Finding (*check)())
try {
    return check();
} catch (const Failure& failure) {
    return {"fail", failure.what(), RemedyFor(failure.cause)};
}

Action Doctor(CLI::App& /*verb*/)
{
    return [] {
        json list = json::array();
        std::vector<Row> rows;
        std::string failed;
        std::set<std::string> passed{""};
        for (const auto& [name, run, needs] : kChecks) {
            if (!passed.contains(needs)) {
                continue;
            }
            const auto [result, detail, remedy] = Run(run);
            list.push_back(
                {{"check", name}, {"result", result}, {"detail", detail}, {"remedy", remedy}});
            rows.push_back({result, name, detail});
            if (!remedy.empty()) {
                rows.push_back({"", "remedy", remedy});
            }
            if (result == "fail") {
                failed += std::string(" ") + name;
            } else if (result == "ok") {
                passed.insert(name);
            }
        }
        PrintOrThrow({{"checks", list}}, rows,
                     failed.empty() ? std::nullopt
                                    : std::optional(Failure(Cause::kFailed, "failed:" + failed)));
    };
}

} // namespace

const Verbs kDoctorVerbs = {
    {"doctor", "Check bus, service and library, with remedies", Doctor},
};

} // namespace cli
