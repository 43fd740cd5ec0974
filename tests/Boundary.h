// SPDX-License-Identifier: MIT
/**
 * @file Boundary.h
 * What the tests without a bus share: a fixture that looks at both sides of the library's
 * boundary, and the parts of expected transcript lines.
 */
#ifndef ZAV_TESTS_BOUNDARY_H
#define ZAV_TESTS_BOUNDARY_H

#include "FakeGio.h"
#include "Recorder.h"
#include "ZAVServiceAPI.h"

#include <gtest/gtest.h>

using Api = ZAVServiceAPI;
using recorder::Transcript;
using Actions = std::vector<std::string>;

class Boundary : public testing::Test
{
protected:
    Boundary()
    {
        fake::Reset();
        recorder::Reset();
    }

    ~Boundary() override { EXPECT_TRUE(fake::AllReleased()); }

    static void Connect()
    {
        ASSERT_EQ(0, Api::InitDbusConnection());
        fake::TakeActions();
        recorder::Take();
    }

    /** As before the first connection. */
    static void Disconnect() { Api::proxy = nullptr; }
};

/** The record bytes of an `int`, as the transcript shows them. */
inline std::string Bytes(int value)
{
    char text[16];
    const auto u = static_cast<unsigned>(value);
    snprintf(text, sizeof text, " %02x %02x %02x %02x", u & 255, u >> 8 & 255, u >> 16 & 255,
             u >> 24);
    return text;
}

/** The record bytes of a short text. */
inline std::string Bytes(const std::string& value)
{
    std::string text;
    for (const char c : std::string(1, static_cast<char>(value.size())) + value) {
        char hex[4];
        snprintf(hex, sizeof hex, " %02x", static_cast<unsigned char>(c));
        text += hex;
    }
    return text;
}

/** The record bytes of an address: its low half. */
inline std::string Bytes(const void* value)
{
    return Bytes(static_cast<int>(reinterpret_cast<intptr_t>(value)));
}

/** An address as the log prints it. */
inline std::string Text(const void* value)
{
    char text[32];
    snprintf(text, sizeof text, "%p", value);
    return text;
}

/** The lines that requests have in common. */
struct Lines
{
    std::string name;

    std::string Line(int priority, const std::string& text, const std::string& bytes = "") const
    {
        return std::to_string(priority) + " " + name + " > " + text +
               (bytes.empty() ? "" : " |" + bytes);
    }

    std::string Announced() const { return Line(4, "Sending Integer Data to ZAVService....."); }
    std::string Announced(int value) const
    {
        return Line(4, "Sending Integer Data to ZAVService " + std::to_string(value) + ".....",
                    Bytes(value));
    }
    std::string NoProxy() const
    {
        return Line(6, "Error::Please initialize Dbus Connection by calling InitDbusConnection "
                       "function");
    }
    std::string Busy(int budget) const
    {
        return Line(6, name + " API is busy. wait 10msec\ttimeout " + std::to_string(budget),
                    Bytes(name) + Bytes(budget));
    }
    /** Announced, then refused after a hundred attempts. */
    Transcript GivenUp(const std::string& announced) const
    {
        Transcript lines{announced};
        for (int budget = 100; budget >= 1; --budget) {
            lines.push_back(Busy(budget));
        }
        lines.push_back(Line(6, "API is busy. give up"));
        return lines;
    }
    std::string Returned() const { return Line(4, "Returned from ZAVService..."); }
    std::string NoReply() const
    {
        return Line(6, "The integer packet received from ZAVService is NULL");
    }
    std::string Received(int value) const
    {
        return Line(4, "IntDataReceived: " + std::to_string(value) + " from ZAVService",
                    Bytes(value));
    }
};

#endif
