// SPDX-License-Identifier: MIT
//
// Equalizer levels, sound modes and their lists, the model names, and how the exported C functions
// hand lists over.
#include "Boundary.h"
#include "ZAVServiceBridgeAPI.h"

#include <algorithm>
#include <climits>
#include <numeric>

namespace
{

using Modes = std::list<AudioEffect>;
using Sids = std::list<std::string>;

class Equalizer : public Boundary
{
protected:
    int levels[200] = {};
    int count = -7;

    /** "([1, 2, ...], member)" with so many levels. */
    static std::string Reply(int size, int member)
    {
        std::string array = "@ai [";
        for (int i = 1; i <= size; ++i) {
            array += (i == 1 ? "" : ", ") + std::to_string(i);
        }
        return "(" + array + "], " + std::to_string(member) + ")";
    }
};

const Lines kSet{"SetEqualizerLevel"};
const Lines kGet{"GetEqualizerLevel"};

TEST_F(Equalizer, SendsItsLevelsAndDoesNotWait)
{
    Connect();
    int sent[] = {3, -4, 0, INT_MAX, INT_MIN};
    Api::SetEqualizerLevel(sent, 5);
    EXPECT_EQ((Transcript{kSet.Announced(5), kSet.Received(0)}), recorder::Take());
    EXPECT_EQ(Actions{"send SetEqualizerLevel ([3, -4, 0, 2147483647, -2147483648], 5) 5000"},
              fake::TakeActions());
}

TEST_F(Equalizer, SendsNothingWithoutLevelsAConnectionOrATurn)
{
    const auto Wrong = [](const void* pointer, int size) {
        return kSet.Line(6, "Wrong memory pointer " + Text(pointer) + "  " + std::to_string(size),
                         Bytes(pointer) + Bytes(size));
    };
    for (const int size : {0, -1, INT_MIN}) {
        Api::SetEqualizerLevel(levels, size);
        EXPECT_EQ((Transcript{kSet.Announced(size), Wrong(levels, size)}), recorder::Take());
    }
    Api::SetEqualizerLevel(nullptr, 5);
    EXPECT_EQ((Transcript{kSet.Announced(5), Wrong(nullptr, 5)}), recorder::Take());
    Api::SetEqualizerLevel(levels, 5);
    EXPECT_EQ((Transcript{kSet.Announced(5), kSet.NoProxy()}), recorder::Take());
    Connect();
    fake::lockFailures = 100;
    Api::SetEqualizerLevel(levels, 5);
    EXPECT_EQ(kSet.GivenUp(kSet.Announced(5)), recorder::Take());
    EXPECT_EQ(Actions(100, "sleep 10000"), fake::TakeActions());
}

TEST_F(Equalizer, ReadsAsManyLevelsAsTheArrayHolds)
{
    Connect();
    fake::reply = Reply(7, 3);
    Api::GetEqualizerLevel(levels, &count);
    EXPECT_EQ(7, count);
    EXPECT_EQ(7, levels[6]);
    EXPECT_EQ(0, levels[7]);
    Transcript expected{kGet.Announced(), kGet.Returned()};
    for (int band = 1; band <= 7; ++band) {
        expected.push_back(
            kGet.Line(4,
                      "From: [ZAVService] To: [ZAVService-api] Byteno.: " + std::to_string(band) +
                          " Recieved EqualizerLevel : " + std::to_string(band),
                      Bytes(band) + Bytes(band)));
    }
    EXPECT_EQ(expected, recorder::Take());
    const lumo::TCCallLocation& last = recorder::Locations().back();
    EXPECT_EQ("static void ZAVServiceAPI::GetEqualizerLevel(int*, int*)", last.function);
    EXPECT_EQ((std::vector<std::string>{"unsigned int", "int"}), last.argTypeNames);
}

TEST_F(Equalizer, WritesNothingOnAnyFailure)
{
    const auto Wrong = [](const void* a, const void* b) {
        return kGet.Line(6, "Wrong parameter  " + Text(a) + "  " + Text(b), Bytes(a) + Bytes(b));
    };
    Api::GetEqualizerLevel(levels, nullptr);
    Api::GetEqualizerLevel(nullptr, &count);
    Api::GetEqualizerLevel(levels, &count);
    EXPECT_EQ((Transcript{kGet.Announced(), Wrong(levels, nullptr), kGet.Announced(),
                          Wrong(nullptr, &count), kGet.Announced(), kGet.NoProxy()}),
              recorder::Take());
    Connect();
    fake::lockFailures = 100;
    Api::GetEqualizerLevel(levels, &count);
    EXPECT_EQ(kGet.GivenUp(kGet.Announced()), recorder::Take());
    Api::GetEqualizerLevel(levels, &count);
    EXPECT_EQ((Transcript{kGet.Announced(), kGet.Returned(), kGet.NoReply()}), recorder::Take());
    for (const char* reply : {"(@ai [], 3)", "()", "(5,)", "(@ax [1, 2], 2)", "([1, 2],)"}) {
        fake::reply = reply;
        Api::GetEqualizerLevel(levels, &count);
        EXPECT_EQ((Transcript{kGet.Announced(), kGet.Returned()}), recorder::Take()) << reply;
    }
    EXPECT_EQ(-7, count);
    EXPECT_EQ(0, std::accumulate(std::begin(levels), std::end(levels), 0));
}

TEST_F(Equalizer, HandsOnTheFirstHundredLevelsThroughTheExport)
{
    int* buffer = levels;
    fake::bus = fake::Outcome::failsWithoutError;
    GetEqualizerLevel(&buffer, &count);
    EXPECT_EQ(0, count);
    EXPECT_EQ("6 GetEqualizerLevel > ZAV_API_BRIDGE", recorder::Take().front());
    fake::bus = fake::Outcome::works;
    const std::pair<int, int> sizes[] = {{3, 3}, {100, 100}, {101, 100}, {199, 100}};
    for (const auto& [sent, kept] : sizes) {
        fake::reply = Reply(sent, 0);
        GetEqualizerLevel(&buffer, &count);
        EXPECT_EQ(kept, count);
        EXPECT_EQ(kept, levels[kept - 1]);
        EXPECT_EQ(0, levels[kept]);
    }
    EXPECT_EQ(levels, buffer);
    fake::TakeActions();
    SetEqualizerLevel(levels, 2);
    EXPECT_EQ(Actions{"send SetEqualizerLevel ([1, 2], 2) 5000"}, fake::TakeActions());
}

class SoundModes : public Boundary
{
protected:
    static std::vector<int> Decoded(int mask, Modes modes = {})
    {
        Api::createSoundEffectList(&modes, mask);
        return {modes.begin(), modes.end()};
    }
};

TEST_F(SoundModes, AreDecodedSortedWithTheSmartOneSecond)
{
    using List = std::vector<int>;
    EXPECT_EQ((List{100, 107, 101, 102, 103, 104, 105, 106, 108, 109, 110, 111, 112, 113, 114}),
              Decoded(0x1FFFF));
    const std::string unknown = "4 createSoundEffectList > Unknown Sound Mode Found ";
    EXPECT_EQ((Transcript{unknown + "115 |" + Bytes(115), unknown + "116 |" + Bytes(116)}),
              recorder::Take());
    EXPECT_EQ(std::vector<std::string>{"enum_AudioEffect"},
              recorder::Locations().back().argTypeNames);
    EXPECT_EQ(List{107}, Decoded(0x80));
    EXPECT_EQ((List{100, 107}), Decoded(0x81));
    EXPECT_EQ((List{100, 107, 106}), Decoded(0x83));
    EXPECT_EQ((List{107, 108}), Decoded(0x180));
    EXPECT_EQ((List{107, 108, 109}), Decoded(0x380));
    EXPECT_EQ((List{106, 105, 102, 101}), [] {
        List bits; // each of the low bits on its own
        for (const int bit : {0x2, 0x4, 0x8, 0x40}) {
            bits.push_back(Decoded(bit).at(0));
        }
        return bits;
    }());
    EXPECT_EQ(List{}, Decoded(static_cast<int>(0xFFFE0000U)));
    EXPECT_EQ((List{100, 107, 112}), Decoded(0x81, {AUDIO_EFFECT_ADAPTIVE_SOUND_PLUS}));
    EXPECT_EQ((List{100, 101, 107}), Decoded(0x1, {AUDIO_EFFECT_SMART, AUDIO_EFFECT_MUSIC}));
    EXPECT_EQ((List{100, 107, 101, 107}),
              Decoded(0x80, {AUDIO_EFFECT_SMART, AUDIO_EFFECT_MUSIC, AUDIO_EFFECT_STANDARD}));
}

TEST_F(SoundModes, AreListedWhileTheTurnIsHeld)
{
    const Lines lines{"GetModeList"};
    Modes modes{AUDIO_EFFECT_GAME};
    Api::GetModeList(&modes);
    EXPECT_EQ((Transcript{lines.Announced(), lines.NoProxy()}), recorder::Take());
    Connect();
    fake::lockFailures = 100;
    Api::GetModeList(&modes);
    EXPECT_EQ(lines.GivenUp(lines.Announced()), recorder::Take());
    fake::TakeActions();
    Api::GetModeList(&modes);
    EXPECT_EQ((Transcript{lines.Announced(), lines.Returned(), lines.NoReply()}), recorder::Take());
    EXPECT_EQ(Modes{AUDIO_EFFECT_GAME}, modes);

    fake::reply = "(0x21,)";
    recorder::onLine = [](const std::string& line) {
        EXPECT_EQ(line.find("Sending") == std::string::npos, fake::locked) << line;
    };
    Api::GetModeList(&modes);
    const auto Mode = [&lines](int mode) {
        return lines.Line(4, "GetModeList MODE: " + std::to_string(mode), Bytes(mode));
    };
    EXPECT_EQ((Transcript{lines.Announced(), lines.Returned(), lines.Received(0x21), Mode(100),
                          Mode(104), Mode(108)}),
              recorder::Take());
    EXPECT_EQ((Actions{"call GetModeList none 5000", "call GetModeList none 5000"}),
              fake::TakeActions());
    Modes none;
    fake::reply = "('mask',)";
    Api::GetModeList(&none);
    EXPECT_EQ((Transcript{lines.Announced(), lines.Returned(), lines.Received(0)}),
              recorder::Take());
}

TEST_F(SoundModes, HaveDisplayStringsAllButTwo)
{
    const Lines lines{"GetModeListwithSID"};
    Modes modes;
    Sids sids;
    Connect();
    fake::reply = "(0x6021,)"; // 100, 104, 113, 114
    Api::GetModeListwithSID(&modes, &sids);
    EXPECT_EQ((Sids{"SID_STANDARD_KR_SOUND", "SID_MOVIE_KR_SOUND"}), sids);
    Transcript written = recorder::Take();
    ASSERT_EQ(10U, written.size());
    EXPECT_EQ(lines.Line(4, "GetModeListwithSID"), written.front());
    EXPECT_EQ(lines.Line(4, "#GetModeList and MODE ID : 100 SID = SID_STANDARD_KR_SOUND",
                         Bytes(100) + Bytes(std::string("SID_STANDARD_KR_SOUND"))),
              written[8]);
    EXPECT_EQ(lines.Line(4, "#GetModeList and MODE ID : 104 SID = SID_MOVIE_KR_SOUND",
                         Bytes(104) + Bytes(std::string("SID_MOVIE_KR_SOUND"))),
              written[9]);

    fake::reply = "";
    Modes unanswered;
    Api::GetModeListwithSID(&unanswered, &sids);
    EXPECT_EQ(2U, sids.size());

    Modes all;
    for (int mode = 99; mode <= 118; ++mode) {
        all.push_back(static_cast<AudioEffect>(mode));
    }
    Sids every;
    Api::popSIDList(&every, &all);
    EXPECT_EQ(
        (Sids{"SID_STANDARD_KR_SOUND", "SID_MUSIC", "SID_CLEAR_VOICE", "COM_SID_SPORTS",
              "SID_MOVIE_KR_SOUND", "SID_NIGHT", "TV_SID_SURROUND_MODE",
              "TV_SID_SPEAKER_SOUND_OPTION_SMART", "COM_SID_GAME", "COM_SID_ADAPTIVE",
              "COM_SID_DTS_VIRTUAL_X", "TV_SID_SOUNDMODE_CAOCT_BASS_BOOST",
              "TV_SID_SETTINGS_ADAPTIVE_SOUND_PLUS", "SOUNDBAR MODE (TBD)", "SOUNDBAR MODE (TBD)"}),
        every);
}

TEST_F(SoundModes, ComeInFixedSelections)
{
    const std::vector<int> selections[] = {{100},
                                           {100, 106},
                                           {100, 105},
                                           {100, 105, 106},
                                           {100, 102, 105, 106},
                                           {100, 102, 103, 105, 106},
                                           {100, 102, 103, 104, 105, 106},
                                           {100, 101, 102, 103, 104, 105, 106},
                                           {}};
    for (int selection = 0; selection <= 8; ++selection) {
        Modes modes{AUDIO_EFFECT_GAME, AUDIO_EFFECT_STANDARD};
        Api::popSoundEffectList(&modes, static_cast<ListSoundEffect>(selection));
        std::vector<int> expected = selections[selection];
        expected.insert(expected.end(), {100, 108});
        std::sort(expected.begin(), expected.end());
        EXPECT_EQ(expected, std::vector<int>(modes.begin(), modes.end())) << selection;
    }
    EXPECT_EQ(Transcript{}, recorder::Take());
}

TEST_F(SoundModes, AreWrittenIntoTheCallersBufferByTheExport)
{
    int buffer[4] = {7, 7, 7, 7};
    int* list = buffer;
    int count = -1;
    GetModeList(&list, &count);
    EXPECT_EQ(0, count);
    EXPECT_EQ(7, buffer[0]);
    fake::reply = "(0x8C,)"; // 102, 105, 107
    GetModeList(&list, &count);
    EXPECT_EQ(3, count);
    EXPECT_EQ((std::vector<int>{102, 107, 105, 7}), std::vector<int>(buffer, buffer + 4));
    EXPECT_EQ(buffer, list);
}

TEST(ModelNames, AreFoundByteForByte)
{
    EXPECT_EQ(14, Api::m_HashModelName("MODEL_DEFAULT"));
    EXPECT_EQ(15, Api::m_HashModelName("SOUNDBAR_DEFAULT"));
    for (const char* unknown :
         {"", "model_default", "MODEL_", "MODEL_DEFAULT ", "MODEL_DEFAULTS", "SOUNDBAR", "zzz"}) {
        EXPECT_EQ(MODEL_NAME_UNKNOWN, Api::m_HashModelName(unknown)) << unknown;
    }
    EXPECT_THROW(Api::m_HashModelName(nullptr), std::logic_error);
}

TEST(ModelNames, HaveEachCodeOnceAndInTheRangeOfTheirGroup)
{
    const std::tuple<std::string, int, int> groups[] = {
        {"SOUNDBAR_A", 0, 5}, {"SPEAKER_W", 5, 9}, {"SOUNDBAR_B", 16, 10}};
    for (const auto& [group, first, count] : groups) {
        std::vector<int> codes(static_cast<size_t>(count));
        std::vector<int> found;
        std::iota(codes.begin(), codes.end(), first);
        for (int i = 1; i <= count; ++i) {
            found.push_back(Api::m_HashModelName((group + std::to_string(i)).c_str()));
        }
        EXPECT_TRUE(std::is_permutation(codes.begin(), codes.end(), found.begin())) << group;
    }
}

} // namespace
