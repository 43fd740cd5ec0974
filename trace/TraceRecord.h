// SPDX-License-Identifier: MIT
/**
 * @file TraceRecord.h
 * From a log point's arguments to the bytes of its trace record.
 *
 * A log point is registered with the trace library once: place, message, and for each argument a
 * type name, a kind (always 1) and a size. Each firing then writes the identifier and the payload,
 * the arguments' bytes one after another without alignment, tags or count:
 *
 *     argument                        type name      size    bytes
 *     int, unsigned int               demangled      4       value, little-endian
 *     size_t                          unsigned int   4       low half, the same on every word size
 *     bool, unsigned char             demangled      1       value
 *     enumeration                     enum_NAME      4       value, little-endian
 *     const void*                     *_void         4       low half, little-endian
 *     char*, const char*, char[N]     char*          0x3FFF  null: FF 7F; else the length in base
 *                                                            128, least significant group first,
 *                                                            bit 7 set on all but the last byte,
 *                                                            then the text without terminator
 */
#ifndef ZAV_TRACE_TRACERECORD_H
#define ZAV_TRACE_TRACERECORD_H

#include "lumo.h"

#include <atomic>
#include <bit>
#include <concepts>
#include <cstring>
#include <string_view>
#include <type_traits>
#include <typeinfo>

static_assert(std::endian::native == std::endian::little, "records are copied as they lie");

namespace lumo
{

/** A string literal or a function's name: one type for all lengths, so that its code is shared. */
struct TSLiteral
{
    const char* text;
    unsigned size; ///< encoded, known when compiling
};

/** How an argument of type T is described and stored; this one: whole numbers. */
template <class T, class = void>
struct TSLogArgHelper
{
    static_assert(std::is_integral_v<T>);
    using Stored = std::conditional_t<std::same_as<T, size_t>, unsigned int, T>;
    using Named = Stored;
    static constexpr const char* kNamePrefix = "";
    static constexpr uint16_t kDescribed = sizeof(Stored);

    static constexpr unsigned Size(T) { return sizeof(Stored); }

    static unsigned Store(T value, unsigned size, unsigned char* out)
    {
        const auto stored = static_cast<Stored>(value);
        memcpy(out, &stored, sizeof stored);
        return size;
    }
};

template <class T>
struct TSLogArgHelper<T, std::enable_if_t<std::is_enum_v<T>>> : TSLogArgHelper<int>
{
    static_assert(std::same_as<std::underlying_type_t<T>, int>);
    using Named = T;
    static constexpr const char* kNamePrefix = "enum_";
};

template <>
struct TSLogArgHelper<const void*, void> : TSLogArgHelper<unsigned int>
{
    using Named = void;
    static constexpr const char* kNamePrefix = "*_";

    static constexpr unsigned Size(const void*) { return sizeof(unsigned int); }

    static unsigned Store(const void* value, unsigned size, unsigned char* out)
    {
        const auto low = static_cast<unsigned int>(reinterpret_cast<uintptr_t>(value));
        return TSLogArgHelper<unsigned int>::Store(low, size, out);
    }
};

template <>
struct TSLogArgHelper<char const*, void>
{
    using Named = char*;
    static constexpr const char* kNamePrefix = "";
    static constexpr uint16_t kDescribed = 0x3FFF; // marks a variable length

    /** The encoded size of a text of `length` bytes. */
    static constexpr unsigned SizeOf(unsigned length)
    {
        unsigned size = length + 1;
        for (unsigned rest = length >> 7; rest != 0; rest >>= 7) {
            ++size;
        }
        return size;
    }

    static unsigned Size(char const* text)
    {
        return text == nullptr ? 2 : SizeOf(static_cast<unsigned>(strlen(text)));
    }

    /**
     * The prefix follows from the size alone, one byte or two: exact up to 16383 bytes of text,
     * and readers rely on it.
     */
    static unsigned Store(char const* text, unsigned int size, unsigned char* out)
    {
        if (text == nullptr) {
            out[0] = 0xFF;
            out[1] = 0x7F;
            return 2;
        }
        const unsigned prefix = size <= 128 ? 1 : 2;
        const unsigned length = size - prefix;
        if (prefix == 1) {
            out[0] = static_cast<unsigned char>(length);
        } else {
            out[0] = static_cast<unsigned char>(length | 0x80U);
            out[1] = static_cast<unsigned char>((length >> 7) & 0x7FU);
        }
        memcpy(out + prefix, text, length);
        return size;
    }
};

template <>
struct TSLogArgHelper<char*, void> : TSLogArgHelper<char const*>
{
};

template <>
struct TSLogArgHelper<TSLiteral, void> : TSLogArgHelper<char const*>
{
    static constexpr unsigned Size(const TSLiteral& literal) { return literal.size; }

    static unsigned Store(const TSLiteral& literal, unsigned size, unsigned char* out)
    {
        return TSLogArgHelper<char const*>::Store(literal.text, size, out);
    }
};

/** Appends the description of one argument to a location under construction. */
struct TSArgTypesHelper
{
    TCCallLocation& location;

    template <class T>
    void operator()(unsigned /*index*/, const T& /*value*/) const
    {
        using Helper = TSLogArgHelper<T>;
        Append(Helper::kNamePrefix, typeid(typename Helper::Named).name(), Helper::kDescribed);
    }

private:
    [[gnu::noinline, gnu::cold]] void Append(const char* prefix, const char* name,
                                             uint16_t size) const
    {
        location.argTypeNames.push_back(prefix + TSDemangler::Demangle(name));
        location.argKinds.push_back(1);
        location.argSizes.push_back(size);
    }
};

} // namespace lumo

/**
 * A message's arguments, in its order. They hold references (or a TSLiteral) and own nothing.
 * Apply() calls with all of them.
 */
struct TCArgList0
{
    template <class Function>
    void Apply(const Function& function) const
    {
        function();
    }
};

template <class A>
struct TCArgList1
{
    A first;

    template <class Function>
    void Apply(const Function& function) const
    {
        function(first);
    }
};

template <class A, class B>
struct TCArgList2
{
    A first;
    B second;

    template <class Function>
    void Apply(const Function& function) const
    {
        function(first, second);
    }
};

namespace lumo
{

template <class T>
const T& Held(const T& value)
{
    return value;
}

template <size_t N>
constexpr TSLiteral Held(const char (&text)[N])
{
    return {text, TSLogArgHelper<char const*>::SizeOf(N - 1)};
}

inline TCArgList0 ArgList()
{
    return {};
}

template <class A>
TCArgList1<decltype(Held(std::declval<const A&>()))> ArgList(const A& a)
{
    return {Held(a)};
}

template <class A, class B>
TCArgList2<decltype(Held(std::declval<const A&>())), decltype(Held(std::declval<const B&>()))>
ArgList(const A& a, const B& b)
{
    return {Held(a), Held(b)};
}

/** Writes the trace record of a log point. */
struct TSLoggerHelper
{
    /** Costs one byte test while tracing is off. */
    template <class ArgList>
    static void Log(const TSCodeLocation& location, ArgList args, const char* message)
    {
        if (TIStorageManagerState::enabled != 0) {
            Record(location, args, message);
        }
    }

private:
    /**
     * Takes no lock: two threads that fire the same new log point at once both register it, and
     * the last identifier stays. Out of line, so that it costs nothing while tracing is off.
     */
    template <class ArgList>
    [[gnu::noinline]] static void Record(const TSCodeLocation& location, ArgList args,
                                         const char* message)
    {
        TIStorageManager& manager = TIStorageManager::Instance();
        const std::atomic_ref<uint32_t> id(*location.locationId);
        if (id.load(std::memory_order_relaxed) == 0) {
            id.store(Register(manager, location, message, Describe<ArgList>, &args),
                     std::memory_order_relaxed);
        }
        TCStorage& storage = manager.Storage();
        TCThreadHandle* const thread = storage.ThreadHandle();
        args.Apply([&]<class... T>(const T&... values) {
            const auto write = [&](auto... sizes) { // the length of a text is looked for once
                unsigned char* out = storage.PrepareCallBuffer(thread, (0U + ... + sizes), 1,
                                                               id.load(std::memory_order_relaxed));
                if (out != nullptr) {
                    ((out += TSLogArgHelper<T>::Store(values, sizes, out)), ...);
                    storage.Commit(thread);
                }
            };
            write(TSLogArgHelper<T>::Size(values)...);
        });
    }

    template <class ArgList>
    static void Describe(const TSArgTypesHelper& describe, const void* args)
    {
        static_cast<const ArgList*>(args)->Apply([&describe](const auto&... values) {
            [[maybe_unused]] unsigned index = 0;
            (describe(index++, values), ...);
        });
    }

    /** Once for each log point: out of the way of the records, and one for all argument lists. */
    [[gnu::noinline, gnu::cold]] static uint32_t
    Register(TIStorageManager& manager, const TSCodeLocation& location, const char* message,
             void (*describe)(const TSArgTypesHelper&, const void*), const void* args)
    {
        TCCallLocation call;
        call.file = location.file;
        call.line = location.line;
        call.id = manager.NewLocationId();
        describe(TSArgTypesHelper{call}, args);
        call.function = location.function;
        call.message = message;
        manager.Storage().SaveLocation(call);
        return call.id;
    }
};

} // namespace lumo

#endif
