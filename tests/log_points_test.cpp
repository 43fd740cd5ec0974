// SPDX-License-Identifier: MIT
//
// How a text is encoded in a trace record.
#include "TraceRecord.h"

#include <gtest/gtest.h>
#include <string>

namespace
{

using Text = lumo::TSLogArgHelper<char const*, void>;

/** The encoded text in full, or its size and what stands before the last `length` bytes of it. */
std::string Encoded(const char* text)
{
    std::string out(Text::Size(text), '\xEE');
    EXPECT_EQ(out.size(),
              Text::Store(text, Text::Size(text), reinterpret_cast<unsigned char*>(out.data())));
    return out;
}

TEST(TraceText, HasItsLengthInFrontLeastSignificantGroupFirst)
{
    using namespace std::string_literals;
    EXPECT_EQ("\xFF\x7F", Encoded(nullptr));
    EXPECT_EQ("\0"s, Encoded(""));
    EXPECT_EQ("\x03"
              "abc",
              Encoded("abc"));
    const std::pair<size_t, std::string> prefixes[] = {
        {127, "\x7F"}, {128, "\x80\x01"}, {200, "\xC8\x01"}, {16383, "\xFF\x7F"}};
    for (const auto& [length, prefix] : prefixes) {
        const std::string text(length, 'x');
        EXPECT_EQ(prefix + text, Encoded(text.c_str()));
    }
    EXPECT_EQ(16384U + 3, Text::Size(std::string(16384, 'x').c_str()));
}

} // namespace
