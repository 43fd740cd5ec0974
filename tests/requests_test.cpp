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
    std::string reply{};
    int lockFailures = 0;
    bool recorded = true;
    bool connected = true;
    const char* connecting = ""; // lines of a C function that does
};

std::string Announcement(const Request& row)
{
    return "4 " + row.logged + " > Sending Integer Data to ZAVService" +
           (row.announced.empty() ? ".....\n"
                                  : " " + row.announced + "..... | " + row.announcedAs + "\n");
}

/** The lines of so many attempts to lock the proxy. */
std::string FailedAttempts(const Request& row, int count)
{
    std::string lines;
    for (int left = 100; left > 100 - count; --left) {
        lines += "lock held by another\n6 " + row.logged + " > " + row.logged +
                 " API is busy. wait 10msec\\ttimeout " + std::to_string(left) +
                 " | char* int\nsleep 10000\n";
    }
    return lines;
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
    lines += Announcement(row);
    if (!path.connected) {
        return {lines + error +
                    "Error::Please initialize Dbus Connection by calling InitDbusConnection "
                    "function\n",
                row.refused};
    }
    lines += FailedAttempts(row, path.lockFailures);
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

std::string ExpectedLog(const Request& row, const Path& path)
{
    const auto [lines, result] = Expected(row, path);
    const std::string returned = Replaced(row.returned, "#", std::to_string(result));
    const std::string all = Replaced(row.entry + std::string(row.connects ? path.connecting : "") +
                                         row.sending + lines + returned,
                                     "{}", row.name);
    return "# " + path.name + "\n" +
           (path.recorded ? all : Replaced(all, "^([0-9].*?)( \\| .*)?$", "\\1 | no record")) +
           "= " + std::to_string(result) + "\n";
}

void Meet(const Path& path, const Request& row)
{
    boundary::Add("# ", path.name);
    fake::reply = path.reply;
    fake::lockFailures = path.lockFailures;
    TIStorageManagerState::enabled = path.name != "while tracing is off";
    recorder::storeIsFull = path.name == "with the store full";
    boundary::Add("= ", row.Run());
}

using EveryRequest = testing::TestWithParam<Request>;

TEST_P(EveryRequest, EndsOnEachPathAsItsRowSays)
{
    const Request& row = GetParam();
    const std::vector<Path> paths = {
        {"while tracing is off", row.reply, 0, false}, {"with tracing on", row.reply},
        {"with the store full", row.reply, 0, false},  {"busy to the end", row.reply, 100},
        {"at the last attempt", row.reply, 99},        {"without a reply"},
        {"with a reply of another type", "('text',)"}, {"with a number of another size", "(@x 5,)"},
        {"with one number too many", "(1, 2)"},        {"once more", row.reply},
    };
    const Path failing{"when the bus cannot be reached", row.reply, 0, true, false, kFailing};
    const Path connecting{"when it can", row.reply, 0, true, row.connects, kConnecting};
    Request first = row;
    if (row.name == "InitDbusConnection") {
        first.connected = ""; // it is what connects
    }
    std::string expected = ExpectedLog(row, failing) + ExpectedLog(first, connecting);
    for (const Path& path : paths) {
        expected += ExpectedLog(row, path);
    }
    const std::string log = boundary::LogOf([&] {
        // Connecting has a scene of its own: here its log lines suffice.
        boundary::wanted = "^(?!bus|proxy|connection is|flag is|subscribe)";
        fake::bus = fake::Outcome::failsWithoutError;
        Meet(failing, row);
        fake::bus = fake::Outcome::works;
        Meet(connecting, row);
        boundary::Quietly(requests::Api::InitDbusConnection);
        for (const Path& path : paths) {
            Meet(path, row);
        }
    });
    EXPECT_TRUE(boundary::IsSame(expected, log));
}

/** The rows as methods that wait for their turn, or as C functions. */
std::vector<Request> Rows(bool exported)
{
    std::vector<Request> rows;
    for (const auto* all : {&requests::kAll, &requests::kOthers}) {
        for (Request row : *all) {
            if (exported) {
                row.call = row.exported;
            } else {
                row.entry = row.sending = row.returned = "";
                row.connects = false;
            }
            if (exported ? row.call != nullptr : row.turn) {
                rows.push_back(row);
            }
        }
    }
    return rows;
}

const auto kName = [](const auto& row) { return row.param.name; };
INSTANTIATE_TEST_SUITE_P(Methods, EveryRequest, testing::ValuesIn(Rows(false)), kName);
INSTANTIATE_TEST_SUITE_P(CFunctions, EveryRequest, testing::ValuesIn(Rows(true)), kName);

} // namespace
