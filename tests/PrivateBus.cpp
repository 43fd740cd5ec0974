// SPDX-License-Identifier: MIT
#include "PrivateBus.h"

#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <sys/prctl.h>

namespace
{

constexpr const char* kService = "org.kelmar.tv.zav";

template <class T>
std::shared_ptr<T> Hold(T* object)
{
    return {object, g_object_unref};
}

[[noreturn]] void Throw(const std::string& what, const GError* error)
{
    throw std::runtime_error(what + ": " + (error != nullptr ? error->message : "no reason given"));
}

std::shared_ptr<GSubprocess> Spawn(const Arguments& arguments, int flags)
{
    const auto launcher = Hold(g_subprocess_launcher_new(static_cast<GSubprocessFlags>(flags)));
    g_subprocess_launcher_set_child_setup(
        launcher.get(), [](gpointer) { prctl(PR_SET_PDEATHSIG, SIGKILL); }, nullptr, nullptr);
    std::vector<const char*> words;
    for (const std::string& argument : arguments) {
        words.push_back(argument.c_str());
    }
    words.push_back(nullptr);
    g_autoptr(GError) error = nullptr;
    GSubprocess* process = g_subprocess_launcher_spawnv(launcher.get(), words.data(), &error);
    if (process == nullptr) {
        Throw(arguments.at(0), error);
    }
    return Hold(process);
}

int ExitCode(GSubprocess* process)
{
    return g_subprocess_get_if_exited(process) != FALSE ? g_subprocess_get_exit_status(process)
                                                        : -g_subprocess_get_term_sig(process);
}

std::string Configuration(const std::string& rules)
{
    std::ifstream file(ZAV_BUS_CONFIG);
    std::string text{std::istreambuf_iterator(file), {}};
    return text.insert(text.rfind("</busconfig>"), rules);
}

} // namespace

void IterateUntil(const std::function<bool()>& holds, GMainContext* context)
{
    while (!holds()) {
        g_main_context_iteration(context, TRUE);
    }
}

Child::Child(const Arguments& arguments)
    : m_process(Spawn(arguments, G_SUBPROCESS_FLAGS_STDOUT_PIPE)),
      m_output(Hold(g_data_input_stream_new(g_subprocess_get_stdout_pipe(m_process.get()))))
{
}

Child::~Child()
{
    g_subprocess_force_exit(m_process.get());
    g_subprocess_wait(m_process.get(), nullptr, nullptr);
}

std::string Child::ReadLine()
{
    g_autoptr(GError) error = nullptr;
    g_autofree char* line = g_data_input_stream_read_line(m_output.get(), nullptr, nullptr, &error);
    if (line == nullptr) {
        Throw("no line from the child", error);
    }
    return line;
}

void Child::Signal(int number)
{
    g_subprocess_send_signal(m_process.get(), number);
}

int Child::Wait()
{
    g_subprocess_wait(m_process.get(), nullptr, nullptr);
    return ExitCode(m_process.get());
}

Ended RunProgram(const Arguments& arguments)
{
    const auto process =
        Spawn(arguments, G_SUBPROCESS_FLAGS_STDOUT_PIPE | G_SUBPROCESS_FLAGS_STDERR_PIPE);
    g_autoptr(GAsyncResult) result = nullptr;
    g_subprocess_communicate_utf8_async(
        process.get(), nullptr, nullptr,
        [](GObject*, GAsyncResult* done, gpointer place) {
            *static_cast<GAsyncResult**>(place) = g_object_ref(done);
        },
        &result);
    IterateUntil([&result] { return result != nullptr; });
    g_autofree char* out = nullptr;
    g_autofree char* err = nullptr;
    g_subprocess_communicate_utf8_finish(process.get(), result, &out, &err, nullptr);
    return {ExitCode(process.get()), out, err};
}

PrivateBus::PrivateBus(const std::string& rules)
{
    static const auto place = std::filesystem::temp_directory_path(); // before it is set below
    std::string folder = place / "zav-bus-XXXXXX";
    if (mkdtemp(folder.data()) == nullptr) {
        throw std::runtime_error(folder + " cannot be made");
    }
    m_folder = folder;
    m_address = "unix:path=" + m_folder + "/bus";
    std::ofstream(m_folder + "/bus.conf") << Configuration(rules);
    setenv("DBUS_SYSTEM_BUS_ADDRESS", m_address.c_str(), 1);
    for (const char* name : {"TMPDIR", "TEST_TMPDIR"}) {
        setenv(name, m_folder.c_str(), 1); // what is left behind goes with this folder
    }
    Start();
}

PrivateBus::~PrivateBus()
{
    Stop();
    std::error_code ignored;
    std::filesystem::remove_all(m_folder, ignored);
}

void PrivateBus::Start()
{
    std::filesystem::remove(m_folder + "/bus"); // left behind by a bus that was killed
    m_daemon =
        std::make_unique<Child>(Arguments{"dbus-daemon", "--config-file=" + m_folder + "/bus.conf",
                                          "--nofork", "--print-address", "--address=" + m_address});
    m_daemon->ReadLine();
}

void PrivateBus::Stop()
{
    m_daemon.reset();
}

std::shared_ptr<GDBusConnection> Connect(const std::string& address)
{
    constexpr auto client =
        static_cast<GDBusConnectionFlags>(G_DBUS_CONNECTION_FLAGS_AUTHENTICATION_CLIENT |
                                          G_DBUS_CONNECTION_FLAGS_MESSAGE_BUS_CONNECTION);
    g_autoptr(GError) error = nullptr;
    GDBusConnection* connection =
        g_dbus_connection_new_for_address_sync(address.c_str(), client, nullptr, nullptr, &error);
    if (connection == nullptr) {
        Throw(address, error);
    }
    return Hold(connection);
}

std::string ErrorOfBus(GDBusConnection* from, const char* method, GVariant* arguments)
{
    g_autoptr(GError) error = nullptr;
    [[maybe_unused]] g_autoptr(GVariant) reply = g_dbus_connection_call_sync(
        from, "org.freedesktop.DBus", "/org/freedesktop/DBus", "org.freedesktop.DBus", method,
        arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    g_autofree char* name = error == nullptr ? nullptr : g_dbus_error_get_remote_error(error);
    return name == nullptr ? "" : name;
}

Simulator::Simulator(const PrivateBus& bus, const Arguments& options)
    : m_address(bus.Address()), m_command{ZAV_SIM, "--quiet"}
{
    m_command.insert(m_command.end(), options.begin(), options.end());
    Start();
}

void Simulator::Start()
{
    m_process = std::make_unique<Child>(m_command);
    m_process->ReadLine(); // that it is ready
    m_connection = Connect(m_address);
}

void Simulator::Stop()
{
    m_process.reset();
    while (ErrorOfBus(m_connection.get(), "GetNameOwner", g_variant_new("(s)", kService)).empty()) {
        // until the bus has noticed
    }
    m_connection.reset();
}

std::shared_ptr<GVariant> Simulator::Ask(const char* method, GVariant* arguments)
{
    g_autoptr(GError) error = nullptr;
    GVariant* reply = g_dbus_connection_call_sync(
        m_connection.get(), kService, "/org/kelmar/tv/zav/sim", "org.kelmar.tv.zav.Sim", method,
        arguments, nullptr, G_DBUS_CALL_FLAGS_NONE, -1, nullptr, &error);
    if (reply == nullptr) {
        Throw(method, error);
    }
    return {reply, g_variant_unref};
}

void Simulator::Control(const std::string& text)
{
    Ask("Control", g_variant_new("(s)", text.c_str()));
}

Simulator::Seen Simulator::Calls()
{
    const auto reply = Ask("Calls");
    Seen seen;
    g_autoptr(GVariantIter) calls = nullptr;
    g_variant_get(reply.get(), "(a(sss)uu)", &calls, &seen.peakOpen, nullptr);
    const char* method = nullptr;
    const char* arguments = nullptr;
    while (g_variant_iter_next(calls, "(&s&s&s)", &method, &arguments, nullptr) != FALSE) {
        seen.calls.push_back(std::string(method) + " " + arguments);
    }
    return seen;
}
