// SPDX-License-Identifier: MIT
//
// Connecting, failing to, and the frame of the exported C functions. Each case needs a process
// of its own, which CTest gives it: a connection once made stays.
#include "Boundary.h"
#include "ZAVServiceBridgeAPI.h"

namespace
{

const std::string kProxy = "proxy org.kelmar.tv.zav /org/kelmar/tv/zav org.kelmar.tv.zav";

std::string ConnectedLine()
{
    return Lines{"InitDbusConnection"}.Line(
        4, "connection=" + Text(Api::connection) + ", proxy = " + Text(Api::proxy),
        Bytes(Api::connection) + Bytes(Api::proxy));
}

class Connection : public Boundary
{
};

TEST_F(Connection, IsMadeOnceAndStays)
{
    EXPECT_FALSE(Api::m_bDBusConnectionState);
    EXPECT_EQ(0, Api::InitDbusConnection());
    EXPECT_TRUE(Api::m_bDBusConnectionState);
    EXPECT_EQ((Transcript{"4 InitDbusConnection > Called", ConnectedLine()}), recorder::Take());
    Actions made = {"bus", kProxy};
    for (const char* member : {"InvokeSignalHandler", "DisconnectSignalHandler", "sendDataViaSpdif",
                               "receiveExternalDataViaCommonTunnel", "SetCbSoundModeChange",
                               "notifyZAVCsharpCallback"}) {
        made.push_back(std::string("subscribe org.kelmar.tv.zav ") + member +
                       " /org/kelmar/tv/zav");
    }
    EXPECT_EQ(made, fake::TakeActions());
    EXPECT_EQ(
        (std::vector<guint>{1, 2, 3, 4, 5, 6}),
        (std::vector<guint>{Api::m_sigIdSignal, Api::m_sigIdDisconnectSignal,
                            Api::m_sigIdSendDataSpdif, Api::m_sigIdReceiveExternalViaCommonTunnel,
                            Api::m_sigIdSoundModeChange, Api::m_sigIdNotifyZAVCsharpCallback}));

    Api::FiniDbusConnection();
    EXPECT_EQ(0, Api::InitDbusConnection());
    EXPECT_TRUE(Api::m_bDBusConnectionState);
    EXPECT_EQ(
        (Transcript{"4 FiniDbusConnection > FiniDbusConnection ", "4 InitDbusConnection > Called",
                    "4 InitDbusConnection > Already initialized... "}),
        recorder::Take());
    EXPECT_EQ(Actions{}, fake::TakeActions());
}

TEST_F(Connection, StartsAgainFromTheBusAfterAnyFailure)
{
    const std::string message = "| 0d 6e 6f 20 73 75 63 68 20 74 68 69 6e 67";
    struct
    {
        fake::Outcome bus, proxy;
        std::string line;
    } const cases[] = {
        {fake::Outcome::fails, fake::Outcome::works,
         "Bus get sync failed: no such thing " + message},
        {fake::Outcome::failsWithoutError, fake::Outcome::works, "Bus get sync failed"},
        {fake::Outcome::works, fake::Outcome::fails,
         "Bus proxy new failed: no such thing\n " + message},
        {fake::Outcome::works, fake::Outcome::failsWithoutError, "Bus get sync failed"},
    };
    for (const auto& one : cases) {
        fake::bus = one.bus;
        fake::proxy = one.proxy;
        EXPECT_EQ(-1, Api::InitDbusConnection());
        EXPECT_EQ(
            (Transcript{"4 InitDbusConnection > Called", "6 InitDbusConnection > " + one.line}),
            recorder::Take());
        EXPECT_EQ("bus", fake::TakeActions().at(0));
        EXPECT_EQ(nullptr, Api::connection);
        EXPECT_EQ(nullptr, Api::proxy);
        EXPECT_FALSE(Api::m_bDBusConnectionState);
    }
    fake::Reset();
    EXPECT_EQ(0, Api::InitDbusConnection());
}

TEST_F(Connection, IsTriedByEveryFramedExportUntilItStands)
{
    fake::bus = fake::Outcome::failsWithoutError;
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_EQ(-1, GetWooferLevel());
        EXPECT_EQ(
            (Transcript{"6 GetWooferLevel > ZAV_API_BRIDGE", "4 InitDbusConnection > Called",
                        "6 InitDbusConnection > Bus get sync failed",
                        "4 GetWooferLevel > Sending Integer Data to ZAVService.....",
                        "6 GetWooferLevel > Error::Please initialize Dbus Connection by calling "
                        "InitDbusConnection function"}),
            recorder::Take());
    }
    fake::Reset();
    fake::reply = "(4,)";
    EXPECT_EQ(4, GetWooferLevel());
    EXPECT_EQ(
        (Transcript{"6 GetWooferLevel > ZAV_API_BRIDGE", "4 InitDbusConnection > Called",
                    ConnectedLine(), "4 GetWooferLevel > Sending Integer Data to ZAVService.....",
                    "4 GetWooferLevel > Returned from ZAVService...",
                    "4 GetWooferLevel > IntDataReceived: 4 from ZAVService | 04 00 00 00"}),
        recorder::Take());
}

TEST_F(Connection, IsNotTriedByTheUnframedExport)
{
    EXPECT_EQ(-1, getQCorvalaAvailable());
    EXPECT_EQ(Actions{}, fake::TakeActions());
    EXPECT_EQ(2U, recorder::Take().size());
}

TEST_F(Connection, InitAndFiniLogTheirEntryAndForward)
{
    fake::bus = fake::Outcome::failsWithoutError;
    EXPECT_EQ(-1, InitDbusConnection());
    FiniDbusConnection();
    EXPECT_EQ((Transcript{"6 InitDbusConnection > ZAV_API_BRIDGE", "4 InitDbusConnection > Called",
                          "6 InitDbusConnection > Bus get sync failed",
                          "6 FiniDbusConnection > ZAV_API_BRIDGE",
                          "4 FiniDbusConnection > FiniDbusConnection "}),
              recorder::Take());
    EXPECT_EQ(Actions{"bus"}, fake::TakeActions());
}

} // namespace
