// SPDX-License-Identifier: MIT
/** @file Pattern.h Regular expressions of GLib, on bytes of any encoding. */
#ifndef CLI_PATTERN_H
#define CLI_PATTERN_H

#include <charconv>
#include <glib.h>
#include <memory>
#include <string>
#include <utility>

namespace cli
{

/** What a pattern found in a text, if anything. The text has to stay as long. */
class Match
{
public:
    explicit Match(GMatchInfo* found) : m_found(found, g_match_info_unref) {}

    explicit operator bool() const { return g_match_info_matches(m_found.get()) != FALSE; }

    /** What a group took, by its name; "" for nothing. */
    std::string Text(const char* group) const
    {
        g_autofree char* text = g_match_info_fetch_named(m_found.get(), group);
        return text == nullptr ? "" : text;
    }
    /** The same by its number. */
    std::string Text(int group) const
    {
        g_autofree char* text = g_match_info_fetch(m_found.get(), group);
        return text == nullptr ? "" : text;
    }
    /** 0 for nothing. */
    int Number(const char* group) const
    {
        const std::string text = Text(group);
        int number = 0;
        std::from_chars(text.data(), text.data() + text.size(), number);
        return number;
    }

    std::string Before() const
    {
        const char* const text = g_match_info_get_string(m_found.get());
        return {text, text + Place().first};
    }
    std::string After() const { return g_match_info_get_string(m_found.get()) + Place().second; }

private:
    std::pair<int, int> Place() const
    {
        std::pair<int, int> place;
        g_match_info_fetch_pos(m_found.get(), 0, &place.first, &place.second);
        return place;
    }

    std::shared_ptr<GMatchInfo> m_found;
};

class Pattern
{
public:
    /** @param text a sound expression; groups of one name are of different alternatives */
    explicit Pattern(const std::string& text)
        : m_regex(g_regex_new(text.c_str(),
                              static_cast<GRegexCompileFlags>(G_REGEX_RAW | G_REGEX_OPTIMIZE |
                                                              G_REGEX_DUPNAMES),
                              {}, nullptr),
                  g_regex_unref)
    {
    }

    Match In(const std::string& text) const
    {
        GMatchInfo* found = nullptr;
        g_regex_match(m_regex.get(), text.c_str(), {}, &found);
        return Match(found);
    }

private:
    std::shared_ptr<GRegex> m_regex;
};

} // namespace cli

#endif
