// SPDX-License-Identifier: MIT
//
// Memory runs out at each allocation in turn, the library's own and those of the trace library,
// which makes one for each registration and each record: the caller gets the exception, nothing
// stays behind, and afterwards everything works.
#include "Boundary.h"
#include "FakeGio.h"
#include "Recorder.h"
#include "Requests.h"

#include <new>

namespace
{

using requests::Api;

long left = -1; // allocations until one fails; none does while it is negative

/** Calls again and again, each time with a failure one allocation later. @return their number */
int FailEach(Operation call, int value, int result)
{
    for (int failures = 0;; ++failures) {
        try {
            left = failures;
            fake::lockFailures = 1;
            const int end = call(value);
            left = -1;
            EXPECT_EQ(result, end);
            return failures;
        } catch (const std::bad_alloc&) {
            left = -1;
            EXPECT_TRUE(fake::use.HoldsNothing()) << "after failure " << failures;
            EXPECT_TRUE(Api::proxy != nullptr ||
                        (!Api::m_bDBusConnectionState && fake::use.objects == 0 &&
                         fake::subscriptions.empty()))
                << "connected in part after failure " << failures;
        }
    }
}

using Failures = testing::TestWithParam<Request>;

TEST_P(Failures, OfAnyAllocationLeaveNothingBehind)
{
    const Request& one = GetParam();
    const std::string log = boundary::LogOf([&one] {
        boundary::kept = false;
        fake::subscriptions.reserve(16); // no allocation of the fake's own may fail
        int failures = FailEach(requests::Of<Api::InitDbusConnection>, 0, 0);
        for (const auto& [reply, result] : {std::pair{std::string(), one.unanswered},
                                            {"('text',)", one.mistyped},
                                            {one.reply, one.result}}) {
            fake::reply = reply;
            failures += FailEach(one.call, one.value, one.reply.empty() ? one.result : result);
        }
        EXPECT_LT(20, failures) << "to register the log points takes more";
        boundary::kept = true;
        boundary::wanted = "record|broken";
        one.Run();
    });
    EXPECT_EQ("", log);
}

INSTANTIATE_TEST_SUITE_P(All, Failures, testing::ValuesIn(requests::kAll),
                         [](const auto& row) { return row.param.name; });

} // namespace

// Out of line: what is inlined looks like a mismatch to the compiler.
[[gnu::noinline]] void* operator new(size_t size)
{
    void* block = left < 0 || left-- > 0 ? std::malloc(size) : nullptr;
    return block != nullptr ? block : throw std::bad_alloc();
}

[[gnu::noinline]] void operator delete(void* block) noexcept
{
    std::free(block);
}

[[gnu::noinline]] void operator delete(void* block, size_t) noexcept
{
    std::free(block);
}
