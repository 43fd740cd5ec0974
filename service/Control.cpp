// SPDX-License-Identifier: MIT
#include "Control.h"

#include "zav-interfaces.h"

#include <gio/gio.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>
#include <utility>

namespace
{

void Require(bool holds, const std::string& otherwise)
{
    if (!holds) {
        throw std::invalid_argument(otherwise);
    }
}

std::string Quoted(const std::string& text)
{
    return "'" + text + "'";
}

/**
 * GVariant knows types that D-Bus does not, and the bus hangs up on whoever sends them: maybes,
 * empty tuples inside of others, entries without a dictionary, signatures of more than 255.
 */
bool FitsTheWire(GVariant* body)
{
    const std::string_view type = g_variant_get_type_string(body);
    const auto isLooseEntry = [](char before, char c) { return c == '{' && before != 'a'; };
    if (type.size() > std::size("()") - 1 + 255 || !g_variant_is_signature(type.data()) ||
        std::ranges::adjacent_find(type, isLooseEntry) != type.end()) {
        return false;
    }

    g_autoptr(GDBusMessage) message = g_dbus_message_new_signal("/", "a.b", "c");
    g_dbus_message_set_body(message, body);
    gsize size = 0;
    g_autofree guchar* bytes =
        g_dbus_message_to_blob(message, &size, G_DBUS_CAPABILITY_FLAGS_NONE, nullptr);
    return bytes != nullptr;
}

guint Milliseconds(const std::string& text)
{
    guint value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    Require(fault == std::errc() && end == text.data() + text.size(),
            Quoted(text) + " is not a number of milliseconds");
    return value;
}

Variant Body(const std::string& text)
{
    g_autoptr(GError) error = nullptr;
    GVariant* parsed =
        g_variant_parse(nullptr, text.data(), text.data() + text.size(), nullptr, &error);
    Require(parsed != nullptr, Quoted(text) + " is not a value: " + (error ? error->message : ""));
    const Variant value = Hold(parsed);
    const bool whole = g_variant_is_of_type(parsed, G_VARIANT_TYPE_TUPLE) != FALSE;
    Variant body = whole ? value : Hold(g_variant_new_tuple(&parsed, 1));
    Require(FitsTheWire(body.get()), "D-Bus cannot carry " + text);
    return body;
}

/** What stands before the separator, and what after it; nothing without one. */
std::pair<std::string, std::optional<std::string>> Split(const std::string& text, char separator)
{
    const size_t place = text.find(separator);
    if (place == std::string::npos) {
        return {text, std::nullopt};
    }
    return {text.substr(0, place), text.substr(place + 1)};
}

} // namespace

Control Control::Parse(const std::string& text)
{
    const auto [verb, rest] = Split(text, ' ');
    const auto [name, value] = Split(rest.value_or(""), '=');
    const bool isAlone = verb == "clear" || verb == "reset" || verb == "quit";
    const bool hasMethod = verb == "delay" || verb == "fail" || verb == "hang" || verb == "reply";
    Require((isAlone && rest.value_or("").empty()) || (hasMethod && (verb != "hang" || !value)) ||
                verb == "emit",
            "there is no control " + Quoted(text));

    // GDBus counts references in the description, though not in one that is static.
    auto* interface = const_cast<GDBusInterfaceInfo*>(&org_kelmar_tv_zav_interface);
    Require(!hasMethod || g_dbus_interface_info_lookup_method(interface, name.c_str()) != nullptr,
            "the service has no method " + Quoted(name));
    Require(verb != "emit" || g_dbus_interface_info_lookup_signal(interface, name.c_str()),
            "the service has no signal " + Quoted(name));

    Control control{verb, name};
    if (verb == "delay") {
        control.milliseconds = Milliseconds(value.value_or(""));
    } else if (verb == "fail") {
        control.error = value.value_or("org.freedesktop.DBus.Error.Failed");
        // The bus gives error names and interface names the same form.
        Require(g_dbus_is_interface_name(control.error.c_str()) != FALSE,
                Quoted(control.error) + " is not an error name");
    } else if (verb == "reply" || verb == "emit") {
        control.body = Body(value.value_or(verb == "emit" ? "()" : ""));
    }
    return control;
}
