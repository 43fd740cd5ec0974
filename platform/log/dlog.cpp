// SPDX-License-Identifier: MIT
/**
 * @file dlog.cpp
 * Stand-in for the platform log: one line for each call, on standard error, in the file that
 * ZAV_LOG names, or nowhere with ZAV_LOG=off.
 */
#include "dlog.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <iterator>
#include <string>
#include <string_view>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace
{

constexpr size_t kUsualLength = 512; // of a line; a longer one costs an allocation

/** Where the lines go. */
struct Output
{
    int file = STDERR_FILENO; ///< -1: nowhere
    bool isDeadly = false;    ///< a write may be answered by a signal

    Output();
};

/** The descriptor that a name stands for, as a shell knows it; -1 for any other. */
int Descriptor(std::string_view name)
{
    constexpr std::string_view names[] = {"/dev/stdin", "/dev/stdout", "/dev/stderr"};
    constexpr std::string_view folder = "/dev/fd/";
    int number = -1;
    if (name.starts_with(folder)) {
        std::from_chars(name.data() + folder.size(), name.data() + name.size(), number);
    } else if (const auto* found = std::ranges::find(names, name); found != std::end(names)) {
        number = static_cast<int>(found - std::begin(names));
    }
    return number;
}

/** @return -1 with the reason in errno */
int Open(const char* target)
{
    const int descriptor = Descriptor(target);
    if (descriptor >= 0) { // not opened anew, which would write over what others write there
        return fcntl(descriptor, F_DUPFD_CLOEXEC, 0);
    }
    // No link: somebody else may have laid it, to a file that only this program may write. Not held
    // up by a pipe that nobody reads. O_APPEND lets several processes share a file.
    const int file =
        open(target, O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC | O_NOCTTY | O_NOFOLLOW | O_NONBLOCK,
             0600);
    if (file >= 0) {
        fcntl(file, F_SETFL, O_APPEND); // a slow reader makes us wait, it does not cost lines
    }
    return file;
}

Output::Output()
{
    // Whoever starts a set-user-ID program must not tell it where to write.
    const char* const target = secure_getenv("ZAV_LOG");
    if (target && std::string_view(target) == "off") {
        file = -1;
        return;
    }
    if (target && *target) {
        file = Open(target);
    }
    if (file < 0) {
        std::fprintf(stderr,
                     "platform-log: cannot open ZAV_LOG=%s: %s; logging to standard error\n",
                     target, std::strerror(errno));
        file = STDERR_FILENO;
    }
    // A pipe without a reader, or a file that has reached its limit.
    struct stat status = {};
    rlimit limit = {};
    isDeadly = fstat(file, &status) != 0 || !S_ISREG(status.st_mode) ||
               getrlimit(RLIMIT_FSIZE, &limit) != 0 || limit.rlim_cur != RLIM_INFINITY;
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

/** Keeps the signals of a write that fails from the program for a scope; errno tells as well. */
class QuietWrites
{
public:
    explicit QuietWrites(bool isNeeded) : m_isNeeded(isNeeded)
    {
        if (!m_isNeeded) {
            return;
        }
        sigset_t pending;
        sigpending(&pending);
        sigemptyset(&m_signals);
        for (const int signal : {SIGPIPE, SIGXFSZ}) {
            if (sigismember(&pending, signal) == 0) { // else it is the program's own
                sigaddset(&m_signals, signal);
            }
        }
        pthread_sigmask(SIG_BLOCK, &m_signals, &m_before);
    }
    ~QuietWrites()
    {
        if (m_isNeeded) {
            constexpr timespec atOnce = {};
            sigtimedwait(&m_signals, nullptr, &atOnce);
            pthread_sigmask(SIG_SETMASK, &m_before, nullptr);
        }
    }
    QuietWrites(const QuietWrites&) = delete;
    QuietWrites& operator=(const QuietWrites&) = delete;

private:
    const bool m_isNeeded;
    sigset_t m_signals = {};
    sigset_t m_before = {};
};

/** A single write for the whole line keeps lines apart; only an interrupted one takes another. */
int Write(const Output& output, std::string_view line)
{
    const QuietWrites quiet(output.isDeadly);
    const auto size = static_cast<int>(line.size());
    while (!line.empty()) {
        const ssize_t written = write(output.file, line.data(), line.size());
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
    static const Output output;
    errno = callersErrno; // the platform's printf has a "%m"
    if (output.file < 0) {
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
