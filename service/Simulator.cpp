// SPDX-License-Identifier: MIT
#include "Simulator.h"

#include "zav-interfaces.h"

#include <algorithm>
#include <iostream>
#include <stdexcept>
#include <utility>

namespace
{

constexpr const char* kServicePath = "/org/kelmar/tv/zav";
constexpr const char* kControlPath = "/org/kelmar/tv/zav/sim";

} // namespace

Simulator::Simulator(GDBusConnection* bus, bool beQuiet, GMainLoop* mainLoop)
    : m_connection(bus), m_quiet(beQuiet), m_loop(mainLoop)
{
    const auto onCall = [](GDBusConnection*, const char*, const char* path, const char*,
                           const char*, GVariant*, GDBusMethodInvocation* invocation,
                           gpointer self) {
        auto& simulator = *static_cast<Simulator*>(self);
        std::string_view(path) == kServicePath ? simulator.Receive(invocation)
                                               : simulator.ReceiveControl(invocation);
    };
    const GDBusInterfaceVTable vtable = {onCall, nullptr, nullptr, {}};
    for (const auto& [path, interface] :
         {std::pair(kServicePath, &org_kelmar_tv_zav_interface),
          std::pair(kControlPath, &org_kelmar_tv_zav_sim_interface)}) {
        g_dbus_connection_register_object(m_connection, path,
                                          const_cast<GDBusInterfaceInfo*>(interface), &vtable, this,
                                          nullptr, nullptr);
    }
}

void Simulator::ReceiveControl(GDBusMethodInvocation* invocation)
try {
    GVariant* args = g_dbus_method_invocation_get_parameters(invocation);
    GVariant* reply = nullptr;
    if (g_variant_n_children(args) == 0) {
        GVariantBuilder list;
        g_variant_builder_init(&list, G_VARIANT_TYPE("a(sss)"));
        for (const Variant& call : m_calls) {
            g_variant_builder_add_value(&list, call.get());
        }
        reply = g_variant_new("(a(sss)uu)", &list, static_cast<guint>(m_peak),
                              static_cast<guint>(m_dropped));
    } else {
        const char* text = nullptr;
        g_variant_get(args, "(&s)", &text);
        Apply(Control::Parse(text));
    }
    g_dbus_method_invocation_return_value(invocation, reply);
} catch (const std::invalid_argument& fault) {
    g_dbus_method_invocation_return_error_literal(invocation, G_DBUS_ERROR,
                                                  G_DBUS_ERROR_INVALID_ARGS, fault.what());
}

void Simulator::Apply(const Control& control)
{
    const std::string& verb = control.verb;
    if (verb == "emit") {
        Emit(control.name, control.body);
    } else if (verb == "clear") {
        Clear();
    } else if (verb == "reset") {
        Reset();
    } else if (verb == "quit") {
        // Whoever told it so may start another service as soon as this is answered.
        [[maybe_unused]] g_autoptr(GVariant) released = g_dbus_connection_call_sync(
            m_connection, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus",
            "ReleaseName", g_variant_new("(s)", org_kelmar_tv_zav_interface.name), nullptr,
            G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr);
        g_main_loop_quit(m_loop);
    } else if (Fault& fault = m_faults[control.name]; verb != "delay") {
        fault = {verb == "hang" ? 0 : fault.delay, control};
    } else if (fault.instead.verb == "hang") {
        fault = {control.milliseconds};
    } else {
        fault.delay = control.milliseconds;
    }
}

void Simulator::Play(const Scenario& scenario)
{
    for (const Step& step : scenario.steps) {
        Schedule(step, 0);
    }
    for (const Expected& call : scenario.calls) {
        m_expected[call.method].push_back(call.steps);
    }
}

void Simulator::Schedule(const Step& step, size_t call)
{
    ScheduledStep& one = m_scheduled.emplace_back(ScheduledStep{*this, step, call});
    one.timer = g_timeout_add(
        step.at,
        [](gpointer data) -> gboolean {
            const auto& self = *static_cast<ScheduledStep*>(data);
            self.simulator.Run(self);
            return G_SOURCE_REMOVE;
        },
        &one);
}

void Simulator::Run(const ScheduledStep& one)
{
    const auto [simulator, step, number, timer] = one;
    m_scheduled.remove_if([&one](const ScheduledStep& other) { return &other == &one; });
    if (step.every != 0) {
        Schedule({step.every, step.every, step.control}, number);
    }
    const std::string& verb = step.control.verb;
    const bool isAnswer = verb.empty() || verb == "reply" || verb == "fail";
    const auto call = std::ranges::find(m_open, number, &OpenCall::number);
    if (number == 0 || !isAnswer) {
        Apply(step.control);
    } else if (call != m_open.end()) {
        call->fault = {step.at, step.control};
        Answer(*call);
    }
}

void Simulator::Receive(GDBusMethodInvocation* invocation)
{
    const std::string method = g_dbus_method_invocation_get_method_name(invocation);
    GVariant* args = g_dbus_method_invocation_get_parameters(invocation);
    m_calls.push_back(Hold(g_variant_new("(sss)", method.c_str(), Print(args).c_str(),
                                         g_dbus_method_invocation_get_sender(invocation))));
    if (m_calls.size() > kMaxCalls) {
        m_calls.pop_front();
        ++m_dropped;
    }

    OpenCall& call =
        m_open.emplace_back(OpenCall{{invocation, g_object_unref}, m_faults[method], ++m_received});
    m_peak = std::max(m_peak, m_open.size());

    if (auto& next = m_expected[method]; !next.empty()) {
        for (const Step& step : next.front()) {
            Schedule(step, call.number);
        }
        next.pop_front();
    } else if (call.fault.instead.verb == "hang") {
        Tell(method + " " + Print(args) + " -> hang");
    } else if (call.fault.delay == 0) {
        Answer(call);
    } else {
        Schedule({call.fault.delay, 0, call.fault.instead}, call.number);
    }
}

/** Carries the call out, or what is set in its place, and forgets it. */
void Simulator::Answer(OpenCall& call)
{
    const std::string method = g_dbus_method_invocation_get_method_name(call.invocation.get());
    GVariant* args = g_dbus_method_invocation_get_parameters(call.invocation.get());
    GDBusMessage* request = g_dbus_method_invocation_get_message(call.invocation.get());
    const auto& [verb, name, milliseconds, error, given] = call.fault.instead;
    std::string line = method + " " + Print(args) + " -> ";

    // The message is made by hand: GDBus would not let a reply pass that is not of the method's
    // type, and such replies are what this program is for.
    g_autoptr(GDBusMessage) answer = nullptr;
    if (verb == "fail") {
        answer = g_dbus_message_new_method_error_literal(request, error.c_str(),
                                                         "as the simulator was told");
        line += "error " + error;
    } else {
        // Signals go first: a caller that has its reply can rely on having them as well.
        const Variant body = given ? given : m_service.Answer(method, args);
        answer = g_dbus_message_new_method_reply(request);
        g_dbus_message_set_body(answer, body.get());
        line += Print(body.get());
    }
    if (call.fault.delay != 0) {
        line += " after " + std::to_string(call.fault.delay) + " ms";
    }

    // Told before it is done: a caller that has its reply can rely on the line.
    const bool asked =
        (g_dbus_message_get_flags(request) & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) == 0;
    Tell(line + (asked ? "" : " (not sent: no reply asked for)"));
    if (asked) {
        g_dbus_connection_send_message(m_connection, answer, G_DBUS_SEND_MESSAGE_FLAGS_NONE,
                                       nullptr, nullptr);
    }
    m_open.remove_if([&call](const OpenCall& other) { return &other == &call; });
}

void Simulator::Emit(const std::string& signal, const Variant& body)
{
    g_dbus_connection_emit_signal(m_connection, nullptr, kServicePath,
                                  org_kelmar_tv_zav_interface.name, signal.c_str(), body.get(),
                                  nullptr);
    Tell("signal " + signal + " " + Print(body.get()));
}

void Simulator::Clear()
{
    m_calls.clear();
    m_dropped = 0;
    m_peak = m_open.size();
}

void Simulator::Reset()
{
    while (!m_open.empty()) {
        OpenCall& call = m_open.front();
        call.fault = {0, {.verb = "fail", .error = "org.freedesktop.DBus.Error.Failed"}};
        Answer(call);
    }
    m_service = ZavService(m_service.emit);
    m_faults.clear();
    m_expected.clear();
    m_scheduled.remove_if([](const ScheduledStep& one) {
        return one.call != 0 && g_source_remove(one.timer) != FALSE;
    });
    Clear();
}

void Simulator::Tell(const std::string& line) const
{
    if (!m_quiet && !(std::cout << line << std::endl)) {
        g_main_loop_quit(m_loop);
    }
}
