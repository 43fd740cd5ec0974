// SPDX-License-Identifier: MIT
//
// The six signals and the callbacks: what reaches the application, and what ends the process.
#include "Boundary.h"
#include "ZAVServiceBridgeAPI.h"

#include <algorithm>
#include <csignal>

namespace
{

/** What the callbacks were called with, in order. */
Actions heard;
int userData = 0;

std::string Data(const void* data, int length)
{
    return std::string(static_cast<const char*>(data), static_cast<size_t>(length));
}

void OnSignal()
{
    heard.push_back("signal");
}
void OnDisconnect()
{
    heard.push_back("disconnect");
}
void OnSpdif(const void* data, void* user)
{
    heard.push_back("spdif " + Data(data, 44) + Text(user));
}
void OnMode(int mode, void* user)
{
    heard.push_back("mode " + std::to_string(mode) + Text(user));
}

void OnConnected(int connected, char* text, void* user)
{
    heard.push_back("connected " + std::to_string(connected) + " " + Data(text, 18) + Text(user));
}

void OnData(unsigned char* data, int length, void* user)
{
    heard.push_back("data " + Data(data, length) + Text(user));
}

void OnEvent(int event, void* data, int count)
{
    const char* bytes = nullptr;
    memcpy(&bytes, data, sizeof bytes);
    const auto* buffer = static_cast<const unsigned char*>(data);
    const bool rest = std::any_of(buffer + sizeof bytes, buffer + 2200, [](int b) { return b; });
    heard.push_back("event " + std::to_string(event) + " " + std::to_string(count) + " " +
                    (bytes == nullptr ? "null" : Data(bytes, count)) + (rest ? " dirty" : ""));
}

std::string Array(const std::string& text)
{
    std::string array = "@ay [";
    for (size_t i = 0; i < text.size(); ++i) {
        array += (i == 0 ? "" : ", ") + std::to_string(static_cast<unsigned char>(text[i]));
    }
    return array + "]";
}

class Signals : public Boundary
{
protected:
    Signals()
    {
        Connect();
        heard.clear();
    }

    /** What the application and the log receive when a signal with this body arrives. */
    static Actions Emit(const std::string& member, const std::string& body)
    {
        for (const fake::Subscription& one : fake::subscriptions) {
            if (one.member == member) {
                g_autoptr(GVariant) parameters = body.empty() ? nullptr : fake::CountedReply(body);
                one.handler(Api::connection, ":1.1", "/", "interface", member.c_str(), parameters,
                            nullptr);
            }
        }
        return std::exchange(heard, {});
    }

    static Actions Tunnel(const std::string& bytes, int sender)
    {
        return Emit("receiveExternalDataViaCommonTunnel",
                    "(" + Array(bytes) + ", 7, " + std::to_string(sender) + ")");
    }
};

TEST_F(Signals, WithoutDataReachTheirCallbacks)
{
    EXPECT_EQ(Actions{}, Emit("InvokeSignalHandler", "()"));
    Api::SignalSubscribe(OnSignal);
    Api::DisconnectSignalSubscribe(OnDisconnect);
    EXPECT_EQ((Transcript{"4 SignalSubscribe > SignalSubscribe  called !!!!",
                          "4 DisconnectSignalSubscribe > DisconnectSignalSubscribe  called !!!!"}),
              recorder::Take());
    EXPECT_EQ(Actions{"signal"}, Emit("InvokeSignalHandler", "()"));
    EXPECT_EQ(Actions{"disconnect"}, Emit("DisconnectSignalHandler", "(5,)"));
    Api::SignalSubscribe(nullptr);
    EXPECT_EQ(Actions{}, Emit("InvokeSignalHandler", "()"));
    Api::FiniDbusConnection();
    EXPECT_EQ(Actions{"disconnect"}, Emit("DisconnectSignalHandler", "()"));
}

TEST_F(Signals, OfAnotherTypeAreLoggedAndDropped)
{
    Api::SetSendDataToSpkViaSPDIFcb(OnSpdif, nullptr);
    Api::ExtSpkSetSoundModeChangedCb(OnMode, nullptr);
    Api::SetDataReceivedFromCommonTunnelExternalcb({}, OnConnected, OnData, &userData);
    Api::SubscribeZAVCSharpCallback(OnEvent);
    const std::pair<const char*, Transcript> cases[] = {
        {"sendDataViaSpdif", {"6 m_OnSendDataViaSpdifSignalCallBack > "}},
        {"receiveExternalDataViaCommonTunnel",
         {"6 m_OnReceiveExternalDataViaCommonTunnelCallBack > "}},
        {"SetCbSoundModeChange", {"6 m_OnSoundModeChangeEvent > "}},
        {"notifyZAVCsharpCallback",
         {"4 NotifyZAVCsharpCallback > Enter", "6 NotifyZAVCsharpCallback > "}}};
    recorder::Take();
    for (auto [member, expected] : cases) {
        expected.back() += "Error: Parameter part is NULL";
        for (const char* wrong : {"", "()", "('text',)", "(@ay [], 'x')"}) {
            EXPECT_EQ(Actions{}, Emit(member, wrong));
            EXPECT_EQ(expected, recorder::Take()) << member << wrong;
        }
    }
}

TEST_F(Signals, OfTheSoundModeKeepTheServicesNumber)
{
    Api::ExtSpkSetSoundModeChangedCb(OnMode, &userData);
    Api::ExtSpkSetSoundModeChangedCb(nullptr, nullptr);
    Api::ALLSignalUnSubscribe();
    EXPECT_EQ((Transcript{"4 ExtSpkSetSoundModeChangedCb > ExtSpkSetSoundModeChangedCb Setting",
                          "4 ExtSpkSetSoundModeChangedCb > ExtSpkSetSoundModeChangedCb Setting",
                          "4 ExtSpkSetSoundModeChangedCb > lcallback is NULL",
                          "4 ALLSignalUnSubscribe > ALLSignalUnSubscribe  called !!!!"}),
              recorder::Take());
    EXPECT_EQ(Actions{"mode 5" + Text(&userData)}, Emit("SetCbSoundModeChange", "(5,)"));
    EXPECT_EQ(Transcript{"4 m_OnSoundModeChangeEvent > IntDataReceived: 5 from ZAVService | 05 00 "
                         "00 00"},
              recorder::Take());
}

TEST_F(Signals, WithSpdifDataAreCopiedAndLoggedByteForByte)
{
    EXPECT_EQ(Actions{}, Emit("sendDataViaSpdif", "([byte 1], 1)"));
    EXPECT_TRUE(Api::SetSendDataToSpkViaSPDIFcb(OnSpdif, &userData));
    EXPECT_FALSE(Api::SetSendDataToSpkViaSPDIFcb(nullptr, nullptr));
    EXPECT_EQ((Transcript{"4 SetSendDataToSpkViaSPDIFcb > called !!!!",
                          "4 SetSendDataToSpkViaSPDIFcb > called !!!!",
                          "4 SetSendDataToSpkViaSPDIFcb > lcallback is NULL"}),
              recorder::Take());
    const std::string name = "6 m_OnSendDataViaSpdifSignalCallBack > ";
    EXPECT_EQ(Actions{"spdif ab\xff" + std::string(41, '\0') + Text(&userData)},
              Emit("sendDataViaSpdif", "(" + Array("ab\xff") + ", 99)"));
    EXPECT_EQ(
        (Transcript{name + "data[1]: 61 | 01 00 00 00 61", name + "data[2]: 62 | 02 00 00 00 62",
                    name + "data[3]: ff | 03 00 00 00 ff"}),
        recorder::Take());
    EXPECT_EQ(Actions{"spdif " + std::string(44, '\0') + Text(&userData)},
              Emit("sendDataViaSpdif", "(@ay [], 3)"));
    EXPECT_EQ(Transcript{}, recorder::Take());
    EXPECT_EQ(1U, Emit("sendDataViaSpdif", "(" + Array(std::string(44, 'x')) + ", 44)").size());
    EXPECT_TRUE(Api::UnSetSendDataToSpkViaSPDIFcb());
    EXPECT_EQ("4 UnSetSendDataToSpkViaSPDIFcb >  called !!!!", recorder::Take().back());
    EXPECT_EQ(Actions{}, Emit("sendDataViaSpdif", "([byte 1], 1)"));
}

TEST_F(Signals, OfTheTunnelAreToldApartByLengthFirstByteAndSender)
{
    const auto id = static_cast<commonTunnel_external_id_e>(3);
    const std::string status = std::string("q\x01") + "ABCDEFGHIJKLMNOPQR";
    const std::string user = Text(&userData);
    EXPECT_TRUE(Api::SetDataReceivedFromCommonTunnelExternalcb(id, OnConnected, OnData, &userData));
    EXPECT_FALSE(Api::SetDataReceivedFromCommonTunnelExternalcb(COMMON_TUNNEL_EXTERNAL_ID_DEFAULT,
                                                                OnConnected, OnData, nullptr));
    const std::string name = "4 SetDataReceivedFromCommonTunnelExternalcb > ";
    EXPECT_EQ((Transcript{name + "called !!!!", name + "called !!!!", name + "user_data is NULL"}),
              recorder::Take());
    EXPECT_EQ(Actions{"connected 1 ABCDEFGHIJKLMNOPQR" + user}, Tunnel(status, 3));
    EXPECT_EQ(Actions{"connected 1 ABCDEFGHIJKLMNOPQR" + user}, Tunnel(status, 16));
    EXPECT_EQ(Actions{"connected 0 " + std::string(18, '.') + user},
              Tunnel(std::string("q\0", 2) + std::string(18, '.'), 3));
    EXPECT_EQ(Actions{}, Tunnel(status, 4));
    EXPECT_EQ(Actions{"data x" + user}, Tunnel("x", 3));
    EXPECT_EQ(Actions{"data " + status + "!" + user}, Tunnel(status + "!", 3));
    EXPECT_EQ(Actions{"data " + std::string(40, 'x') + user}, Tunnel(std::string(40, 'x'), 3));
    EXPECT_EQ(Actions{}, Tunnel(std::string(41, 'x'), 3));
    EXPECT_EQ(Actions{}, Tunnel(std::string(44, 'x'), 16));
    EXPECT_EQ(Actions{}, Tunnel("x", 16));
    EXPECT_EQ(Actions{}, Tunnel(std::string(45, 'x'), 4));
    EXPECT_EQ(Transcript{}, recorder::Take());
    EXPECT_EQ(Actions{}, Tunnel("", 3));
    EXPECT_EQ(Transcript{"6 m_OnReceiveExternalDataViaCommonTunnelCallBack > Error: pRecievedData "
                         "is NULL"},
              recorder::Take());
    Api::SetDataReceivedFromCommonTunnelExternalcb(id, nullptr, OnData, &userData);
    EXPECT_EQ(Actions{"data " + status + user}, Tunnel(status, 3));
    Api::ALLSignalUnSubscribe();
    EXPECT_EQ(Actions{}, Tunnel(status, 3));
    EXPECT_EQ(id, Api::ReceiveExternalDataViaCommonTunnel_id);
}

TEST_F(Signals, ForTheManagedSideHandOverTheAddressOfTheBytes)
{
    const std::string name = "NotifyZAVCsharpCallback > ";
    EXPECT_EQ(Actions{}, Emit("notifyZAVCsharpCallback", "(9, [byte 1], 1)"));
    EXPECT_EQ((Transcript{"4 " + name + "Enter", "6 " + name + "CSharpCallbackFunction is NULL",
                          "4 " + name + "Exit"}),
              recorder::Take());
    EXPECT_TRUE(Api::SubscribeZAVCSharpCallback(OnEvent));
    EXPECT_EQ(Transcript{Lines{"SubscribeZAVCSharpCallback"}.Announced()}, recorder::Take());
    EXPECT_EQ(Actions{"event 9 3 abc"},
              Emit("notifyZAVCsharpCallback", "(9, " + Array("abc") + ", 1)"));
    EXPECT_EQ((Transcript{"4 " + name + "Enter",
                          "4 " + name + "Sending event to Csharp api: 9 | 09 00 00 00",
                          "4 " + name + "Exit"}),
              recorder::Take());
    EXPECT_EQ(Actions{"event -1 0 null"}, Emit("notifyZAVCsharpCallback", "(-1, @ay [], 5)"));
    EXPECT_EQ(Actions{"event 1 550 " + std::string(550, 'x')},
              Emit("notifyZAVCsharpCallback", "(1, " + Array(std::string(550, 'x')) + ", 0)"));
    Api::ALLSignalUnSubscribe();
    EXPECT_EQ(1U, Emit("notifyZAVCsharpCallback", "(1, [byte 1], 0)").size());
    Api::UnsubscribeZAVCSharpCallback();
    EXPECT_EQ(Actions{}, Emit("notifyZAVCsharpCallback", "(1, [byte 1], 0)"));
}

TEST_F(Signals, ThatDoNotFitEndTheProcess)
{
    const auto Dies = [](const char* member, const std::string& body) {
        EXPECT_EXIT(Emit(member, body), testing::KilledBySignal(SIGABRT), "") << member;
    };
    Dies("sendDataViaSpdif", "(" + Array(std::string(45, 'x')) + ", 0)");
    Dies("receiveExternalDataViaCommonTunnel", "(" + Array(std::string(45, 'x')) + ", 0, 16)");
    Dies("notifyZAVCsharpCallback", "(1, " + Array(std::string(551, 'x')) + ", 0)");
    Dies("notifyZAVCsharpCallback", "(1, " + Array(std::string(2201, 'x')) + ", 0)");
}

TEST_F(Signals, EndTheProcessWhenACallbackThrows)
{
    Api::SignalSubscribe([] { throw std::runtime_error("application"); });
    EXPECT_EXIT(Emit("InvokeSignalHandler", "()"), testing::KilledBySignal(SIGABRT), "application");
}

TEST_F(Signals, MayRegisterAndAskFromWithinACallback)
{
    fake::reply = "(4,)";
    Api::SignalSubscribe([] {
        heard.push_back("level " + std::to_string(Api::GetWooferLevel()));
        Api::SignalSubscribe(nullptr);
        Api::DisconnectSignalSubscribe(OnDisconnect);
    });
    EXPECT_EQ(Actions{"level 4"}, Emit("InvokeSignalHandler", "()"));
    EXPECT_EQ(Actions{}, Emit("InvokeSignalHandler", "()"));
    EXPECT_EQ(Actions{"disconnect"}, Emit("DisconnectSignalHandler", "()"));
}

class Registrations : public Boundary
{
};

TEST_F(Registrations, NeedAConnectionOnlyForTheTwoSignalsWithoutData)
{
    Api::SignalSubscribe(OnSignal);
    Api::DisconnectSignalSubscribe(OnDisconnect);
    EXPECT_EQ((Transcript{"4 SignalSubscribe > SignalSubscribe  called !!!!",
                          "4 SignalSubscribe > connection is NULL",
                          "4 DisconnectSignalSubscribe > DisconnectSignalSubscribe  called !!!!",
                          "4 DisconnectSignalSubscribe > connection is NULL"}),
              recorder::Take());
    EXPECT_EQ(nullptr, Api::CallBackFunc);
    EXPECT_EQ(nullptr, Api::DisconnectCallBackFunc);
    const Lines managed{"SubscribeZAVCSharpCallback"};
    EXPECT_FALSE(Api::SubscribeZAVCSharpCallback(OnEvent));
    EXPECT_EQ((Transcript{managed.Announced(), managed.NoProxy()}), recorder::Take());
    // Through the C functions: these store, and connect nothing.
    EXPECT_EQ(1, SetSendDataToSpkViaSPDIFcb(OnSpdif, &userData));
    EXPECT_EQ(0, SetSendDataToSpkViaSPDIFcb(nullptr, nullptr));
    ExtSpkSetSoundModeChangedCb(OnMode, &userData);
    EXPECT_EQ(&OnSpdif, Api::SendDataToSpkViaSPDIF_cb);
    EXPECT_EQ(&OnMode, Api::Sound_mode_changed_cb);
    EXPECT_EQ(1, UnSetSendDataToSpkViaSPDIFcb());
    EXPECT_EQ(nullptr, Api::SendDataToSpkViaSPDIF_user_data);
    EXPECT_EQ(Actions{}, fake::TakeActions());
}

TEST_F(Registrations, OfTheManagedCallbackGiveUpWhenBusy)
{
    Connect();
    fake::lockFailures = 100;
    EXPECT_FALSE(Api::SubscribeZAVCSharpCallback(OnEvent));
    const Lines managed{"SubscribeZAVCSharpCallback"};
    EXPECT_EQ(managed.GivenUp(managed.Announced()), recorder::Take());
    EXPECT_EQ(nullptr, Api::CSharpCallbackFunction);
}

TEST_F(Registrations, ThroughTheExportsConnectFirst)
{
    SignalSubscribe(OnSignal); // no line of the bridge
    EXPECT_EQ("4 InitDbusConnection > Called", recorder::Take().front());
    EXPECT_EQ(&OnSignal, Api::CallBackFunc);
    DisconnectSignalSubscribe(OnDisconnect);
    EXPECT_EQ(&OnDisconnect, Api::DisconnectCallBackFunc);
    recorder::Take();
    EXPECT_TRUE(SubscribeZAVCSharpCallback(OnEvent));
    UnsubscribeZAVCSharpCallback();
    EXPECT_EQ(nullptr, Api::CSharpCallbackFunction);
    EXPECT_EQ((Transcript{"6 SubscribeZAVCSharpCallback > ZAV_API_BRIDGE",
                          Lines{"SubscribeZAVCSharpCallback"}.Announced(),
                          "6 UnsubscribeZAVCSharpCallback > ZAV_API_BRIDGE"}),
              recorder::Take());
}

TEST_F(Registrations, AreClearedOnlyAfterConnecting)
{
    ALLSignalUnSubscribe();
    const Transcript lines = recorder::Take();
    ASSERT_EQ(4U, lines.size());
    EXPECT_EQ("6 ALLSignalUnSubscribe > ZAV_API_BRIDGE", lines[0]);
    EXPECT_EQ("4 InitDbusConnection > Called", lines[1]);
    EXPECT_EQ("4 ALLSignalUnSubscribe > ALLSignalUnSubscribe  called !!!!", lines[3]);
    EXPECT_EQ(6U, fake::subscriptions.size());
}

} // namespace
