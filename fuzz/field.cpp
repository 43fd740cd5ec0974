// SPDX-License-Identifier: MIT
//
// What is read from the field: text logs, and recorded sessions with the scenarios made of them.
#include "Capture.h"
#include "Input.h"
#include "Recording.h"
#include "Scenario.h"
#include "TextLog.h"

#include <sstream>
#include <stdexcept>
#include <sys/mman.h>
#include <unistd.h>

namespace
{

/** Each line is shown as it stands, but for the blanks at its end and the upper half of addresses.
 */
void ReadLog(const std::string& text)
{
    std::istringstream lines(text);
    cli::TextLog log(lines);
    std::int64_t last = 0;
    try {
        while (const trace::Record* record = log.Next()) {
            Demand(trace::Arguments(*record).size() == record->location->arguments.size());
            Demand(text.find(record->location->function) != std::string::npos);
            trace::Message(*record);
            Demand(record->time >= last);
            last = record->time;
        }
    } catch (const std::runtime_error&) {
    }
}

/** The simulated service takes whatever scenario comes of a session. */
void ReadCapture(const std::string& content)
{
    static const int file = memfd_create("capture", MFD_CLOEXEC);
    Demand(ftruncate(file, 0) == 0);
    Demand(pwrite(file, content.data(), content.size(), 0) == std::ssize(content));
    const Excerpt whole;
    Recording recording(whole);
    try {
        Capture capture("/proc/self/fd/" + std::to_string(file));
        while (capture.Next()) {
            recording.Add(capture.Message(), capture.Time());
        }
    } catch (const std::runtime_error&) {
    }
    std::stringstream lines;
    recording.Print(lines);
    const Scenario scenario = ReadScenario(lines);
    Demand(recording.IsEmpty() == (scenario.steps.empty() && scenario.calls.empty()));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size);
extern "C" int LLVMFuzzerTestOneInput(const unsigned char* data, size_t size)
{
    const std::string content(reinterpret_cast<const char*>(data), size);
    ReadLog(content);
    ReadCapture(content);
    return 0;
}
