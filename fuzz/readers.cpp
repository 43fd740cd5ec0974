// SPDX-License-Identifier: MIT
//
// What is read from files that others wrote: scenarios of the simulated service, text logs,
// recorded sessions and trace stores. Each input is given to all four readers.
#include "Capture.h"
#include "Input.h"
#include "Recording.h"
#include "Scenario.h"
#include "TextLog.h"
#include "TraceReader.h"

#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

/** @return the path of a file with this content */
const char* FileOf(const std::string& content)
{
    static const int file = memfd_create("content", MFD_CLOEXEC);
    static const std::string path = "/proc/self/fd/" + std::to_string(file);
    Require(ftruncate(file, 0) == 0);
    Require(pwrite(file, content.data(), content.size(), 0) == std::ssize(content));
    return path.c_str();
}

void ReadSteps(const std::string& content)
{
    std::istringstream lines(content);
    try {
        Require(std::ranges::is_sorted(ReadScenario(lines).steps, {}, &Step::at));
    } catch (const std::invalid_argument&) {
    }
}

/** The simulated service takes whatever scenario comes of a session. */
void ReadSession(const std::string& content)
{
    const Excerpt whole;
    Recording recording(whole);
    try {
        Capture capture(FileOf(content));
        while (capture.Next()) {
            recording.Add(capture.Message(), capture.Time());
        }
    } catch (const std::runtime_error&) {
    }
    std::stringstream lines;
    recording.Print(lines);
    const Scenario scenario = ReadScenario(lines);
    Require(recording.IsEmpty() == (scenario.steps.empty() && scenario.calls.empty()));
}

/** Each record fits its log point and can be shown. @return whether they come in order of time */
bool ReadRecords(trace::Source& source)
{
    std::int64_t last = INT64_MIN;
    bool isSorted = true;
    while (const trace::Record* record = source.Next()) {
        Require(trace::Arguments(*record).size() == record->location->arguments.size());
        trace::Message(*record);
        trace::Operation(*record->location);
        isSorted = isSorted && record->time >= last;
        last = record->time;
    }
    return isSorted;
}

void ReadLog(const std::string& content)
{
    std::istringstream lines(content);
    try {
        cli::TextLog log(lines);
        Require(ReadRecords(log));
    } catch (const std::runtime_error&) {
    }
}

void ReadStore(const std::string& content)
{
    try {
        trace::Reader reader(FileOf(content));
        Require(ReadRecords(reader) || reader.Damage());
    } catch (const std::runtime_error&) {
    }
}

static_assert(lumo::format::kMagic == 0x32'43'52'54'4F'4D'55'4C, "make the seeds of stores anew");

/** A store of three chunks that is given without most of its zeros. */
std::string WithZeros(Input store)
{
    constexpr size_t kept = 500;
    std::string file =
        store.Take(sizeof(lumo::format::FileHeader) + 3 * sizeof(lumo::format::Chunk));
    file.resize(lumo::format::kBlock);
    while (!store.IsEmpty()) {
        file += store.Take(kept);
        file.resize(file.size() + lumo::format::kChunkSize - kept);
    }
    return file;
}

} // namespace

int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    const std::string content(reinterpret_cast<const char*>(data), size);
    ReadSteps(content);
    ReadSession(content);
    ReadLog(content);
    ReadStore(content);
    if (content.starts_with("LUMOTRC")) {
        ReadStore(WithZeros(Input(data, size)));
    }
    return 0;
}
