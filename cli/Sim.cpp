// SPDX-License-Identifier: MIT
//
// The verbs for the simulated service: its control interface.
#include "Request.h"
#include "Verbs.h"

namespace cli
{

namespace
{

Variant Control(const char* method, GVariant* arguments = nullptr)
{
    return CallBus(kService, "/org/kelmar/tv/zav/sim", "org.kelmar.tv.zav.Sim", method, arguments);
}

int Done(const Options& options)
{
    Print(options.json, json::object(), {});
    return 0;
}

/**
 * A name and a body, which is given in GVariant's text form. D-Bus has no empty tuple inside of
 * another value: in its place goes an empty array.
 */
GVariant* NameAndBody(const std::string& name, const std::string& text)
{
    g_autoptr(GError) error = nullptr;
    g_autoptr(GVariant) body = g_variant_parse(nullptr, text.c_str(), nullptr, nullptr, &error);
    if (body == nullptr) {
        throw Failure(Cause::usage, "'" + text + "' is not a value: " + error->message);
    }
    const bool empty = g_variant_is_of_type(body, G_VARIANT_TYPE_UNIT) != FALSE;
    return g_variant_new("(sv)", name.c_str(), empty ? g_variant_new("av", nullptr) : body);
}

} // namespace

int SimReply(const Options& options)
{
    Control("SetReply", NameAndBody(options.name, options.value));
    return Done(options);
}

int SimDelay(const Options& options)
{
    Control("SetDelay", g_variant_new("(su)", options.name.c_str(), options.count));
    return Done(options);
}

int SimFail(const Options& options)
{
    const std::string error =
        options.value.empty() ? "org.freedesktop.DBus.Error.Failed" : options.value;
    Control("SetFailure", g_variant_new("(ss)", options.name.c_str(), error.c_str()));
    return Done(options);
}

int SimHang(const Options& options)
{
    Control("Hang", g_variant_new("(s)", options.name.c_str()));
    return Done(options);
}

int SimEmit(const Options& options)
{
    Control("Emit", NameAndBody(options.name, options.value.empty() ? "()" : options.value));
    return Done(options);
}

int SimCalls(const Options& options)
{
    const Variant reply = Control("Calls");
    g_autoptr(GVariant) list = g_variant_get_child_value(reply.get(), 0);
    json calls = json::array();
    std::vector<Row> rows;
    for (gsize i = 0; i < g_variant_n_children(list); ++i) {
        const char* method = nullptr;
        const char* sender = nullptr;
        g_autoptr(GVariant) arguments = nullptr;
        g_variant_get_child(list, i, "(&sv&s)", &method, &arguments, &sender);
        // No arguments come as an empty array, see Parse().
        const bool none = g_variant_is_of_type(arguments, G_VARIANT_TYPE("av")) != FALSE;
        g_autofree char* text = none ? g_strdup("()") : g_variant_print(arguments, FALSE);
        calls.push_back({{"method", method}, {"arguments", text}, {"sender", sender}});
        rows.push_back({method, text, sender});
    }
    guint32 peak = 0;
    g_variant_get(Control("PeakOpenCalls").get(), "(u)", &peak);
    Print(options.json, {{"calls", calls}, {"peak-open", peak}}, rows);
    return 0;
}

int SimClear(const Options& options)
{
    Control("ClearCalls");
    return Done(options);
}

int SimReset(const Options& options)
{
    Control("Reset");
    return Done(options);
}

} // namespace cli
