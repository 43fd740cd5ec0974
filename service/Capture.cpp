// SPDX-License-Identifier: MIT
#include "Capture.h"

#include <array>
#include <pcap/pcap.h>
#include <stdexcept>

Capture::Capture(const std::string& path) : m_file(nullptr, pcap_close)
{
    std::array<char, PCAP_ERRBUF_SIZE> error{};
    m_file.reset(pcap_open_offline_with_tstamp_precision(path.c_str(), PCAP_TSTAMP_PRECISION_NANO,
                                                         error.data()));
    if (!m_file) {
        throw std::runtime_error(error.data());
    }
    if (pcap_datalink(m_file.get()) != DLT_DBUS) {
        throw std::runtime_error("this is no capture of D-Bus");
    }
}

bool Capture::Next()
{
    pcap_pkthdr* header = nullptr;
    const u_char* bytes = nullptr;
    const int outcome = pcap_next_ex(m_file.get(), &header, &bytes);
    if (outcome == PCAP_ERROR_BREAK) {
        return false;
    }
    const std::string place = "message " + std::to_string(++m_number) + ": ";
    if (outcome != 1) {
        throw std::runtime_error(place + pcap_geterr(m_file.get()));
    }
    if (header->caplen < header->len) {
        throw std::runtime_error(place + "only " + std::to_string(header->caplen) + " of " +
                                 std::to_string(header->len) +
                                 " bytes were recorded; busctl takes --size=65536");
    }
    g_autoptr(GError) error = nullptr;
    m_message.reset(g_dbus_message_new_from_blob(const_cast<u_char*>(bytes), header->caplen,
                                                 G_DBUS_CAPABILITY_FLAGS_NONE, &error));
    if (!m_message) {
        throw std::runtime_error(place + error->message);
    }
    if (header->ts.tv_sec < 0 ||
        __builtin_mul_overflow(header->ts.tv_sec, 1'000'000'000, &m_time) ||
        __builtin_add_overflow(m_time, header->ts.tv_usec, &m_time)) {
        throw std::runtime_error(place + "its time cannot be");
    }
    return true;
}
