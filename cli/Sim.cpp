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

int Tell(const Options& options, const std::string& text)
{
    Control("Control", g_variant_new("(s)", text.c_str()));
    Print(options.json, json::object(), {});
    return 0;
}

} // namespace

int SimReply(const Options& options)
{
    return Tell(options, "reply " + options.name + "=" + options.value);
}

int SimDelay(const Options& options)
{
    return Tell(options, "delay " + options.name + "=" + std::to_string(options.count));
}

int SimFail(const Options& options)
{
    return Tell(options,
                "fail " + options.name + (options.value.empty() ? "" : "=" + options.value));
}

int SimHang(const Options& options)
{
    return Tell(options, "hang " + options.name);
}

int SimEmit(const Options& options)
{
    return Tell(options,
                "emit " + options.name + (options.value.empty() ? "" : "=" + options.value));
}

int SimCalls(const Options& options)
{
    const Variant reply = Control("Calls");
    g_autoptr(GVariant) list = g_variant_get_child_value(reply.get(), 0);
    json calls = json::array();
    std::vector<Row> rows;
    for (gsize i = 0; i < g_variant_n_children(list); ++i) {
        const char* method = nullptr;
        const char* arguments = nullptr;
        const char* sender = nullptr;
        g_variant_get_child(list, i, "(&s&s&s)", &method, &arguments, &sender);
        calls.push_back({{"method", method}, {"arguments", arguments}, {"sender", sender}});
        rows.push_back({method, arguments, sender});
    }
    guint32 peak = 0;
    g_variant_get_child(reply.get(), 1, "u", &peak);
    Print(options.json, {{"calls", calls}, {"peak-open", peak}}, rows);
    return 0;
}

int SimClear(const Options& options)
{
    return Tell(options, "clear");
}

int SimReset(const Options& options)
{
    return Tell(options, "reset");
}

} // namespace cli
