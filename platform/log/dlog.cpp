// SPDX-License-Identifier: MIT
/**
 * @file dlog.cpp
 * Stand-in for the platform log: one line for each call, on standard error, in the file that
 * ZAV_LOG names, or nowhere with ZAV_LOG=off.
 */
#include "dlog.h"

#include <algorithm>
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
constexpr size_t kUsualLength = 512; // of a line; a longer one costs an allocation

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

constexpr size_t kDateTime = sizeof "2025-01-31 23:59:59" - 1;

/** Date and time of day. Worked out once a second: it costs more than the rest of a line. */
const char* DateTime(time_t now)
{
    // In the static TLS block: reaching it takes no call.
    static constinit thread_local struct
    {
        time_t second = -1;
        char text[kDateTime + 1] = {};
    } last __attribute__((tls_model("initial-exec")));
    if (last.second != now) {
        tm local{};
        localtime_r(&now, &local);
        std::strftime(last.text, sizeof last.text, "%F %T", &local);
        last.second = now;
    }
    return last.text;
}

/** @return the end of what was written; the longest tag that fits leaves room for a message */
char* WritePrefix(char* out, int priority, std::string_view tag)
{
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    const auto millisecond = static_cast<unsigned>(now.tv_nsec / 1'000'000);
    constexpr std::string_view letters = "??VDIWEF";
    const auto index = static_cast<unsigned>(priority);
    std::memcpy(out, DateTime(now.tv_sec), kDateTime);
    out += kDateTime;
    *out++ = '.';
    *out++ = static_cast<char>('0' + millisecond / 100);
    *out++ = static_cast<char>('0' + millisecond / 10 % 10);
    *out++ = static_cast<char>('0' + millisecond % 10);
    *out++ = ' ';
    *out++ = index < letters.size() ? letters[index] : '?';
    *out++ = ' ';
    out += tag.copy(out, kUsualLength / 2);
    *out++ = ':';
    *out++ = ' ';
    return out;
}

/**
 * One call is one line: no line break inside the message, none doubled at its end.
 * @return the end of the line
 */
char* EndLine(char* message, char* end)
{
    while (end > message && end[-1] == '\n') {
        --end;
    }
    *end = '\0';
    while ((message = std::strpbrk(message, "\n\r")) != nullptr) {
        *message = ' ';
    }
    *end++ = '\n';
    return end;
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

    char usual[kUsualLength];
    char* message = WritePrefix(usual, priority, tag);
    const auto prefix = static_cast<size_t>(message - usual);
    std::va_list arguments;
    va_start(arguments, format);
    std::va_list again;
    va_copy(again, arguments);
    const int length = std::vsnprintf(message, sizeof usual - prefix, format, arguments);
    std::string longer;
    char* line = usual;
    if (length >= 0 && prefix + static_cast<size_t>(length) >= sizeof usual) {
        longer.assign(usual, prefix);
        longer.resize(prefix + static_cast<size_t>(length) + 1);
        line = longer.data();
        std::vsnprintf(line + prefix, longer.size() - prefix, format, again);
    }
    va_end(again);
    va_end(arguments);
    message = line + prefix;
    const char* end = EndLine(message, message + std::max(length, 0));
    const int result = Write(output, {line, static_cast<size_t>(end - line)});
    errno = callersErrno;
    return result;
}
