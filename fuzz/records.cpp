// SPDX-License-Identifier: MIT
//
// Log points with argument lists of every kind. The recorder reads each record as the reader of
// trace stores does, and holds it against the text line.
#include "Boundary.h"
#include "Input.h"
#include "LogPoint.h"
#include "Recorder.h"
#include "ZAVServiceTypes.h"

namespace
{

template <size_t N>
struct Literal
{
    char text[N + 1];

    constexpr Literal() : text() { std::fill_n(text, N, 'x'); }
};

constexpr const char* kNull = "null %s";

/** Twice, to see that a location is registered once. */
template <class ArgList>
void Check(const std::string& message, const std::string& types, const ArgList& args)
{
    uint32_t id = 0;
    const TSCodeLocation place = {"/src/records.cpp", 7, "void Run()", &id};
    recorder::locations.clear();
    for (int i = 0; i < 2; ++i) {
        log_point::Write(place, DLOG_INFO, "Run", (LOG_POINT_PREFIX + message).c_str(), args);
    }
    Demand(recorder::locations.size() == 1 && recorder::locations[0].id == id);
    const std::string log = boundary::Take();
    if (message.starts_with(kNull) && recorder::Record().size() > 16383) {
        return; // a null text reads as the length of what follows
    }
    const std::string line = log.substr(0, log.size() / 2);
    Demand(log == line + line && line.starts_with("4 Run > ") && line.ends_with(types + "\n"));
}

/** Any length up to 255, and those around the steps of the encoding, of which 16383 is the last. */
std::string TakeText(Input& input)
{
    constexpr size_t lengths[] = {126, 127, 128, 129, 16382, 16383};
    const unsigned char choice = input.Byte();
    std::string text = input.Take(choice < 240 ? choice : lengths[choice % std::size(lengths)]);
    std::ranges::replace(text, '\0', '0');
    return text;
}

/** Addresses and sizes of 32 bits: a record has no more of them. */
template <class Use>
void WithArgument(Input& input, const Use& use)
{
    static constexpr Literal<127> shortest;
    static constexpr Literal<128> longer;
    std::string text;
    switch (input.Byte() % 12) {
    case 0:
        return use("%d", " int", input.Int());
    case 1:
        return use("%u", " unsigned int", input.Take<unsigned>());
    case 2:
        return use("%d", " bool", (input.Byte() & 1) != 0);
    case 3:
        return use("%02x", " unsigned char", input.Byte());
    case 4:
        return use("%zu", " unsigned int", input.Take<size_t>() & UINT32_MAX);
    case 5:
        return use("%p", " *_void",
                   reinterpret_cast<const void*>(input.Take<uintptr_t>() & UINT32_MAX));
    case 6:
        return use("%d", " enum_AudioEffect", static_cast<AudioEffect>(input.Int()));
    case 7:
        return use(kNull, " char*", static_cast<const char*>(nullptr));
    case 8:
        return use("%s", " char*", (text = TakeText(input)).data());
    case 9:
        return use("%s", " char*", static_cast<const char*>((text = TakeText(input)).c_str()));
    case 10:
        return use("%s", " char*", shortest.text);
    default:
        return use("%s", " char*", longer.text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    using Text = std::string;
    Input input(data, size);
    const int count = input.Byte() % 3;
    if (count == 0) {
        Check("no arguments", "no arguments", lumo::ArgList());
        return 0;
    }
    WithArgument(input, [&](const Text& format, const Text& type, const auto& first) {
        if (count == 1) {
            return Check(format, " |" + type, lumo::ArgList(first));
        }
        WithArgument(input, [&](const Text& next, const Text& types, const auto& second) {
            Check(format + " " + next, " |" + type + types, lumo::ArgList(first, second));
        });
    });
    return 0;
}
