// SPDX-License-Identifier: MIT
//
// An exception of the trace library, at every log point of every request: it passes on, and leaves
// neither the lock held nor a reply behind.
#include "Boundary.h"
#include "Requests.h"

namespace
{

class Exceptions : public Boundary, public testing::WithParamInterface<Request>
{
};

/** Runs it with the trace library failing at that log point. @return whether it got so far */
bool FailsAt(size_t point, const Request& one, int expected)
{
    size_t count = 0;
    recorder::onTrace = [&count, point] {
        if (++count == point) {
            throw std::runtime_error("trace");
        }
    };
    fake::lockFailures = 1;
    try {
        EXPECT_EQ(expected, one.run());
        return false;
    } catch (const std::runtime_error&) {
        return true;
    }
}

TEST_P(Exceptions, LeaveNothingBehind)
{
    const Request& one = GetParam();
    Connect();
    const std::pair<std::string, int> paths[] = {
        {"", one.unanswered}, {"('text',)", one.mistyped}, {one.reply, one.result}};
    for (const auto& [reply, expected] : paths) {
        fake::reply = reply;
        size_t point = 1;
        while (FailsAt(point, one, expected)) {
            EXPECT_TRUE(fake::AllReleased()) << reply << " " << point;
            ++point;
        }
        EXPECT_LE(4U, point) << reply;
    }
}

INSTANTIATE_TEST_SUITE_P(All, Exceptions, testing::ValuesIn(requests::kAll),
                         [](const auto& one) { return one.param.name; });

using Connecting = Boundary;

TEST_F(Connecting, StartsAgainAfterAnException)
{
    size_t failures = 0;
    for (bool failed = true; failed; failures += failed ? 1 : 0) {
        size_t count = 0;
        recorder::onTrace = [&] {
            if (count++ == failures) {
                throw std::runtime_error("trace");
            }
        };
        try {
            EXPECT_EQ(0, Api::InitDbusConnection());
            failed = false;
        } catch (const std::runtime_error&) {
            EXPECT_EQ(nullptr, Api::proxy);
            EXPECT_FALSE(Api::m_bDBusConnectionState);
            EXPECT_TRUE(fake::subscriptions.empty());
        }
    }
    EXPECT_LE(2U, failures);
    EXPECT_EQ(6U, fake::subscriptions.size());
}

} // namespace
