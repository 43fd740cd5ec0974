// SPDX-License-Identifier: MIT
//
// The verbs for the simulated service: its controls, in the text form that it has for them.
#include "Request.h"
#include "Verbs.h"

#include <iostream>
#include <map>

namespace cli
{

namespace
{

Variant Ask(const char* method, GVariant* arguments = nullptr)
{
    return CallBus(kService, "/org/kelmar/tv/zav/sim", "org.kelmar.tv.zav.Sim", method, arguments);
}

/** The control is the verb's second word; what follows it comes in one word or two. */
Action Tell(CLI::App& verb)
{
    static const std::map<std::string, const char*> forms = {{"delay", "METHOD=MS"},
                                                             {"fail", "METHOD[=ERROR]"},
                                                             {"hang", "METHOD"},
                                                             {"reply", "METHOD=VALUE"},
                                                             {"emit", "SIGNAL[=VALUE]"}};
    static std::vector<std::string> words;
    if (const auto form = forms.find(verb.get_name()); form != forms.end()) {
        verb.add_option("WHAT", words)->required()->expected(1, 2)->type_name(form->second);
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
        const char* method = nullptr;
        const char* arguments = nullptr;
        const char* sender = nullptr;
        while (g_variant_iter_next(list, "(&s&s&s)", &method, &arguments, &sender) != FALSE) {
            calls.push_back({{"method", method}, {"arguments", arguments}, {"sender", sender}});
        }
        Print({{"calls", calls}, {"peak-open", peak}, {"dropped", dropped}}, Table(calls));
        if (dropped > 0) {
            std::cerr << "zavctl: " << dropped << " older calls were dropped\n";
        }
    };
}

} // namespace

const Verbs kSimVerbs = {
    {"sim", "Tell the simulated service how to behave"},
    {"sim delay", "Answer a method after so many milliseconds", Tell},
    {"sim fail", "Answer a method with a D-Bus error", Tell},
    {"sim hang", "Never answer a method", Tell},
    {"sim reply", "Answer a method with this body, of any type", Tell},
    {"sim emit", "Send a signal", Tell},
    {"sim calls", "List the calls that came", Calls},
    {"sim clear", "Forget the calls that came", Tell},
    {"sim reset", "Be as at the start", Tell},
    {"sim quit", "End", Tell},
};

} // namespace cli
