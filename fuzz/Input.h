// SPDX-License-Identifier: MIT
/** @file Input.h What the fuzzed programs share: their input, and how they say that it failed. */
#ifndef ZAV_FUZZ_INPUT_H
#define ZAV_FUZZ_INPUT_H

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <span>
#include <string>

/** What is fuzzed; libFuzzer's name for it. */
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);

/** Ends the program where a condition does not hold, so that the input is kept as a finding. */
inline void Require(bool holds, const char* file = __builtin_FILE(), int line = __builtin_LINE())
{
    if (!holds) {
        fprintf(stderr, "%s:%d: does not hold\n", file, line);
        __builtin_trap();
    }
}

/** Takes values off the front of an input; from its end on they are 0. */
class Input
{
public:
    Input(const unsigned char* data, size_t size) : m_rest(data, size) {}

    bool IsEmpty() const { return m_rest.empty(); }

    std::string Take(size_t size)
    {
        const auto taken = m_rest.first(std::min(size, m_rest.size()));
        m_rest = m_rest.subspan(taken.size());
        std::string text(reinterpret_cast<const char*>(taken.data()), taken.size());
        text.resize(size);
        return text;
    }

    template <class Plain>
    Plain Take()
    {
        Plain value;
        memcpy(&value, Take(sizeof value).data(), sizeof value);
        return value;
    }

    unsigned char Byte() { return Take<unsigned char>(); }
    int Int() { return Take<int>(); }

private:
    std::span<const unsigned char> m_rest;
};

#endif
