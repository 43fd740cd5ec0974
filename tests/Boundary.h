// SPDX-License-Identifier: MIT
/**
 * @file Boundary.h
 * The boundary log: everything that crosses the library's boundary, in the order in which it does,
 * a line for each. FakeGio writes the calls, locks, sleeps and releases; Recorder writes the log
 * points; a test adds what its callbacks were called with and what a call returned:
 *
 *     4 GetWooferLevel > Sending Integer Data to ZAVService.....
 *     lock taken
 *     call GetWooferLevel ()
 *     4 GetWooferLevel > Returned from ZAVService...
 *     4 GetWooferLevel > IntDataReceived: 7 from ZAVService | int
 *     reply released
 *     lock freed
 *     = 7
 *
 * A log point's line has its priority, its function and its text, and behind the bar the types of
 * the arguments in its trace record, which was found to say the same.
 */
#ifndef ZAV_TESTS_BOUNDARY_H
#define ZAV_TESTS_BOUNDARY_H

#include <cstdio>
#include <cstdlib>
#include <dlfcn.h>
#include <fstream>
#include <functional>
#include <glib.h>
#include <gtest/gtest.h>
#include <map>
#include <mutex>
#include <sstream>
#include <string>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace boundary
{

/** Whether the log is kept. To keep it takes memory and time. */
inline bool kept = true;

/** If set, only lines that match this are kept, and those of a scene itself. */
inline std::string wanted;

/** Called before each line, if set; may write lines of its own. */
inline void (*beforeLine)() = nullptr;

/** Called with each line, if set; by several threads, if there are. */
inline std::function<void(const std::string& line)> onLine;

/** What an address is called in the log. */
inline std::map<const void*, std::string> names;

inline std::mutex guard;
inline std::string lines;
inline int output = -1; ///< where the lines go at once, if anywhere

template <class... Parts>
void Write(const Parts&... parts)
{
    if (!kept) {
        return;
    }
    std::ostringstream stream;
    (stream << ... << parts) << "\n";
    const std::string line = stream.str();
    if (line[0] != '>' && line[0] != '=' &&
        !g_regex_match_simple(wanted.c_str(), line.c_str(), G_REGEX_RAW, {})) {
        return;
    }
    {
        const std::lock_guard lock(guard);
        lines += line;
        if (output >= 0 && write(output, lines.data(), lines.size()) > 0) {
            lines.clear();
        }
    }
    if (onLine) {
        onLine(line);
    }
}

template <class... Parts>
void Add(const Parts&... parts)
{
    if (beforeLine != nullptr) {
        beforeLine();
    }
    Write(parts...);
}

/** A list with a run of the same members as one of them: "1*40". */
inline std::string Folded(const std::string& list)
{
    std::string folded;
    for (size_t at = 0; at < list.size();) {
        const std::string member = list.substr(at, list.find(", ", at) - at);
        const std::string again = ", " + member;
        size_t end = at + member.size();
        size_t count = 1;
        for (; list.compare(end, again.size(), again) == 0 && !isalnum(list[end + again.size()]);
             end += again.size()) {
            ++count;
        }
        folded += count > 3 ? member + "*" + std::to_string(count) : list.substr(at, end - at);
        folded += list.substr(end, 2);
        at = end + 2;
    }
    return folded;
}

/** A text with each match replaced; ^ and $ are those of each line. */
inline std::string Replaced(const std::string& text, const char* pattern, const std::string& by)
{
    constexpr auto flags = static_cast<GRegexCompileFlags>(G_REGEX_RAW | G_REGEX_MULTILINE);
    g_autoptr(GRegex) regex = g_regex_new(pattern, flags, {}, nullptr);
    g_autofree char* replaced =
        g_regex_replace(regex, text.c_str(), -1, 0, by.c_str(), {}, nullptr);
    return replaced;
}

/** The function that one of the program's own stands in front of. */
template <class Function>
Function* Real(Function* /*own*/, const char* name)
{
    return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/** The log since the last call of this function. */
inline std::string Take()
{
    const std::lock_guard lock(guard);
    return std::exchange(lines, {});
}

/** Does something of which no line is kept. */
template <class Call>
void Quietly(const Call& call)
{
    kept = false;
    call();
    Add();
    kept = true;
}

/**
 * The log of what is done in a process of its own, and at its end how that ended, if not well. This
 * one has to be without threads; as long as it never connects, the other one starts without a
 * connection.
 */
inline std::string LogOf(const std::function<void()>& play)
{
    int ends[2];
    fflush(nullptr);
    if (pipe(ends) != 0) {
        return "no pipe";
    }
    const pid_t child = fork();
    if (child == 0) {
        output = ends[1];
        lines.clear();
        play();
        exit(testing::Test::HasFailure() ? 1 : 0); // the usual way: leaks are looked for
    }
    close(ends[1]);
    std::string log;
    char part[4096];
    for (ssize_t size = 0; (size = read(ends[0], part, sizeof part)) > 0;) {
        log.append(part, static_cast<size_t>(size));
    }
    close(ends[0]);
    int status = -1;
    waitpid(child, &status, 0);
    if (WIFSIGNALED(status)) {
        log += "= the process ends by signal " + std::to_string(WTERMSIG(status)) + "\n";
    } else if (status != 0) {
        log += "= the process ends with " + std::to_string(WEXITSTATUS(status)) + "\n";
    }
    return log;
}

/** Prints where a log differs, under the title of that part. @return whether it does nowhere */
inline bool IsSame(const std::string& expected, const std::string& actual)
{
    if (expected != actual) {
        const int file = memfd_create("expected", 0);
        const std::string path = "/proc/self/fd/" + std::to_string(file);
        std::ofstream(path) << expected;
        const std::string command =
            "diff -u -F '^#' --label expected --label actual " + path + " -";
        FILE* const diff = popen(command.c_str(), "w");
        fputs(actual.c_str(), diff);
        pclose(diff);
        close(file);
    }
    return expected == actual;
}

} // namespace boundary

#endif
