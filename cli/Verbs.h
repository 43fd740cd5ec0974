// SPDX-License-Identifier: MIT
/** @file Verbs.h The verbs of zavctl. The table of them is in main.cpp. */
#ifndef CLI_VERBS_H
#define CLI_VERBS_H

#include "Output.h"
#include "ZAVServiceTypes.h"

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

namespace cli
{

/** What the command line said. The verbs share it: a default holds for all that use the field. */
struct Options
{
    bool json = false;
    bool log = false;
    std::string name;
    std::string value;
    std::vector<int> numbers;
    int id = COMMON_TUNNEL_EXTERNAL_ID_DEFAULT;
    int count = 0;
    double seconds = 0;
    double timeout = 30;
    bool flag = false; ///< the verb's own: sid, set, ready, stat
    SpeakerManagerState state{};
    std::string mode = "STANDARD";
    std::string file;
    std::string chrome;
};

/** Each returns the exit code, or throws Failure. */
using Run = int (*)(const Options&);

struct Verb
{
    const char* name; ///< one word or two
    const char* help;
    void (*define)(CLI::App&, Options&);
    Run run;
    std::vector<std::string> (*words)() = nullptr; ///< what may come after it, for completion
};

extern const std::vector<Verb> verbs;

int Get(const Options& options);
int Set(const Options& options);
int Status(const Options& options);
int Modes(const Options& options);

int Equalizer(const Options& options);
int Speakers(const Options& options);
int TunnelCapability(const Options& options);
int TunnelSend(const Options& options);
int TunnelStatus(const Options& options);
int Spdif(const Options& options);
int InitManager(const Options& options);
int Model(const Options& options);

int Monitor(const Options& options);
int WaitForService(const Options& options);
int Doctor(const Options& options);

int SimReply(const Options& options);
int SimDelay(const Options& options);
int SimFail(const Options& options);
int SimHang(const Options& options);
int SimEmit(const Options& options);
int SimCalls(const Options& options);
int SimClear(const Options& options);
int SimReset(const Options& options);

/** Prints the completion script of a shell, made from the table. */
int Completion(const Options& options);

} // namespace cli

#endif
