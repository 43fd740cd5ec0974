// SPDX-License-Identifier: MIT
//
// Speaker manager, speaker configuration list, common tunnel and S/PDIF: the requests that carry
// records and bytes.
#include "Boundary.h"
#include "ZAVServiceBridgeAPI.h"

#include <climits>
#include <csignal>
#include <cstddef>

namespace
{

std::string Array(size_t length)
{
    std::string array = "@ay [";
    for (size_t i = 0; i < length; ++i) {
        array += (i == 0 ? "" : ", ") + std::to_string(i % 256);
    }
    return array + "]";
}

std::string Shown(const unsigned char* data, int length)
{
    g_autoptr(GVariant) value = g_variant_ref_sink(
        g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, data, static_cast<gsize>(length), 1));
    g_autofree gchar* text = g_variant_print(value, TRUE);
    return text;
}

class SpeakerManager : public Boundary
{
};

SpeakerManagerState State()
{
    SpeakerManagerState state{104, -3, {1, -2, 3, INT_MAX, INT_MIN, 6, 7}, 8, true, false, 9, 10,
                              11,  12};
    // A managed caller's bytes: anything but 0 is true, and the padding is not read.
    auto* bytes = reinterpret_cast<unsigned char*>(&state);
    bytes[40] = 0xFF;
    bytes[42] = bytes[43] = 0xEE;
    return state;
}

TEST_F(SpeakerManager, StateIsLaidOutAsTheManagedSideMarshalsIt)
{
    EXPECT_EQ(60, get_size_of_SpeakerManagerState());
    EXPECT_EQ(60U, sizeof(SpeakerManagerState));
    EXPECT_EQ(36U, offsetof(SpeakerManagerState, ConnectionStatus));
    EXPECT_EQ(40U, offsetof(SpeakerManagerState, SubWooferAvailable));
    EXPECT_EQ(41U, offsetof(SpeakerManagerState, EqualizerAvailable));
    EXPECT_EQ(44U, offsetof(SpeakerManagerState, State));
    EXPECT_EQ(56U, offsetof(SpeakerManagerState, EffectList));
}

TEST_F(SpeakerManager, StateIsSentWithoutWaiting)
{
    const Lines lines{"InitSpeakerManager"};
    SpeakerManagerState state = State();
    EXPECT_EQ(-1, Api::InitSpeakerManager(nullptr));
    EXPECT_EQ(
        (Transcript{lines.Announced(), lines.Line(6, "Wrong parameter  (nil)", " 00 00 00 00"),
                    lines.NoProxy()}),
        recorder::Take());
    Connect();
    EXPECT_EQ(0, Api::InitSpeakerManager(&state));
    EXPECT_EQ((Transcript{lines.Announced(), lines.Received(0)}), recorder::Take());
    EXPECT_EQ(Actions{"send InitSpeakerManager (104, -3, [1, -2, 3, 2147483647, -2147483648, 6, "
                      "7], 8, true, false, 9, 10, 11, 12) 5000"},
              fake::TakeActions());
    fake::lockFailures = 100;
    EXPECT_EQ(-1, Api::InitSpeakerManager(&state));
    EXPECT_EQ(lines.GivenUp(lines.Announced()), recorder::Take());
}

TEST_F(SpeakerManager, StateIsLoggedMemberByMemberByTheExport)
{
    const Lines lines{"InitSpeakerManager"};
    Connect();
    EXPECT_EQ(0, InitSpeakerManager(State()));
    const auto Member = [&lines](const std::string& name, int value) {
        return lines.Line(6, "ZAV_API_BRIDGE " + name + " " + std::to_string(value), Bytes(value));
    };
    const auto Flag = [&lines](const std::string& name, int value) {
        return lines.Line(6, "ZAV_API_BRIDGE " + name + " " + std::to_string(value),
                          value != 0 ? " 01" : " 00");
    };
    EXPECT_EQ((Transcript{Member("AudioEffect", 104), Member("SubWooferLevel", -3),
                          Member("ConnectionStatus", 8), Flag("SubWooferAvailable", 1),
                          Flag("EqualizerAvailable", 0), Member("State", 9),
                          Member("FeatureSupported", 10), Member("WooferConnected", 11),
                          Member("EffectList", 12),
                          lines.Line(6, "Sending InitSpeakerManager  data to ZAVService for "
                                        "processing....."),
                          lines.Announced(), lines.Received(0)}),
              recorder::Take());
}

TEST_F(SpeakerManager, IsReadyIsLoggedAgainByTheExport)
{
    Connect();
    fake::reply = "(1,)";
    EXPECT_EQ(1, IsZAVReady());
    const Lines lines{"IsZAVReady"};
    EXPECT_EQ((Transcript{lines.Line(6, "ZAV_API_BRIDGE"), lines.Announced(), lines.Returned(),
                          lines.Received(1),
                          lines.Line(6, "ZAV_API_BRIDGE IsZAVReady returned 1 ", Bytes(1))}),
              recorder::Take());
}

class Speakers : public Boundary
{
protected:
    const Lines lines{"GetSCL"};
    std::vector<SCLSpkInfo> list = std::vector<SCLSpkInfo>(3);

    std::string Size(int size) const
    {
        return lines.Line(4, "Speaker Size[" + std::to_string(size) + "]", Bytes(size));
    }

    std::string Length(int length) const
    {
        return lines.Line(4, "elenum[" + std::to_string(length) + "], sizeof(CNetSpkNodeInfo)[148]",
                          Bytes(length) + Bytes(148));
    }
};

TEST_F(Speakers, AreReadRecordByRecord)
{
    Connect();
    fake::reply = "(" + Array(300) + ",)";
    EXPECT_EQ(2, Api::GetSCL(list));
    ASSERT_EQ(2U, list.size());
    std::vector<int> types;
    for (size_t i = 0; i < list.size(); ++i) {
        std::vector<unsigned char> expected(148);
        for (size_t k = 0; k < 148; ++k) {
            expected[k] = static_cast<unsigned char>(i * 148 + k);
        }
        EXPECT_EQ(0, memcmp(&list[i], expected.data(), 148));
        int type = 0;
        memcpy(&type, &expected[34], 4);
        types.push_back(type);
    }
    const auto Speaker = [this, &types](int index) {
        const int type = types[static_cast<size_t>(index) - 1];
        return lines.Line(
            4, "spk[" + std::to_string(index) + "]: m_Connecttype: " + std::to_string(type),
            Bytes(index) + Bytes(type));
    };
    EXPECT_EQ((Transcript{lines.Announced(), lines.Returned(), Length(300), Speaker(1), Speaker(2),
                          Size(2)}),
              recorder::Take());
    EXPECT_EQ(Actions{"call GetSCL none 5000"}, fake::TakeActions());
}

TEST_F(Speakers, AreNoneOnAnyFailure)
{
    EXPECT_EQ(0, Api::GetSCL(list));
    EXPECT_EQ((Transcript{lines.Announced(), lines.NoProxy()}), recorder::Take());
    Connect();
    fake::lockFailures = 100;
    EXPECT_EQ(0, Api::GetSCL(list));
    EXPECT_EQ(lines.GivenUp(lines.Announced()), recorder::Take());
    EXPECT_EQ(3U, list.size()); // untouched so far
    EXPECT_EQ(0, Api::GetSCL(list));
    EXPECT_EQ((Transcript{lines.Announced(), lines.Returned(), lines.NoReply()}), recorder::Take());
    EXPECT_TRUE(list.empty());

    fake::reply = "()";
    EXPECT_EQ(-1, Api::GetSCL(list));
    EXPECT_EQ((Transcript{lines.Announced(), lines.Returned(), lines.Line(6, "pTuple is NULL"),
                          Size(-1)}),
              recorder::Take());
    for (const char* reply : {"(@ay [],)", "([1, 2],)", "('text',)", "(@ab [true],)"}) {
        fake::reply = reply;
        EXPECT_EQ(-1, Api::GetSCL(list));
        EXPECT_EQ((Transcript{lines.Announced(), lines.Returned(),
                              lines.Line(6, "pByteArray is NULL"), Size(-1)}),
                  recorder::Take())
            << reply;
    }
    fake::reply = "(" + Array(147) + ",)";
    EXPECT_EQ(0, Api::GetSCL(list));
    EXPECT_EQ((Transcript{lines.Announced(), lines.Returned(), Length(147), Size(0)}),
              recorder::Take());
}

TEST_F(Speakers, AreFiftyAtTheMost)
{
    Connect();
    fake::reply = "(" + Array(size_t{50} * 148 + 147) + ",)";
    SCLSpkInfo out[51] = {};
    out[50].m_Connecttype = 77;
    EXPECT_EQ(50, GetSCL(out));
    EXPECT_EQ(77, +out[50].m_Connecttype);
    EXPECT_EQ((size_t{49} * 148) % 256, out[49].opaque1[0]);
    fake::reply = "";
    EXPECT_EQ(0, GetSCL(out));
    fake::reply = "()";
    EXPECT_EQ(-1, GetSCL(out));
    fake::reply = "(" + Array(size_t{51} * 148) + ",)";
    EXPECT_EXIT(GetSCL(out), testing::KilledBySignal(SIGABRT), "");
}

const unsigned char kBytes[300] = {1, 2, 3};
constexpr auto kId = static_cast<commonTunnel_external_id_e>(5);
int capability = 0;

class TunnelData : public Boundary
{
};

TEST_F(TunnelData, ThatIsMissingIsRefusedBeforeTheConnectionIsLookedAt)
{
    const auto Wrong = [](const char* name, const void* data, int length) {
        return Lines{name}.Line(6, "Wrong parameter  " + Text(data) + "  " + std::to_string(length),
                                Bytes(data) + Bytes(length));
    };
    const std::pair<const unsigned char*, int> cases[] = {
        {nullptr, 5}, {kBytes, 0}, {kBytes, -1}, {kBytes, INT_MIN}};
    for (const auto& [data, length] : cases) {
        EXPECT_FALSE(Api::SendDataToCommonTunnelExternal(data, length));
        Api::DataReceivedFromSpkViaSPDIF(data, length);
        const Lines send{"SendDataToCommonTunnelExternal"};
        const Lines spdif{"DataReceivedFromSpkViaSPDIF"};
        EXPECT_EQ((Transcript{send.Announced(length), Wrong(send.name.c_str(), data, length),
                              spdif.Announced(length), Wrong(spdif.name.c_str(), data, length)}),
                  recorder::Take());
    }
    const Lines get{"GetCapabilityCommonTunnelExternal"};
    EXPECT_EQ(-1, Api::GetCapabilityCommonTunnelExternal(kId, nullptr));
    EXPECT_EQ((Transcript{get.Announced(5), get.Line(6, "Wrong parameter  (nil)", " 00 00 00 00")}),
              recorder::Take());
}

TEST_F(TunnelData, IsSentWholeAndSpdifDataCut)
{
    Connect();
    const auto Sent = [](const std::string& method, int length) {
        const std::string shown = Shown(kBytes, length);
        return "call " + method + " (" + shown + ", " + std::to_string(length);
    };
    Api::SetDataReceivedFromCommonTunnelExternalcb(kId, nullptr, nullptr, &capability);
    EXPECT_TRUE(Api::SendDataToCommonTunnelExternal(kBytes, 300));
    EXPECT_EQ(Actions{Sent("sendExternalDataViaCommonTunnel", 300) + ", 5) 5000"},
              fake::TakeActions());
    recorder::Take();
    for (const int length : {40, 41, 300}) {
        DataReceivedFromSpkViaSPDIF(kBytes, length);
        EXPECT_EQ(Actions{Sent("ReceivedDataFromSpdif", 40) + ") 5000"}, fake::TakeActions());
        const Transcript written = recorder::Take();
        EXPECT_EQ(Lines{"DataReceivedFromSpkViaSPDIF"}.Announced(length), written.at(1));
    }
}

TEST_F(TunnelData, RequestsAStatusWithOneByte)
{
    EXPECT_TRUE(Api::RequestStatusFromCommonTunnelExternal());
    Connect();
    EXPECT_TRUE(Api::RequestStatusFromCommonTunnelExternal());
    EXPECT_EQ(Actions{"call sendExternalDataViaCommonTunnel ([byte 0x73], 1, 16) 5000"},
              fake::TakeActions());
}

} // namespace
