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
        ErrorOfBus(ZAVServiceAPI::connection, "GetId");
    }

    /** Serves the application until it has heard so many signals. */
    Modes Heard(size_t count)
    {
        IterateUntil([&] { return heard.size() >= count; });
        return std::exchange(heard, {});
    }

    std::shared_ptr<GDBusConnection> ConnectAsNobody()
    {
        const AsNobody user;
        return Connect(bus->Address());
    }

    /** An unprivileged user sends a signal of the service's, to all and to the application. */
    void Forge()
    {
        const auto forger = ConnectAsNobody();
        const char* application = g_dbus_connection_get_unique_name(ZAVServiceAPI::connection);
        for (const char* receiver : {static_cast<const char*>(nullptr), application}) {
            g_dbus_connection_emit_signal(forger.get(), receiver, "/org/kelmar/tv/zav",
                                          "org.kelmar.tv.zav", "SetCbSoundModeChange",
                                          g_variant_new("(i)", 9), nullptr);
        }
        EXPECT_EQ("", ErrorOfBus(forger.get(), "GetId"));
    }

    std::optional<PrivateBus> bus;
    std::optional<Simulator> service;
    Modes heard;
};

TEST_F(Policy, LetsEveryUsersRequestsAndTheServicesSignalsPass)
{
    Start(kPolicy);
    EXPECT_EQ(0, ZAVServiceAPI::SetMode(AUDIO_EFFECT_MOVIE));
    EXPECT_EQ(Modes{4}, Heard(1));
}

TEST_F(Policy, KeepsForgedSignalsFromApplications)
{
    Start(kPolicy);
    Forge();
    service->Emit("SetCbSoundModeChange", "5");
    EXPECT_EQ(Modes{5}, Heard(1));
}

/** What the test above would see if the policy did nothing. */
TEST_F(Policy, IsWhatKeepsThem)
{
    Start(kOtherPolicy);
    Forge();
    EXPECT_EQ((Modes{9, 9}), Heard(2));
}

TEST_F(Policy, LetsNobodyElseOwnTheName)
{
    Start(kPolicy);
    service->Stop();
    EXPECT_EQ("org.freedesktop.DBus.Error.AccessDenied",
              ErrorOfBus(ConnectAsNobody().get(), "RequestName",
                         g_variant_new("(su)", "org.kelmar.tv.zav", 0)));
}

} // namespace
