// SPDX-License-Identifier: MIT
//
// zavctl beside a service that changes meanwhile, or is another one than the simulated. All that a
// command line alone can show is in the transcripts.
#include "PrivateBus.h"

#include <csignal>
#include <gtest/gtest.h>

namespace
{

constexpr const char* kService = "org.kelmar.tv.zav";
constexpr const char* kPath = "/org/kelmar/tv/zav";

class Cli : public testing::Test
{
protected:
    PrivateBus bus;
    Simulator service{bus};
};

TEST_F(Cli, MonitorPrintsEveryEventThroughARestartAndEndsWithTheBus)
{
    Child text({ZAVCTL, "monitor"});
    Child objects({ZAVCTL, "monitor", "--json"});
    const auto expect = [&](const std::string& line, const std::string& object) {
        EXPECT_EQ(line, text.ReadLine());
        EXPECT_EQ("{\"event\":" + object + "}", objects.ReadLine());
    };
    expect("service running", R"("service","running":true)");
    service.Emit("InvokeSignalHandler");
    expect("device-connected", R"("device-connected")");
    service.Emit("sendDataViaSpdif", "([byte 1, 2, 0], 3)");
    expect("spdif 01 02 00", R"("spdif","data":[1,2,0])");
    service.Emit("receiveExternalDataViaCommonTunnel", "([byte 7, 8], 2, 16)");
    expect("tunnel-data 07 08", R"("tunnel-data","data":[7,8])");
    service.Stop();
    expect("service stopped", R"("service","running":false)");
    service.Start();
    expect("service running", R"("service","running":true)");
    RunProgram({ZAVCTL, "tunnel", "status"});
    expect("tunnel-status connected zav-sim",
           R"("tunnel-status","connected":true,"text":"zav-sim")");
    service.Emit("SetCbSoundModeChange", "5");
    expect("mode 105 NIGHT", R"("mode","mode":105,"mode-name":"NIGHT")");
    service.Emit("notifyZAVCsharpCallback", "(9, [byte 1, 255], 2)");
    expect("managed 9 01 ff", R"("managed","number":9,"data":[1,255])");
    service.Emit("DisconnectSignalHandler");
    expect("device-disconnected", R"("device-disconnected")");
    text.Signal(SIGINT);
    EXPECT_EQ(0, text.Wait());
    bus.Stop();
    EXPECT_NE(std::string::npos, objects.ReadLine().find(R"("cause":"no-bus")"));
    EXPECT_EQ(5, objects.Wait());
}

TEST_F(Cli, TheSimulatedServiceForgetsTheOldestCalls)
{
    const auto connection = Connect(bus.Address());
    for (int i = 0; i < 1001; ++i) {
        g_dbus_connection_call(connection.get(), kService, kPath, kService,
                               i == 0 ? "GetMode" : "IsZAVReady", nullptr, nullptr,
                               G_DBUS_CALL_FLAGS_NONE, -1, nullptr, nullptr, nullptr);
    }
    g_dbus_connection_flush_sync(connection.get(), nullptr, nullptr);
    const Ended calls = RunProgram({ZAVCTL, "sim", "calls"});
    EXPECT_EQ("zavctl: 1 older calls were dropped\n", calls.err);
    EXPECT_TRUE(calls.out.starts_with("IsZAVReady () ")) << calls.out;
}

/** Drops every question for properties, as a service that hangs on it. */
GDBusMessage* IgnoreGetAll(GDBusConnection* /*bus*/, GDBusMessage* message, gboolean /*incoming*/,
                           gpointer /*user*/)
{
    if (g_strcmp0(g_dbus_message_get_member(message), "GetAll") == 0) {
        g_clear_object(&message);
    }
    return message;
}

TEST(Doctor, TellsAnotherServiceAndOneThatKeepsConnectingWaiting)
{
    const PrivateBus bus;
    constexpr const char* xml = "<node><interface name='org.kelmar.tv.zav'><method name='GetMode'>"
                                "<arg type='s' direction='out'/></method></interface></node>";
    const auto service = Connect(bus.Address());
    g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(xml, nullptr);
    g_dbus_connection_add_filter(service.get(), IgnoreGetAll, nullptr, nullptr);
    const GDBusInterfaceVTable nothing{};
    g_dbus_connection_register_object(service.get(), kPath, node->interfaces[0], &nothing, nullptr,
                                      nullptr, nullptr);
    g_bus_own_name_on_connection(service.get(), kService, G_BUS_NAME_OWNER_FLAGS_NONE, nullptr,
                                 nullptr, nullptr, nullptr);
    ASSERT_EQ(0, RunProgram({ZAVCTL, "wait"}).exitCode); // which serves it meanwhile
    const Ended doctor = RunProgram({ZAVCTL, "doctor", "--timeout", "1"});
    EXPECT_EQ(1, doctor.exitCode);
    for (const char* finding :
         {"\nfail properties ZAVService did not answer within 1 s\n", "\nfail interface lacks ",
          "method GetMode() -> (i),", "signal SetCbSoundModeChange(i)"}) {
        EXPECT_NE(std::string::npos, doctor.out.find(finding)) << finding << doctor.out;
    }
}

} // namespace
