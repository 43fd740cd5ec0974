// SPDX-License-Identifier: MIT
#include "TraceStore.h"

#include "TraceFormat.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <fcntl.h>
#include <stdexcept>
#include <string_view>
#include <sys/mman.h>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>

namespace trace
{
namespace
{

using namespace lumo::format;
using Bytes = std::span<const unsigned char>;

/** A file's bytes, as they are now and as they change. */
class MappedFile
{
public:
    explicit MappedFile(const std::string& path)
    {
        // Not to be held up by a pipe that nobody writes to.
        const int file = open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
        if (file < 0) {
            throw std::system_error(errno, std::generic_category());
        }
        struct stat status
        {
        };
        if (fstat(file, &status) == 0 && S_ISREG(status.st_mode) && status.st_size > 0) {
            size_ = static_cast<std::size_t>(std::min<std::int64_t>(status.st_size, LargestStore));
            memory_ = mmap(nullptr, size_, PROT_READ, MAP_SHARED, file, 0);
        }
        const int error = errno;
        close(file);
        if (memory_ == MAP_FAILED) {
            throw std::system_error(error, std::generic_category());
        }
    }
    ~MappedFile()
    {
        if (memory_) {
            munmap(memory_, size_);
        }
    }
    MappedFile(const MappedFile&) = delete;
    MappedFile& operator=(const MappedFile&) = delete;

    Bytes Content() const { return {static_cast<const unsigned char*>(memory_), size_}; }

private:
    void* memory_ = nullptr;
    std::size_t size_ = 0;
};

/** Takes values off the front of bytes; throws where the bytes and the values do not match. */
class Taker
{
public:
    explicit Taker(Bytes bytes) : rest_(bytes) {}

    Bytes Take(std::size_t size)
    {
        if (size > rest_.size()) {
            Mismatch();
        }
        const Bytes taken = rest_.first(size);
        rest_ = rest_.subspan(size);
        return taken;
    }
    template <typename Plain>
    Plain Take()
    {
        Plain value;
        std::memcpy(&value, Take(sizeof value).data(), sizeof value);
        return value;
    }
    std::string TakeText(std::size_t size)
    {
        const Bytes text = Take(size);
        return {text.begin(), text.end()};
    }
    std::string TakeText() { return TakeText(Take<std::uint32_t>()); }
    std::size_t Left() const { return rest_.size(); }
    void ExpectEnd() const
    {
        if (!rest_.empty()) {
            Mismatch();
        }
    }
    [[noreturn]] static void Mismatch()
    {
        throw std::runtime_error("the bytes do not match what they stand for");
    }

private:
    Bytes rest_;
};

/** A word that its writer publishes other bytes with: they are read after it. */
std::uint32_t Published(Bytes file, std::size_t offset)
{
    return __atomic_load_n(reinterpret_cast<const std::uint32_t*>(&file[offset]), __ATOMIC_ACQUIRE);
}

/** A committed record, in place. */
struct Found
{
    std::size_t offset;
    std::uint32_t thread;
    RecordHeader header;
    Bytes payload;
};

Location TakeLocation(Taker taker)
{
    Location location;
    location.id = taker.Take<std::uint32_t>();
    location.line = taker.Take<std::int32_t>();
    location.file = taker.TakeText();
    location.function = taker.TakeText();
    location.message = taker.TakeText();
    for (auto count = taker.Take<std::uint16_t>(); count > 0; --count) {
        const auto kind = taker.Take<std::uint8_t>();
        const auto size = taker.Take<std::uint16_t>();
        location.arguments.push_back({kind, size, taker.TakeText()});
    }
    taker.ExpectEnd();
    return location;
}

class Parser
{
public:
    explicit Parser(Bytes file) : file_(file)
    {
        if (file.size() < sizeof header_) {
            throw std::runtime_error("this is no trace store");
        }
        header_ = Taker(file).Take<FileHeader>();
        if (header_.magic != Magic) {
            throw std::runtime_error("this is no trace store");
        }
        if (header_.chunkSize != ChunkSize || header_.chunkCount > LargestStore / ChunkSize) {
            throw std::runtime_error("the header of this trace store is damaged");
        }
    }

    Store Parse()
    {
        const std::size_t size = HeaderBlock + std::size_t{header_.chunkCount} * ChunkSize;
        if (file_.size() < size) {
            Damaged(file_.size(), "of " + std::to_string(size) + " the file is cut off");
        }
        store_.dropped = header_.dropped;
        store_.process = header_.process;

        // A location is committed before the first record that names it: a second look finds the
        // locations of all records of the first one even while both are being written.
        const std::vector<Found> records = Scan();
        for (const Found& found : Scan()) {
            if (found.header.location == 0) {
                AddLocation(found);
            }
        }
        for (const Found& found : records) {
            if (found.header.location != 0) {
                AddRecord(found);
            }
        }
        std::ranges::stable_sort(store_.records, {}, &Record::time);
        return std::move(store_);
    }

private:
    void Damaged(std::size_t offset, const std::string& what)
    {
        if (!store_.damage) {
            store_.damage = "at byte " + std::to_string(offset) + " " + what;
        }
    }

    std::vector<Found> Scan()
    {
        std::uint32_t taken = Published(file_, offsetof(FileHeader, nextChunk));
        if (taken > header_.chunkCount) {
            Damaged(offsetof(FileHeader, nextChunk), "more chunks are in use than there are");
            taken = header_.chunkCount;
        }
        std::vector<Found> found;
        for (std::uint32_t chunk = 0; chunk < taken;) {
            chunk += ScanRun(chunk, taken - chunk, found);
        }
        return found;
    }

    /** @return the chunks of the run; 1 where there is no sound one */
    std::uint32_t ScanRun(std::uint32_t chunk, std::uint32_t chunksLeft, std::vector<Found>& found)
    {
        const std::size_t start = HeaderBlock + std::size_t{chunk} * ChunkSize;
        if (start + sizeof(ChunkHeader) > file_.size()) {
            return chunksLeft;
        }
        const std::uint32_t mark = Published(file_, start);
        if (mark == 0) {
            return 1; // taken by a thread that has not come to write yet, or never will
        }
        const auto header = Taker(file_.subspan(start)).Take<ChunkHeader>();
        if (mark != ChunkMark || header.span == 0 || header.span > chunksLeft) {
            Damaged(start, "a chunk has no valid header");
            return 1;
        }
        const std::size_t end =
            std::min(start + std::size_t{header.span} * ChunkSize, file_.size());
        for (std::size_t at = start + sizeof header; at + sizeof(RecordHeader) <= end;) {
            const std::uint32_t length = Published(file_, at);
            if (length == 0) {
                break;
            }
            const auto record = Taker(file_.subspan(at)).Take<RecordHeader>();
            const bool first = at == start + sizeof header;
            if (length < sizeof record || length > end - at ||
                (first && ChunksFor(length) != header.span)) {
                Damaged(at, "a record does not fit its place");
                return 1;
            }
            found.push_back({at, header.thread, record,
                             file_.subspan(at + sizeof record, length - sizeof record)});
            at += static_cast<std::size_t>(Padded(length));
        }
        return header.span;
    }

    void AddLocation(const Found& found)
    {
        try {
            auto location = std::make_unique<const Location>(TakeLocation(Taker(found.payload)));
            const std::uint32_t id = location->id;
            if (!store_.locations.emplace(id, std::move(location)).second) {
                Damaged(found.offset, "a location has the identifier of another one");
            }
        } catch (const std::runtime_error&) {
            Damaged(found.offset, "a location is malformed");
        }
    }

    void AddRecord(const Found& found)
    {
        const auto location = store_.locations.find(found.header.location);
        if (location == store_.locations.end() && store_.dropped > 0) {
            ++store_.dropped; // its location found no room: what cannot be read is lost as well
            return;
        }
        if (location == store_.locations.end()) {
            Damaged(found.offset, "a record has a location that is not in the store");
            return;
        }
        const auto time = found.header.time + static_cast<std::uint64_t>(header_.clockOffset);
        Record record{static_cast<std::int64_t>(time),
                      found.thread,
                      location->second.get(),
                      {found.payload.begin(), found.payload.end()}};
        try {
            Arguments(record);
            store_.records.push_back(std::move(record));
        } catch (const std::runtime_error&) {
            Damaged(found.offset, "a record does not match the arguments of its location");
        }
    }

    Bytes file_;
    FileHeader header_{};
    Store store_;
};

/**
 * A text is its length in base 128, the lowest group first, and its bytes. FF 7F is the length
 * 16383 as well as the mark of a null pointer: it is a length where so many bytes follow.
 */
Value TakeTextArgument(Taker& taker)
{
    constexpr std::uint32_t nullOrLength = 16383;
    std::uint32_t length = 0;
    unsigned char group = 0x80;
    for (unsigned shift = 0; group & 0x80 && shift < 28; shift += 7) {
        group = taker.Take<unsigned char>();
        length |= (group & 0x7FU) << shift;
    }
    if (length == nullOrLength && taker.Left() < nullOrLength) {
        return nullptr;
    }
    return taker.TakeText(length);
}

Value TakeNumber(Taker& taker, const ArgumentType& type)
{
    if (type.size > sizeof(std::uint32_t)) {
        Taker::Mismatch();
    }
    std::uint32_t bits = 0;
    std::ranges::copy(taker.Take(type.size), reinterpret_cast<unsigned char*>(&bits));
    const bool isSigned = type.typeName == "int" || type.typeName.starts_with("enum_");
    return isSigned ? std::int64_t{static_cast<std::int32_t>(bits)} : std::int64_t{bits};
}

std::string RenderNumber(std::string_view conversion, std::int64_t number)
{
    const auto bits = static_cast<std::uint32_t>(number);
    const char letter = conversion.back();
    if (letter == 'p' && bits == 0) {
        return "(nil)";
    }
    const bool isHex = letter == 'x' || letter == 'p';
    char digits[16];
    const auto end =
        letter == 'd'
            ? std::to_chars(std::begin(digits), std::end(digits), static_cast<std::int32_t>(bits))
            : std::to_chars(std::begin(digits), std::end(digits), bits, isHex ? 16 : 10);
    std::string text = letter == 'p' ? "0x" : conversion == "%02x" && bits < 16 ? "0" : "";
    return text.append(digits, end.ptr);
}

/** Renders one argument by a conversion of printf that the log points use. */
std::string Render(std::string_view conversion, const Value& value)
{
    if (const auto* number = std::get_if<std::int64_t>(&value)) {
        return RenderNumber(conversion, *number);
    }
    const auto* text = std::get_if<std::string>(&value);
    return text ? *text : "(null)";
}

} // namespace

Store ReadStore(const std::string& path)
{
    const MappedFile file(path);
    return ParseStore(file.Content());
}

Store ParseStore(std::span<const unsigned char> bytes)
{
    return Parser(bytes).Parse();
}

std::vector<Value> Arguments(const Record& record)
{
    Taker taker(record.payload);
    std::vector<Value> values;
    for (const ArgumentType& type : record.location->arguments) {
        values.push_back(type.size == VariableSize ? TakeTextArgument(taker)
                                                   : TakeNumber(taker, type));
    }
    taker.ExpectEnd();
    return values;
}

std::string Message(const Record& record)
{
    const std::vector<Value> values = Arguments(record);
    auto value = values.begin();
    std::string text;
    std::string_view format = record.location->message;
    while (!format.empty()) {
        const std::string_view plain = format.substr(0, format.find('%'));
        text += plain;
        format.remove_prefix(plain.size());
        const std::size_t end = format.find_first_of("%dpsux", 1);
        const std::string_view conversion =
            format.substr(0, end == std::string_view::npos ? end : end + 1);
        if (conversion == "%%") {
            text += '%';
        } else if (value == values.end() || end == std::string_view::npos) {
            text += conversion;
        } else {
            text += Render(conversion, *value++);
        }
        format.remove_prefix(conversion.size());
    }
    return text;
}

std::string Operation(const Location& location)
{
    const std::string name = location.function.substr(0, location.function.find('('));
    return name.substr(name.find_last_of(" :*&") + 1);
}

} // namespace trace
