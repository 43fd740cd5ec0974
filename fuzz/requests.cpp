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

/** A tuple as the bus brings it; an array is of that many bytes at the most. */
GVariant* Tuple(const std::string& type, Input& input, gsize most)
{
    GVariantBuilder builder;
    g_variant_builder_init(&builder, G_VARIANT_TYPE_TUPLE);
    for (const char* member = &type[1]; *member != ')'; ++member) {
        if (*member != 'a') {
            g_variant_builder_add(&builder, *member == 'b' ? "b" : "i",
                                  *member == 'b' ? input.Byte() & 1 : input.Int());
            continue;
        }
        const bool ofBytes = *++member == 'y';
        const gsize size = ofBytes ? 1 : sizeof(int);
        const gsize room = std::min(most, ofBytes ? most : sizeof requests::levels) / size;
        const gsize count = input.Take<uint16_t>() % (room + 1);
        std::string bytes = input.Take(std::min<gsize>(count * size, 64));
        while (bytes.size() < count * size) { // a long one repeats what it begins with
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
GVariant* TakeBody(Input& input, gsize most)
{
    static constexpr const char* types[] = {"()",   "(b)",   "(i)",    "(aii)",
                                            "(ay)", "(ayi)", "(ayii)", "(iayi)"};
    const unsigned char choice = input.Byte();
    std::string type = types[choice % std::size(types)];
    if (choice < 160) {
        g_autoptr(GVariant) value = g_variant_ref_sink(Tuple(type, input, most));
        return fake::CountedReply(g_variant_get_type(value), g_variant_get_data(value),
                                  g_variant_get_size(value));
    }
    if (choice >= 208) {
        type = "(" + input.Take(input.Byte() % 32);
    }
    const bool isType = g_variant_is_signature(type.c_str()) != FALSE &&
                        g_variant_type_string_is_valid(type.c_str()) != FALSE;
    const std::string bytes = input.Take(std::min<gsize>(input.Byte(), most));
    return fake::CountedReply(G_VARIANT_TYPE(isType ? type.c_str() : "(v)"), bytes.data(),
                              bytes.size());
}

// ---- Callbacks, which read all that they may

void Read(const void* data, size_t size)
{
    const std::string copy(static_cast<const char*>(data), size);
    Require(copy.size() == size);
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

/** Asks, and sees that a request without an answer has the result of its row. */
void Ask(const Request& row, Operation call, int value, bool refused)
{
    const int result = call(value);
    const bool waits =
        !row.reply.empty() && (row.value == 0 || value > 0); // or has nothing to send
    if (refused) {
        Require(result == row.refused);
    } else if (waits && fake::replyValue == nullptr) {
        Require(result == row.unanswered);
    } else if (waits && g_variant_is_of_type(fake::replyValue, G_VARIANT_TYPE_UNIT) != FALSE) {
        Require(result == row.mistyped);
    }
}

enum Circumstance
{
    silent = 252, // no reply comes, or a signal without parameters
    notConnected,
    nearlyBusy,
    busy
};

void Step(Input& input)
{
    const unsigned char operation = input.Byte();
    const unsigned char circumstance = input.Byte();
    const auto take = [&](gsize most) {
        fake::replyValue = circumstance == silent ? nullptr : TakeBody(input, most);
    };
    GDBusProxy* const proxy = Api::proxy;
    Api::proxy = circumstance == notConnected ? nullptr : proxy;
    fake::lockFailures = circumstance == busy ? 100 : circumstance == nearlyBusy ? 99 : 0;
    fake::use.calls = 0;
    if (operation < 64) {
        const auto& [member, handler] = fake::subscriptions[operation % fake::subscriptions.size()];
        take(member == "notifyZAVCsharpCallback" ? ZAV_MAX_EVENT_DATA : ZAV_SPDIF_BUFFER);
        handler(nullptr, nullptr, nullptr, nullptr, nullptr, fake::replyValue, nullptr);
    } else if (operation < 80) {
        const Request& row = requests::kOthers[operation % requests::kOthers.size()];
        (row.exported != nullptr ? row.exported : row.call)(0);
    } else {
        const Request& row = requests::kAll[operation % requests::kAll.size()];
        take((ZAV_MAX_SPEAKERS + 1) * sizeof(SCLSpkInfo) - 1);
        const bool exported = row.exported != nullptr && (input.Byte() & 1) != 0;
        Ask(row, exported ? row.exported : row.call,
            row.value != 0 ? std::min(input.Int(), row.most) : 0,
            circumstance == notConnected || circumstance == busy);
    }
    Require(fake::use.calls <= 1 && fake::use.callsWithoutLock == 0);
    Api::proxy = proxy;
    g_clear_pointer(&fake::replyValue, g_variant_unref);
    Require(fake::use.HoldsNothing());
}

} // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    boundary::kept = false;
    g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_LEVEL_CRITICAL | G_LOG_LEVEL_ERROR));
    Require(::InitDbusConnection() == 0);
    Register();
    Input input(data, size);
    for (int step = 0; step < 16 && !input.IsEmpty(); ++step) {
        Step(input);
    }
    return 0;
}
