// SPDX-License-Identifier: MIT
#include "Control.h"

#include "zav-interfaces.h"

#include <gio/gio.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <optional>
#include <stdexcept>
#include <utility>

namespace
{

GDBusInterfaceInfo* Interface()
{
    // GDBus counts references in the description, though not in one that is static.
    return const_cast<GDBusInterfaceInfo*>(&org_kelmar_tv_zav_interface);
}

std::string Quoted(const std::string& text)
{
    return "'" + text + "'";
}

std::string Method(const std::string& name)
{
    const auto* method = g_dbus_interface_info_lookup_method(Interface(), name.c_str());
    if (method == nullptr) {
        throw std::invalid_argument("the service has no method " + Quoted(name));
    }
    return method->name;
}

std::string Signal(const std::string& name)
{
    const auto* signal = g_dbus_interface_info_lookup_signal(Interface(), name.c_str());
    if (signal == nullptr) {
        throw std::invalid_argument("the service has no signal " + Quoted(name));
    }
    return signal->name;
}

std::string Error(const std::string& name)
{
    // The bus gives error names and interface names the same form.
    if (g_dbus_is_interface_name(name.c_str()) == FALSE) {
        throw std::invalid_argument(Quoted(name) + " is not an error name");
    }
    return name;
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
    if (fault != std::errc() || end != text.data() + text.size()) {
        throw std::invalid_argument(Quoted(text) + " is not a number of milliseconds");
    }
    return value;
}

Variant Body(const std::string& text)
{
    g_autoptr(GError) error = nullptr;
    GVariant* parsed =
        g_variant_parse(nullptr, text.data(), text.data() + text.size(), nullptr, &error);
    if (parsed == nullptr) {
        throw std::invalid_argument(Quoted(text) + " is not a value: " + error->message);
    }
    const Variant value = Hold(parsed);
    const bool whole = g_variant_is_of_type(parsed, G_VARIANT_TYPE_TUPLE) != FALSE;
    Variant body = whole ? value : Hold(g_variant_new_tuple(&parsed, 1));
    if (!FitsTheWire(body.get())) {
        throw std::invalid_argument("D-Bus cannot carry " + text);
    }
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

    if (verb == "delay") {
        return {.kind = Kind::delay,
                .name = Method(name),
                .milliseconds = Milliseconds(value.value_or(""))};
    }
    if (verb == "fail") {
        return {.kind = Kind::fail,
                .name = Method(name),
                .error = Error(value.value_or("org.freedesktop.DBus.Error.Failed"))};
    }
    if (verb == "reply") {
        return {.kind = Kind::reply, .name = Method(name), .body = Body(value.value_or(""))};
    }
    if (verb == "emit") {
        return {.kind = Kind::emit, .name = Signal(name), .body = Body(value.value_or("()"))};
    }
    if (verb == "hang" && !value) {
        return {.kind = Kind::hang, .name = Method(name)};
    }
    static const std::map<std::string, Kind> alone = {
        {"clear", Kind::clear}, {"reset", Kind::reset}, {"quit", Kind::quit}};
    const auto found = alone.find(verb);
    if (found == alone.end() || !rest.value_or("").empty()) {
        throw std::invalid_argument("there is no control " + Quoted(text));
    }
    return {.kind = found->second};
}
