// SPDX-License-Identifier: MIT
#include "Control.h"

#include "zav-interfaces.h"

#include <gio/gio.h>

#include <algorithm>
#include <charconv>
#include <optional>
#include <stdexcept>

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
    if (!method) {
        throw std::invalid_argument("the service has no method " + Quoted(name));
    }
    return method->name;
}

std::string SignalName(const std::string& name)
{
    const auto* signal = g_dbus_interface_info_lookup_signal(Interface(), name.c_str());
    if (!signal) {
        throw std::invalid_argument("the service has no signal " + Quoted(name));
    }
    return signal->name;
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

Variant Body(const Variant& value)
{
    Variant body = value;
    if (g_variant_is_of_type(value.get(), G_VARIANT_TYPE("av")) &&
        g_variant_n_children(value.get()) == 0) {
        body = Hold(g_variant_new("()"));
    } else if (!g_variant_is_of_type(value.get(), G_VARIANT_TYPE_TUPLE)) {
        GVariant* member = value.get();
        body = Hold(g_variant_new_tuple(&member, 1));
    }
    if (!FitsTheWire(body.get())) {
        throw std::invalid_argument("D-Bus cannot carry " + Print(value.get()));
    }
    return body;
}

guint ParseMilliseconds(const std::string& text)
{
    guint value = 0;
    const auto [end, fault] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (fault != std::errc() || end != text.data() + text.size()) {
        throw std::invalid_argument(Quoted(text) + " is not a number of milliseconds");
    }
    return value;
}

Variant ParseBody(const std::string& text)
{
    g_autoptr(GError) error = nullptr;
    GVariant* value =
        g_variant_parse(nullptr, text.data(), text.data() + text.size(), nullptr, &error);
    if (!value) {
        throw std::invalid_argument(Quoted(text) + " is not a value: " + error->message);
    }
    const Variant parsed = Hold(value);
    // As on the bus, where every body comes in a variant.
    return g_variant_is_of_type(value, G_VARIANT_TYPE_VARIANT) ? Hold(g_variant_get_variant(value))
                                                               : parsed;
}

} // namespace

Control Control::Delay(const std::string& method, guint milliseconds)
{
    return {.kind = Kind::Delay, .name = Method(method), .milliseconds = milliseconds};
}

Control Control::Fail(const std::string& method, const std::string& error)
{
    // The bus gives error names and interface names the same form.
    if (!g_dbus_is_interface_name(error.c_str())) {
        throw std::invalid_argument(Quoted(error) + " is not an error name");
    }
    return {.kind = Kind::Fail, .name = Method(method), .error = error};
}

Control Control::Hang(const std::string& method)
{
    return {.kind = Kind::Hang, .name = Method(method)};
}

Control Control::Reply(const std::string& method, const Variant& body)
{
    return {.kind = Kind::Reply, .name = Method(method), .body = Body(body)};
}

Control Control::Emit(const std::string& signal, const Variant& body)
{
    return {.kind = Kind::Emit, .name = SignalName(signal), .body = Body(body)};
}

Control Control::Parse(std::string_view verb, const std::string& text)
{
    const size_t equals = text.find('=');
    const std::string name = text.substr(0, equals);
    std::optional<std::string> value;
    if (equals != std::string::npos) {
        value = text.substr(equals + 1);
    }

    if (verb == "delay") {
        return Delay(name, ParseMilliseconds(value.value_or("")));
    }
    if (verb == "fail") {
        return Fail(name, value.value_or(generalFailure));
    }
    if (verb == "hang") {
        return Hang(text);
    }
    if (verb == "reply") {
        return Reply(name, ParseBody(value.value_or("")));
    }
    if (verb == "emit") {
        return Emit(name, ParseBody(value.value_or("()")));
    }
    if (verb == "reset" && text.empty()) {
        return {.kind = Kind::Reset};
    }
    if (verb == "quit" && text.empty()) {
        return {.kind = Kind::Quit};
    }
    throw std::invalid_argument("there is no control " + Quoted(std::string(verb) + " " + text));
}
