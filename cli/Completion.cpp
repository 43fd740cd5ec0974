// SPDX-License-Identifier: MIT
//
// Completion scripts, made from the table of the verbs.
#include "Failure.h"
#include "Scalars.h"
#include "Verbs.h"

#include <iostream>
#include <map>

namespace cli
{

namespace
{

/** In both, `said` are the words before the cursor without options, `offer` those that may follow.
 */
constexpr const char* bashHead = R"(# bash completion for zavctl, made by `zavctl completion bash`
_zavctl() {
    local cur=${COMP_WORDS[COMP_CWORD]} said=() offer= word
    for word in "${COMP_WORDS[@]:1:COMP_CWORD-1}"; do
        [[ $word == -* ]] || said+=("$word")
    done
)";
constexpr const char* bashTail = R"(    if [[ $offer == FILE ]]; then
        COMPREPLY=($(compgen -f -- "$cur"))
    else
        COMPREPLY=($(compgen -W "$offer" -- "$cur"))
    fi
}
complete -F _zavctl zavctl
)";
constexpr const char* zshHead = R"(#compdef zavctl
# zsh completion for zavctl, made by `zavctl completion zsh`
_zavctl() {
    local offer=
    local -a said
    said=(${${words[2,CURRENT-1]}:#-*})
)";
constexpr const char* zshTail = R"(    if [[ $offer == FILE ]]; then
        _files
    else
        compadd -- ${=offer}
    fi
}
compdef _zavctl zavctl
)";

/** What may follow which words. */
std::map<std::string, std::string> Followers()
{
    std::map<std::string, std::string> followers;
    std::string last;
    for (const Verb& verb : verbs) {
        const std::string name = verb.name;
        const std::string first = name.substr(0, name.find(' '));
        if (first != last) {
            followers[""] += first + " ";
        }
        if (first != name) {
            followers[first] += name.substr(first.size() + 1) + " ";
        }
        last = first;
        CLI::App app;
        Options unused;
        verb.define(app, unused);
        for (const CLI::Option* option : app.get_options()) {
            followers[name] += option->get_positional() ? "" : option->get_name() + " ";
        }
        for (const std::string& word : verb.words == nullptr ? Row() : verb.words()) {
            followers[name] += word + " ";
        }
    }
    for (const std::string& mode : ModeNames()) {
        followers["set mode"] += mode + " ";
    }
    followers["trace"] = "FILE";
    return followers;
}

} // namespace

int Completion(const Options& options)
{
    if (options.name != "bash" && options.name != "zsh") {
        throw Failure(Cause::usage, "completion is for bash and zsh");
    }
    const bool bash = options.name == "bash";
    std::cout << (bash ? bashHead : zshHead) << "    case \"${said[*]}\" in\n";
    for (const auto& [words, offer] : Followers()) {
        std::cout << "    \"" << words << "\") offer=\"" << offer << "\" ;;\n";
    }
    std::cout << "    esac\n" << (bash ? bashTail : zshTail);
    return 0;
}

} // namespace cli
