// SPDX-License-Identifier: MIT
/**
 * @file PrivateBus.h
 * For tests on a real bus: a bus of their own in place of the system bus, the simulated service on
 * it, and programs run as children. Whatever was started ends with the object that started it, or
 * with the test program, however that ends. What cannot be done throws std::runtime_error; what
 * does not happen is waited for until CTest ends the test program.
 */
#ifndef ZAV_TESTS_PRIVATEBUS_H
#define ZAV_TESTS_PRIVATEBUS_H

#include <gio/gio.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

using Arguments = std::vector<std::string>;

/** Serves the context, the default one or another, until the condition holds. */
void IterateUntil(const std::function<bool()>& holds, GMainContext* context = nullptr);

/** A program that runs beside the test, with its standard output at hand. */
class Child
{
public:
    explicit Child(const Arguments& arguments);
    ~Child(); ///< kills it
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;

    /** The next line of its standard output; dispatches nothing else meanwhile. */
    std::string ReadLine();

    void Signal(int number);

    /** Waits for its end. @return its exit code, or minus the number of the signal that ended it */
    int Wait();

private:
    std::shared_ptr<GSubprocess> m_process;
    std::shared_ptr<GDataInputStream> m_output;
};

/** A program that has ended, and what it left behind. */
struct Ended
{
    int exitCode; ///< or minus the number of the signal that ended it
    std::string out;
    std::string err;
};

/** Runs a program to its end; meanwhile the default main context is served. */
Ended RunProgram(const Arguments& arguments);

/** A bus that this process and its children take for the system bus. */
class PrivateBus
{
public:
    /** @param rules what its configuration is to have on top, e.g. a policy */
    explicit PrivateBus(const std::string& rules = "");
    ~PrivateBus();
    PrivateBus(const PrivateBus&) = delete;
    PrivateBus& operator=(const PrivateBus&) = delete;

    const std::string& Address() const { return m_address; }

    void Stop();
    void Start(); ///< again, at the same address

private:
    std::string m_folder;
    std::string m_address;
    std::unique_ptr<Child> m_daemon;
};

/** A new connection to a bus. */
std::shared_ptr<GDBusConnection> Connect(const std::string& address);

/**
 * Calls a method of the bus itself; when this returns, the bus has seen all that was sent before.
 * @return the name of the error that is the answer, or ""
 */
std::string ErrorOfBus(GDBusConnection* from, const char* method, GVariant* arguments = nullptr);

/**
 * The simulated service, and its control interface over a connection of its own. Bodies are in
 * GVariant's text form: a tuple is the whole body, anything else its only member.
 */
class Simulator
{
public:
    /** What has reached the service. */
    struct Seen
    {
        std::vector<std::string> calls; ///< e.g. "SetWooferLevel (3,)"
        guint32 peakOpen;               ///< the largest number of them at one time
    };

    explicit Simulator(const PrivateBus& bus, const Arguments& options = {});

    void Stop();
    void Start(); ///< again, with a state as new

    /** @param text as on its command line: "delay GetMode=100" */
    void Control(const std::string& text);

    /** Returns once it is sent. */
    void Emit(const std::string& signal, const std::string& body = "()")
    {
        Control("emit " + signal + "=" + body);
    }
    Seen Calls();

private:
    std::shared_ptr<GVariant> Ask(const char* method, GVariant* arguments = nullptr);

    const std::string m_address;
    Arguments m_command;
    std::unique_ptr<Child> m_process;
    std::shared_ptr<GDBusConnection> m_connection;
};

#endif
