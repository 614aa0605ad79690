#include "ZVJournalFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>

#include "ZVPaths.h"

namespace {

constexpr std::string_view magic = "NORVO-JOURNAL 1\n";
constexpr std::size_t frameSize = 8;
// A record longer than this is no record of ours: a length read from damaged
// bytes must not make the reader look gigabytes ahead.
constexpr std::uint32_t largestRecord = 1u << 30;

const std::array<std::uint32_t, 256>& crcTable() {
    static const std::array<std::uint32_t, 256> table = [] {
        std::array<std::uint32_t, 256> result{};
        for (std::uint32_t index = 0; index < 256; ++index) {
            std::uint32_t value = index;
            for (int bit = 0; bit < 8; ++bit) value = (value & 1) ? 0xEDB88320u ^ (value >> 1) : value >> 1;
            result[index] = value;
        }
        return result;
    }();
    return table;
}

void putWord(std::string& out, std::uint32_t value) {
    for (int shift = 0; shift < 32; shift += 8) out.push_back(static_cast<char>((value >> shift) & 0xFF));
}

std::uint32_t wordAt(std::string_view bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (int index = 3; index >= 0; --index)
        value = (value << 8) | static_cast<unsigned char>(bytes[offset + static_cast<std::size_t>(index)]);
    return value;
}

}  // namespace

std::uint32_t ZVJournalFile::checksum(std::string_view bytes) {
    const auto& table = crcTable();
    std::uint32_t crc = 0xFFFFFFFFu;
    for (const char byte : bytes) crc = table[(crc ^ static_cast<unsigned char>(byte)) & 0xFF] ^ (crc >> 8);
    return crc ^ 0xFFFFFFFFu;
}

std::string ZVJournalFile::header(std::string_view base) {
    std::string out(magic);
    out += framedRecord(base.empty() ? std::string_view("-") : base);
    return out;
}

std::string ZVJournalFile::framedRecord(std::string_view payload) {
    std::string out;
    out.reserve(frameSize + payload.size());
    putWord(out, static_cast<std::uint32_t>(payload.size()));
    putWord(out, checksum(payload));
    out.append(payload);
    return out;
}

ZVJournalFile::Contents ZVJournalFile::read(const std::string& path) {
    Contents contents;
    std::string bytes;
    if (!ZVPaths::readFile(path, bytes) || bytes.empty()) return contents;
    const std::string_view text(bytes);
    // One record at `offset`: its payload, or nothing when it is cut short or damaged.
    const auto recordAt = [&](std::size_t offset, std::string_view& payload) {
        if (text.size() - offset < frameSize) return false;
        const std::uint32_t length = wordAt(text, offset);
        if (length == 0 || length > largestRecord || text.size() - offset - frameSize < length) return false;
        payload = text.substr(offset + frameSize, length);
        return checksum(payload) == wordAt(text, offset + 4);
    };
    std::string_view base;
    if (!text.starts_with(magic) || !recordAt(magic.size(), base)) {
        contents.state = Contents::State::damaged;
        return contents;
    }
    contents.base = base == "-" ? std::string() : std::string(base);
    std::size_t offset = magic.size() + frameSize + base.size();
    contents.validLength = offset;
    contents.state = Contents::State::intact;
    while (offset < text.size()) {
        std::string_view payload;
        if (!recordAt(offset, payload)) {
            // A record that runs to the end of the file, or a tail of zeros,
            // is what an interrupted append leaves; anything else after a bad
            // record means damage.
            const std::size_t remaining = text.size() - offset;
            const std::uint32_t length = remaining >= 4 ? wordAt(text, offset) : 0;
            const bool reachesEnd = remaining < frameSize || length == 0 || length >= remaining - frameSize;
            const bool zeros = text.substr(offset).find_first_not_of('\0') == std::string_view::npos;
            contents.state = reachesEnd || zeros ? Contents::State::tornTail : Contents::State::damaged;
            break;
        }
        offset += frameSize + payload.size();
        contents.records.emplace_back(payload);
        contents.recordEnds.push_back(offset);
        contents.validLength = offset;
    }
    return contents;
}

ZVJournalFile::~ZVJournalFile() { close(); }

void ZVJournalFile::close() {
    if (_fd >= 0) ::close(_fd);
    _fd = -1;
    _size = 0;
}

bool ZVJournalFile::openForAppending(const std::string& path, std::uint64_t keptLength) {
    close();
    const int fd = ::open(path.c_str(), O_RDWR | O_CLOEXEC);
    if (fd < 0) return false;
    if (::ftruncate(fd, static_cast<off_t>(keptLength)) != 0 || ::lseek(fd, 0, SEEK_END) < 0) {
        const int error = errno;
        ::close(fd);
        errno = error;
        return false;
    }
    _fd = fd;
    _size = keptLength;
    return true;
}

bool ZVJournalFile::replace(const std::string& path, std::string_view base, std::string_view framedRecords) {
    const std::string head = header(base);
    const bool written = ZVPaths::writeFileAtomically(path, 0600, [&](int fd) {
        return ZVPaths::writeAll(fd, head.data(), head.size()) &&
               ZVPaths::writeAll(fd, framedRecords.data(), framedRecords.size());
    });
    if (!written) return false;
    return openForAppending(path, head.size() + framedRecords.size());
}

bool ZVJournalFile::append(std::string_view framedRecords) {
    if (_fd < 0) {
        errno = EBADF;
        return false;
    }
    if (!ZVPaths::writeAll(_fd, framedRecords.data(), framedRecords.size())) {
        const int error = errno;
        // A half-written record would hide every later one from the reader.
        if (::ftruncate(_fd, static_cast<off_t>(_size)) == 0) ::lseek(_fd, 0, SEEK_END);
        errno = error;
        return false;
    }
    _size += framedRecords.size();
    return true;
}

bool ZVJournalFile::sync() { return _fd >= 0 && ::fdatasync(_fd) == 0; }

bool ZVJournalFile::readTail(std::uint64_t offset, std::string& bytes) const {
    bytes.clear();
    if (_fd < 0 || offset > _size) return false;
    bytes.resize(_size - offset);
    std::size_t done = 0;
    while (done < bytes.size()) {
        const ssize_t got = ::pread(_fd, bytes.data() + done, bytes.size() - done, static_cast<off_t>(offset + done));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        done += static_cast<std::size_t>(got);
    }
    return true;
}
