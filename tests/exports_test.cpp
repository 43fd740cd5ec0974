// SPDX-License-Identifier: MIT
//
// The built library as a loaded object: its exports and its log points, read from its symbol
// tables, and how long it stays.
#include "PrivateBus.h"
#include "lumo.h"

#include <array>
#include <atomic>
#include <cstdio>
#include <dlfcn.h>
#include <fstream>
#include <glib.h>
#include <gtest/gtest.h>
#include <link.h>
#include <map>
#include <memory>
#include <set>
#include <sstream>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace
{

using Names = std::vector<std::string>;

std::string Contents(const char* path)
{
    std::ifstream file(path);
    EXPECT_TRUE(file) << path;
    return {std::istreambuf_iterator<char>(file), {}};
}

/** What the pattern's one group matches, each time that the pattern does. */
Names Matches(const std::string& text, const char* pattern)
{
    Names names;
    g_autoptr(GRegex) regex =
        g_regex_new(pattern, GRegexCompileFlags{}, GRegexMatchFlags{}, nullptr);
    g_autoptr(GMatchInfo) match = nullptr;
    g_regex_match(regex, text.c_str(), GRegexMatchFlags{}, &match);
    for (; g_match_info_matches(match) != FALSE; g_match_info_next(match, nullptr)) {
        g_autofree gchar* name = g_match_info_fetch(match, 1);
        names.emplace_back(name);
    }
    return names;
}

std::string Output(const std::string& command)
{
    const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), pclose);
    std::string output;
    std::array<char, 4096> part{};
    while (fgets(part.data(), part.size(), pipe.get()) != nullptr) {
        output += part.data();
    }
    return output;
}

TEST(Exports, AreThoseOfTheHeaderInItsOrderAndTheClass)
{
    const Names header = Matches(Contents(ZAV_HEADER), R"(\nZAV_EXPORT [\w ]+?(\w+)\()");
    const Names map = Matches(Contents(ZAV_MAP), R"(\n    (\w+);)");
    EXPECT_FALSE(header.empty());
    EXPECT_EQ(header, map);

    std::set<std::string> symbols;
    for (const std::string& name :
         Matches(Output(ZAV_NM " -D --defined-only " ZAV_LIBRARY), R"( [A-Za-z] (\S+)\n)")) {
        if (name.rfind("_ZN13ZAVServiceAPI", 0) != 0) {
            symbols.insert(name);
        }
    }
    EXPECT_EQ(std::set<std::string>(header.begin(), header.end()), symbols);
}

std::vector<const TSCodeLocation*> LogPoints()
{
    const auto* loaded = static_cast<const link_map*>(dlopen(ZAV_LIBRARY, RTLD_NOW));
    EXPECT_NE(nullptr, loaded) << dlerror();
    std::vector<const TSCodeLocation*> points;
    for (const std::string& address :
         Matches(Output(ZAV_NM " " ZAV_LIBRARY), R"(([0-9a-f]+) \w \S*lumoCodeLocation\S*\n)")) {
        points.push_back(reinterpret_cast<const TSCodeLocation*>(loaded->l_addr +
                                                                 std::stoul(address, nullptr, 16)));
    }
    return points;
}

/** The priority that the source gives to the log point on this line. */
std::string Level(const TSCodeLocation& point)
{
    Names lines{""}; // the first is line 1
    std::istringstream source(Contents(point.file));
    for (std::string text; std::getline(source, text);) {
        lines.push_back(text);
    }
    // Of a log point that stands on several lines compilers name the first or the last.
    const auto Has = [&lines](size_t line, const char* text) {
        return lines.at(line).find(text) != std::string::npos;
    };
    auto line = static_cast<size_t>(point.line);
    while (!Has(line, "LOG_POINT") && !Has(line, "LOG_ENTRY") && !Has(line, "ENTER")) {
        --line;
    }
    const bool info = Has(line, "DLOG_INFO") || (!Has(line, "DLOG_") && Has(line + 1, "DLOG_INFO"));
    return info ? "info" : "error";
}

TEST(LogPoints, AreCountedByLevelAndEachIsItsOperationsOwn)
{
    std::map<std::string, int> levels;
    std::map<std::string, std::set<int>> lines;
    for (const TSCodeLocation* point : LogPoints()) {
        ++levels[Level(*point)];
        EXPECT_TRUE(lines[point->function].insert(point->line).second) << point->function;
        EXPECT_EQ(0U, *point->locationId);
    }
    EXPECT_EQ((std::map<std::string, int>{{"info", 100}, {"error", 157}}), levels);
    EXPECT_EQ(7U, lines["static bool ZAVServiceAPI::IsSoundBarConnected()"].size());
    EXPECT_EQ(1U, lines["int IsSoundBarConnected()"].size());
    EXPECT_EQ(8U, lines["static void ZAVServiceAPI::GetEqualizerLevel(int*, int*)"].size());
}

std::atomic<int> heard = 0;

/** Opens the library, connects and subscribes. */
void* Listen()
{
    setenv("ZAV_LOG", "off", 1);
    void* library = dlopen(ZAV_LIBRARY, RTLD_NOW);
    const auto connect = reinterpret_cast<int (*)()>(dlsym(library, "InitDbusConnection"));
    EXPECT_EQ(0, connect());
    using Subscribe = void (*)(void (*callback)());
    reinterpret_cast<Subscribe>(dlsym(library, "SignalSubscribe"))([] { ++heard; });
    return library;
}

TEST(Library, StaysWhenItIsClosedWhileSubscribed)
{
    const PrivateBus bus;
    Simulator service{bus};
    dlclose(Listen());
    service.Emit("InvokeSignalHandler");
    IterateUntil([] { return heard == 1; });
}

TEST(Library, LetsAProgramEndWhileSignalsArrive)
{
    const pid_t child = fork();
    if (child == 0) {
        const PrivateBus bus;
        Simulator service{bus};
        Listen();
        std::thread([&service] {
            for (;;) {
                service.Emit("InvokeSignalHandler");
            }
        }).detach();
        std::thread([] {
            for (;;) {
                g_main_context_iteration(nullptr, TRUE);
            }
        }).detach();
        while (heard < 100) {
            std::this_thread::yield();
        }
        exit(0);
    }
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}

} // namespace
