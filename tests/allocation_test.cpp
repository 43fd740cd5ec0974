// SPDX-License-Identifier: MIT
//
// Memory runs out, at each C++ allocation of every request in turn: what the caller gets is
// std::bad_alloc, and neither the lock nor a reply stays behind. The log and the trace library are
// the stand-ins, which allocate as the platform's do.
#include "FakeGio.h"
#include "Requests.h"

#include "lumo.h"

#include <cstdlib>
#include <gtest/gtest.h>
#include <new>
#include <sys/wait.h>
#include <unistd.h>

namespace
{

long left = -1; // allocations until one fails; none does while it is negative

enum
{
    done,
    failed,
    leftSomethingBehind
};

/** What becomes of a request in a process of its own, to which every log point is new. */
int RunWith(long allocations, const Request& one)
{
    const pid_t child = fork();
    if (child == 0) {
        left = allocations;
        try {
            one.run();
            _exit(done);
        } catch (const std::bad_alloc&) {
            _exit(fake::AllReleased() ? failed : leftSomethingBehind);
        }
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

class Allocations : public testing::TestWithParam<Request>
{
};

TEST_P(Allocations, MayFail)
{
    const Request& one = GetParam();
    setenv("ZAV_LOG", "off", 1);
    ASSERT_EQ(0, requests::Api::InitDbusConnection());
    TIStorageManagerState::enabled = 1; // there is no store, as if it were full
    fake::noting = false;
    for (const std::string& reply : {one.reply, std::string()}) {
        fake::reply = reply;
        long allocations = 0;
        int end = failed;
        while ((end = RunWith(allocations, one)) == failed) {
            ++allocations;
        }
        EXPECT_EQ(done, end) << allocations;
        EXPECT_LT(5, allocations); // registering log points alone takes so many
    }
}

INSTANTIATE_TEST_SUITE_P(All, Allocations, testing::ValuesIn(requests::kAll),
                         [](const auto& one) { return one.param.name; });

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
