// SPDX-License-Identifier: MIT
//
// The twenty requests that log nothing but the common lines, on every path, as whole transcripts:
// one table, one test for a path.
#include "Boundary.h"
#include "Requests.h"

#include <algorithm>

namespace
{

std::string Announced(const Request& row)
{
    const Lines lines{row.name};
    return row.announced.empty() ? lines.Announced() : lines.Announced(std::stoi(row.announced));
}

std::string Called(const Request& row)
{
    return "call " + row.method + " " + row.sent + " 5000";
}

class ScalarRequests : public Boundary, public testing::WithParamInterface<Request>
{
};

class ModeRequests : public Boundary
{
};

TEST_P(ScalarRequests, AreRefusedBeforeTheyTouchTheLockWhileThereIsNoProxy)
{
    const Request& row = GetParam();
    Disconnect();
    fake::lockFailures = 1;
    EXPECT_EQ(row.refused, row.run());
    EXPECT_EQ((Transcript{Announced(row), Lines{row.name}.NoProxy()}), recorder::Take());
    EXPECT_EQ(1, fake::lockFailures);
    EXPECT_EQ(Actions{}, fake::TakeActions());
}

TEST_P(ScalarRequests, AreRefusedAfterAHundredFailedAttempts)
{
    const Request& row = GetParam();
    Connect();
    fake::lockFailures = 100;
    EXPECT_EQ(row.refused, row.run());
    EXPECT_EQ(Lines{row.name}.GivenUp(Announced(row)), recorder::Take());
    EXPECT_EQ(Actions(100, "sleep 10000"), fake::TakeActions());
}

TEST_P(ScalarRequests, AreAnsweredAsSoonAsTheLockIsFree)
{
    const Request& row = GetParam();
    const Lines lines{row.name};
    Connect();
    fake::lockFailures = 2;
    fake::reply = row.reply;
    EXPECT_EQ(row.result, row.run());
    EXPECT_EQ((Transcript{Announced(row), lines.Busy(100), lines.Busy(99), lines.Returned(),
                          lines.Received(row.received)}),
              recorder::Take());
    EXPECT_EQ((Actions{"sleep 10000", "sleep 10000", Called(row)}), fake::TakeActions());
}

TEST_P(ScalarRequests, TellAMissingReply)
{
    const Request& row = GetParam();
    const Lines lines{row.name};
    Connect();
    EXPECT_EQ(row.unanswered, row.run());
    EXPECT_EQ((Transcript{Announced(row), lines.Returned(), lines.NoReply()}), recorder::Take());
    EXPECT_EQ(Actions{Called(row)}, fake::TakeActions());
}

TEST_P(ScalarRequests, TakeAReplyOfAnotherTypeAsZero)
{
    const Request& row = GetParam();
    const Lines lines{row.name};
    Connect();
    for (const char* wrong : {"('text',)", "()", "(1, 2)", "(@x 5,)"}) {
        fake::reply = wrong;
        EXPECT_EQ(row.mistyped, row.run()) << wrong;
        EXPECT_EQ((Transcript{Announced(row), lines.Returned(), lines.Received(0)}),
                  recorder::Take())
            << wrong;
    }
}

TEST_P(ScalarRequests, HaveSevenLogPointsOfTheirOwn)
{
    const Request& row = GetParam();
    Disconnect();
    row.run();
    Connect();
    for (const std::string& reply : {std::string(), row.reply}) {
        fake::reply = reply;
        row.run();
    }
    fake::lockFailures = 100;
    row.run();
    int points = 0;
    for (const lumo::TCCallLocation& location : recorder::Locations()) {
        std::string function = location.function;
        if (const size_t star = function.find(" *"); star != std::string::npos) {
            function.erase(star, 1); // as clang writes it
        }
        points += function == row.signature;
    }
    EXPECT_EQ(7, points);
}

std::vector<Request> Scalar()
{
    std::vector<Request> rows;
    std::copy_if(requests::kAll.begin(), requests::kAll.end(), std::back_inserter(rows),
                 [](const Request& one) { return !one.signature.empty(); });
    return rows;
}

INSTANTIATE_TEST_SUITE_P(All, ScalarRequests, testing::ValuesIn(Scalar()),
                         [](const auto& row) { return row.param.name; });

TEST_F(ModeRequests, ModesTravelInTheServicesNumberingWhateverTheirValue)
{
    Connect();
    fake::reply = "(0,)";
    const std::pair<int, const char*> modes[] = {
        {100, "(0,)"}, {99, "(-1,)"}, {0, "(-100,)"}, {INT32_MIN, "(2147483548,)"}};
    for (const auto& [mode, sent] : modes) {
        Api::SetMode(static_cast<AudioEffect>(mode));
        EXPECT_EQ(Actions{std::string("call SetMode ") + sent + " 5000"}, fake::TakeActions());
    }
    fake::reply = "(2147483647,)";
    EXPECT_EQ(INT32_MIN + 99, Api::GetMode());
}

TEST_F(ModeRequests, TheEqualizerStateIsTheStandardMode)
{
    Connect();
    fake::reply = "(0,)";
    EXPECT_TRUE(Api::GetEqualizerState());
    fake::reply = "(5,)";
    EXPECT_FALSE(Api::GetEqualizerState());
    fake::reply = "";
    EXPECT_FALSE(Api::GetEqualizerState());
    for (const std::string& line : recorder::Take()) {
        EXPECT_NE(std::string::npos, line.find(" GetMode > ")) << line;
    }
}

} // namespace
