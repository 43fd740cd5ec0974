// SPDX-License-Identifier: MIT
#include "TraceReader.h"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <system_error>
#include <tuple>
#include <unistd.h>
#include <utility>

namespace trace
{

using namespace lumo::format;

namespace
{

/** Takes values off the front of bytes. */
class Parser
{
public:
    explicit Parser(Bytes bytes) : m_rest(bytes) {}

    Bytes Take(std::size_t size)
    {
        m_failed = m_failed || size > m_rest.size();
        const Bytes taken = m_rest.first(m_failed ? 0 : size);
        m_rest = m_failed ? Bytes() : m_rest.subspan(size);
        return taken;
    }
    template <typename Plain>
    Plain Take()
    {
        Plain value{};
        std::ranges::copy(Take(sizeof value), reinterpret_cast<unsigned char*>(&value));
        return value;
    }
    std::string_view TakeText(std::size_t size)
    {
        const Bytes text = Take(size);
        return {reinterpret_cast<const char*>(text.data()), text.size()};
    }
    std::string_view TakeText() { return TakeText(Take<std::uint32_t>()); }

    std::size_t Left() const { return m_rest.size(); }
    /** Whether bytes and values match. */
    bool IsAtEnd() const { return !m_failed && m_rest.empty(); }

private:
    Bytes m_rest;
    bool m_failed = false;
};

std::optional<Location> ParseLocation(Bytes payload)
{
    Parser parser(payload);
    Location location;
    location.id = parser.Take<std::uint32_t>();
    location.line = parser.Take<std::int32_t>();
    location.file = parser.TakeText();
    location.function = parser.TakeText();
    location.message = parser.TakeText();
    bool isSound = true;
    for (auto count = parser.Take<std::uint16_t>(); count > 0 && parser.Left() > 0; --count) {
        const auto kind = parser.Take<std::uint8_t>();
        const auto size = parser.Take<std::uint16_t>();
        isSound = isSound && (size == kVariableSize || size <= sizeof(std::uint32_t));
        location.arguments.push_back({kind, size, std::string(parser.TakeText())});
    }
    location.operation = Operation(location);
    return isSound && parser.IsAtEnd() ? std::optional(std::move(location)) : std::nullopt;
}

/**
 * A text is its length in base 128, the lowest group first, and its bytes. FF 7F is the length
 * 16383 as well as the mark of a null pointer: it is a length where so many bytes follow.
 */
Value TakeTextArgument(Parser& parser)
{
    constexpr std::uint32_t nullOrLength = 16383;
    std::uint32_t length = 0;
    unsigned char group = 0x80;
    for (unsigned shift = 0; group & 0x80 && shift < 28; shift += 7) {
        group = parser.Take<unsigned char>();
        length |= (group & 0x7FU) << shift;
    }
    if (length == nullOrLength && parser.Left() < nullOrLength) {
        return nullptr;
    }
    return parser.TakeText(length);
}

Value TakeNumber(Parser& parser, const ArgumentType& type)
{
    std::uint32_t bits = 0;
    std::ranges::copy(parser.Take(type.size), reinterpret_cast<unsigned char*>(&bits));
    const bool isSigned = type.typeName == "int" || type.typeName.starts_with("enum_");
    return isSigned ? std::int64_t{static_cast<std::int32_t>(bits)} : std::int64_t{bits};
}

/** @return whether the payload matches the types */
bool Decode(const Location& location, Bytes payload, std::vector<Value>& values)
{
    Parser parser(payload);
    values.clear();
    for (const ArgumentType& type : location.arguments) {
        values.push_back(type.size == kVariableSize ? TakeTextArgument(parser)
                                                    : TakeNumber(parser, type));
    }
    return parser.IsAtEnd();
}

/** Renders one argument by a conversion of printf that the log points use. */
std::string Render(std::string_view conversion, const Value& value)
{
    const auto* number = std::get_if<std::int64_t>(&value);
    if (number == nullptr) {
        const auto* text = std::get_if<std::string_view>(&value);
        return std::string(text ? *text : "(null)");
    }
    const auto bits = static_cast<std::uint32_t>(*number);
    char hex[8];
    const std::string digits(hex, std::to_chars(hex, std::end(hex), bits, 16).ptr);
    switch (conversion.back()) {
    case 'd':
        return std::to_string(static_cast<std::int32_t>(bits));
    case 'p':
        return bits == 0 ? "(nil)" : "0x" + digits;
    case 'x':
        return (conversion == "%02x" && bits < 16 ? "0" : "") + digits;
    default:
        return std::to_string(bits);
    }
}

std::uint64_t EntryOffset(std::size_t chunk)
{
    return sizeof(FileHeader) + chunk * sizeof(Chunk);
}

bool HasRecords(const Chunk& entry)
{
    return entry.state == ChunkState::records || entry.state == ChunkState::closed;
}

/** In ns; no machine runs for so long, and no sum of two overflows. */
constexpr std::int64_t kLatest = std::int64_t{1} << 62;

/** How far records have been committed; all of it where one of them is damaged. */
std::size_t Committed(const std::vector<unsigned char>& data)
{
    for (std::uint64_t at = 0; at + sizeof(RecordHeader) <= data.size();) {
        std::uint32_t length = 0;
        std::memcpy(&length, &data[static_cast<std::size_t>(at)], sizeof length);
        if (length == 0) {
            return static_cast<std::size_t>(at);
        }
        at += length < sizeof(RecordHeader) ? data.size() : Padded(length);
    }
    return data.size();
}

} // namespace

// ---- The file -----------------------------------------------------------------------------------

Reader::Reader(const std::string& path) : m_file(nullptr, std::fclose)
{
    // Not to be held up by a pipe that nobody writes to.
    const int descriptor = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (descriptor < 0) {
        throw std::system_error(errno, std::generic_category());
    }
    m_file.reset(fdopen(descriptor, "r"));
    struct stat status = {};
    if (fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode) ||
        Read(&m_header, sizeof m_header, 0) < sizeof m_header ||
        ((m_header.magic ^ kMagic) & kMagicOfAny) != 0) {
        throw std::runtime_error("this is no trace store");
    }
    if (m_header.magic != kMagic) {
        throw std::runtime_error("this trace store has another format than today's");
    }
    if (m_header.chunkSize != kChunkSize || m_header.chunkCount > kLargestStore / kChunkSize ||
        m_header.clockOffset > kLatest || m_header.clockOffset < -kLatest) {
        throw std::runtime_error("the header of this trace store is damaged");
    }
    m_wholeSize = StoreSize(m_header.chunkCount);
    m_fileSize = std::min(static_cast<std::uint64_t>(status.st_size), m_wholeSize);
    m_laps.resize(static_cast<std::size_t>(
        std::min<std::uint64_t>(m_header.chunkCount, m_fileSize / sizeof(Chunk))));
    if (m_fileSize < m_wholeSize) {
        char next = 0;
        Read(&next, 1, m_fileSize); // finds it cut off
    }
}

bool Reader::IsInUse() const
{
    struct flock whole = {};
    whole.l_type = F_RDLCK;
    whole.l_whence = SEEK_SET;
    return fcntl(fileno(m_file.get()), F_OFD_GETLK, &whole) == 0 && whole.l_type == F_WRLCK;
}

/** Records and locations that found no room so far. */
std::uint64_t Reader::Dropped()
{
    Read(&m_header.dropped, sizeof m_header.dropped, offsetof(FileHeader, dropped));
    return m_header.dropped + m_unreadable;
}

std::vector<std::pair<std::uint64_t, const char*>> Reader::Losses()
{
    Read(&m_header.overwritten, sizeof m_header.overwritten, offsetof(FileHeader, overwritten));
    return {{Dropped(), "records found no room"},
            {m_header.overwritten, "records gave way to newer ones"}};
}

void Reader::Damaged(std::uint64_t offset, const std::string& what)
{
    if (!m_damage) {
        m_damage = "at byte " + std::to_string(offset) + " " + what;
    }
}

/** @return how much there was: a file may shrink at any time */
std::size_t Reader::Read(void* to, std::size_t size, std::uint64_t offset)
{
    const ssize_t count = pread(fileno(m_file.get()), to, size, static_cast<off_t>(offset));
    if (count < 0) {
        throw std::system_error(errno, std::generic_category());
    }
    const auto done = static_cast<std::size_t>(count);
    if (done < size) {
        Damaged(offset + done, "of " + std::to_string(m_wholeSize) + " the file is cut off");
    }
    return done;
}

/** The table, without what stands within a run or is damaged. */
std::vector<Chunk> Reader::ReadTable()
{
    std::vector<Chunk> table(m_laps.size());
    Read(table.data(), table.size() * sizeof(Chunk), EntryOffset(0));
    for (std::size_t i = 0; i < table.size();) {
        Chunk& entry = table[i];
        const bool isRun = entry.state == ChunkState::locations || HasRecords(entry);
        if ((isRun && (entry.span == 0 || entry.span > table.size() - i || entry.lap == 0)) ||
            entry.state > ChunkState::closed) {
            Damaged(EntryOffset(i), "an entry of the table of chunks is not valid");
            entry = {};
        }
        const std::size_t end = i + std::max(entry.span * (isRun ? 1 : 0), 1U);
        while (++i < end) {
            table[i] = {};
        }
    }
    return table;
}

/** Reads what a run has from its next record on. @return whether it still is the same run */
bool Reader::Load(Run& run)
{
    Chunk before{};
    Chunk after{};
    Read(&before, sizeof before, EntryOffset(run.chunk));
    run.base += std::exchange(run.at, 0);
    const std::uint64_t end = Offset({run.chunk + before.span, 0, 0});
    if (before.lap != run.lap || end > m_wholeSize || Offset(run) > std::min(end, m_fileSize)) {
        return false;
    }
    run.thread = run.base == 0 ? before.thread : run.thread;
    run.isOpen = before.state != ChunkState::closed;
    run.data.resize(static_cast<std::size_t>(std::min(end, m_fileSize) - Offset(run)));
    const auto read = [&] { run.data.resize(Read(run.data.data(), run.data.size(), Offset(run))); };
    read();
    if (run.isOpen) {
        // What is committed has been written before: at a second look all of it is there.
        run.data.resize(Committed(run.data));
        __sync_synchronize(); // the thread checker knows no fence of the standard library's
        read();
    }
    Read(&after, sizeof after, EntryOffset(run.chunk));
    return after.lap == run.lap && after.state > ChunkState::taken;
}

/** Where in the file the next record of a run is. */
std::uint64_t Reader::Offset(const Run& run) const
{
    return ChunksOffset(m_header.chunkCount) + std::uint64_t{run.chunk} * kChunkSize + run.base +
           run.at;
}

/** Takes the next record off a run that has been loaded; nothing at its end or behind damage. */
std::optional<Reader::Raw> Reader::Take(Run& run)
{
    Raw raw{Offset(run), {}, {}};
    const Bytes rest = Bytes(run.data).subspan(run.at);
    if (rest.size() < sizeof raw.header) {
        return std::nullopt;
    }
    std::memcpy(&raw.header, rest.data(), sizeof raw.header);
    const std::uint32_t length = raw.header.length;
    if (length == 0) {
        return std::nullopt;
    }
    const bool fits = length >= sizeof raw.header && length <= rest.size();
    if (!fits || raw.header.time < run.time || raw.header.time > std::uint64_t{kLatest}) {
        Damaged(raw.offset,
                fits ? "a record has a time that cannot be" : "a record does not fit its place");
        run.at = run.data.size();
        run.isOpen = false;
        return std::nullopt;
    }
    run.time = raw.header.time;
    run.at += static_cast<std::size_t>(std::min<std::uint64_t>(Padded(length), rest.size()));
    raw.payload = rest.subspan(sizeof raw.header, length - sizeof raw.header);
    return raw;
}

// ---- Locations ----------------------------------------------------------------------------------

void Reader::ReadLocations(const std::vector<Chunk>& table)
{
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        if (table[i].state != ChunkState::locations) {
            continue;
        }
        Run& run = m_locationRuns.try_emplace(i, Run{i, table[i].lap, 0}).first->second;
        const bool isSame = Load(run);
        while (const auto raw = isSame ? Take(run) : std::nullopt) {
            auto location = ParseLocation(raw->payload);
            if (!location) {
                Damaged(raw->offset, "a location is malformed");
            } else if (const auto id = location->id;
                       !m_locations.try_emplace(id, std::move(*location)).second) {
                Damaged(raw->offset, "a location has the identifier of another one");
            }
        }
    }
}

/** @return null for one that is not in the store */
const Location* Reader::Find(std::uint32_t id)
{
    auto found = m_locations.find(id);
    // A location is committed before the first record that names it: a second look finds it, even
    // while both are being written.
    if (found == m_locations.end() && m_wasInUse && m_missing.insert(id).second) {
        ReadLocations(ReadTable());
        found = m_locations.find(id);
    }
    return found == m_locations.end() ? nullptr : &found->second;
}

// ---- Records ------------------------------------------------------------------------------------

void Reader::LookForRuns()
{
    m_wasInUse = IsInUse();
    const std::vector<Chunk> table = ReadTable();
    ReadLocations(table);
    for (std::uint32_t i = 0; i < table.size(); ++i) {
        if (HasRecords(table[i]) && m_laps[i] != table[i].lap) {
            m_laps[i] = table[i].lap;
            m_waiting.push_back(Run{i, table[i].lap, table[i].start});
        }
    }
    for (Run& run : std::exchange(m_waiting, {})) {
        m_runs.emplace(std::pair(run.time, run.chunk), std::move(run));
    }
}

/** Reads the next record of a run that has been loaded. */
bool Reader::Advance(Run& run)
{
    while (const auto raw = Take(run)) {
        if (raw->header.location == 0) {
            run.thread = Parser(raw->payload).Take<std::uint32_t>();
            continue;
        }
        const Location* const location = Find(raw->header.location);
        if (location == nullptr && Dropped() > 0) {
            ++m_unreadable; // its location found no room: what cannot be read is lost as well
        } else if (location == nullptr) {
            Damaged(raw->offset, "a record has a location that is not in the store");
        } else if (!Decode(*location, raw->payload, m_values)) {
            Damaged(raw->offset, "a record does not match the arguments of its location");
        } else {
            const auto time = raw->header.time + static_cast<std::uint64_t>(m_header.clockOffset);
            run.record = {static_cast<std::int64_t>(time),
                          {m_header.process, run.thread},
                          location,
                          raw->payload};
            return true;
        }
    }
    return false;
}

const Record* Reader::Next()
{
    if (m_runs.empty()) {
        LookForRuns();
    }
    while (!m_runs.empty()) {
        if (Run& first = m_runs.begin()->second; std::exchange(first.isReady, false)) {
            return &first.record;
        }
        auto node = m_runs.extract(m_runs.begin());
        Run& run = node.mapped();
        if (run.record.location == nullptr && !Load(run)) {
            continue; // overwritten meanwhile
        }
        run.isReady = Advance(run);
        if (run.isReady) {
            node.key() = {run.time, run.chunk};
            m_runs.insert(std::move(node));
        } else if (run.isOpen) {
            run.record = {};
            m_waiting.push_back(std::move(run));
        }
    }
    return nullptr;
}

// ---- What a record says -------------------------------------------------------------------------

std::vector<Value> Arguments(const Record& record)
{
    std::vector<Value> values;
    if (!Decode(*record.location, record.payload, values)) {
        throw std::runtime_error("the bytes do not match what they stand for");
    }
    return values;
}

std::string Message(const Record& record)
{
    const std::vector<Value> values = Arguments(record);
    auto value = values.begin();
    std::string text;
    const std::string_view format = record.location->message;
    for (std::size_t at = 0; at < format.size();) {
        const std::size_t start = std::min(format.find('%', at), format.size());
        const std::size_t end = format.find_first_of("%dpsux", start + 1);
        const std::string_view conversion =
            format.substr(start, end == std::string_view::npos ? end : end - start + 1);
        text += format.substr(at, start - at);
        if (conversion == "%%") {
            text += '%';
        } else if (value == values.end() || end == std::string_view::npos) {
            text += conversion;
        } else {
            text += Render(conversion, *value++);
        }
        at = start + conversion.size();
    }
    return text;
}

std::string Operation(const Location& location)
{
    // Where one compiler writes braces another writes parentheses, which are not of arguments.
    static const std::string unnamed = "(anonymous namespace)::";
    const std::size_t place = location.function.find(unnamed);
    const std::size_t start = place == std::string::npos ? 0 : place + unnamed.size();
    const std::string name =
        location.function.substr(start, location.function.find('(', start) - start);
    return name.substr(name.find_last_of(" :*&") + 1);
}

} // namespace trace
