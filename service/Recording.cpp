// SPDX-License-Identifier: MIT
#include "Recording.h"

#include "zav-interfaces.h"

#include <algorithm>

namespace
{

std::string Plain(const char* text)
{
    return text == nullptr ? "" : text;
}

/** NAME=BODY. */
std::string WithBody(const std::string& name, GDBusMessage& message)
{
    GVariant* const body = g_dbus_message_get_body(&message);
    g_autofree char* text = body == nullptr ? g_strdup("()") : g_variant_print(body, TRUE);
    return name + '=' + text;
}

} // namespace

/** Whether it is of the interface, and of what that has. */
bool Recording::IsOfService(GDBusMessage& message)
{
    auto* const known = const_cast<GDBusInterfaceInfo*>(&org_kelmar_tv_zav_interface);
    if (Plain(g_dbus_message_get_interface(&message)) != known->name) {
        return false;
    }
    const char* const member = g_dbus_message_get_member(&message);
    const bool isCall =
        g_dbus_message_get_message_type(&message) == G_DBUS_MESSAGE_TYPE_METHOD_CALL;
    const bool isKnown = isCall ? g_dbus_interface_info_lookup_method(known, member) != nullptr
                                : g_dbus_interface_info_lookup_signal(known, member) != nullptr;
    m_unknown += isKnown ? 0 : 1;
    return isKnown;
}

void Recording::Add(GDBusMessage& message, std::int64_t time)
{
    m_start = m_start == 0 ? time : m_start;
    const double seconds = static_cast<double>(time - m_start) / 1e9;
    const bool isWanted =
        seconds >= m_excerpt.from && (m_excerpt.to == 0 || seconds <= m_excerpt.to);
    switch (g_dbus_message_get_message_type(&message)) {
    case G_DBUS_MESSAGE_TYPE_METHOD_CALL:
        if (isWanted && IsOfService(message)) {
            AddCall(message, time);
        }
        break;
    case G_DBUS_MESSAGE_TYPE_SIGNAL:
        if (isWanted && IsOfService(message)) {
            AddSignal(message, time);
        }
        break;
    default:
        AddAnswer(message, time);
    }
}

void Recording::AddCall(GDBusMessage& message, std::int64_t time)
{
    const std::string method = g_dbus_message_get_member(&message);
    // A message may have flags that the enumeration does not know.
    const auto flags = static_cast<unsigned>(g_dbus_message_get_flags(&message));
    m_exchanges.push_back({method, time, {}});
    if ((flags & G_DBUS_MESSAGE_FLAGS_NO_REPLY_EXPECTED) != 0) {
        m_exchanges.back().steps.push_back({{"after", 0}, {"reply", method + "=()"}});
    } else {
        m_open[{Plain(g_dbus_message_get_sender(&message)), g_dbus_message_get_serial(&message)}] =
            m_exchanges.size() - 1;
    }
}

void Recording::AddSignal(GDBusMessage& message, std::int64_t time)
{
    const bool isFirst = m_exchanges.empty();
    const std::int64_t start = isFirst ? m_start : m_exchanges.back().start;
    (isFirst ? m_before : m_exchanges.back().steps)
        .push_back({{isFirst ? "at" : "after", Milliseconds(start, time)},
                    {"emit", WithBody(g_dbus_message_get_member(&message), message)}});
}

void Recording::AddAnswer(GDBusMessage& message, std::int64_t time)
{
    const auto call = m_open.find({Plain(g_dbus_message_get_destination(&message)),
                                   g_dbus_message_get_reply_serial(&message)});
    if (call == m_open.end()) {
        return;
    }
    Exchange& exchange = m_exchanges[call->second];
    json step = {{"after", Milliseconds(exchange.start, time)}};
    if (const char* const error = g_dbus_message_get_error_name(&message)) {
        step["fail"] = exchange.method + '=' + error;
    } else {
        step["reply"] = WithBody(exchange.method, message);
    }
    exchange.steps.push_back(std::move(step));
    m_open.erase(call);
}

/** Never less than none: a clock may be set back while it is recorded. */
std::int64_t Recording::Milliseconds(std::int64_t from, std::int64_t to) const
{
    const double milliseconds = static_cast<double>(to - from) / 1e6 / m_excerpt.speed;
    return static_cast<std::int64_t>(std::clamp(milliseconds, 0.0, double{G_MAXINT}));
}

void Recording::Print(std::ostream& out) const
{
    for (const json& step : m_before) {
        out << step.dump() << '\n';
    }
    for (const Exchange& exchange : m_exchanges) {
        out << json({{"call", exchange.method}}).dump() << '\n';
        for (const json& step : exchange.steps) {
            out << step.dump() << '\n';
        }
    }
}
