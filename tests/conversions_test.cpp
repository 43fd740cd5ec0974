// SPDX-License-Identifier: MIT
//
// What becomes of lists, arrays and records on their way through the library, both forms of it.
#include "Boundary.h"
#include "FakeGio.h"
#include "Requests.h"

#include <set>

namespace
{

using requests::Api;
using requests::kUntouched;
using Modes = std::list<AudioEffect>;
using Numbers = std::vector<int>;
using Sids = std::list<std::string>;

class Conversions : public testing::Test
{
protected:
    Conversions()
    {
        boundary::Quietly([] { Api::InitDbusConnection(); });
        boundary::Take();
        fake::reply = "";
    }
    ~Conversions() override { EXPECT_TRUE(fake::use.HoldsNothing()); }

    int count = kUntouched;
};

/** "([1, 2, ...], 3)" with so many elements of that type. */
std::string Reply(const std::string& type, int size)
{
    std::string array = "(@a" + type + " [";
    for (int i = 1; i <= size; ++i) {
        array += (i == 1 ? "" : ", ") + std::to_string(type == "y" ? i % 256 : i);
    }
    return array + "], 3)";
}

/** The lines of the log with that in them. */
std::string LinesWith(const char* text, const std::string& log)
{
    std::string found;
    for (const std::string& line : boundary::Split(log)) {
        found += line.find(text) != std::string::npos ? line + "\n" : "";
    }
    return found;
}

TEST_F(Conversions, OfLevelsCopyWhatTheArrayHoldsUpToAHundredInC)
{
    int levels[200] = {};
    fake::reply = Reply("i", 7); // and not 3
    Api::GetEqualizerLevel(levels, &count);
    EXPECT_EQ((Numbers{7, 7, 0}), (Numbers{count, levels[6], levels[7]}));
    int* to = levels;
    for (const auto& [sent, kept] : {std::pair{3, 3}, {100, 100}, {101, 100}, {199, 100}}) {
        std::fill(levels, levels + 200, 0);
        fake::reply = Reply("i", sent);
        GetEqualizerLevel(&to, &count);
        EXPECT_EQ((Numbers{kept, 1, kept, 0}),
                  (Numbers{count, levels[0], levels[kept - 1], levels[kept]}));
    }
    EXPECT_EQ(levels, to);
}

TEST_F(Conversions, OfLevelsWriteNothingWhereThereAreNone)
{
    int level = 5;
    for (const char* reply : {"", "(@ai [], 3)", "()", "(5,)", "(@ax [1, 2], 2)", "([1, 2],)"}) {
        fake::reply = reply;
        Api::GetEqualizerLevel(&level, &count);
        EXPECT_EQ((Numbers{5, kUntouched}), (Numbers{level, count})) << reply;
    }
}

TEST_F(Conversions, TellOfNullPointersBeforeTheyLookAtTheConnection)
{
    int level = 0;
    boundary::names = {{&level, "LEVEL"}, {&count, "COUNT"}};
    const std::string log = boundary::LogOf([&] {
        boundary::Quietly([] { Api::proxy = nullptr; });
        Api::SetEqualizerLevel(nullptr, 5);
        Api::GetEqualizerLevel(nullptr, &count);
        Api::GetEqualizerLevel(&level, nullptr);
        Api::DataReceivedFromSpkViaSPDIF(nullptr, 5);
        boundary::Add("Wrong: ", Api::SendDataToCommonTunnelExternal(nullptr, 5));
        boundary::Add("Wrong: ", Api::GetCapabilityCommonTunnelExternal({}, nullptr));
        boundary::Add("Wrong: ", Api::InitSpeakerManager(nullptr)); // which goes on
    });
    EXPECT_PRED_FORMAT2(boundary::SameLog,
                        "6 SetEqualizerLevel > Wrong memory pointer (nil)  5 | *_void int\n"
                        "6 GetEqualizerLevel > Wrong parameter  (nil)  COUNT | *_void *_void\n"
                        "6 GetEqualizerLevel > Wrong parameter  LEVEL  (nil) | *_void *_void\n"
                        "6 DataReceivedFromSpkViaSPDIF > Wrong parameter  (nil)  5 | *_void int\n"
                        "6 SendDataToCommonTunnelExternal > Wrong parameter  (nil)  5 | "
                        "*_void int\n"
                        "Wrong: 0\n"
                        "6 GetCapabilityCommonTunnelExternal > Wrong parameter  (nil) | *_void\n"
                        "Wrong: -1\n"
                        "6 InitSpeakerManager > Wrong parameter  (nil) | *_void\n"
                        "Wrong: -1\n",
                        LinesWith("Wrong", log));
    EXPECT_PRED_FORMAT2(boundary::SameLog,
                        "6 InitSpeakerManager > Error::Please initialize Dbus Connection by "
                        "calling InitDbusConnection function\n",
                        LinesWith("Please", log));
    EXPECT_THROW(Api::m_HashModelName(nullptr), std::logic_error);
}

TEST_F(Conversions, OfAModeWrapAround)
{
    fake::reply = "(0,)";
    EXPECT_TRUE(Api::GetEqualizerState());
    fake::reply = "(2147483647,)";
    EXPECT_EQ(INT_MIN + 99, Api::GetMode());
    Api::SetMode(AudioEffect{INT_MIN});
    EXPECT_EQ("call SetMode (2147483548,)\n", LinesWith("call SetMode", boundary::Take()));
}

Numbers Decoded(int mask, Modes modes = {})
{
    Api::createSoundEffectList(&modes, mask);
    return {modes.begin(), modes.end()};
}

TEST_F(Conversions, OfAModeMaskSortWithTheSmartOneSecond)
{
    Numbers bits;
    for (int bit = 1; bit <= 0x4000; bit <<= 1) {
        bits.push_back(Decoded(bit).at(0));
    }
    EXPECT_EQ((Numbers{100, 106, 105, 102, 103, 104, 101, 107, 108, 109, 110, 111, 112, 113, 114}),
              bits);
    EXPECT_EQ((Numbers{100, 107, 101, 102, 103, 104, 105, 106, 108, 109, 110, 111, 112, 113, 114}),
              Decoded(-1));
    EXPECT_EQ("4 createSoundEffectList > Unknown Sound Mode Found 115 | enum_AudioEffect\n"
              "4 createSoundEffectList > Unknown Sound Mode Found 116 | enum_AudioEffect\n",
              boundary::Take());
    EXPECT_EQ((Numbers{107, 108, 109}), Decoded(0x380));
    EXPECT_EQ(Numbers{}, Decoded(static_cast<int>(0xFFFF8000U)));
    const Modes smart{AUDIO_EFFECT_SMART, AUDIO_EFFECT_MUSIC, AUDIO_EFFECT_STANDARD};
    EXPECT_EQ((Numbers{100, 107, 101, 107}), Decoded(0x80, smart));
    EXPECT_EQ((Numbers{100, 101, 102, 107}), Decoded(0x8, smart));
}

TEST_F(Conversions, OfModesToDisplayStringsLeaveOutThoseThatHaveNone)
{
    Modes all;
    for (int mode = 99; mode <= 118; ++mode) {
        all.push_back(AudioEffect{mode});
    }
    Sids sids{"SID_OF_BEFORE"};
    Api::popSIDList(&sids, &all);
    EXPECT_EQ(
        (Sids{"SID_OF_BEFORE", "SID_STANDARD_KR_SOUND", "SID_MUSIC", "SID_CLEAR_VOICE",
              "COM_SID_SPORTS", "SID_MOVIE_KR_SOUND", "SID_NIGHT", "TV_SID_SURROUND_MODE",
              "TV_SID_SPEAKER_SOUND_OPTION_SMART", "COM_SID_GAME", "COM_SID_ADAPTIVE",
              "COM_SID_DTS_VIRTUAL_X", "TV_SID_SOUNDMODE_CAOCT_BASS_BOOST",
              "TV_SID_SETTINGS_ADAPTIVE_SOUND_PLUS", "SOUNDBAR MODE (TBD)", "SOUNDBAR MODE (TBD)"}),
        sids);
}

TEST_F(Conversions, OfModesShowWhatWasInTheListsAndPairByPosition)
{
    Modes modes;
    Sids sids{"SID_OF_BEFORE"};
    Api::GetModeListwithSID(&modes, &sids); // unanswered
    EXPECT_EQ(1U, sids.size());
    modes = {AUDIO_EFFECT_MOVIE};
    fake::reply = "(0x3000,)"; // 112, 113
    Api::GetModeListwithSID(&modes, &sids);
    const std::string log = boundary::Take();
    EXPECT_EQ("4 GetModeList > GetModeList MODE: 104 | enum_AudioEffect\n"
              "4 GetModeList > GetModeList MODE: 112 | enum_AudioEffect\n"
              "4 GetModeList > GetModeList MODE: 113 | enum_AudioEffect\n",
              LinesWith("MODE:", log));
    const std::string line = "4 GetModeListwithSID > #GetModeList and MODE ID : ";
    EXPECT_EQ(line + "104 SID = SID_OF_BEFORE | enum_AudioEffect char*\n" + line +
                  "112 SID = SID_MOVIE_KR_SOUND | enum_AudioEffect char*\n" + line +
                  "113 SID = TV_SID_SETTINGS_ADAPTIVE_SOUND_PLUS | enum_AudioEffect char*\n",
              LinesWith("MODE ID", log));
}

TEST_F(Conversions, OfASelectionAddItAndSort)
{
    const Numbers selections[] = {{},
                                  {106},
                                  {105},
                                  {105, 106},
                                  {102, 105, 106},
                                  {102, 103, 105, 106},
                                  {102, 103, 104, 105, 106},
                                  {101, 102, 103, 104, 105, 106}};
    for (int selection = 0; selection <= 7; ++selection) {
        Modes modes{AUDIO_EFFECT_GAME, AUDIO_EFFECT_STANDARD};
        Api::popSoundEffectList(&modes, ListSoundEffect{selection});
        Numbers expected = selections[selection];
        expected.insert(expected.begin(), {100, 100});
        expected.push_back(108);
        EXPECT_EQ(expected, Numbers(modes.begin(), modes.end())) << selection;
    }
    Modes unchanged{AUDIO_EFFECT_GAME, AUDIO_EFFECT_STANDARD};
    Api::popSoundEffectList(&unchanged, ListSoundEffect{8});
    EXPECT_EQ((Modes{AUDIO_EFFECT_STANDARD, AUDIO_EFFECT_GAME}), unchanged);
}

TEST_F(Conversions, OfModesFillTheBufferOfTheCFunction)
{
    int buffer[] = {7, 7, 7, 7};
    int* list = buffer;
    GetModeList(&list, &count);
    EXPECT_EQ((Numbers{0, 7}), (Numbers{count, buffer[0]}));
    fake::reply = "(0x8C,)";
    GetModeList(&list, &count);
    EXPECT_EQ(3, count);
    EXPECT_EQ((Numbers{102, 107, 105, 7}), Numbers(buffer, buffer + 4));
    EXPECT_EQ(buffer, list);
}

TEST_F(Conversions, OfForeignFlagsTakeAnyByteButZeroForTrue)
{
    for (const auto& [woofer, equalizer] : {std::pair{2, 0}, {0, 0xFF}, {0xFE, 4}}) {
        SpeakerManagerState state = requests::State(104);
        auto* bytes = reinterpret_cast<unsigned char*>(&state);
        bytes[40] = static_cast<unsigned char>(woofer);
        bytes[41] = static_cast<unsigned char>(equalizer);
        bytes[42] = bytes[43] = 0xEE; // padding, which is not read
        Api::InitSpeakerManager(&state);
        InitSpeakerManager(state);
        const std::string log = boundary::Take();
        const auto name = [](int byte) { return byte != 0 ? "true" : "false"; };
        const std::string sent = std::string("send InitSpeakerManager (104, -3, [1, -2, 3, "
                                             "2147483647, -2147483648, 6, 7], 8, ") +
                                 name(woofer) + ", " + name(equalizer) + ", 9, 10, 11, 12)\n";
        EXPECT_EQ(sent + sent, LinesWith("send", log));
        const std::string line = "6 InitSpeakerManager > ZAV_API_BRIDGE ";
        EXPECT_EQ(line + "SubWooferAvailable " + std::to_string(woofer != 0) + " | bool\n" + line +
                      "EqualizerAvailable " + std::to_string(equalizer != 0) + " | bool\n",
                  LinesWith("Available", log));
    }
}

TEST_F(Conversions, OfSpeakersCopyRecordByRecord)
{
    fake::reply = Reply("y", 50 * 148 + 147);
    std::vector<unsigned char> sent(size_t{50} * 148);
    for (size_t i = 0; i < sent.size(); ++i) {
        sent[i] = static_cast<unsigned char>(i + 1);
    }
    std::vector<SCLSpkInfo> list(3);
    static SCLSpkInfo out[51];
    EXPECT_EQ(50, Api::GetSCL(list));
    EXPECT_EQ(50, GetSCL(out));
    ASSERT_EQ(50U, list.size());
    EXPECT_EQ(0, memcmp(list.data(), sent.data(), sent.size()));
    EXPECT_EQ(0, memcmp(out, sent.data(), sent.size()));
    EXPECT_EQ(0, out[50].opaque1[0]);
    const std::string line = "4 GetSCL > spk[2]: m_Connecttype: -1162233673 | int int\n";
    EXPECT_EQ(line + line, LinesWith("spk[2]", boundary::Take()));
}

TEST_F(Conversions, OfSpeakersEmptyTheListUnlessRefused)
{
    std::vector<SCLSpkInfo> list(3);
    fake::lockFailures = 100;
    EXPECT_EQ(0, Api::GetSCL(list));
    EXPECT_EQ(3U, list.size());
    for (const char* reply : {"", "()", "(@ay [],)", "([1, 2],)", "(@ab [true],)"}) {
        list.resize(3);
        fake::reply = reply;
        EXPECT_EQ(*reply == '\0' ? 0 : -1, Api::GetSCL(list)) << reply;
        EXPECT_EQ(0U, list.size()) << reply;
    }
}

TEST_F(Conversions, OfAModelNameCompareByteForByte)
{
    EXPECT_EQ(14, Api::m_HashModelName("MODEL_DEFAULT"));
    EXPECT_EQ(15, Api::m_HashModelName("SOUNDBAR_DEFAULT"));
    for (const char* unknown :
         {"", "model_default", "MODEL_", "MODEL_DEFAULT ", "MODEL_DEFAULTS", "SOUNDBAR", "zzz"}) {
        EXPECT_EQ(MODEL_NAME_UNKNOWN, Api::m_HashModelName(unknown)) << unknown;
    }
    const std::tuple<std::string, int, int> groups[] = {
        {"SOUNDBAR_A", 0, 5}, {"SPEAKER_W", 5, 9}, {"SOUNDBAR_B", 16, 10}};
    for (const auto& [group, first, size] : groups) {
        std::set<int> codes;
        for (int i = 1; i <= size; ++i) {
            codes.insert(Api::m_HashModelName((group + std::to_string(i)).c_str()));
        }
        EXPECT_EQ(static_cast<size_t>(size), codes.size()) << group;
        EXPECT_EQ((Numbers{first, first + size - 1}), (Numbers{*codes.begin(), *codes.rbegin()}));
    }
}

TEST_F(Conversions, OfALockThatIsNotHadStoreNoCallback)
{
    fake::lockFailures = 100;
    EXPECT_FALSE(Api::SubscribeZAVCSharpCallback(requests::OnEvent));
    EXPECT_EQ(nullptr, Api::CSharpCallbackFunction);
}

TEST_F(Conversions, OfRegistrationsClearTheUserDataOfSpdif)
{
    Api::SetSendDataToSpkViaSPDIFcb(requests::OnData, &count);
    EXPECT_EQ(&count, Api::SendDataToSpkViaSPDIF_user_data);
    Api::UnSetSendDataToSpkViaSPDIFcb();
    EXPECT_EQ(nullptr, Api::SendDataToSpkViaSPDIF_user_data);
}

} // namespace
