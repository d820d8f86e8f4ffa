#include "vorn/io/source.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "vorn/io/decompress.h"
#include "vorn/io/limits.h"
#include "vorn/io/parse_error.h"

namespace vorn::io {

namespace {

[[noreturn]] void fail(const std::string& message) {
    throw ParseError({1, 1}, message);
}

// Closes the descriptor on every way out.
struct Descriptor {
    int fd;
    ~Descriptor() {
        if (fd > STDERR_FILENO) ::close(fd);
    }
};

// Reads to the end, straight into the string: the size of a regular file is known, so that
// is one allocation and, usually, one read.
std::string read_all(int fd, std::size_t expected) {
    std::string text;
    text.resize(std::max<std::size_t>(expected + 1, 1 << 16));
    std::size_t used = 0;
    while (true) {
        if (used == text.size()) {
            if (text.size() > kMaxInputBytes) break;
            text.resize(std::min(text.size() * 2, kMaxInputBytes + 1));
        }
        ssize_t n = ::read(fd, text.data() + used, text.size() - used);
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail(std::string("cannot read: ") + std::strerror(errno));
        if (n == 0) break;
        used += static_cast<std::size_t>(n);
    }
    if (used > kMaxInputBytes)
        fail("input larger than the limit of " + std::to_string(kMaxInputBytes >> 20) + " MiB");
    text.resize(used);
    return text;
}

// Files from this size on are mapped: below it a copy costs little.
constexpr std::size_t kMapFrom = std::size_t{1} << 20;

}  // namespace

// Owned text, or a read-only private mapping of a file.
struct SourceText::Storage {
    std::string owned;
    void* mapped = nullptr;
    std::size_t mapped_size = 0;

    Storage() = default;
    Storage(const Storage&) = delete;
    Storage& operator=(const Storage&) = delete;
    ~Storage() {
        if (mapped != nullptr) ::munmap(mapped, mapped_size);
    }
};

SourceText::SourceText(std::string name, std::string text, bool standard_input)
    : name(std::move(name)), standard_input(standard_input), storage_(std::make_shared<Storage>()) {
    storage_->owned = std::move(text);
    this->text = storage_->owned;
}

void SourceText::release_before(std::size_t offset) const {
    if (!storage_ || storage_->mapped == nullptr) return;
    auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
    std::size_t end = std::min(offset, storage_->mapped_size) / page * page;
    // Advice only: a failure leaves the pages where they are.
    if (end > 0) ::madvise(storage_->mapped, end, MADV_DONTNEED);
}

SourceText SourceText::read(const std::string& path) {
    SourceText source;
    source.standard_input = path == "-";
    source.name = source.standard_input ? "<stdin>" : path;
    source.storage_ = std::make_shared<Storage>();
    Descriptor in{source.standard_input ? STDIN_FILENO
                                        : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (in.fd < 0) fail(std::string("cannot open: ") + std::strerror(errno));
    struct stat info {};
    if (::fstat(in.fd, &info) != 0) fail(std::string("cannot open: ") + std::strerror(errno));
    if (S_ISDIR(info.st_mode)) fail("cannot read: is a directory");
    std::size_t expected = S_ISREG(info.st_mode) ? static_cast<std::size_t>(info.st_size) : 0;
    if (expected > kMaxInputBytes)
        fail("input larger than the limit of " + std::to_string(kMaxInputBytes >> 20) + " MiB");
    Compression compression = compression_of(source.name);
    if (S_ISREG(info.st_mode) && expected >= kMapFrom && compression == Compression::None) {
        void* at = ::mmap(nullptr, expected, PROT_READ, MAP_PRIVATE, in.fd, 0);
        if (at != MAP_FAILED) {
            // Read front to back: the pages behind the reader need not stay mapped.
            ::madvise(at, expected, MADV_SEQUENTIAL);
            source.storage_->mapped = at;
            source.storage_->mapped_size = expected;
            source.text = std::string_view(static_cast<const char*>(at), expected);
            return source;
        }
    }
    std::string& text = source.storage_->owned;
    text = read_all(in.fd, expected);
    if (compression != Compression::None) text = decompress(text, compression);
    source.text = text;
    return source;
}

}  // namespace vorn::io
