// SPDX-License-Identifier: MIT
//
// The policy that is installed for the service, on a bus with the system bus's rules: what another
// user's programs can do, and what they cannot. Needs root, to be two users.
#include "PrivateBus.h"
#include "ZAVServiceAPI.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <optional>
#include <pwd.h>
#include <unistd.h>

namespace
{

using Modes = std::vector<int>;
using Connection = std::unique_ptr<GDBusConnection, decltype(&g_object_unref)>;

/** As every system bus begins: signals may be sent, calls and names are denied. */
const std::string kSystemRules = R"(
  <policy context="default">
    <deny own="*"/>
    <deny send_type="method_call"/>
    <allow send_type="signal"/>
    <deny send_type="method_return"/>
    <deny send_type="error"/>
    <allow send_requested_reply="true" send_type="method_return"/>
    <allow send_requested_reply="true" send_type="error"/>
    <allow send_destination="org.freedesktop.DBus" send_interface="org.freedesktop.DBus"/>
  </policy>)";

/** The least that lets the service run, as a device without our policy has it. */
const std::string kOtherPolicy = R"(
  <policy context="default"><allow send_destination="org.kelmar.tv.zav"/></policy>
  <policy user="root"><allow own="org.kelmar.tv.zav"/></policy>)";

const std::string kPolicy = "<include>" ZAV_POLICY "</include>";

/** While it lives, new connections are those of an unprivileged user. */
struct AsNobody
{
    AsNobody()
    {
        if (seteuid(getpwnam("nobody")->pw_uid) != 0) {
            throw std::runtime_error("cannot be nobody");
        }
    }
    ~AsNobody() { EXPECT_EQ(0, seteuid(0)); }
    AsNobody(const AsNobody&) = delete;
    AsNobody& operator=(const AsNobody&) = delete;
};

class Policy : public testing::Test
{
protected:
    void SetUp() override
    {
        if (geteuid() != 0) {
            GTEST_SKIP() << "needs root";
        }
    }

    void Start(const std::string& policy)
    {
        bus.emplace(kSystemRules + policy);
        const auto folder =
            std::filesystem::path(bus->Address().substr(strlen("unix:path="))).parent_path();
        chmod(folder.c_str(), 0711);
        service.emplace(*bus);

        const AsNobody user;
        ASSERT_EQ(0, ZAVServiceAPI::InitDbusConnection());
        ZAVServiceAPI::ExtSpkSetSoundModeChangedCb(
            [](int mode, void* list) { static_cast<Modes*>(list)->push_back(mode); }, &heard);
        ZAVServiceAPI::SetSendDataToSpkViaSPDIFcb(
            [](const void*, void* list) { static_cast<Modes*>(list)->push_back(-1); }, &heard);
        AskBus(ZAVServiceAPI::connection, "GetId", nullptr);
    }

    /** Serves the application until it has heard so many signals. */
    Modes Heard(size_t count)
    {
        while (heard.size() < count) {
            g_main_context_iteration(nullptr, TRUE);
        }
        return std::exchange(heard, {});
    }

    Connection ConnectAsNobody()
    {
        const AsNobody user;
        constexpr auto client =
            static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                              G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
        return {g_dbus_connection_new_for_address_sync(bus->Address().c_str(), client, nullptr,
                                                       nullptr, nullptr),
                g_object_unref};
    }

    /** A call of the bus; when it returns, the bus has seen all that was sent before. */
    static std::string AskBus(GDBusConnection* from, const char* method, GVariant* arguments)
    {
        g_autoptr(GError) error = nullptr;
        [[maybe_unused]] g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
            from, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
            arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
        g_autofree char* name = error == nullptr ? nullptr : g_dbus_error_get_remote_error(error);
        return name == nullptr ? "" : name;
    }

    /** An unprivileged user sends a signal of the service's, to all and to the application. */
    void Forge(const char* signal, GVariant* body)
    {
        [[maybe_unused]] g_autoptr(GVariant) kept = g_variant_ref_sink(body);
        const Connection forger = ConnectAsNobody();
        ASSERT_NE(nullptr, forger);
        for (const char* receiver :
             {static_cast<const char*>(nullptr),
              g_dbus_connection_get_unique_name(ZAVServiceAPI::connection)}) {
            g_dbus_connection_emit_signal(forger.get(), receiver, "/org/kelmar/tv/zav",
                                          "org.kelmar.tv.zav", signal, body, nullptr);
        }
        EXPECT_EQ("", AskBus(forger.get(), "GetId", nullptr));
    }

    std::optional<PrivateBus> bus;
    std::optional<Simulator> service;
    Modes heard;
};

TEST_F(Policy, LetsEveryUsersRequestsAndTheServicesSignalsPass)
{
    Start(kPolicy);
    EXPECT_EQ(0, ZAVServiceAPI::SetMode(AUDIO_EFFECT_MOVIE));
    EXPECT_EQ(AUDIO_EFFECT_MOVIE, ZAVServiceAPI::GetMode());
    service->Emit("sendDataViaSpdif", "([byte 1], 1)");
    EXPECT_EQ((Modes{4, -1}), Heard(2));
}

TEST_F(Policy, KeepsForgedSignalsFromApplications)
{
    Start(kPolicy);
    Forge("SetCbSoundModeChange", g_variant_new("(i)", 9));
    char tooMany[45] = {};
    Forge("sendDataViaSpdif",
          g_variant_new("(@ayi)",
                        g_variant_new_fixed_array(G_VARIANT_TYPE_BYTE, tooMany, sizeof tooMany, 1),
                        sizeof tooMany));
    service->Emit("SetCbSoundModeChange", "5");
    EXPECT_EQ(Modes{5}, Heard(1));
}

/** What the test above would see if the policy did nothing. */
TEST_F(Policy, IsWhatKeepsThem)
{
    Start(kOtherPolicy);
    Forge("SetCbSoundModeChange", g_variant_new("(i)", 9));
    EXPECT_EQ((Modes{9, 9}), Heard(2));
}

TEST_F(Policy, LetsNobodyElseOwnTheName)
{
    Start(kPolicy);
    service->Stop();
    EXPECT_EQ("org.freedesktop.DBus.Error.AccessDenied",
              AskBus(ConnectAsNobody().get(), "RequestName",
                     g_variant_new("(su)", "org.kelmar.tv.zav", 0)));
}

} // namespace
