// SPDX-License-Identifier: MIT
//
// Every row of the table on every path, held against the boundary log that the row makes expect.
#include "Boundary.h"
#include "FakeGio.h"
#include "Recorder.h"
#include "Requests.h"

#include <gtest/gtest.h>

namespace
{

using boundary::Replaced;

constexpr const char* kConnecting = "4 InitDbusConnection > Called\n"
                                    "4 InitDbusConnection > connection=CONNECTION, proxy = PROXY | "
                                    "*_void *_void\n";
constexpr const char* kFailing = "4 InitDbusConnection > Called\n"
                                 "6 InitDbusConnection > Bus get sync failed\n";

/** What a request meets. */
struct Path
{
    std::string name;
    std::string reply = "";
    int lockFailures = 0;
    bool connected = true;
    bool recorded = true;
};

std::string Result(int result)
{
    return "= " + std::to_string(result) + "\n";
}

/** The lines of the method, and its result. */
std::pair<std::string, int> Expected(const Request& row, const Path& path)
{
    const std::string info = "4 " + row.logged + " > ";
    const std::string error = "6 " + row.logged + " > ";
    const auto received = [&info](int value) {
        return info + "IntDataReceived: " + std::to_string(value) + " from ZAVService | int\n";
    };
    std::string lines = row.first;
    if (!row.turn) {
        return {lines + (path.connected ? row.connected : row.unconnected),
                path.connected ? row.result : row.refused};
    }
    lines += info + "Sending Integer Data to ZAVService" +
             (row.announced.empty() ? ".....\n"
                                    : " " + row.announced + "..... | " + row.announcedAs + "\n");
    if (!path.connected) {
        return {lines + error +
                    "Error::Please initialize Dbus Connection by calling InitDbusConnection "
                    "function\n",
                row.refused};
    }
    for (int left = 100; left > 100 - path.lockFailures; --left) {
        lines += "lock held by another\n" + error + row.logged +
                 " API is busy. wait 10msec\\ttimeout " + std::to_string(left) +
                 " | char* int\nsleep 10000\n";
    }
    if (path.lockFailures == 100) {
        return {lines + error + "API is busy. give up\n", row.refused};
    }
    lines += "lock taken\n";
    if (!row.method.empty()) {
        lines += (row.reply.empty() ? "send " : "call ") + row.method + " " + row.sent + "\n";
    }
    if (row.reply.empty()) {
        return {lines + (row.method.empty() ? "" : received(0)) + "lock freed\n", row.result};
    }
    lines += info + "Returned from ZAVService...\n";
    if (path.reply.empty()) {
        return {lines + error + "The integer packet received from ZAVService is NULL\nlock freed\n",
                row.unanswered};
    }
    const bool good = path.reply == row.reply;
    const char* special = good ? row.read : row.misread;
    lines += special != nullptr ? special : received(good ? row.received : 0);
    return {lines + "reply released\nlock freed\n" + (good ? row.last : ""),
            good ? row.result : row.mistyped};
}

void Meet(const Path& path, Operation call, const Request& row)
{
    boundary::Add("# ", path.name);
    fake::reply = path.reply;
    fake::lockFailures = path.lockFailures;
    TIStorageManagerState::enabled = path.name != "while tracing is off";
    recorder::storeIsFull = path.name == "with the store full";
    boundary::Add("= ", call(row.value));
}

class EveryRequest : public testing::TestWithParam<Request>
{
};

TEST_P(EveryRequest, EndsOnEachPathAsItsRowSays)
{
    const Request& row = GetParam();
    const std::vector<Path> paths = {
        {"without a connection", "", 0, false},
        {"while tracing is off", row.reply, 0, true, false},
        {"with tracing on", row.reply},
        {"with the store full", row.reply, 0, true, false},
        {"busy to the end", row.reply, 100},
        {"at the last attempt", row.reply, 99},
        {"without a reply"},
        {"with a reply of another type", "('text',)"},
        {"with a number of another size", "(@x 5,)"},
        {"with one number too many", "(1, 2)"},
        {"once more", row.reply},
    };
    std::string expected;
    for (const Path& path : paths) {
        const auto [lines, result] = Expected(row, path);
        expected +=
            "# " + path.name + "\n" +
            (path.recorded ? lines : Replaced(lines, "^([0-9].*?)( \\| .*)?$", "\\1 | no record")) +
            Result(result);
    }
    EXPECT_TRUE(boundary::IsSame(expected, boundary::LogOf([&] {
                                     for (const Path& path : paths) {
                                         Meet(path, row.call, row);
                                         boundary::Quietly(requests::Api::InitDbusConnection);
                                     }
                                 })));
}

class EveryExport : public testing::TestWithParam<Request>
{
};

/** The lines of the C function, and its result. */
std::string ExpectedOfExport(const Request& row, const Path& path, const std::string& connecting)
{
    const auto [lines, result] = Expected(row, path);
    const std::string returned = Replaced(row.returned, "#", std::to_string(result));
    const std::string all = row.entry + (row.connects ? connecting : "") + row.sending + lines +
                            returned + Result(result);
    return "# " + path.name + "\n" + Replaced(all, "{}", row.name);
}

TEST_P(EveryExport, ConnectsOrNotAndForwardsToItsMethod)
{
    const Request& row = GetParam();
    Request first = row;
    if (row.name == "InitDbusConnection") {
        first.connected = ""; // it is what connects
    }
    const Path failing{"when the bus cannot be reached", row.reply, 0, false};
    const Path connecting{"when it can", row.reply, 0, row.connects};
    const Path connected{"with a connection", row.reply};
    const std::string log = boundary::LogOf([&] {
        // Connecting has a scene of its own: here its log lines suffice.
        boundary::wanted = "^(?!bus|proxy|connection is|flag is|subscribe)";
        fake::bus = fake::Outcome::failsWithoutError;
        Meet(failing, row.exported, row);
        fake::bus = fake::Outcome::works;
        Meet(connecting, row.exported, row);
        boundary::Quietly(requests::Api::InitDbusConnection);
        Meet(connected, row.exported, row);
    });
    EXPECT_TRUE(boundary::IsSame(ExpectedOfExport(row, failing, kFailing) +
                                     ExpectedOfExport(first, connecting, kConnecting) +
                                     ExpectedOfExport(row, connected, ""),
                                 log));
}

template <class Predicate>
std::vector<Request> Rows(const Predicate& holds)
{
    std::vector<Request> rows;
    for (const auto* all : {&requests::kAll, &requests::kOthers}) {
        std::ranges::copy_if(*all, std::back_inserter(rows), holds);
    }
    return rows;
}

const auto kExported = Rows([](const Request& row) { return row.exported != nullptr; });
const auto kName = [](const auto& row) { return row.param.name; };
INSTANTIATE_TEST_SUITE_P(All, EveryRequest, testing::ValuesIn(Rows(&Request::turn)), kName);
INSTANTIATE_TEST_SUITE_P(All, EveryExport, testing::ValuesIn(kExported), kName);

} // namespace
