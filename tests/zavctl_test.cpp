// SPDX-License-Identifier: MIT
//
// zavctl as its users run it: as a program, against the simulated service on a bus of the test's.
#include "PrivateBus.h"

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace
{

using json = nlohmann::json;

Ended Zavctl(Arguments arguments, const Environment& environment = {})
{
    arguments.insert(arguments.begin(), ZAVCTL);
    return RunProgram(arguments, environment);
}

/** The same from a shell's point of view: words between blanks. */
Ended Zavctl(const char* line, const Environment& environment = {})
{
    std::istringstream words(line);
    return Zavctl(Arguments{std::istream_iterator<std::string>(words), {}}, environment);
}

json JsonOf(const Ended& run)
{
    EXPECT_EQ(1, std::ranges::count(run.out, '\n')) << run.out;
    return json::parse(run.out, nullptr, false);
}

void ExpectFailure(const char* line, int exitCode, const char* cause,
                   const Environment& environment = {})
{
    SCOPED_TRACE(line);
    const Ended run = Zavctl((std::string(line) + " --json").c_str(), environment);
    EXPECT_EQ(exitCode, run.exitCode);
    EXPECT_EQ(1, std::ranges::count(run.err, '\n')) << run.err;
    EXPECT_TRUE(run.err.starts_with("zavctl: ")) << run.err;
    const json error = JsonOf(run)["error"];
    EXPECT_EQ(cause, error["cause"]);
    EXPECT_EQ(exitCode, error["exit"]);
    EXPECT_EQ(run.err, "zavctl: " + error["message"].get<std::string>() + "\n");
}

class Cli : public testing::Test
{
protected:
    /** What reached the service since the last time, as "Method (arguments)". */
    std::string Received()
    {
        std::string text;
        for (const Simulator::Call& call : service.Calls()) {
            text += (text.empty() ? "" : "; ") + call.method + " " + call.arguments;
        }
        service.ClearCalls();
        return text;
    }

    PrivateBus bus;
    Simulator service{bus};
};

TEST_F(Cli, VerbsForwardAndPrint)
{
    struct
    {
        const char* line;
        const char* out;
        const char* received;
    } const cases[] = {
        {"get mode", "100 STANDARD\n", "GetMode ()"},
        {"set mode movie", "", "SetMode (4,)"},
        {"set mode 105", "", "SetMode (5,)"},
        {"set mode dts-virtual-x --json",
         "{\"mode\":110,\"mode-name\":\"DTS_VIRTUAL_X\",\"result\":0}\n", "SetMode (10,)"},
        {"get mode --json", "{\"mode\":110,\"mode-name\":\"DTS_VIRTUAL_X\"}\n", "GetMode ()"},
        {"get equalizer-state", "no\n", "GetMode ()"},
        {"set woofer-level -3", "", "SetWooferLevel (-3,)"},
        {"get woofer-level", "-3\n", "GetWooferLevel ()"},
        {"get woofer-state", "1\n", "GetWooferState ()"},
        {"get woofer-available", "yes\n", "IsAvailableWooferMode ()"},
        {"set speaker 2", "", "SetSpeakerSelection (2,)"},
        {"get speaker", "2\n", "GetSpeakerSelection ()"},
        {"get sound-bar", "yes\n", "IsSoundBarConnected ()"},
        {"get sound-bar --json", "{\"sound-bar\":true}\n", "IsSoundBarConnected ()"},
        {"get equalizer-available", "yes\n", "IsAvailableEqualizer ()"},
        {"get ready", "1\n", "IsZAVReady ()"},
        {"get features", "1\n", "IsFeatureSupported ()"},
        {"set corvala 0", "", "SetCorvalaVconf (0,)"},
        {"get corvala-available", "0\n", "getQCorvalaAvailable ()"},
        {"set earc 1", "", "SetEarcToZav (1,)"},
        {"set pre-trial 1", "", "RequestPreTrial (1,)"},
        {"equalizer -10 0 5", "", "SetEqualizerLevel ([-10, 0, 5], 3)"},
        {"equalizer", "1 -10\n2 0\n3 5\n", "GetEqualizerLevel ()"},
        {"equalizer --json", "{\"levels\":[-10,0,5]}\n", "GetEqualizerLevel ()"},
        {"speakers", "1 1 Front left\n2 1 Front right\n3 2 Rear\n", "GetSCL ()"},
        {"tunnel cap 3", "capability 0\n", "getCapabilityViaCommonTunnel (3,)"},
        {"tunnel cap 3 --set", "", "setCapabilityViaCommonTunnel (3,)"},
        {"tunnel cap 3 --json", "{\"id\":3,\"capability\":1}\n",
         "getCapabilityViaCommonTunnel (3,)"},
        {"tunnel send 1 0xff --id 7", "", "sendExternalDataViaCommonTunnel ([0x01, 0xff], 2, 7)"},
        {"tunnel status", "connected yes\ntext zav-sim\n",
         "sendExternalDataViaCommonTunnel ([0x73], 1, 16)"},
        {"spdif 1 2 --json", "{\"sent\":2}\n", "ReceivedDataFromSpdif ([0x01, 0x02], 2)"},
        {"init-manager --mode night --woofer-level 2 --values 1 2 3 4 5 6 7 --connection 8 "
         "--equalizer-available --state 9 --features 10 --woofer-connected 11 --effects 0x3",
         "", "InitSpeakerManager (105, 2, [1, 2, 3, 4, 5, 6, 7], 8, false, true, 9, 10, 11, 3)"},
        {"modes --sid", "100 STANDARD SID_STANDARD_KR_SOUND\n101 MUSIC SID_MUSIC\n",
         "GetModeList ()"},
        {"modes --json",
         "{\"modes\":[{\"mode\":100,\"mode-name\":\"STANDARD\"},"
         "{\"mode\":101,\"mode-name\":\"MUSIC\"}]}\n",
         "GetModeList ()"},
        {"model SPEAKER_W7", "10\n", ""},
        {"wait", "", ""},
    };
    for (const auto& one : cases) {
        SCOPED_TRACE(one.line);
        if (std::string(one.line).starts_with("modes")) {
            service.SetReply("GetModeList", "0x41");
        }
        const Ended run = Zavctl(one.line);
        EXPECT_EQ(0, run.exitCode);
        EXPECT_EQ(one.out, run.out);
        EXPECT_EQ("", run.err);
        EXPECT_EQ(one.received, Received());
    }
}

TEST_F(Cli, StatusShowsEverythingThatCanBeRead)
{
    EXPECT_EQ("mode 100 STANDARD\nwoofer-level 0\nwoofer-state 1\nwoofer-available yes\n"
              "speaker 0\nsound-bar yes\nequalizer-available yes\nequalizer-state yes\nready 1\n"
              "features 1\ncorvala-available 1\n",
              Zavctl("status").out);
    const json whole = JsonOf(Zavctl("status --json"));
    EXPECT_EQ(12U, whole.size());

    service.SetFailure("GetWooferLevel", "org.freedesktop.DBus.Error.Failed");
    const Ended run = Zavctl("status --json");
    EXPECT_EQ(1, run.exitCode);
    json partly = JsonOf(run);
    EXPECT_EQ("refused", partly["error"]["cause"]);
    EXPECT_TRUE(partly["woofer-level"].is_null());
    partly.erase("error");
    partly["woofer-level"] = 0;
    EXPECT_EQ(whole, partly);
}

TEST_F(Cli, AlignsAndColoursForPeople)
{
    const auto onTerminal = [](const std::string& verb, const Environment& environment = {}) {
        Ended run = RunProgram({"script", "-qec", ZAVCTL " " + verb, "/dev/null"}, environment);
        std::erase(run.out, '\r');
        return run.out;
    };
    Zavctl("equalizer -5 10");
    EXPECT_EQ("1  -5            ##########|\n2  10                      |####################\n",
              onTerminal("equalizer"));
    EXPECT_NE(std::string::npos, onTerminal("status").find("\nwoofer-level         0\n"));
    EXPECT_NE(std::string::npos, onTerminal("doctor").find("\033[32mok\033[0m"));
    EXPECT_EQ(std::string::npos, onTerminal("doctor", {{"NO_COLOR", "1"}}).find("\033[3"));
}

TEST_F(Cli, TellsWhyTheServiceRefused)
{
    service.SetFailure("GetMode", "org.freedesktop.DBus.Error.Failed");
    service.SetReply("GetSCL", "@ay []");
    service.SetReply("GetEqualizerLevel", "(@ai [], 0)");
    service.SetReply("ReceivedDataFromSpdif", "false");
    for (const char* line :
         {"get mode", "get equalizer-state", "set woofer-level 99", "set mode 99", "speakers",
          "equalizer", "spdif 1", "sim hang NoSuchMethod"}) {
        ExpectFailure(line, 1, "refused");
    }
    ExpectFailure("model NO_SUCH_MODEL", 1, "failed");
    service.SetReply("GetWooferLevel", "-1"); // the default as an answer is an answer
    EXPECT_EQ(0, Zavctl("get woofer-level").exitCode);
}

TEST_F(Cli, RefusesBadUsageWithoutAskingTheService)
{
    for (const char* line : {"",
                             "nonsense",
                             "sim nonsense",
                             "get",
                             "get nonsense",
                             "get earc",
                             "set ready 1",
                             "set woofer-level loud",
                             "set woofer-level 2147483648",
                             "set woofer-level 1.5",
                             "set mode louder",
                             "set mode",
                             "equalizer 1 x",
                             "equalizer 2147483648",
                             "spdif 256",
                             "spdif",
                             "tunnel",
                             "init-manager --values 1 2",
                             "monitor --count 0",
                             "wait --timeout -1",
                             "sim delay GetMode -1",
                             "sim reply GetMode (",
                             "completion fish",
                             "trace"}) {
        ExpectFailure(line, 2, "usage");
    }
    EXPECT_EQ("", Received());
    EXPECT_NE(std::string::npos, Zavctl("get wofer").err.find("woofer-level"));
    EXPECT_NE(std::string::npos, Zavctl("set mode clear").err.find("CLEAR_VOICE"));
}

TEST_F(Cli, TellsThatNoAnswerCame)
{
    service.Hang("GetMode");
    ExpectFailure("get mode", 3, "no-answer");
}

TEST_F(Cli, TellsThatTheServiceIsNotRunning)
{
    service.Stop();
    for (const char* line : {"get mode", "status", "equalizer 1 2", "init-manager", "sim calls",
                             "tunnel status", "wait --timeout 0"}) {
        ExpectFailure(line, 4, "not-running");
    }
}

TEST_F(Cli, TellsThatThereIsNoBus)
{
    for (const char* line : {"get mode", "sim fail GetMode", "wait", "monitor"}) {
        ExpectFailure(line, 5, "no-bus", {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere"}});
    }
}

TEST_F(Cli, TellsThatTheConnectionIsBusy)
{
    // A process of one thread never is.
    ExpectFailure("get mode", 6, "busy",
                  {{"LD_PRELOAD", ZAV_ALWAYS_BUSY}, {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
}

TEST(CliOnAnotherBus, TellsThatTheBusDeniesAccess)
{
    const PrivateBus bus("<policy context=\"mandatory\">"
                         "<deny send_destination=\"org.kelmar.tv.zav\"/></policy>");
    const Simulator service(bus);
    ExpectFailure("get mode", 5, "denied");
    const Ended doctor = Zavctl("doctor");
    EXPECT_EQ(1, doctor.exitCode);
    EXPECT_NE(std::string::npos, doctor.out.find("fail access ")) << doctor.out;
}

TEST(CliOnAnotherBus, WaitsWithoutStartingTheService)
{
    const std::string folder = testing::TempDir() + "zavctl-activation";
    std::filesystem::create_directories(folder);
    std::ofstream(folder + "/org.kelmar.tv.zav.service")
        << "[D-BUS Service]\nName=org.kelmar.tv.zav\nUser=root\nExec=" ZAV_SIM " --quiet\n";
    const PrivateBus bus("<servicedir>" + folder + "</servicedir>");
    ExpectFailure("wait --timeout 0.3", 4, "not-running");
    const Ended doctor = Zavctl("doctor");
    EXPECT_EQ(0, doctor.exitCode);
    EXPECT_NE(std::string::npos, doctor.out.find("warn service ")) << doctor.out;
    EXPECT_EQ("1\n", Zavctl("get ready").out); // a request starts it
    EXPECT_EQ(0, Zavctl("wait --ready --timeout 20").exitCode);
}

TEST_F(Cli, WaitsUntilTheServiceIsReady)
{
    service.SetReply("IsZAVReady", "0");
    ExpectFailure("wait --ready --timeout 0.3", 3, "no-answer");
    service.Stop();
    Child waiting({ZAVCTL, "wait", "--ready", "--json"});
    service.Start();
    EXPECT_EQ("{\"running\":true}", waiting.ReadLine());
    EXPECT_EQ(0, waiting.Wait());
}

TEST_F(Cli, MonitorPrintsEveryEventThroughARestart)
{
    Child monitor({ZAVCTL, "monitor", "--count", "8"});
    EXPECT_EQ("service running", monitor.ReadLine());
    service.Emit("InvokeSignalHandler");
    EXPECT_EQ("device-connected", monitor.ReadLine());
    service.Emit("sendDataViaSpdif", "([byte 1, 2, 0], 3)");
    EXPECT_EQ("spdif 01 02 00", monitor.ReadLine());
    service.Emit("receiveExternalDataViaCommonTunnel", "([byte 7, 8], 2, 16)");
    EXPECT_EQ("tunnel-data 07 08", monitor.ReadLine());
    service.Stop();
    EXPECT_EQ("service stopped", monitor.ReadLine());
    service.Start();
    EXPECT_EQ("service running", monitor.ReadLine());
    Zavctl("tunnel status");
    EXPECT_EQ("tunnel-status connected zav-sim", monitor.ReadLine());
    service.Emit("SetCbSoundModeChange", "5");
    EXPECT_EQ("mode 105 NIGHT", monitor.ReadLine());
    service.Emit("notifyZAVCsharpCallback", "(9, [byte 1, 255], 2)");
    EXPECT_EQ("managed 9 01 ff", monitor.ReadLine());
    service.Emit("notifyZAVCsharpCallback", "(9, @ay [], 0)");
    EXPECT_EQ("managed 9", monitor.ReadLine());
    service.Emit("DisconnectSignalHandler");
    EXPECT_EQ("device-disconnected", monitor.ReadLine());
    EXPECT_EQ(0, monitor.Wait());
}

TEST_F(Cli, MonitorPrintsJsonAndEndsInEachWay)
{
    Child monitor({ZAVCTL, "monitor", "--json"});
    EXPECT_EQ(R"({"event":"service","running":true})", monitor.ReadLine());
    service.Emit("SetCbSoundModeChange", "5");
    EXPECT_EQ(R"({"event":"mode","mode":105,"mode-name":"NIGHT"})", monitor.ReadLine());
    service.Emit("notifyZAVCsharpCallback", "(9, [byte 1, 255], 2)");
    EXPECT_EQ(R"({"event":"managed","number":9,"data":[1,255]})", monitor.ReadLine());
    monitor.Signal(SIGINT);
    EXPECT_EQ(0, monitor.Wait());

    EXPECT_EQ(0, Zavctl("monitor --for 0.1").exitCode);
    EXPECT_EQ(3, Zavctl("monitor --for 0.1 --count 1").exitCode);

    Child orphan({ZAVCTL, "monitor", "--json"});
    orphan.ReadLine();
    bus.Stop();
    EXPECT_EQ("no-bus", json::parse(orphan.ReadLine())["error"]["cause"]);
    EXPECT_EQ(5, orphan.Wait());
}

TEST_F(Cli, DoctorFindsWhatIsWrong)
{
    const Ended healthy = Zavctl("doctor --json");
    EXPECT_EQ(0, healthy.exitCode) << healthy.out;
    std::string checks;
    const json findings = JsonOf(healthy);
    for (const json& check : findings["checks"]) {
        checks += check["check"].get<std::string>() + " ";
        EXPECT_TRUE(check["result"] == "ok" || check["check"] == "policy") << check;
        EXPECT_EQ(check["result"] == "ok", check["remedy"] == "") << check;
    }
    EXPECT_EQ("bus service access properties interface policy library log trace exports records ",
              checks);
    service.Stop();
    ExpectFailure("doctor", 1, "failed");

    // A service that has the name, but not the interface; RunProgram() serves it.
    constexpr const char* xml = "<node><interface name='org.kelmar.tv.zav'><method name='GetMode'>"
                                "<arg type='s' direction='out'/></method></interface></node>";
    constexpr auto client =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_autoptr(GDBusNodeInfo) node = g_dbus_node_info_new_for_xml(xml, nullptr);
    g_autoptr(GDBusConnection) connection = g_dbus_connection_new_for_address_sync(
        bus.Address().c_str(), client, nullptr, nullptr, nullptr);
    const GDBusInterfaceVTable nothing{};
    g_dbus_connection_register_object(connection, "/org/kelmar/tv/zav", node->interfaces[0],
                                      &nothing, nullptr, nullptr, nullptr);
    g_bus_own_name_on_connection(connection, "org.kelmar.tv.zav", G_BUS_NAME_OWNER_FLAGS_NONE,
                                 nullptr, nullptr, nullptr, nullptr);
    ASSERT_EQ(0, Zavctl("wait").exitCode);
    const Ended strange = Zavctl("doctor");
    EXPECT_EQ(1, strange.exitCode);
    EXPECT_NE(std::string::npos, strange.out.find("\nfail interface lacks ")) << strange.out;
    EXPECT_NE(std::string::npos, strange.out.find("method GetMode() -> (i),")) << strange.out;
    EXPECT_NE(std::string::npos, strange.out.find("signal SetCbSoundModeChange(i)"));
}

TEST_F(Cli, ControlsTheSimulatedService)
{
    EXPECT_EQ(0, Zavctl({"sim", "reply", "GetMode", "(7,)"}).exitCode);
    EXPECT_EQ("107 SMART\n", Zavctl("get mode").out);
    EXPECT_EQ(0, Zavctl("sim delay GetMode 1").exitCode);
    EXPECT_EQ(0, Zavctl("sim fail GetMode").exitCode);
    EXPECT_EQ(1, Zavctl("get mode").exitCode);
    EXPECT_EQ(0, Zavctl("sim fail GetMode org.example.Error").exitCode);
    const json calls = JsonOf(Zavctl("sim calls --json"));
    EXPECT_EQ(2U, calls["calls"].size());
    EXPECT_EQ("GetMode", calls["calls"][0]["method"]);
    EXPECT_EQ("()", calls["calls"][0]["arguments"]);
    EXPECT_EQ(1, calls["peak-open"]);
    EXPECT_EQ(0, Zavctl("sim clear").exitCode);
    EXPECT_EQ("", Zavctl("sim calls").out);
    EXPECT_EQ(0, Zavctl("sim hang SetMode").exitCode);
    EXPECT_EQ(0, Zavctl("sim reset").exitCode);
    EXPECT_EQ(0, Zavctl("set mode music").exitCode);
    EXPECT_EQ("101 MUSIC\n", Zavctl("get mode").out);
    Child monitor({ZAVCTL, "monitor", "--count", "2"});
    monitor.ReadLine();
    EXPECT_EQ(0, Zavctl("sim emit InvokeSignalHandler").exitCode);
    EXPECT_EQ("device-connected", monitor.ReadLine());
    EXPECT_EQ(0, Zavctl("sim emit SetCbSoundModeChange 5").exitCode);
    EXPECT_EQ("mode 105 NIGHT", monitor.ReadLine());
}

TEST_F(Cli, ShowsAndForwardsTheLog)
{
    const Ended shown = Zavctl("get mode --log");
    EXPECT_EQ("100 STANDARD\n", shown.out);
    EXPECT_NE(std::string::npos, shown.err.find("> IntDataReceived: 0 from ZAVService\n"));

    const std::string file = testing::TempDir() + "zavctl.log";
    std::filesystem::remove(file);
    EXPECT_EQ("", Zavctl("get mode", {{"ZAV_LOG", file}}).err);
    std::ifstream log(file);
    const std::string text{std::istreambuf_iterator(log), {}};
    EXPECT_NE(std::string::npos, text.find("> IntDataReceived: 0 from ZAVService\n")) << text;
}

TEST_F(Cli, ShowsATraceOfItself)
{
    const std::string file = testing::TempDir() + "zavctl.trace";
    Zavctl("get woofer-level", {{"LUMO_TRACE", file}});
    const Ended run = Zavctl({"trace", file, "--stat"});
    EXPECT_EQ(0, run.exitCode);
    EXPECT_NE(std::string::npos, run.out.find("GetWooferLevel")) << run.out;
    const Ended none = Zavctl("trace /nowhere --json");
    EXPECT_EQ(1, none.exitCode);
    EXPECT_EQ("failed", JsonOf(none)["error"]["cause"]);
}

TEST(Completion, OffersWhatMayFollow)
{
    const auto offers = [](const std::string& line) {
        const std::string script = "eval \"$(" ZAVCTL " completion bash)\"; COMP_WORDS=(" + line +
                                   "); COMP_CWORD=$((${#COMP_WORDS[@]} - 1)); _zavctl; "
                                   "echo \"${COMPREPLY[@]}\"";
        return RunProgram({"bash", "-c", script}).out;
    };
    EXPECT_EQ("set status speakers spdif sim\n", offers("zavctl s"));
    EXPECT_EQ("mode\n", offers("zavctl --json set m"));
    EXPECT_EQ("MUSIC MOVIE\n", offers("zavctl set mode M"));
    EXPECT_EQ("reply reset\n", offers("zavctl sim re"));
    EXPECT_EQ("GetMode GetModeList\n", offers("zavctl sim hang GetM"));
    EXPECT_EQ("--ready\n", offers("zavctl wait --r"));
    EXPECT_EQ("/etc/os-release\n", offers("zavctl trace /etc/os-rel"));
}

/** The commands of a man page's EXAMPLES, one a line. */
std::string Examples(const std::string& page)
{
    std::ifstream file(ZAV_MAN "/" + page);
    std::string commands;
    bool inSection = false;
    bool inExample = false;
    for (std::string line; std::getline(file, line);) {
        inSection = line.starts_with(".SH") ? line == ".SH EXAMPLES" : inSection;
        inExample = line == ".EX" || (inExample && line != ".EE");
        if (inSection && inExample && line != ".EX") {
            std::erase(line, '\\'); // the pages escape nothing but "-"
            commands += line + "\n";
        }
    }
    return commands;
}

TEST_F(Cli, ManPageExamplesWork)
{
    const auto run = [](const std::string& page) {
        const std::string folder = testing::TempDir() + "zavctl-examples";
        std::filesystem::create_directories(folder);
        const std::string commands = Examples(page);
        EXPECT_LE(4, std::ranges::count(commands, '\n')) << page;
        const std::string path = std::filesystem::path(ZAVCTL).parent_path();
        const Ended result =
            RunProgram({"bash", "-euc", "cd " + folder + "; PATH=" + path + ":$PATH; " + commands});
        EXPECT_EQ(0, result.exitCode) << commands << result.out << result.err;
    };
    run("zavctl.1");
    service.Stop();
    run("zav-sim.1");
}

} // namespace
