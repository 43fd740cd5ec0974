// SPDX-License-Identifier: MIT
/** @file Recording.h Makes of the messages of a session what the simulated service plays again. */
#ifndef ZAV_SERVICE_RECORDING_H
#define ZAV_SERVICE_RECORDING_H

#include <cstdint>
#include <gio/gio.h>
#include <map>
#include <nlohmann/json.hpp>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

/** How much of a session, and how fast. */
struct Excerpt
{
    double speed = 1; ///< factor; above 0
    double from = 0;  ///< seconds since the first message
    double to = 0;    ///< the same; 0 for all
};

/** The calls of the service's interface with their answers, and its signals. */
class Recording
{
public:
    /** @param excerpt belongs to the caller */
    explicit Recording(const Excerpt& excerpt) : m_excerpt(excerpt) {}

    /** @param time in ns since 1970 */
    void Add(GDBusMessage& message, std::int64_t time);

    /** Writes the scenario. */
    void Print(std::ostream& out) const;

    bool IsEmpty() const { return m_before.empty() && m_exchanges.empty(); }

    /** Calls and signals of the interface that ours does not have; they are left out. */
    int Unknown() const { return m_unknown; }

private:
    using json = nlohmann::ordered_json;

    /** A call, and what came until the next one. */
    struct Exchange
    {
        std::string method;
        std::int64_t start; ///< ns
        std::vector<json> steps;
    };

    bool IsOfService(GDBusMessage& message);
    void AddCall(GDBusMessage& message, std::int64_t time);
    void AddSignal(GDBusMessage& message, std::int64_t time);
    void AddAnswer(GDBusMessage& message, std::int64_t time);
    std::int64_t Milliseconds(std::int64_t from, std::int64_t to) const;

    const Excerpt& m_excerpt;
    std::int64_t m_start = 0;   ///< of the session
    std::vector<json> m_before; ///< steps before the first call
    std::vector<Exchange> m_exchanges;
    /** Calls without an answer as yet, by who called and the call's serial. */
    std::map<std::pair<std::string, guint32>, std::size_t> m_open;
    int m_unknown = 0;
};

#endif
