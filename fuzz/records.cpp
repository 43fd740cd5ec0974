// SPDX-License-Identifier: MIT
//
// Argument lists of every kind through the writer of trace records, and the records through a
// decoder that knows their format alone.
#include "Input.h"
#include "Platform.h"
#include "TraceRecord.h"
#include "ZAVServiceTypes.h"

namespace
{

constexpr size_t kLongestSound = 16383; // bytes of text; the length of a longer one has no encoding

template <size_t N>
struct Literal
{
    char text[N + 1];

    constexpr Literal() : text() { std::fill_n(text, N, 'x'); }
};

/** What the description and the bytes of an argument have to be. */
struct Expected
{
    std::string typeName;
    size_t size;
    uint32_t number = 0;
    const char* text = nullptr;

    Expected(int v) : typeName("int"), size(4), number(static_cast<uint32_t>(v)) {}
    Expected(unsigned v) : typeName("unsigned int"), size(4), number(v) {}
    Expected(unsigned long v) : Expected(static_cast<unsigned>(v)) {} // a size_t of 64 bits
    Expected(bool v) : typeName("bool"), size(1), number(v ? 1 : 0) {}
    Expected(unsigned char v) : typeName("unsigned char"), size(1), number(v) {}
    Expected(const void* v) : Expected(reinterpret_cast<uintptr_t>(v)) { typeName = "*_void"; }
    Expected(AudioEffect v) : Expected(static_cast<int>(v)) { typeName = "enum_AudioEffect"; }
    Expected(const char* v) : typeName("char*"), size(0x3FFF), text(v) {}
};

/** Takes the arguments off the front of a record. */
class Decoder
{
public:
    explicit Decoder(std::span<const unsigned char> record) : m_rest(record) {}

    bool IsAtEnd() const { return m_rest.empty(); }

    uint32_t Number(size_t size)
    {
        uint32_t number = 0;
        for (size_t i = 0; i < size; ++i) {
            number |= uint32_t{Next()} << (8 * i);
        }
        return number;
    }

    /** The length of a text: least significant group first. */
    size_t Length()
    {
        size_t length = 0;
        unsigned char group = 0x80;
        for (unsigned shift = 0; (group & 0x80) != 0; shift += 7) {
            group = Next();
            length |= size_t{group & 0x7FU} << shift;
        }
        return length;
    }

    std::string_view Text(size_t length)
    {
        Demand(length <= m_rest.size());
        const auto text = m_rest.first(length);
        m_rest = m_rest.subspan(length);
        return {reinterpret_cast<const char*>(text.data()), length};
    }

private:
    unsigned char Next()
    {
        Demand(!m_rest.empty());
        const unsigned char next = m_rest.front();
        m_rest = m_rest.subspan(1);
        return next;
    }

    std::span<const unsigned char> m_rest;
};

void Compare(const std::vector<Expected>& arguments)
{
    const lumo::TCCallLocation& location = platform::location;
    Demand(location.argTypeNames.size() == arguments.size() &&
           location.argKinds == std::vector<uint8_t>(arguments.size(), 1) &&
           location.argSizes.size() == arguments.size());
    Decoder record(platform::Record());
    for (size_t i = 0; i < arguments.size(); ++i) {
        const Expected& argument = arguments[i];
        Demand(location.argTypeNames[i] == argument.typeName);
        Demand(location.argSizes[i] == argument.size);
        if (argument.size != 0x3FFF) {
            Demand(record.Number(argument.size) == argument.number);
        } else if (argument.text == nullptr) {
            Demand(record.Number(2) == 0x7FFF);
        } else {
            const std::string_view text = argument.text;
            const size_t length = record.Length();
            if (text.size() <= kLongestSound) {
                Demand(record.Text(length) == text);
            } else { // its length is lost, and its terminator goes along
                Demand(record.Text(text.size() + 1) ==
                       std::string_view(text.data(), text.size() + 1));
            }
        }
    }
    Demand(record.IsAtEnd());
}

/** The second record shows that a location is registered once. */
template <class ArgList>
void Check(const ArgList& args, const std::vector<Expected>& arguments)
{
    uint32_t id = 0;
    const TSCodeLocation location = {"file", 7, "void Function()", &id};
    const unsigned before = platform::locations;
    for (int i = 0; i < 2; ++i) {
        lumo::TSLoggerHelper::Log(location, args, "message");
        Demand(platform::locations == before + 1 && platform::location.id == id);
        Compare(arguments);
    }
    Demand(platform::location.line == 7 && platform::location.message == "message" &&
           platform::location.function == "void Function()" && platform::location.file == "file");
}

/** Any length up to 255, those around the steps of the encoding, and longer than is sound. */
std::string TakeText(Input& input)
{
    constexpr size_t lengths[] = {126, 127, 128, 129, 16382, 16383, 16384, 20000};
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
    static constexpr Literal<16384> longest;
    std::string text;
    switch (input.Byte() % 13) {
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
    case 11:
        return use(longer.text);
    default:
        return use(longest.text);
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
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
