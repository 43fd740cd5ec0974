// SPDX-License-Identifier: MIT
//
// The operations of the table and the six signals in any order, with values, replies and bodies of
// right and wrong types, but for those with more bytes than end the process: whatever comes,
// nothing is held afterwards, the service is asked once at the most and only with the lock, and
// what got no answer has the result of its row.
#include "Requests.h"
#include "Boundary.h"
#include "FakeGio.h"
#include "Input.h"

using requests::Api;

namespace
{

// ---- Replies and parameters

/** A tuple as the bus brings it; long arrays repeat what they begin with. */
GVariant* Tuple(const char* type, Input& input)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
    for (const char* member = type + 1; *member != ')'; ++member) {
        if (*member != 'a') {
            g_variant_builder_add(&builder, *member == 'b' ? "b" : "i",
                                  *member == 'b' ? input.Byte() & 1 : input.Int());
            continue;
        }
        const bool ofBytes = *++member == 'y';
        const gsize count = input.Take<uint16_t>() % (ofBytes ? 8192 : requests::kLevels);
        const gsize size = ofBytes ? 1 : sizeof(int);
        std::string bytes = input.Take(std::min<gsize>(count * size, 64));
        while (bytes.size() < count * size) {
            bytes += bytes;
        }
        g_variant_builder_add_value(
            &builder,
            g_variant_new_fixed_array(ofBytes ? G_VARIANT_TYPE_BYTE : G_VARIANT_TYPE_INT32,
                                      bytes.data(), count, size));
    }
    return g_variant_builder_end(&builder);
}

/** That, or any bytes as one of its types or as a tuple of any type. */
GVariant* TakeBody(Input& input)
{
    static constexpr const char* types[] = {"()",   "(b)",   "(i)",    "(aii)",
                                            "(ay)", "(ayi)", "(ayii)", "(iayi)"};
    const unsigned char choice = input.Byte();
    const char* const known = types[choice % std::size(types)];
    if (choice < 160) {
        g_autoptr(GVariant) value = g_variant_ref_sink(Tuple(known, input));
        return fake::CountedReply(g_variant_get_type(value), g_variant_get_data(value),
                                  g_variant_get_size(value));
    }
    const std::string any = choice < 208 ? known : "(" + input.Take(input.Byte() % 32);
    const bool isType = g_variant_is_signature(any.c_str()) != FALSE &&
                        g_variant_type_string_is_valid(any.c_str()) != FALSE;
    const std::string bytes = input.Take(input.Byte());
    return fake::CountedReply(G_VARIANT_TYPE(isType ? any.c_str() : "(v)"), bytes.data(),
                              bytes.size());
}

/** How many bytes its longest array of them has. */
gsize LongestBytes(GVariant* tuple)
{
    gsize longest = 0;
    for (gsize i = 0; i < g_variant_n_children(tuple); ++i) {
        g_autoptr(GVariant) member = g_variant_get_child_value(tuple, i);
        if (g_variant_is_of_type(member, G_VARIANT_TYPE_BYTESTRING)) {
            longest = std::max(longest, g_variant_get_size(member));
        }
    }
    return longest;
}

// ---- Callbacks, which read all that they may

void Read(const void* data, size_t size)
{
    const std::string copy(static_cast<const char*>(data), size);
    Demand(copy.size() == size);
}

void Register()
{
    ::SetSendDataToSpkViaSPDIFcb([](const void* data, void*) { Read(data, ZAV_SPDIF_BUFFER); },
                                 nullptr);
    Api::SetDataReceivedFromCommonTunnelExternalcb(
        COMMON_TUNNEL_EXTERNAL_ID_DEFAULT,
        [](int, char* text, void*) { Read(text, ZAV_TUNNEL_STATUS_TEXT); },
        [](unsigned char* data, int length, void*) { Read(data, static_cast<size_t>(length)); },
        requests::bytes);
    ::SubscribeZAVCSharpCallback([](int, void* data, int count) {
        const void* bytes = nullptr;
        memcpy(&bytes, data, sizeof bytes);
        Read(bytes, static_cast<size_t>(count));
        Read(data, ZAV_EVENT_BUFFER);
    });
}

// ---- Steps

/** What an operation meets; no body: no reply comes, or a signal without parameters. */
struct Circumstances
{
    bool refused;
    GVariant* body;
};

void Signal(Input& input, const Circumstances& met)
{
    const auto& [member, handler] = fake::subscriptions[input.Byte() % fake::subscriptions.size()];
    const gsize most = member == "notifyZAVCsharpCallback" ? ZAV_MAX_EVENT_DATA : ZAV_SPDIF_BUFFER;
    if (met.body == nullptr || LongestBytes(met.body) <= most) {
        handler(nullptr, nullptr, nullptr, nullptr, nullptr, met.body, nullptr);
    }
}

void Ask(const Request& row, Operation call, int value, const Circumstances& met)
{
    if (row.method == "GetSCL" && met.body != nullptr &&
        LongestBytes(met.body) >= (ZAV_MAX_SPEAKERS + 1) * sizeof(SCLSpkInfo)) {
        return;
    }
    const int result = call(value);
    const bool waits =
        !row.reply.empty() && (row.value == 0 || value > 0); // or has nothing to send
    if (met.refused) {
        Demand(result == row.refused);
    } else if (waits && met.body == nullptr) {
        Demand(result == row.unanswered);
    } else if (waits && g_variant_is_of_type(met.body, G_VARIANT_TYPE_UNIT) != FALSE) {
        Demand(result == row.mistyped);
    }
}

void Step(Input& input)
{
    enum
    {
        silent = 252,
        notConnected,
        nearlyBusy,
        busy
    };
    const unsigned char operation = input.Byte();
    const unsigned char circumstance = input.Byte();
    GDBusProxy* const proxy = Api::proxy;
    Api::proxy = circumstance == notConnected ? nullptr : proxy;
    fake::lockFailures = circumstance == busy ? 100 : circumstance == nearlyBusy ? 99 : 0;
    fake::replyValue = circumstance == silent ? nullptr : TakeBody(input);
    fake::use.calls = 0;
    const Circumstances met = {circumstance == notConnected || circumstance == busy,
                               fake::replyValue};
    if (operation < 64) {
        Signal(input, met);
    } else if (operation < 80) {
        const Request& row = requests::kOthers[operation % requests::kOthers.size()];
        (row.exported != nullptr ? row.exported : row.call)(0);
    } else {
        const Request& row = requests::kAll[operation % requests::kAll.size()];
        const bool exported = row.exported != nullptr && (input.Byte() & 1) != 0;
        Ask(row, exported ? row.exported : row.call,
            row.value != 0 ? std::min(input.Int(), row.most) : 0, met);
    }
    Demand(fake::use.calls <= 1 && fake::use.callsWithoutLock == 0);
    Api::proxy = proxy;
    g_clear_pointer(&fake::replyValue, g_variant_unref);
    Demand(fake::use.HoldsNothing());
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    boundary::kept = false;
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR));
    Demand(::InitDbusConnection() == 0);
    Register();
    Input input(data, size);
    for (int step = 0; step < 16 && !input.IsEmpty(); ++step) {
        Step(input);
    }
    return 0;
}
