// SPDX-License-Identifier: MIT
#include "Completion.h"

#include "zav-interfaces.h"

#include <algorithm>
#include <iostream>

namespace
{

/** Where the words before the last one have led to. */
struct Place
{
    const CLI::App* app;
    const CLI::Option* option = nullptr; // whose value comes next
    size_t arguments = 0;                // that were given to the verb
};

const CLI::Option* FindOption(const CLI::App* app, const std::string& word)
{
    for (; app != nullptr; app = app->get_parent()) {
        for (const CLI::Option* option : app->get_options()) {
            if (option->check_name(word)) {
                return option;
            }
        }
    }
    return nullptr;
}

Place Follow(const CLI::App& app, const Words& before)
{
    Place place{&app};
    for (const std::string& word : before) {
        const auto verbs = place.app->get_subcommands(
            [&word](const CLI::App* verb) { return verb->check_name(word); });
        if (word == "=") { // by which bash separates words, too
        } else if (place.option != nullptr) {
            place.option = nullptr;
        } else if (word.starts_with('-')) {
            const CLI::Option* option = FindOption(place.app, word);
            place.option =
                option != nullptr && option->get_items_expected_max() > 0 ? option : nullptr;
        } else if (!verbs.empty()) {
            place = {verbs[0]};
        } else {
            ++place.arguments;
        }
    }
    return place;
}

/** The argument that the next word is; the last takes all the rest. */
const CLI::Option* Argument(const Place& place)
{
    const auto arguments =
        place.app->get_options([](const CLI::Option* option) { return option->get_positional(); });
    if (place.arguments < arguments.size()) {
        return arguments[place.arguments];
    }
    const bool repeats = !arguments.empty() && arguments.back()->get_items_expected_max() > 1;
    return repeats ? arguments.back() : nullptr;
}

Words ValuesOf(const CLI::Option& option, const Words& before, const Values& values)
{
    const std::string type = option.get_type_name();
    const std::string name = type.substr(0, type.find_first_of("=["));
    if (name == "FILE") {
        return {":file"};
    }
    const auto found = values.find(name);
    Words words = found == values.end() ? Words() : found->second(before);
    if (type.find('=') != std::string::npos) {
        std::ranges::for_each(words, [](std::string& word) { word += '='; });
    }
    return words;
}

Words Candidates(const CLI::App& program, const Words& before, const std::string& last,
                 const Values& values)
{
    const Place place = Follow(program, before);
    if (place.option != nullptr) {
        return ValuesOf(*place.option, before, values);
    }
    Words words;
    if (!last.starts_with('-')) {
        for (const CLI::App* verb :
             place.app->get_subcommands([](const CLI::App*) { return true; })) {
            words.push_back(verb->get_name());
        }
        if (const CLI::Option* argument = Argument(place)) {
            std::ranges::move(ValuesOf(*argument, before, values), std::back_inserter(words));
        }
    }
    if (words.empty()) {
        for (const CLI::App* app = place.app; app != nullptr; app = app->get_parent()) {
            for (const CLI::Option* option : app->get_options()) {
                const bool known = std::ranges::find(words, option->get_name()) != words.end();
                if (option->nonpositional() && !known) {
                    words.push_back(option->get_name());
                }
            }
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

Words Methods(const Words& /*before*/)
{
    return Names(org_kelmar_tv_zav_interface.methods);
}

Words Signals(const Words& /*before*/)
{
    return Names(org_kelmar_tv_zav_interface.signals);
}

bool AnswerCompletion(const CLI::App& app, int argc, char** argv, const Values& values)
{
    if (argc < 3 || std::string(argv[1]) != "--complete") {
        return false;
    }
    const Words before(argv + 2, argv + argc - 1);
    const std::string last = argv[argc - 1];
    for (const std::string& word : Candidates(app, before, last, values)) {
        if (word.starts_with(last) || word == ":file") {
            std::cout << word << '\n';
        }
    }
    return true;
}
