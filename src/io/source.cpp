#include "vorn/io/source.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

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

}  // namespace

SourceText SourceText::read(const std::string& path) {
    SourceText source;
    source.standard_input = path == "-";
    source.name = source.standard_input ? "<stdin>" : path;
    Descriptor in{source.standard_input ? STDIN_FILENO
                                        : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)};
    if (in.fd < 0) fail(std::string("cannot open: ") + std::strerror(errno));
    struct stat info {};
    if (::fstat(in.fd, &info) != 0) fail(std::string("cannot open: ") + std::strerror(errno));
    if (S_ISDIR(info.st_mode)) fail("cannot read: is a directory");
    std::size_t expected = S_ISREG(info.st_mode) ? static_cast<std::size_t>(info.st_size) : 0;
    if (expected > kMaxInputBytes)
        fail("input larger than the limit of " + std::to_string(kMaxInputBytes >> 20) + " MiB");
    source.text = read_all(in.fd, expected);
    if (Compression c = compression_of(source.name); c != Compression::None)
        source.text = decompress(source.text, c);
    return source;
}

}  // namespace vorn::io
