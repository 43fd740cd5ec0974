// SPDX-License-Identifier: MIT
#include "TextLog.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <limits>
#include <stdexcept>
#include <string_view>

namespace cli
{

namespace
{

constexpr std::size_t kMostLocations = 4096; // the library has some hundred

/** Some tools cut off the blanks at the end of a line. */
std::string Trimmed(std::string_view text)
{
    return std::string(text.substr(0, text.find_last_not_of(" \t\r\n") + 1));
}

} // namespace

/** The message of a log point, as for printf, and how its arguments are found in a text. */
struct Format
{
    explicit Format(const std::string& text)
        : message(text), start(text.substr(0, text.find_first_of("% "))),
          pattern(Describe(Trimmed(text)))
    {
    }

    std::string message;
    std::string start;            ///< all that fits begins so
    std::string conversions = {}; ///< the letter of each
    Pattern pattern;

private:
    /** The pattern, and the conversions on the way. */
    std::string Describe(const std::string& text)
    {
        std::string described = "^";
        for (std::size_t at = 0; at < text.size(); ++at) {
            if (text[at] == '%') {
                at = text.find_first_of("dpsux", at);
                conversions += text[at];
                described += text[at] == 's' ? "(.*)" : R"((-?(?:0x)?[0-9a-f]+|\(nil\)))";
            } else {
                described += g_ascii_isalnum(text[at]) != FALSE ? "" : "\\";
                described += text[at];
            }
        }
        return described + "$";
    }
};

namespace
{

// ---- What stands before the message -------------------------------------------------------------

/** Digits behind the point, in ns. */
std::int64_t Fraction(std::string digits)
{
    digits.resize(9, '0');
    return std::stoll(digits);
}

int Month(const Match& match)
{
    static constexpr std::string_view names = "JanFebMarAprMayJunJulAugSepOctNovDec";
    const std::string name = match.Text("name");
    return name.empty() ? match.Number("month") - 1 : static_cast<int>(names.find(name) / 3);
}

/** Of a zone like +05:30, +0530, Z or UTC, in seconds. */
int Offset(const std::string& zone)
{
    if (zone.size() < 5) {
        return 0;
    }
    const std::string minutes = zone.substr(zone.size() - 2);
    const int size = std::stoi(zone.substr(1, 2)) * 3600 + std::stoi(minutes) * 60;
    return zone[0] == '-' ? -size : size;
}

/** In seconds since 1970. Without a year or a date it is the last such time that there was. */
std::int64_t Clock(const Match& match)
{
    const std::time_t tomorrow = std::time(nullptr) + 86400;
    std::tm time{};
    localtime_r(&tomorrow, &time);
    if (const int day = match.Number("day"); day != 0) {
        time.tm_mon = Month(match);
        time.tm_mday = day;
    } else {
        --time.tm_mday;
    }
    time.tm_hour = match.Number("hour");
    time.tm_min = match.Number("minute");
    time.tm_sec = match.Number("second");
    time.tm_isdst = -1;
    std::tm copy = time;
    if (const int year = match.Number("year"); year != 0) {
        time.tm_year = year - 1900;
    } else if (std::mktime(&copy) > tomorrow) {
        --time.tm_year;
    }
    const std::string zone = match.Text("zone");
    return zone.empty() ? std::mktime(&time) : timegm(&time) - Offset(zone);
}

/** Fills in what the text before a message tells. */
void ReadOrigin(std::string prefix, trace::Record& record)
{
    // A date with a year, without one or with a name, and the time; or seconds since some start.
    static const Pattern timePattern(
        R"((?:(?:(?:(?<year>\d{4})-)?(?<month>\d\d)-(?<day>\d\d)|(?<name>[A-Z][a-z]{2}) +)"
        R"((?<day>\d\d?))[T ])?(?<hour>\d\d):(?<minute>\d\d):(?<second>\d\d))"
        R"((?:[.,](?<fraction>\d{1,9}))? ?(?<zone>Z|UTC|[-+]\d\d:?\d\d)?)"
        R"(|(?:^|[[ ])(?<seconds>\d{1,10})\.(?<fraction>\d{1,9}))");
    // Process and thread by letters, with a stroke, or as columns; or a process in brackets.
    static const Pattern writerPattern(
        R"(\bP[ (:=]*(?<process>\d{1,9})\)?(?:[,/ ]*\bT[ (:=]*(?<thread>\d{1,9}))?)"
        R"(|(?<process>\d{1,9})/(?<thread>\d{1,9})\b)"
        R"(|(?:^|\s)(?<process>\d{1,9})\s+(?<thread>\d{1,9})\s)"
        R"(|[[(]\s*(?<process>\d{1,9})\s*[])])");
    if (const Match match = timePattern.In(prefix)) {
        const std::string given = match.Text("seconds");
        const std::int64_t seconds = given.empty() ? Clock(match) : std::stoll(given);
        // What years there are in ns since 1970, nearly.
        record.time = std::clamp<std::int64_t>(seconds, 0, 9'000'000'000) * 1'000'000'000 +
                      Fraction(match.Text("fraction"));
        prefix = match.After();
    }
    if (const Match match = writerPattern.In(prefix)) {
        const auto process = static_cast<std::uint32_t>(match.Number("process"));
        const auto thread = static_cast<std::uint32_t>(match.Number("thread"));
        record.thread = {process, thread == 0 ? process : thread};
    }
}

// ---- The message --------------------------------------------------------------------------------

/** Those of the library's log points, and one that fits any text, perhaps of another version. */
const std::vector<Format>& Formats()
{
    static const std::vector<Format> formats = {
#include "Formats.inc"
        Format("%s"),
    };
    return formats;
}

/** A number as printf wrote it; of an address the low half, as in a trace. */
void AppendNumber(std::vector<unsigned char>& payload, const std::string& text, char letter)
{
    const int base = letter == 'x' || letter == 'p' ? 16 : 10;
    const auto number = static_cast<std::uint32_t>(std::strtoll(text.c_str(), nullptr, base));
    const auto* bytes = reinterpret_cast<const unsigned char*>(&number);
    payload.insert(payload.end(), bytes, bytes + sizeof number);
}

/** As in a trace: the length in base 128, the lowest group first, and the bytes. */
void AppendText(std::vector<unsigned char>& payload, const std::string& text)
{
    std::size_t left = text.size();
    for (; left > 0x7F; left >>= 7) {
        payload.push_back(static_cast<unsigned char>(0x80 | (left & 0x7F)));
    }
    payload.push_back(static_cast<unsigned char>(left));
    payload.insert(payload.end(), text.begin(), text.end());
}

std::vector<unsigned char> MakePayload(const Match& match, const std::string& conversions)
{
    std::vector<unsigned char> payload;
    int group = 0;
    for (const char letter : conversions) {
        const std::string text = match.Text(++group);
        if (letter == 's') {
            AppendText(payload, text);
        } else {
            AppendNumber(payload, text, letter);
        }
    }
    return payload;
}

trace::Location MakeLocation(const Match& mark, const Format& format)
{
    const std::string function = mark.Text("function");
    trace::Location location{
        0, mark.Number("line"), mark.Text("file"), function, format.message, {}, function};
    for (const char letter : format.conversions) {
        if (letter == 's') {
            location.arguments.push_back({0, lumo::format::kVariableSize, "std::string"});
        } else {
            location.arguments.push_back(
                {0, sizeof(std::uint32_t), letter == 'd' ? "int" : "unsigned int"});
        }
    }
    return location;
}

} // namespace

const trace::Location& TextLog::LocationOf(const Match& mark, const Format& format)
{
    const auto key = std::make_pair(mark.Text("place"), &format);
    const auto found = m_locations.find(key);
    if (found != m_locations.end()) {
        return found->second;
    }
    if (m_locations.size() == kMostLocations) {
        throw std::runtime_error("line " + std::to_string(m_number) +
                                 ": more log points than the library can have");
    }
    return m_locations.try_emplace(key, MakeLocation(mark, format)).first->second;
}

/** @return false at the end */
bool TextLog::ReadLine()
{
    m_log.getline(m_buffer.data(), kLongestLine);
    if (m_log.gcount() == 0) {
        return false;
    }
    m_line = m_buffer.data();
    if (m_log.fail() && !m_log.eof()) { // the line is longer
        m_log.clear();
        m_log.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    }
    ++m_number;
    return true;
}

/** @return whether the line is the library's */
bool TextLog::ReadRecord()
{
    static const Pattern pattern(
        R"((?<place>(?<file>ZAVService(?:Bridge)?API\.cpp): (?<function>\w{1,80})\((?<line>\d{1,6})\)))"
        R"( > (?<text>.*))");
    if (m_line.find("API.cpp: ") == std::string::npos) { // faster than the pattern
        return false;
    }
    const Match mark = pattern.In(m_line);
    if (!mark) {
        return false;
    }
    const std::string text = Trimmed(mark.Text("text"));
    const Format& format = *std::ranges::find_if(Formats(), [&text](const Format& one) {
        return text.starts_with(one.start) && one.pattern.In(text);
    });
    m_payload = MakePayload(format.pattern.In(text), format.conversions);
    const std::int64_t latest = m_record.time;
    m_record = {latest, {}, &LocationOf(mark, format), m_payload};
    ReadOrigin(mark.Before(), m_record);
    m_record.time = std::max(m_record.time, latest); // a clock that is set back stands still
    return true;
}

const trace::Record* TextLog::Next()
{
    while (ReadLine()) {
        if (ReadRecord()) {
            return &m_record;
        }
        ++m_others;
    }
    if (m_log.bad()) {
        throw std::runtime_error("line " + std::to_string(m_number + 1) + " cannot be read");
    }
    if (m_locations.empty()) {
        throw std::runtime_error("neither a trace store nor a log of the library");
    }
    return nullptr;
}

std::vector<std::pair<std::uint64_t, const char*>> TextLog::Losses()
{
    return {{m_others, "line(s) of others passed over"}};
}

} // namespace cli
