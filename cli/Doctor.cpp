// SPDX-License-Identifier: MIT
//
// `zavctl doctor`: what stands between an application and its sound device.
#include "Request.h"
#include "Verbs.h"
#include "ZAVServiceBridgeAPI.h"
#include "zav-interfaces.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <link.h>
#include <unistd.h>

namespace cli
{

namespace
{

enum class Result
{
    ok,
    warn,
    fail
};

struct Finding
{
    const char* check;
    Result result;
    std::string detail;
    std::string remedy = {};
};

constexpr const char* exports[] = {
#include "Exports.inc"
};

Variant AskBus(const char* method, GVariant* arguments = nullptr)
{
    return CallBus(kBusService, "/org/freedesktop/DBus", kBusService, method, arguments);
}

guint32 AskBusNumber(const char* method)
{
    guint32 number = 0;
    g_variant_get(AskBus(method, g_variant_new("(s)", kService)).get(), "(u)", &number);
    return number;
}

Finding CheckBus()
{
    const char* address = std::getenv("DBUS_SYSTEM_BUS_ADDRESS");
    const std::string where = address == nullptr
                                  ? "the system's own; DBUS_SYSTEM_BUS_ADDRESS is not set"
                                  : std::string("DBUS_SYSTEM_BUS_ADDRESS=") + address;
    try {
        Bus();
        return {"bus", Result::ok, where};
    } catch (const Failure& failure) {
        return {"bus", Result::fail, failure.what() + (" (" + where + ")"),
                address == nullptr ? "systemctl start dbus" : "unset DBUS_SYSTEM_BUS_ADDRESS"};
    }
}

bool IsActivatable()
{
    const Variant reply = AskBus("ListActivatableNames");
    g_autofree const char** names = nullptr;
    g_variant_get(reply.get(), "(^a&s)", &names);
    return g_strv_contains(names, kService) != FALSE;
}

Finding CheckService()
{
    try {
        const guint32 process = AskBusNumber("GetConnectionUnixProcessID");
        const guint32 user = AskBusNumber("GetConnectionUnixUser");
        return {"service", Result::ok,
                "process " + std::to_string(process) + " of user " + std::to_string(user)};
    } catch (const Failure& failure) {
        if (failure.cause != Cause::notRunning) {
            return {"service", Result::fail, failure.what(), "systemctl restart dbus"};
        }
        if (IsActivatable()) {
            return {"service", Result::warn, "not running; the bus starts it on the first request",
                    "zavctl get ready"};
        }
        return {"service", Result::fail, "not running, and the bus does not know how to start it",
                "zav-sim &"};
    }
}

constexpr const char* kInstallPolicy =
    "apt-get install --reinstall libzavservice-api && systemctl reload dbus";

/** Ends a service that hangs: whatever starts it does so again. */
std::string Restart()
{
    return "kill " + std::to_string(AskBusNumber("GetConnectionUnixProcessID")) +
           " && zavctl wait --ready";
}

/** By a call like an application's: the bus may let others pass. */
Finding CheckAccess()
{
    try {
        Touch();
        return {"access", Result::ok, "a call of the interface was answered"};
    } catch (const Failure& failure) {
        return {"access", Result::fail, failure.what(),
                failure.cause == Cause::denied ? kInstallPolicy : Restart()};
    }
}

/**
 * By a signal like the service's, from this program to itself, that is none of those which an
 * application hears. What the bus lets through has come before the bus's next answer.
 */
Finding CheckPolicy()
{
    constexpr const char* member = "ZavctlDoctorProbe";
    static bool came;
    GDBusConnection* bus = Bus();
    g_dbus_connection_signal_subscribe(
        bus, nullptr, kService, member, kPath, nullptr, G_DBUS_SIGNAL_FLAGS_NONE,
        [](auto...) { came = true; }, nullptr, nullptr);
    g_dbus_connection_emit_signal(bus, g_dbus_connection_get_unique_name(bus), kPath, kService,
                                  member, nullptr, nullptr);
    AskBus("GetId");
    while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
    }
    if (!came) {
        return {"policy", Result::ok, "a forged signal of the service did not come through"};
    }
    if (geteuid() == 0) {
        return {"policy", Result::warn,
                "could not be tried: root, whose signals the policy lets through, cannot forge one",
                "runuser -u nobody -- zavctl doctor"};
    }
    return {"policy", Result::warn,
            "a forged signal of the service came through: any program can call the callbacks of "
            "applications, or end them",
            kInstallPolicy};
}

/** The library's connecting waits for this answer, for longer than for any request. */
Finding CheckProperties()
{
    constexpr double slow = 1;
    const double start = Now();
    try {
        CallBus(kService, kPath, "org.freedesktop.DBus.Properties", "GetAll",
                g_variant_new("(s)", kService));
    } catch (const Failure& failure) {
        if (failure.cause != Cause::refused) { // an error will do
            return {"properties", Result::fail,
                    std::string("GetAll, for which connecting waits: ") + failure.what(),
                    failure.cause == Cause::denied ? kInstallPolicy : Restart()};
        }
    }
    if (Now() - start > slow) {
        return {"properties", Result::warn,
                "GetAll, for which connecting waits, took " +
                    std::to_string(std::lround(Now() - start)) + " s",
                Restart()};
    }
    return {"properties", Result::ok, "GetAll is answered"};
}

constexpr const char* kInstallLibrary = "apt-get install --only-upgrade libzavservice-api";

std::string Signature(GDBusArgInfo** arguments)
{
    std::string signature;
    for (; arguments != nullptr && *arguments != nullptr; ++arguments) {
        signature += (*arguments)->signature;
    }
    return signature;
}

/** "method GetMode() -> (i)", "signal SetCbSoundModeChange(i)". */
std::vector<std::string> Members(const GDBusInterfaceInfo& interface)
{
    std::vector<std::string> members;
    for (auto** method = interface.methods; method != nullptr && *method != nullptr; ++method) {
        members.push_back(std::string("method ") + (*method)->name + "(" +
                          Signature((*method)->in_args) + ") -> (" +
                          Signature((*method)->out_args) + ")");
    }
    for (auto** signal = interface.signals; signal != nullptr && *signal != nullptr; ++signal) {
        members.push_back(std::string("signal ") + (*signal)->name + "(" +
                          Signature((*signal)->args) + ")");
    }
    std::ranges::sort(members);
    return members;
}

std::vector<std::string> LiveMembers()
{
    const Variant reply =
        CallBus(kService, kPath, "org.freedesktop.DBus.Introspectable", "Introspect");
    const char* xml = nullptr;
    g_variant_get(reply.get(), "(&s)", &xml);
    g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(xml, nullptr);
    const GDBusInterfaceInfo* live =
        node == nullptr ? nullptr : g_dbus_node_info_lookup_interface(node, kService);
    return live == nullptr ? std::vector<std::string>() : Members(*live);
}

Finding CheckInterface()
{
    const std::vector<std::string> expected = Members(org_kelmar_tv_zav_interface);
    std::vector<std::string> missing;
    try {
        std::ranges::set_difference(expected, LiveMembers(), std::back_inserter(missing));
    } catch (const Failure& failure) {
        return {"interface", Result::warn, std::string("cannot be seen: ") + failure.what(),
                "busctl --system introspect org.kelmar.tv.zav /org/kelmar/tv/zav"};
    }
    if (missing.empty()) {
        return {"interface", Result::ok, std::to_string(expected.size()) + " members as expected"};
    }
    std::string all;
    for (const std::string& member : missing) {
        all += (all.empty() ? "lacks " : ", ") + member;
    }
    return {"interface", Result::fail, all, kInstallLibrary};
}

/** Whether a file holds the text. */
bool Holds(const std::string& path, const std::string& text)
{
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator(file), {}).find(text) != std::string::npos;
}

/** A stand-in is told by a variable where to write; the platform's own libraries know none. */
std::vector<Finding> LoadedLibraries()
{
    std::vector<Finding> findings;
    const auto add = [](dl_phdr_info* info, size_t /*size*/, void* list) {
        static constexpr struct
        {
            const char* file;
            const char* check;
            const char* variable;
        } libraries[] = {{"libzavservice-api.so", "library", nullptr},
                         {"libplatform-log.so", "log", "ZAV_LOG"},
                         {"libruvi-lumo.so", "trace", "LUMO_TRACE"}};
        for (const auto& [file, check, variable] : libraries) {
            if (std::filesystem::path(info->dlpi_name).filename() != file) {
                continue;
            }
            Finding finding{check, Result::ok, info->dlpi_name};
            if (variable != nullptr && Holds(info->dlpi_name, variable)) {
                finding = {check, Result::warn,
                           finding.detail + ": a stand-in, for machines without the platform",
                           "apt-get remove libzavservice-api-standins"};
            }
            static_cast<std::vector<Finding>*>(list)->push_back(finding);
        }
        return 0;
    };
    dl_iterate_phdr(add, &findings);
    return findings;
}

Finding CheckExports()
{
    std::string missing;
    for (const char* name : exports) {
        if (dlsym(RTLD_DEFAULT, name) == nullptr) {
            missing += std::string(" ") + name;
        }
    }
    if (missing.empty()) {
        return {"exports", Result::ok, std::to_string(std::size(exports)) + " functions"};
    }
    return {"exports", Result::fail, "missing:" + missing, kInstallLibrary};
}

Finding CheckRecords()
{
    const int state = get_size_of_SpeakerManagerState();
    const std::string detail = "SpeakerManagerState " + std::to_string(state) +
                               " bytes, SCLSpkInfo " + std::to_string(sizeof(SCLSpkInfo));
    const bool right = state == 60 && sizeof(SCLSpkInfo) == 148;
    return {"records", right ? Result::ok : Result::fail, detail, right ? "" : kInstallLibrary};
}

std::vector<Finding> Examine()
{
    std::vector<Finding> findings{CheckBus()};
    if (findings.back().result == Result::ok) {
        findings.push_back(CheckService());
        if (findings.back().result == Result::ok) {
            findings.push_back(CheckAccess());
        }
        if (std::string_view(findings.back().check) == "access" && !abandoned) {
            findings.push_back(CheckProperties());
            findings.push_back(CheckInterface());
        }
        findings.push_back(CheckPolicy());
    }
    std::ranges::copy(LoadedLibraries(), std::back_inserter(findings));
    findings.push_back(CheckExports());
    findings.push_back(CheckRecords());
    return findings;
}

Action Doctor(CLI::App& /*verb*/)
{
    return [] {
        constexpr std::pair<const char*, int> words[] = {{"ok", 32}, {"warn", 33}, {"fail", 31}};
        json list = json::array();
        std::vector<Row> rows;
        std::string failed;
        for (const Finding& finding : Examine()) {
            const auto& [word, colour] = words[static_cast<int>(finding.result)];
            list.push_back({{"check", finding.check},
                            {"result", word},
                            {"detail", finding.detail},
                            {"remedy", finding.remedy}});
            rows.push_back({Cell(word, colour), finding.check, finding.detail});
            if (!finding.remedy.empty()) {
                rows.push_back({"", "remedy", finding.remedy});
            }
            if (finding.result == Result::fail) {
                failed += std::string(" ") + finding.check;
            }
        }
        const json data = {{"checks", list}};
        if (failed.empty()) {
            return Print(data, rows);
        }
        if (!asJson) {
            PrintRows(rows);
        }
        throw Failure(Cause::failed, "failed:" + failed, data);
    };
}

} // namespace

const Verbs doctorVerbs = {
    {"doctor", "Check bus, service and library, with remedies", Doctor},
};

} // namespace cli
