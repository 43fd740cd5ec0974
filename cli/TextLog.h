// SPDX-License-Identifier: MIT
/**
 * @file TextLog.h
 * Reads the library's lines out of a text log, whatever wrote it, as the records that a trace store
 * would have of them. Takes memory for one line and for the log points, not for the log.
 */
#ifndef CLI_TEXTLOG_H
#define CLI_TEXTLOG_H

#include "Pattern.h"
#include "TraceReader.h"

#include <cstdint>
#include <istream>
#include <map>
#include <string>
#include <utility>
#include <vector>

namespace cli
{

struct Format;

class TextLog : public trace::Source
{
public:
    /** @param log belongs to the caller; text in any encoding */
    explicit TextLog(std::istream& log) : m_log(log), m_buffer(kLongestLine) {}

    const trace::Record* Next() override;
    std::vector<std::pair<std::uint64_t, const char*>> Losses() override;

private:
    bool ReadLine();
    bool ReadRecord();
    const trace::Location& LocationOf(const Match& mark, const Format& format);

    /** In bytes; the rest of a longer one is passed over. */
    static constexpr std::streamsize kLongestLine = 64 << 10;

    std::istream& m_log;
    std::vector<char> m_buffer;
    std::string m_line;
    std::uint64_t m_number = 0; ///< of the line
    std::uint64_t m_others = 0;
    std::map<std::pair<std::string, const Format*>, trace::Location> m_locations;
    std::vector<unsigned char> m_payload;
    trace::Record m_record{};
};

} // namespace cli

#endif
