// SPDX-License-Identifier: MIT
//
// The verbs for the simulated service: its controls, in the text form that it has for them.
#include "Request.h"
#include "Verbs.h"

#include <iostream>

namespace cli
{

namespace
{

Variant Ask(const char* method, GVariant* arguments = nullptr)
{
    return CallBus(kService, "/org/kelmar/tv/zav/sim", "org.kelmar.tv.zav.Sim", method, arguments);
}

/** The control is the verb's second word; `form` shows what follows it, in one word or two. */
Action Tell(CLI::App& verb, const char* form)
{
    static std::vector<std::string> words;
    if (*form != '\0') {
        verb.add_option("WHAT", words)->required()->expected(1, 2)->type_name(form);
    }
    return [control = verb.get_name()] {
        std::string text = control;
        for (const std::string& word : words) {
            text += (&word == words.data() ? " " : "=") + word;
        }
        Ask("Control", g_variant_new("(s)", text.c_str()));
        Print(json::object(), {});
    };
}

Action Calls(CLI::App& /*verb*/)
{
    return [] {
        const Variant reply = Ask("Calls");
        g_autoptr(GVariantIter) list = nullptr;
        guint peak = 0;
        guint dropped = 0;
        g_variant_get(reply.get(), "(a(sss)uu)", &list, &peak, &dropped);
        json calls = json::array();
        std::vector<Row> rows;
        const char* method = nullptr;
        const char* arguments = nullptr;
        const char* sender = nullptr;
        while (g_variant_iter_next(list, "(&s&s&s)", &method, &arguments, &sender) != FALSE) {
            calls.push_back({{"method", method}, {"arguments", arguments}, {"sender", sender}});
            rows.push_back({method, arguments, sender});
        }
        Print({{"calls", calls}, {"peak-open", peak}, {"dropped", dropped}}, rows);
        if (dropped > 0) {
            std::cerr << "zavctl: " << dropped << " older calls were dropped\n";
        }
    };
}

} // namespace

const Verbs simVerbs = {
    {"sim delay", "Answer a method after so many milliseconds",
     [](CLI::App& verb) { return Tell(verb, "METHOD=MS"); }},
    {"sim fail", "Answer a method with a D-Bus error",
     [](CLI::App& verb) { return Tell(verb, "METHOD[=ERROR]"); }},
    {"sim hang", "Never answer a method", [](CLI::App& verb) { return Tell(verb, "METHOD"); }},
    {"sim reply", "Answer a method with this body, of any type",
     [](CLI::App& verb) { return Tell(verb, "METHOD=VALUE"); }},
    {"sim emit", "Send a signal", [](CLI::App& verb) { return Tell(verb, "SIGNAL[=VALUE]"); }},
    {"sim calls", "List the calls that came", Calls},
    {"sim clear", "Forget the calls that came", [](CLI::App& verb) { return Tell(verb, ""); }},
    {"sim reset", "Be as at the start", [](CLI::App& verb) { return Tell(verb, ""); }},
    {"sim quit", "End", [](CLI::App& verb) { return Tell(verb, ""); }},
};

} // namespace cli
