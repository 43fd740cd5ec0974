// SPDX-License-Identifier: MIT
//
// Argument lists of every kind through the writer of trace records, and the records through the
// reader of trace stores.
#include "Boundary.h"
#include "Input.h"
#include "Recorder.h"
#include "TraceReader.h"
#include "TraceRecord.h"
#include "ZAVServiceTypes.h"

namespace
{

template <size_t N>
struct Literal
{
    char text[N + 1];

    constexpr Literal() : text() { std::fill_n(text, N, 'x'); }
};

/** What a reader has to make of an argument. */
struct Expected
{
    std::string typeName;
    trace::Value value;

    Expected(int v) : typeName("int"), value(v) {}
    Expected(unsigned v) : typeName("unsigned int"), value(v) {}
    Expected(unsigned long v) : Expected(static_cast<unsigned>(v)) {} // a size_t of 64 bits
    Expected(bool v) : typeName("bool"), value(std::int64_t{v}) {}
    Expected(unsigned char v) : typeName("unsigned char"), value(std::int64_t{v}) {}
    Expected(const void* v) : Expected(reinterpret_cast<uintptr_t>(v)) { typeName = "*_void"; }
    Expected(AudioEffect v) : Expected(static_cast<int>(v)) { typeName = "enum_AudioEffect"; }
    Expected(const char* v) : typeName("char*"), value(nullptr)
    {
        if (v != nullptr) {
            value = v;
        }
    }
};

/** The last record, as the reader of trace stores reads it. */
void Compare(const std::vector<Expected>& arguments)
{
    const lumo::TCCallLocation& saved = recorder::locations.back();
    trace::Location location{saved.id, saved.line, saved.file, saved.function, saved.message, {}};
    Demand(saved.argTypeNames.size() == arguments.size());
    for (size_t i = 0; i < arguments.size(); ++i) {
        Demand(saved.argTypeNames[i] == arguments[i].typeName && saved.argKinds.at(i) == 1);
        location.arguments.push_back({1, saved.argSizes.at(i), arguments[i].typeName});
    }
    const auto record = recorder::Record();
    if (record.size() > 16383 && arguments[0].value == trace::Value(nullptr)) {
        return; // a null text reads as the length of what follows
    }
    const auto values = trace::Arguments({0, 0, &location, {record.begin(), record.end()}});
    for (size_t i = 0; i < arguments.size(); ++i) {
        Demand(values[i] == arguments[i].value);
    }
}

/** The second record shows that a location is registered once. */
template <class ArgList>
void Check(const ArgList& args, const std::vector<Expected>& arguments)
{
    uint32_t id = 0;
    const TSCodeLocation location = {"file", 7, "void Function()", &id};
    recorder::locations.clear();
    for (int i = 0; i < 2; ++i) {
        lumo::TSLoggerHelper::Log(location, args, "message");
        Demand(recorder::locations.size() == 1 && recorder::locations[0].id == id);
        Compare(arguments);
    }
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

template <class Use>
void WithArgument(Input& input, const Use& use)
{
    static constexpr Literal<127> shortest;
    static constexpr Literal<128> longer;
    std::string text;
    switch (input.Byte() % 12) {
    case 0:
        return use(input.Int());
    case 1:
        return use(input.Take<unsigned>());
    case 2:
        return use((input.Byte() & 1) != 0);
    case 3:
        return use(input.Byte());
    case 4:
        return use(input.Take<size_t>());
    case 5:
        return use(reinterpret_cast<const void*>(input.Take<uintptr_t>()));
    case 6:
        return use(static_cast<AudioEffect>(input.Int()));
    case 7:
        return use(static_cast<const char*>(nullptr));
    case 8:
        return use((text = TakeText(input)).data());
    case 9:
        return use(static_cast<const char*>((text = TakeText(input)).c_str()));
    case 10:
        return use(shortest.text);
    default:
        return use(longer.text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    boundary::kept = false;
    Input input(data, size);
    const int count = input.Byte() % 3;
    if (count == 0) {
        Check(lumo::ArgList(), {});
        return 0;
    }
    WithArgument(input, [&](const auto& first) {
        if (count == 1) {
            return Check(lumo::ArgList(first), {Expected(first)});
        }
        WithArgument(input, [&](const auto& second) {
            Check(lumo::ArgList(first, second), {Expected(first), Expected(second)});
        });
    });
    return 0;
}
