// SPDX-License-Identifier: MIT
//
// An exception of the trace library, at every log point of every request: it passes on, and leaves
// neither the lock held nor a reply behind.
#include "Boundary.h"
#include "ZAVServiceBridgeAPI.h"

#include <functional>

namespace
{

struct Case
{
    const char* name;
    const char* reply;
    std::function<void()> run;
};

void PrintTo(const Case& one, std::ostream* out)
{
    *out << one.name;
}

int level = 0;
std::vector<SCLSpkInfo> speakers;
std::list<AudioEffect> modes;
std::list<std::string> sids;
const unsigned char kByte = 1;
SpeakerManagerState state{};

const Case kCases[] = {
    {"Query", "(1,)", [] { GetWooferLevel(); }},
    {"Setting", "(1,)", [] { SetMode(AUDIO_EFFECT_GAME); }},
    {"NoReply", "", [] { Api::IsFeatureSupported(); }},
    {"Levels", "([1, 2], 2)", [] { Api::GetEqualizerLevel(&level, &level, 1); }},
    {"SentLevels", "", [] { SetEqualizerLevel(&level, 1); }},
    {"Modes", "(0x18001,)", [] { Api::GetModeListwithSID(&modes, &sids); }},
    {"Speakers", "([byte 1, 2],)", [] { Api::GetSCL(speakers); }},
    {"NoSpeakers", "(5,)", [] { Api::GetSCL(speakers); }},
    {"Manager", "", [] { InitSpeakerManager(state); }},
    {"Tunnel", "(true,)", [] { Api::SendDataToCommonTunnelExternal(&kByte, 1); }},
    {"Managed", "", [] { SubscribeZAVCSharpCallback(nullptr); }},
};

class Exceptions : public Boundary, public testing::WithParamInterface<Case>
{
};

TEST_P(Exceptions, LeaveNothingBehind)
{
    const Case& one = GetParam();
    Connect();
    fake::reply = one.reply;
    fake::lockFailures = 1;
    one.run(); // registers its log points: from now on each is one record
    size_t points = 0;
    recorder::onTrace = [&points] { ++points; };
    fake::lockFailures = 1;
    modes.clear();
    one.run();
    ASSERT_LT(1U, points);
    for (size_t failing = 1; failing <= points; ++failing) {
        size_t count = 0;
        recorder::onTrace = [&count, failing] {
            if (++count == failing) {
                throw std::runtime_error("trace");
            }
        };
        fake::lockFailures = 1;
        modes.clear();
        EXPECT_THROW(one.run(), std::runtime_error) << failing;
        EXPECT_TRUE(fake::AllReleased()) << failing;
        recorder::onTrace = nullptr;
    }
    recorder::Take();
    one.run(); // and the next one is served
    EXPECT_LT(1U, recorder::Take().size());
}

INSTANTIATE_TEST_SUITE_P(All, Exceptions, testing::ValuesIn(kCases),
                         [](const auto& one) { return one.param.name; });

} // namespace
