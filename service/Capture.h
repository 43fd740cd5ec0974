// SPDX-License-Identifier: MIT
/** @file Capture.h Reads what dbus-monitor or busctl have recorded of a bus. */
#ifndef ZAV_SERVICE_CAPTURE_H
#define ZAV_SERVICE_CAPTURE_H

#include <cstdint>
#include <gio/gio.h>
#include <memory>
#include <string>

struct pcap;

class Capture
{
public:
    /**
     * @param path of a pcap or pcapng file, "-" for standard input
     * @throws std::runtime_error when there is no capture of D-Bus to read
     */
    explicit Capture(const std::string& path);

    /**
     * Reads the next message.
     * @return false at the end
     * @throws std::runtime_error when it is cut off or damaged; its text says which
     */
    bool Next();

    GDBusMessage& Message() const { return *m_message; } ///< until the next one is read
    std::int64_t Time() const { return m_time; }         ///< of it, in ns since 1970

private:
    std::unique_ptr<pcap, void (*)(pcap*)> m_file;
    std::unique_ptr<GDBusMessage, void (*)(gpointer)> m_message{nullptr, g_object_unref};
    std::uint64_t m_number = 0;
    std::int64_t m_time = 0;
};

#endif
