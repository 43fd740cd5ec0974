// SPDX-License-Identifier: MIT
//
// The two halves of a log point, and the bytes of its record.
#include "LogPoint.h"
#include "Recorder.h"
#include "ZAVServiceBridgeAPI.h"

#include <gtest/gtest.h>

namespace
{

using recorder::Transcript;
using Text = lumo::TSLogArgHelper<char const*, void>;
using Bytes = std::vector<unsigned char>;

Bytes Encoded(const char* text)
{
    Bytes out(Text::Size(text));
    EXPECT_EQ(out.size(), Text::Store(text, Text::Size(text), out.data()));
    return out;
}

Bytes Encoded(size_t length)
{
    return Encoded(std::string(length, 'x').c_str());
}

Bytes Prefixed(Bytes prefix, size_t length)
{
    prefix.insert(prefix.end(), length, 'x');
    return prefix;
}

TEST(TraceText, HasItsLengthInFrontLeastSignificantGroupFirst)
{
    EXPECT_EQ((Bytes{0xFF, 0x7F}), Encoded(nullptr));
    EXPECT_EQ(Bytes{0}, Encoded(""));
    EXPECT_EQ((Bytes{3, 'a', 'b', 'c'}), Encoded("abc"));
    EXPECT_EQ(Prefixed({0x7F}, 127), Encoded(127));
    EXPECT_EQ(Prefixed({0x80, 0x01}, 128), Encoded(128));
    EXPECT_EQ(Prefixed({0xC8, 0x01}, 200), Encoded(200));
    EXPECT_EQ(Prefixed({0xFF, 0x7F}, 16383), Encoded(16383));
    EXPECT_EQ(16384U + 3, Text::Size(std::string(16384, 'x').c_str()));
}

/** What one registration says of its arguments: name, kind and size of each. */
template <class... Args>
std::string Described(const Args&... args)
{
    lumo::TCCallLocation location;
    const lumo::TSArgTypesHelper describe{location};
    lumo::ArgList(args...).Apply([&](const auto&... values) { (describe(0, values), ...); });
    std::string text;
    for (size_t i = 0; i < location.argTypeNames.size(); ++i) {
        text += location.argTypeNames[i] + "/" + std::to_string(location.argKinds.at(i)) + "/" +
                std::to_string(location.argSizes.at(i)) + " ";
    }
    return text;
}

TEST(TraceArguments, AreDescribedByTheirStaticTypes)
{
    char held[] = "held";
    char* text = held;
    const void* address = nullptr;
    const auto byte = static_cast<unsigned char>(1);
    EXPECT_EQ("", Described());
    EXPECT_EQ("int/1/4 unsigned int/1/4 ", Described(1, 1U));
    EXPECT_EQ("bool/1/1 unsigned char/1/1 ", Described(true, byte));
    EXPECT_EQ("*_void/1/4 enum_AudioEffect/1/4 ", Described(address, AUDIO_EFFECT_MUSIC));
    EXPECT_EQ("char*/1/16383 char*/1/16383 ", Described(text, "literal"));
    EXPECT_EQ("unsigned int/1/4 char*/1/16383 ",
              Described(sizeof(int), static_cast<const char*>(text)));
}

class LogPoints : public testing::Test
{
protected:
    LogPoints() { recorder::Reset(); }
};

void Point(int value)
{
    LOG_POINT(DLOG_INFO, "value %d", value);
}

TEST_F(LogPoints, PackTheirArgumentsWithoutPadding)
{
    const auto Write = [](const auto&... args) {
        static uint32_t id = 0;
        id = 0; // a new log point each time
        const TSCodeLocation location = {"f", 1, "s", &id};
        recorder::Reset();
        lumo::TSLoggerHelper::Log(location, lumo::ArgList(args...), "m");
        return recorder::RawCalls()[1];
    };
    const void* address = nullptr;
    EXPECT_EQ("prepare 0 1 ", Write().substr(0, 12));
    EXPECT_EQ("prepare 5 1 ", Write(1, static_cast<unsigned char>(2)).substr(0, 12));
    EXPECT_EQ("prepare 8 1 ", Write(address, address).substr(0, 12));
    EXPECT_EQ("prepare 24 1 ", Write("IsSoundBarConnected", 100).substr(0, 13));
}

TEST_F(LogPoints, WriteTheirLineFirstAndRegisterOnce)
{
    using Calls = std::vector<std::string>;
    Point(1);
    const std::string id = std::to_string(recorder::Locations().back().id);
    EXPECT_EQ((Calls{"log", "logger", "save " + id, "prepare 4 1 " + id, "commit", "logger gone"}),
              recorder::RawCalls());
    recorder::Reset();
    Point(2);
    EXPECT_EQ((Calls{"log", "logger", "prepare 4 1 " + id, "commit", "logger gone"}),
              recorder::RawCalls());
    recorder::Reset();
    recorder::storeIsFull = true;
    Point(3);
    EXPECT_EQ((Calls{"log", "logger", "prepare 4 1 " + id, "logger gone"}), recorder::RawCalls());
    recorder::Reset();
    TIStorageManagerState::enabled = 0;
    Point(4);
    EXPECT_EQ((Calls{"log", "logger", "logger gone"}), recorder::RawCalls());
}

TEST_F(LogPoints, RegisterAgainAfterAnExceptionOfTheTraceLibrary)
{
    const auto registered = recorder::Locations().size();
    recorder::onTrace = [] { throw std::runtime_error("disk gone"); };
    EXPECT_THROW(FiniDbusConnection(), std::runtime_error);
    EXPECT_EQ("logger gone", recorder::RawCalls().back());
    EXPECT_EQ(registered, recorder::Locations().size());
    recorder::Reset();
    FiniDbusConnection();
    EXPECT_EQ((Transcript{"6 FiniDbusConnection > ZAV_API_BRIDGE",
                          "4 FiniDbusConnection > FiniDbusConnection "}),
              recorder::Take());
    EXPECT_EQ(registered + 2, recorder::Locations().size());
    const lumo::TCCallLocation& bridge = recorder::Locations()[registered];
    EXPECT_EQ("void FiniDbusConnection()", bridge.function);
    EXPECT_EQ("static void ZAVServiceAPI::FiniDbusConnection()",
              recorder::Locations().back().function);
    EXPECT_TRUE(bridge.argTypeNames.empty() && bridge.argKinds.empty() && bridge.argSizes.empty());
}

} // namespace
