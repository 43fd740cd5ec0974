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

/** Runs it with the words between the line's blanks. */
Ended Zavctl(const std::string& line, const Environment& environment = {})
{
    std::istringstream words(ZAVCTL " " + line);
    return RunProgram({std::istream_iterator<std::string>(words), {}}, environment);
}

void ExpectOutput(const std::string& line, const std::string& out)
{
    const Ended run = Zavctl(line);
    EXPECT_EQ(0, run.exitCode) << line;
    EXPECT_EQ(out, run.out) << line;
    EXPECT_EQ("", run.err) << line;
}

json JsonOf(const Ended& run)
{
    EXPECT_EQ(1, std::ranges::count(run.out, '\n')) << run.out;
    return json::parse(run.out, nullptr, false);
}

/** @param lines what zavctl is run with, one time after the other; a bar is between two of them */
void ExpectFailure(const std::string& lines, int exitCode, const char* cause,
                   const Environment& environment = {})
{
    std::istringstream list(lines + "|");
    for (std::string line; std::getline(list, line, '|');) {
        SCOPED_TRACE(line);
        const Ended run = Zavctl(line + " --json", environment);
        EXPECT_EQ(exitCode, run.exitCode);
        const json error = JsonOf(run)["error"];
        EXPECT_EQ(cause, error["cause"]);
        EXPECT_EQ(exitCode, error["exit"]);
        EXPECT_EQ(run.err, "zavctl: " + error["message"].get<std::string>() + "\n");
        EXPECT_EQ(1, std::ranges::count(run.err, '\n')) << run.err;
    }
}

void ExpectDoctor(int exitCode, const std::string& finding)
{
    const Ended doctor = Zavctl("doctor");
    EXPECT_EQ(exitCode, doctor.exitCode);
    EXPECT_NE(std::string::npos, doctor.out.find(finding)) << doctor.out;
}

class Cli : public testing::Test
{
protected:
    PrivateBus bus;
    Simulator service{bus};
};

TEST_F(Cli, AlignsAndColoursForPeople)
{
    if (RunProgram({"script", "-qec", "true", "/dev/null"}).exitCode != 0) {
        GTEST_SKIP() << "no terminal can be made here: /dev/pts is not mounted";
    }
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

TEST_F(Cli, TellsWhyNoAnswerCame)
{
    service.Hang("GetMode");
    ExpectFailure("get mode", 3, "no-answer");
    // A process of one thread is never busy by itself.
    ExpectFailure("get mode", 6, "busy",
                  {{ZAV_PRELOAD, ZAV_ALWAYS_BUSY}, {"ASAN_OPTIONS", "verify_asan_link_order=0"}});
    service.Stop();
    ExpectFailure("get mode|status|equalizer 1 2|init-manager|sim calls|tunnel status|"
                  "wait --timeout 0",
                  4, "not-running");
    ExpectFailure("get mode|sim fail GetMode|wait|monitor", 5, "no-bus",
                  {{"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nowhere"}});
}

TEST(CliOnAnotherBus, TellsThatTheBusDeniesAccess)
{
    const PrivateBus bus("<policy context=\"mandatory\">"
                         "<deny send_destination=\"org.kelmar.tv.zav\"/></policy>");
    const Simulator service(bus);
    ExpectFailure("get mode", 5, "denied");
    ExpectDoctor(1, "fail access ");
}

TEST(CliOnAnotherBus, WaitsWithoutStartingTheService)
{
    PrivateBus bus("<servicedir>.</servicedir>"); // the bus's own folder
    std::ofstream(testing::TempDir() + "org.kelmar.tv.zav.service")
        << "[D-BUS Service]\nName=org.kelmar.tv.zav\nUser=root\nExec=" ZAV_SIM " --quiet\n";
    bus.Stop();
    bus.Start(); // and reads that file
    ExpectFailure("wait --timeout 0.3", 4, "not-running");
    ExpectDoctor(0, "warn service ");
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
    Child text({ZAVCTL, "monitor", "--count", "7"});
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
    Zavctl("tunnel status");
    expect("tunnel-status connected zav-sim",
           R"("tunnel-status","connected":true,"text":"zav-sim")");
    service.Emit("SetCbSoundModeChange", "5");
    expect("mode 105 NIGHT", R"("mode","mode":105,"mode-name":"NIGHT")");
    service.Emit("notifyZAVCsharpCallback", "(9, [byte 1, 255], 2)");
    expect("managed 9 01 ff", R"("managed","number":9,"data":[1,255])");
    service.Emit("DisconnectSignalHandler");
    expect("device-disconnected", R"("device-disconnected")");
    EXPECT_EQ(0, text.Wait());
    objects.Signal(SIGINT);
    EXPECT_EQ(0, objects.Wait());
}

TEST_F(Cli, MonitorEndsInTimeOrWithTheBus)
{
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
    for (const char* finding : {"\nfail interface lacks ", "method GetMode() -> (i),",
                                "signal SetCbSoundModeChange(i)"}) {
        ExpectDoctor(1, finding);
    }
}

TEST_F(Cli, ControlsTheSimulatedService)
{
    ExpectOutput("sim reply GetMode (7,)", "");
    ExpectOutput("get mode", "107 SMART\n");
    ExpectOutput("sim delay GetMode 1", "");
    ExpectOutput("sim fail GetMode", "");
    EXPECT_EQ(1, Zavctl("get mode").exitCode);
    const json calls = JsonOf(Zavctl("sim calls --json"));
    EXPECT_EQ(2U, calls["calls"].size());
    EXPECT_EQ("GetMode", calls["calls"][0]["method"]);
    EXPECT_EQ("()", calls["calls"][0]["arguments"]);
    EXPECT_EQ(1, calls["peak-open"]);
    ExpectOutput("sim clear", "");
    ExpectOutput("sim calls", "");
    ExpectOutput("sim hang SetMode", "");
    ExpectOutput("sim reset", "");
    ExpectOutput("set mode music", "");
    ExpectOutput("get mode", "101 MUSIC\n");
    Child monitor({ZAVCTL, "monitor", "--count", "1"});
    monitor.ReadLine();
    ExpectOutput("sim emit SetCbSoundModeChange 5", "");
    EXPECT_EQ("mode 105 NIGHT", monitor.ReadLine());
}

TEST_F(Cli, ShowsItsLogAndItsTrace)
{
    const std::string line = "> IntDataReceived: 0 from ZAVService\n";
    EXPECT_NE(std::string::npos, Zavctl("get mode --log").err.find(line));
    const std::string file = testing::TempDir() + "zavctl.log";
    const std::string trace = testing::TempDir() + "zavctl.trace";
    std::filesystem::remove(file);
    std::filesystem::remove(trace);
    EXPECT_EQ("", Zavctl("get mode", {{"ZAV_LOG", file}}).err);
    std::ifstream log(file);
    const std::string text{std::istreambuf_iterator(log), {}};
    EXPECT_TRUE(text.ends_with(line)) << text;

    Zavctl("get woofer-level", {{"LUMO_TRACE", trace}});
    const Ended run = Zavctl("trace " + trace + " --stat");
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

TEST_F(Cli, ManPageExamplesWork)
{
    // The pages escape nothing but "-".
    constexpr const char* takeExamples =
        R"(/^\.SH/ { section = /EXAMPLES/ }  /^\.EE/ { example = 0 }
        section && example { gsub(/\\/, ""); print }  /^\.EX/ { example = 1 })";
    const std::string folder = testing::TempDir() + "zavctl-examples";
    std::filesystem::create_directories(folder);
    const std::string path = std::filesystem::path(ZAVCTL).parent_path();
    const auto run = [&](const std::string& page) {
        const std::string commands = RunProgram({"awk", takeExamples, ZAV_MAN "/" + page}).out;
        EXPECT_LE(4, std::ranges::count(commands, '\n')) << page;
        const Ended result =
            RunProgram({"bash", "-euc", "cd " + folder + "; PATH=" + path + ":$PATH; " + commands});
        EXPECT_EQ(0, result.exitCode) << commands << result.out << result.err;
    };
    run("zavctl.1");
    service.Stop();
    run("zav-sim.1");
}

} // namespace
