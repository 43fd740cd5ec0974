// SPDX-License-Identifier: MIT
//
// The sixteen scalar requests on every path, as whole transcripts: one table, one test for a path.
#include "Boundary.h"

#include <algorithm>

namespace
{

struct Row
{
    const char* name;      // of the method, on the wire and in the log
    const char* signature; // as the compiler writes it
    int (*run)();
    const char* announced; // argument in the announce line, "" for a getter
    const char* sent;      // body of the call
    const char* reply;     // a good one
    int received, result, refused, unanswered;
};

void PrintTo(const Row& one, std::ostream* out)
{
    *out << one.name;
}

const Row kRows[] = {
    {"IsSoundBarConnected", "static bool ZAVServiceAPI::IsSoundBarConnected()",
     [] { return int(Api::IsSoundBarConnected()); }, "", "none", "(true,)", 1, 1, 0, 0},
    {"GetSpeakerSelection", "static int ZAVServiceAPI::GetSpeakerSelection()",
     [] { return Api::GetSpeakerSelection(); }, "", "none", "(3,)", 3, 3, -1, 0},
    {"SetSpeakerSelection", "static int ZAVServiceAPI::SetSpeakerSelection(int)",
     [] { return Api::SetSpeakerSelection(2); }, "2", "(2,)", "(0,)", 0, 0, -1, -1},
    {"GetWooferLevel", "static int ZAVServiceAPI::GetWooferLevel()",
     [] { return Api::GetWooferLevel(); }, "", "none", "(-6,)", -6, -6, -1, -1},
    {"SetWooferLevel", "static int ZAVServiceAPI::SetWooferLevel(int)",
     [] { return Api::SetWooferLevel(-3); }, "-3", "(-3,)", "(7,)", 7, 7, -1, -1},
    {"GetWooferState", "static woofer_state_e ZAVServiceAPI::GetWooferState()",
     [] { return int(Api::GetWooferState()); }, "", "none", "(9,)", 9, 9, 0, 0},
    {"IsZAVReady", "static int ZAVServiceAPI::IsZAVReady()", [] { return Api::IsZAVReady(); }, "",
     "none", "(1,)", 1, 1, -1, -1},
    {"SetEarcToZav", "static int ZAVServiceAPI::SetEarcToZav(int)",
     [] { return Api::SetEarcToZav(4); }, "4", "(4,)", "(0,)", 0, 0, -1, -1},
    {"SetCorvalaVconf", "static int ZAVServiceAPI::SetCorvalaVconf(int)",
     [] { return Api::SetCorvalaVconf(5); }, "5", "(5,)", "(0,)", 0, 0, -1, -1},
    {"RequestPreTrial", "static int ZAVServiceAPI::RequestPreTrial(int)",
     [] { return Api::RequestPreTrial(6); }, "6", "(6,)", "(2,)", 2, 2, -1, -1},
    {"IsAvailableEqualizer", "static bool ZAVServiceAPI::IsAvailableEqualizer()",
     [] { return int(Api::IsAvailableEqualizer()); }, "", "none", "(true,)", 1, 1, 0, 0},
    {"getQCorvalaAvailable", "static int ZAVServiceAPI::getQCorvalaAvailable()",
     [] { return Api::getQCorvalaAvailable(); }, "", "none", "(2147483647,)", 2147483647,
     2147483647, -1, -1},
    {"IsFeatureSupported", "static feature_support_e ZAVServiceAPI::IsFeatureSupported()",
     [] { return int(Api::IsFeatureSupported()); }, "", "none", "(12,)", 12, 12, -4, -4},
    {"SetMode", "static int ZAVServiceAPI::SetMode(AudioEffect)",
     [] { return Api::SetMode(AUDIO_EFFECT_SOUNDBAR_2); }, "116", "(16,)", "(0,)", 0, 0, -1, -1},
    {"GetMode", "static AudioEffect ZAVServiceAPI::GetMode()", [] { return int(Api::GetMode()); },
     "", "none", "(5,)", 5, 105, 117, 117},
    {"IsAvailableWooferMode", "static bool ZAVServiceAPI::IsAvailableWooferMode()",
     [] { return int(Api::IsAvailableWooferMode()); }, "", "none", "(false,)", 0, 0, 0, 0},
};

std::string Announced(const Row& row)
{
    const Lines lines{row.name};
    return *row.announced == '\0' ? lines.Announced() : lines.Announced(std::stoi(row.announced));
}

std::string Called(const Row& row)
{
    return std::string("call ") + row.name + " " + row.sent + " 5000";
}

class ScalarRequests : public Boundary, public testing::WithParamInterface<Row>
{
};

class ModeRequests : public Boundary
{
};

TEST_P(ScalarRequests, AreRefusedBeforeTheyTouchTheLockWhileThereIsNoProxy)
{
    const Row& row = GetParam();
    Disconnect();
    fake::lockFailures = 1;
    EXPECT_EQ(row.refused, row.run());
    EXPECT_EQ((Transcript{Announced(row), Lines{row.name}.NoProxy()}), recorder::Take());
    EXPECT_EQ(1, fake::lockFailures);
    EXPECT_EQ(Actions{}, fake::TakeActions());
}

TEST_P(ScalarRequests, AreRefusedAfterAHundredFailedAttempts)
{
    const Row& row = GetParam();
    Connect();
    fake::lockFailures = 100;
    EXPECT_EQ(row.refused, row.run());
    EXPECT_EQ(Lines{row.name}.GivenUp(Announced(row)), recorder::Take());
    EXPECT_EQ(Actions(100, "sleep 10000"), fake::TakeActions());
}

TEST_P(ScalarRequests, AreAnsweredAsSoonAsTheLockIsFree)
{
    const Row& row = GetParam();
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
    const Row& row = GetParam();
    const Lines lines{row.name};
    Connect();
    EXPECT_EQ(row.unanswered, row.run());
    EXPECT_EQ((Transcript{Announced(row), lines.Returned(), lines.NoReply()}), recorder::Take());
    EXPECT_EQ(Actions{Called(row)}, fake::TakeActions());
}

TEST_P(ScalarRequests, TakeAReplyOfAnotherTypeAsZero)
{
    const Row& row = GetParam();
    const Lines lines{row.name};
    Connect();
    for (const char* wrong : {"('text',)", "()", "(1, 2)", "(@x 5,)"}) {
        fake::reply = wrong;
        EXPECT_EQ(lines.name == "GetMode" ? 100 : 0, row.run()) << wrong;
        EXPECT_EQ((Transcript{Announced(row), lines.Returned(), lines.Received(0)}),
                  recorder::Take())
            << wrong;
    }
}

TEST_P(ScalarRequests, HaveSevenLogPointsOfTheirOwn)
{
    const Row& row = GetParam();
    Disconnect();
    row.run();
    Connect();
    for (const char* reply : {"", row.reply}) {
        fake::reply = reply;
        row.run();
    }
    fake::lockFailures = 100;
    row.run();
    const auto& all = recorder::Locations();
    EXPECT_EQ(7, std::count_if(all.begin(), all.end(), [&row](const lumo::TCCallLocation& one) {
                  return one.function == row.signature;
              }));
}

INSTANTIATE_TEST_SUITE_P(All, ScalarRequests, testing::ValuesIn(kRows),
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
