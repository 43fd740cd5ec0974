// SPDX-License-Identifier: MIT
//
// `zavctl doctor`: what stands between an application and its sound device.
#include "Request.h"
#include "Verbs.h"
#include "ZAVServiceBridgeAPI.h"
#include "zav-interfaces.h"

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <link.h>
#include <map>

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

Variant AskBus(const char* method, GVariant* arguments)
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
    } catch (const Failure& failure) {
        return {"bus", Result::fail, failure.what() + (" (" + where + ")"),
                "start the system bus, or correct or unset DBUS_SYSTEM_BUS_ADDRESS"};
    }
    return {"bus", Result::ok, where};
}

bool IsActivatable()
{
    const Variant reply = AskBus("ListActivatableNames", nullptr);
    g_autofree const char** names = nullptr;
    g_variant_get(reply.get(), "(^a&s)", &names);
    return g_strv_contains(names, kService) != FALSE;
}

Finding CheckService(bool& running)
{
    try {
        const guint32 process = AskBusNumber("GetConnectionUnixProcessID");
        const guint32 user = AskBusNumber("GetConnectionUnixUser");
        running = true;
        return {"service", Result::ok,
                "process " + std::to_string(process) + " of user " + std::to_string(user)};
    } catch (const Failure&) {
        if (IsActivatable()) {
            return {"service", Result::warn, "not running; the bus starts it on the first request",
                    "start it now with any request, such as: zavctl get ready"};
        }
        return {"service", Result::fail, "not running, and the bus does not know how to start it",
                "start ZAVService, or zav-sim in its place"};
    }
}

Finding CheckAccess()
{
    try {
        CallBus(kService, kPath, "org.freedesktop.DBus.Peer", "Ping", nullptr, 1000);
        return {"access", Result::ok, "calls reach the service"};
    } catch (const Failure& failure) {
        const bool denied = failure.cause == Cause::denied;
        return {"access", Result::fail, failure.what(),
                denied ? "allow this user to send to org.kelmar.tv.zav in the bus's policy"
                       : "restart the service: it does not answer"};
    }
}

/** What the bus's rules do cannot be asked; whether any were installed for the service can. */
Finding CheckPolicy()
{
    for (const char* folder : {"/etc/dbus-1/system.d/", "/usr/share/dbus-1/system.d/"}) {
        const std::string path = std::string(folder) + kService + ".conf";
        if (std::filesystem::exists(path)) {
            return {"policy", Result::ok, path};
        }
    }
    return {"policy", Result::warn,
            "no policy for org.kelmar.tv.zav is installed: the bus may let any sender's signals "
            "through to callbacks",
            "install org.kelmar.tv.zav.conf in /usr/share/dbus-1/system.d; on a private bus never "
            "mind"};
}

/** The library's connecting waits for this answer, for longer than for any request. */
Finding CheckProperties()
{
    try {
        CallBus(kService, kPath, "org.freedesktop.DBus.Properties", "GetAll",
                g_variant_new("(s)", kService), 1000);
    } catch (const Failure& failure) {
        if (failure.cause == Cause::noAnswer) {
            return {"properties", Result::fail, "GetAll was not answered within a second",
                    "make the service answer GetAll, if only by an error: connecting waits for it"};
        }
    }
    return {"properties", Result::ok, "GetAll is answered"};
}

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
    const Variant reply = CallBus(kService, kPath, "org.freedesktop.DBus.Introspectable",
                                  "Introspect", nullptr, 1000);
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
                "make the service introspectable"};
    }
    if (missing.empty()) {
        return {"interface", Result::ok, std::to_string(expected.size()) + " members as expected"};
    }
    std::string all;
    for (const std::string& member : missing) {
        all += (all.empty() ? "lacks " : ", ") + member;
    }
    return {"interface", Result::fail, all, "install a service and a library that fit together"};
}

std::vector<Finding> LoadedLibraries()
{
    std::vector<Finding> findings;
    const auto add = [](dl_phdr_info* info, size_t /*size*/, void* list) {
        static constexpr std::pair<const char*, const char*> libraries[] = {
            {"libzavservice-api.so", "library"},
            {"libplatform-log.so", "log"},
            {"libruvi-lumo.so", "trace"}};
        for (const auto& [file, check] : libraries) {
            if (std::filesystem::path(info->dlpi_name).filename() == file) {
                static_cast<std::vector<Finding>*>(list)->push_back(
                    {check, Result::ok, info->dlpi_name});
            }
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
    return {"exports", Result::fail, "missing:" + missing, "install the library of this version"};
}

Finding CheckRecords()
{
    const int state = get_size_of_SpeakerManagerState();
    const std::string detail = "SpeakerManagerState " + std::to_string(state) +
                               " bytes, SCLSpkInfo " + std::to_string(sizeof(SCLSpkInfo));
    const bool right = state == 60 && sizeof(SCLSpkInfo) == 148;
    return {"records", right ? Result::ok : Result::fail, detail,
            right ? "" : "install the library of this version: 60 and 148 are right"};
}

std::vector<Finding> Examine()
{
    std::vector<Finding> findings{CheckBus()};
    if (findings[0].result == Result::ok) {
        bool running = false;
        findings.push_back(CheckService(running));
        if (running) {
            for (const auto check : {CheckAccess, CheckProperties, CheckInterface}) {
                findings.push_back(check());
            }
        }
    }
    findings.push_back(CheckPolicy());
    std::ranges::copy(LoadedLibraries(), std::back_inserter(findings));
    findings.push_back(CheckExports());
    findings.push_back(CheckRecords());
    return findings;
}

const char* Word(Result result)
{
    constexpr const char* words[] = {"ok", "warn", "fail"};
    return words[static_cast<int>(result)];
}

} // namespace

int Doctor(const Options& options)
{
    json list = json::array();
    std::vector<Row> rows;
    std::string failed;
    for (const Finding& finding : Examine()) {
        constexpr int colours[] = {32, 33, 31};
        const char* word = Word(finding.result);
        list.push_back({{"check", finding.check},
                        {"result", word},
                        {"detail", finding.detail},
                        {"remedy", finding.remedy}});
        rows.push_back({Coloured(word, colours[static_cast<int>(finding.result)]), finding.check,
                        finding.detail});
        if (!finding.remedy.empty()) {
            rows.push_back({"", "remedy", finding.remedy});
        }
        if (finding.result == Result::fail) {
            failed += std::string(" ") + finding.check;
        }
    }
    if (!options.json) {
        PrintRows(rows);
    } else if (failed.empty()) {
        PrintJson({{"checks", list}});
    }
    if (failed.empty()) {
        return 0;
    }
    const Failure failure(Cause::failed, "failed:" + failed);
    return Report(failure, options.json, {{"checks", list}});
}

} // namespace cli
