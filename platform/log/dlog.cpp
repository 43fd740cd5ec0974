// SPDX-License-Identifier: MIT
/**
 * @file dlog.cpp
 * Stand-in for the platform log: one line for each call, on standard error, in the file that
 * ZAV_LOG names, or nowhere with ZAV_LOG=off.
 */
#include "dlog.h"

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <string>
#include <string_view>
#include <unistd.h>

namespace
{

constexpr int Nowhere = -1;

int OpenOutput()
{
    const char* target = std::getenv("ZAV_LOG");
    if (!target || !*target) {
        return STDERR_FILENO;
    }
    if (std::string_view(target) == "off") {
        return Nowhere;
    }
    // O_APPEND lets several processes share the file without overwriting each other.
    const int file = open(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (file >= 0) {
        return file;
    }
    std::fprintf(stderr, "platform-log: cannot open ZAV_LOG=%s: %s; logging to standard error\n",
                 target, std::strerror(errno));
    return STDERR_FILENO;
}

int Output()
{
    static const int output = OpenOutput();
    return output;
}

std::string Prefix(int priority, const char* tag)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    tm local{};
    localtime_r(&now.tv_sec, &local);
    char day[32];
    std::strftime(day, sizeof day, "%F %T", &local);

    constexpr std::string_view letters = "??VDIWEF";
    const auto index = static_cast<unsigned>(priority);
    char text[64];
    std::snprintf(text, sizeof text, "%s.%03ld %c ", day, now.tv_nsec / 1'000'000,
                  index < letters.size() ? letters[index] : '?');
    return std::string(text) + tag + ": ";
}

/** One call is one line: no line break inside the message, none doubled at its end. */
void AppendMessage(std::string& line, std::string_view message)
{
    while (message.ends_with('\n')) {
        message.remove_suffix(1);
    }
    for (char c : message) {
        line += c == '\n' || c == '\r' ? ' ' : c;
    }
    line += '\n';
}

/** A single write for the whole line keeps lines apart; only an interrupted one takes another. */
int Write(int file, std::string_view line)
{
    const auto size = static_cast<int>(line.size());
    while (!line.empty()) {
        const ssize_t written = write(file, line.data(), line.size());
        if (written >= 0) {
            line.remove_prefix(static_cast<std::size_t>(written));
        } else if (errno != EINTR) {
            return -1;
        }
    }
    return size;
}

} // namespace

int __dlog_print(int, int priority, const char* tag, const char* format, ...)
{
    const int callersErrno = errno;
    const int output = Output();
    errno = callersErrno; // the platform's printf has a "%m"
    if (output == Nowhere) {
        return 0;
    }

    char* message = nullptr;
    std::va_list arguments;
    va_start(arguments, format);
    const int length = vasprintf(&message, format, arguments);
    va_end(arguments);

    int result = -1;
    if (length >= 0) {
        std::string line = Prefix(priority, tag);
        AppendMessage(line, {message, static_cast<std::size_t>(length)});
        std::free(message);
        result = Write(output, line);
    }
    errno = callersErrno;
    return result;
}
