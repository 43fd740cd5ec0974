// SPDX-License-Identifier: MIT
#include "Completion.h"

#include "zav-interfaces.h"

#include <algorithm>
#include <iostream>
#include <set>

namespace
{

using Values = std::map<std::string, Words>;

using Sorted = std::set<std::string>;

Sorted ValuesOf(const CLI::Option& option, const Values& values)
{
    const std::string type = option.get_type_name();
    const std::string name = type.substr(0, type.find_first_of("=["));
    if (name == "FILE") {
        return {":file"};
    }
    Sorted words;
    if (const auto found = values.find(name); found != values.end()) {
        for (const std::string& value : found->second) {
            words.insert(type.find('=') == std::string::npos ? value : value + '=');
        }
    }
    return words;
}

/** Where the words before the last one have led to. */
const CLI::App& Follow(CLI::App& app, const Words& before)
{
    try {
        app.parse(Words(before.rbegin(), before.rend()));
    } catch (const std::runtime_error&) { // the line is not whole yet
    }
    const CLI::App* verb = &app;
    while (!verb->get_subcommands().empty()) {
        verb = verb->get_subcommands()[0];
    }
    return *verb;
}

/** The verb's own options, and those of the verbs above it, which it takes as well. */
std::vector<const CLI::Option*> Options(const CLI::App* verb)
{
    std::vector<const CLI::Option*> options;
    for (; verb != nullptr; verb = verb->get_parent()) {
        std::ranges::copy(verb->get_options([](auto* option) { return option->nonpositional(); }),
                          std::back_inserter(options));
    }
    return options;
}

Sorted Candidates(CLI::App& app, const Words& before, bool isOption, const Values& values)
{
    const CLI::App& verb = Follow(app, before);
    const auto options = Options(&verb);
    for (const CLI::Option* option : options) {
        if (!before.empty() && option->check_name(before.back()) &&
            option->get_items_expected_max() > 0) {
            return ValuesOf(*option, values);
        }
    }
    Sorted words;
    if (!isOption) {
        const auto arguments = verb.get_options([](const CLI::Option* option) {
            return option->get_positional() &&
                   option->count() < static_cast<size_t>(option->get_items_expected_max());
        });
        words = arguments.empty() ? Sorted() : ValuesOf(*arguments[0], values);
        for (const CLI::App* next : verb.get_subcommands([](auto*) { return true; })) {
            words.insert(next->get_name());
        }
    }
    if (words.empty()) {
        for (const CLI::Option* option : options) {
            words.insert(option->get_name());
        }
    }
    return words;
}

/** The names of all methods or signals of the interface. */
template <class Info>
Words Names(Info** infos)
{
    Words names;
    for (; *infos != nullptr; ++infos) {
        names.emplace_back((*infos)->name);
    }
    return names;
}

} // namespace

Words Methods()
{
    return Names(org_kelmar_tv_zav_interface.methods);
}

Words Signals()
{
    return Names(org_kelmar_tv_zav_interface.signals);
}

bool PrintCandidates(CLI::App& app, int argc, char** argv, const Values& values)
{
    if (argc < 3 || std::string_view(argv[1]) != "--complete") {
        return false;
    }
    Words before(argv + 2, argv + argc - 1);
    std::erase(before, "="); // by which bash separates words, too
    const std::string last = argv[argc - 1];
    for (const std::string& word : Candidates(app, before, last.starts_with('-'), values)) {
        if (word.starts_with(last) || word == ":file") {
            std::cout << word << '\n';
        }
    }
    return true;
}
